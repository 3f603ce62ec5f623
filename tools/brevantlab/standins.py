"""The two stand-ins for libraries that tests put beside the program, and the files that control them."""
from .machine import Machine

OK, CANCEL = '1', '2'
ENDED = 66  # the exit code of a process that the fault library ends


class Question:
    """wtsapi32: the message box that asks the user to restart. Until it is answered the program waits in it."""
    LIBRARY = 'wtsapi32'

    def __init__(self, machine: Machine, folder: str):
        self.machine, self.log, self.reply = machine, f'{folder}wtsapi32.log', f'{folder}wtsapi32.answer'

    def hold(self) -> None:
        """The user thinks until answer()."""
        self.machine.write(self.reply, '')

    def answer(self, button: str) -> None:
        self.machine.write(self.reply, button)

    def asked(self) -> dict[str, str]:
        """title, message, style and wait of the question; empty before it is asked."""
        text = self.machine.read(self.log) or ''
        facts = dict(line.split(': ', 1) for line in text.splitlines() if ': ' in line)
        return facts if 'wait' in facts else {}


class FaultLibrary:
    """KzDbgFault in the trace library's place: makes things happen at a trace line."""
    LIBRARY = 'KzDbgFault'

    def __init__(self, machine: Machine, folder: str):
        self.machine, self.folder = machine, folder
        machine.install_program(folder, standins=[self.LIBRARY])
        machine.host(f'{folder}{self.LIBRARY}.dll').replace(machine.host(folder + 'KzDbg64.dll'))

    def end_at(self, line: int) -> None:
        """The program ends at that line of its trace; 0: it does not."""
        self.machine.write(self.folder + 'fault.end', str(line))

    def hold_at(self, line: int) -> None:
        """The program waits at that line, in which it says held(), until go_on()."""
        self.machine.write(self.folder + 'fault.hold', str(line))

    def held(self) -> bool:
        return self.machine.host(self.folder + 'fault.held').exists()

    def go_on(self) -> None:
        self.machine.host(self.folder + 'fault.hold').unlink()

    def hurry(self) -> None:
        """The program's pauses take no time."""
        self.machine.write(self.folder + 'fault.hurry', '')

    def lines(self) -> int:
        """The number of lines that the last complete run traced."""
        return int(self.machine.read(self.folder + 'fault.count') or 0)
