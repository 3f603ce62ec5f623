"""Links that a user could have put where a run, which has full rights, writes."""

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine

DATA = 'C:\\ProgramData\\Kazmere\\KZVLT\\'
PRELOAD = DATA + 'Engine\\Preload\\'
ELSEWHERE = 'C:\\Elsewhere\\'


class Links(LabTest):
    def setUp(self):
        self.machine = self.enterContext(SampleMachine())
        self.machine.mark_renamed()

    def instruct(self, old, new):
        path = self.machine.install + 'QorPaFrwk.ini'
        self.machine.write(path, self.machine.read(path, 'utf-16').replace(old, new), 'utf-16')

    def test_nothing_of_an_update_goes_where_one_leads(self):
        machine = self.machine
        self.instruct('[QOR_DIR]\n', f'[QOR_DIR]\nadd={PRELOAD}New\\Deep\n')
        machine.link(DATA + 'Engine', ELSEWHERE)
        machine.link(machine.folders['share'] + 'Task', 'C:\\Package')
        before = machine.listing(ELSEWHERE)
        plan = machine.run(machine.install + 'BrevantCheck.exe', 'plan', machine.install).output
        self.assertEqual(2, plan.count('(a junction or symbolic link leads there)'), plan)
        self.assertIn('(a link, which is not followed)', plan)
        code, messages = machine.agent('/DeployFramework')
        self.assertEqual(0, code)
        source = machine.folders['product'] + 'Engine\\Preload\\preload.dat'
        self.assertSame([f"!!! Failed to create directory '{PRELOAD}New\\Deep', error = 681.",
                         f'!!! ::MoveFileEx({source}, {PRELOAD}preload.dat) failed: 0x000002A9'],
                        [text for text in messages if '681' in text or '2A9' in text])
        self.assertGreater(len(machine.pending_moves()), 20)
        machine.restart()
        self.assertSame(before, machine.listing(ELSEWHERE))
        self.assertEqual([], [path for path in machine.host(ELSEWHERE).rglob('New')])

    def test_windows_is_asked_to_follow_none_of_a_users(self):
        for argument in ('/DeployFramework', '/ApplyNewName'):
            output = self.machine.run(self.machine.install + 'Brevant.exe', argument, debug='-all,fixme+process').output
            self.assertRegex(output, r'SetProcessMitigationPolicy \(16, \w+, 4\)', argument)
