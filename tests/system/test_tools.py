"""The tools: what they do with the commands of a machine (docs/tools), programs that are started once."""
import os
import re
import shutil
import unittest

from brevantlab.expect import HomeTest, LabTest, call
from brevantlab.prefix import ROOT
from brevantlab.rehearsal import REHEARSALS, rehearse

BIN = ROOT / 'build/release/bin'


class Rehearsals(LabTest):
    def test_every_tool_does_what_its_page_shows(self):
        pages = {file.name: file.read_text('utf-8') for file in REHEARSALS.iterdir()}
        for name, page in pages.items():
            with self.subTest(name):
                self.assertSame(page.splitlines(), rehearse(page).splitlines())
        for tool in (file.name for file in (ROOT / 'tools').glob('*.sh') if os.access(file, os.X_OK)):
            for option in '--help', '--no-such-option':
                shown = re.compile(f'^> .*tools/{tool} .*{option}', re.M)
                self.assertTrue(any(map(shown.search, pages.values())), shown.pattern)


class Analysis(HomeTest):
    def test_a_finding_of_any_tool_fails(self):
        shutil.copytree(ROOT / 'tools', self.home / 'tools', ignore=shutil.ignore_patterns('*.py'))
        for name in 'tests', 'bench', 'samples':
            (self.home / name).mkdir()
        for text, code, told in ('import os\n', 1, "'os' imported but unused"), ("a: int = ''\n", 1, 'Incompatible'), (
                'a = 1\n', 0, 'Success'):
            (self.home / 'tools/a.py').write_text(text)
            result, output = call(self.home / 'tools/analyse.sh', '--python')
            self.assertEqual((code, True), (result, told in output), output)


class Builds(HomeTest):
    @unittest.skipUnless((BIN / 'Brevant.exe').exists(), 'no release build: run tools/build.sh')
    def test_the_checker_speaks_of_the_hosts_files_and_ends_with_the_highest_code(self):
        shutil.copytree(ROOT / 'samples/second/installed', self.home / 'in stalled')
        for name in 'update', 'second':
            shutil.copytree(ROOT / 'samples/second/update', self.home / name)
        (self.home / 'none').mkdir()
        (self.home / 'link').symlink_to('none')
        (self.home / 'second/QorPaFrwk.ini').write_text('[QOR_DIR]\nAdd=x\n')
        for arguments, code, told in (
                ('update --strict --format sarif --installed', 0, f'"file://{self.home}/update/"'),
                ('new link/new --product', 0, 'link/new: 22 files written'),  # of the name "in stalled"
                ('sign none/x --with', 3, 'none/x: cannot be read: no such folder'),
                ('lint update --installed none --language', 1, f'{self.home}/none/registry.reg: missing; '),
                ('plan update --language ES-ES --installed', 0, f'in {self.home}/in stalled/\n'),
                ('second none second update --installed', 3, '\n0 errors, 0 warnings\n')):
            with self.subTest(arguments):
                result, output = call(ROOT / 'tools/check.sh', *arguments.split(), 'in stalled', folder=self.home)
                self.assertEqual((code, True, False), (result, told in output, 'Z:' in output), output)

    @unittest.skipUnless((BIN / 'Brevant.exe').exists(), 'no release build: run tools/build.sh')
    def test_a_program_that_does_not_start_fails_the_build(self):
        shutil.copytree(BIN, self.home, dirs_exist_ok=True)
        for name, other in ('Brevant.exe', 'Brevant.exe'), ('Brevant.exe', 'BrevantCheck.exe'), (
                'BrevantCheck.exe', 'Brevant.exe'):
            shutil.copy(BIN / other, self.home / name)
            code, output = call('python3', '-B', '-m', 'brevantlab.first_start', BREVANT_BIN=str(self.home),
                                PYTHONPATH=str(ROOT / 'tools'))
            self.assertEqual((name != other, True), (code, (f'FAILED: {name}' if code else 'start') in output), output)
            shutil.copy(BIN / name, self.home)
