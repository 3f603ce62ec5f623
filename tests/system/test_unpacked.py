"""The tools that are shipped: they run without a compiler, on the programs of the release beside them."""
import os
import pathlib
import shutil
import zipfile

from brevantlab.expect import HomeTest, call
from brevantlab.prefix import BUILD, ROOT, VERSION, template
from shipping import release

# All that a machine with Debian's wine and python3 has of what the tools call.
COMMANDS = ('bash', 'dirname', 'env', 'mkdir', 'python3', 'realpath', 'setarch', 'wine', 'wineserver')


class Unpacked(HomeTest):
    parent = BUILD

    def setUp(self):
        super().setUp()
        self.root = self.home / f'brevant-tools-{VERSION}'
        standins = pathlib.Path(os.environ['BREVANT_STANDINS'])
        content = {name: standins / file.name if name.startswith('standins/') else file
                   for name, file in release.tools(ROOT).items()}
        release.write_zip(self.home / 'tools.zip', self.root.name, {**content, 'VERSION': f'{VERSION}\n'.encode()},
                          1700000000)
        with zipfile.ZipFile(self.home / 'tools.zip') as packed:
            modes = {entry.filename: entry.external_attr >> 16 for entry in packed.infolist()}
            packed.extractall(self.home)
        self.assertEqual((0o755, 0o644), (modes[f'{self.root.name}/tools/try.sh'], modes[f'{self.root.name}/VERSION']))
        (self.root / 'build').mkdir()
        home = template().parent
        (self.root / 'build' / home.name).symlink_to(home)
        self.path = self.home / 'path'
        self.path.mkdir()
        for name in COMMANDS:
            (self.path / name).symlink_to(shutil.which(name, path=os.defpath + ':/usr/bin'))

    def tool(self, name, *arguments, **variables):
        return call('/bin/bash', self.root / 'tools' / name, *arguments, folder=self.home, alone=True,
                    PATH=str(self.path), **variables)

    def test_the_release_beside_them_is_taken(self):
        code, output = self.tool('try.sh')
        self.assertEqual(64, code, output)
        self.assertIn(f'no Brevant.exe in {self.home}/brevant-{VERSION}', output)
        shutil.copytree(os.environ['BREVANT_BIN'], self.home / f'brevant-{VERSION}',
                        ignore=shutil.ignore_patterns('*.debug', 'standins'))
        self.assertEqual((0, 'new: 22 files written; the update is in "update", README.md says what to do next\n'),
                         self.tool('check.sh', 'new', 'new'))
        self.assertEqual((0, '0 errors, 0 warnings\n'),
                         self.tool('check.sh', 'lint', 'new/update', '--installed', 'new/installed', '--strict'))
        code, output = self.tool('check.sh', 'lint', 'new/update', '--format', 'sarif')
        self.assertIn(f'"helpUri" : "file://{self.root}/guides/check-rules.md#b001-encoding"', output)
        (self.home / f'brevant-{VERSION}').rename(self.home / 'other')
        code, output = self.tool('try.sh', 'new/update', '--installed', 'new/installed', '--programs=other')
        self.assertEqual((0, '[try] complete'), (code, output.splitlines()[-1]), output)

        (self.path / 'wineserver').unlink()
        for name, argument in ('try.sh', 'new/update'), ('check.sh', 'new/update'):
            code, output = self.tool(name, argument)
            self.assertEqual(70, code, output)
            self.assertIn('wineserver is missing; on Debian: apt-get install', output)
