"""The tools as a user first meets them: help and wrong use at once, programs that are started once."""
import os
import shutil
import unittest

from brevantlab.expect import HomeTest, call
from brevantlab.prefix import ROOT

BIN = ROOT / 'build/release/bin'
WRONG_USE = 64
# Besides a wrong option: arguments that a tool can refuse before it builds.
REFUSED = {
    'analyse.sh': [['--python', 'x.cpp'], ['README']],
    'bench.sh': [['--quik'], ['--quick', '--plot']],
    'build.sh': [['release']],
    'check.sh': [['no-such-update'], ['Lint', '.'], ['.', '--installed'], ['--strict']],
    'demo.sh': [['--details', 'file']],
    'next.sh': [['--only', 'x'], ['trixie', 'forky'], ['--']],
    'release.sh': [['--unsigned', '--verify'], ['--known-older', '--unsigned'], ['--verify', '--known-older', 'x']],
    'setup.sh': [['exact']],
    'symbolise.sh': [[], ['Brevant.exe']],
    'test.sh': [['--fast', '-R', 'x'], ['unit'], ['-R', 'unit', '--quik']],
    'try.sh': [['no-such-update'], ['--answer', 'yes'], ['--kill-at', '-1'], ['--allow', ' '], ['--allow', 'B999']],
}


class FirstSight(HomeTest):
    """In a copy of the sources in which nothing is built, and nothing can be: no compiler, no package manager."""
    def test_help_and_wrong_use(self):
        root, programs = self.home / 'project', self.home / 'programs'
        for folder in 'tools', 'bench':
            shutil.copytree(ROOT / folder, root / folder, ignore=shutil.ignore_patterns('__pycache__'))
        shutil.copy(ROOT / 'CMakeLists.txt', root)
        programs.mkdir()
        for name in 'bash', 'env', 'dirname', 'sed', 'python3':
            (programs / name).symlink_to(shutil.which(name))
        tools = {file.name for file in (root / 'tools').glob('*.sh') if os.access(file, os.X_OK)}
        self.assertLessEqual({*REFUSED, 'agree.sh', 'next.sh', 'update-dependencies.sh'}, tools)

        def tool(name, *arguments):
            code, output = call(f'tools/{name}', *arguments, folder=root, alone=True, PATH=str(programs))
            self.assertFalse((root / 'build').exists(), f'{name} has begun to build: {output}')
            return code, output

        for name in sorted(tools):
            for arguments in [['--no-such-option'], *REFUSED.get(name, [])]:
                code, output = tool(name, *arguments)
                self.assertEqual((WRONG_USE, True), (code, f'tools/{name}' in output), (arguments, output))
        for python in True, False:
            for name in sorted(tools):
                with self.subTest(name, python=python):
                    code, output = tool(name, '--help')
                    self.assertEqual((0, True), (code, len(output.splitlines()) > 1), output)
                    self.assertNotIn('set -euo', output)
            (programs / 'python3').unlink(missing_ok=True)  # a bare machine


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
