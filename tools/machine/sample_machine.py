"""A throwaway machine with the sample product, its update and the program on it."""
import sys

from machine import PRODUCT, ROOT, SETTINGS, Machine

sys.path.append(str(ROOT / 'samples'))
from lay_out import folders, lay_out  # noqa: E402

MARKER = ('{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}', '{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}')
RUN_ONCE = 'HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce'


class SampleMachine(Machine):
    def __init__(self, language='EN-US', install=PRODUCT, drives=()):
        super().__init__()
        for letter in drives:
            self.add_drive(letter)
        self.install = install
        self.folders = folders(install)
        self.rows = lay_out(self, language, install)
        self.install_program(install, standins=['wtsapi32'])

    def agent(self, *arguments):
        """Runs the program; its exit code and what it traced."""
        return self.run_traced(self.install + 'Brevant.exe', *arguments)

    def mark_renamed(self):
        """Leaves the product's new name out of what follows."""
        self.set_value(SETTINGS, *MARKER)

    def listing(self):
        """{path: content} of all files below the install folder."""
        home = self.host(self.install)
        return {str(file.relative_to(home)): file.read_bytes() for file in home.rglob('*') if file.is_file()}
