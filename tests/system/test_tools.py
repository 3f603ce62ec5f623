"""The tools as a user first meets them: help and wrong use at once, progress, programs that are started once."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
WRONG_USE = 64
# Besides a wrong option: arguments that a tool can refuse before it builds.
REFUSED = {
    'analyse.sh': [['--python', 'x.cpp'], ['README']],
    'bench.sh': [['--quik'], ['--quick', '--plot']],
    'build.sh': [['release']],
    'check.sh': [['no-such-update'], ['Lint', '.'], ['.', '--installed'], ['--strict']],
    'demo.sh': [['--details', 'file']],
    'release.sh': [['--unsigned', '--verify']],
    'setup.sh': [['exact']],
    'symbolise.sh': [[], ['Brevant.exe']],
    'test.sh': [['--fast', '-R', 'x'], ['unit'], ['-R', 'unit', '--quik']],
    'try.sh': [['no-such-update'], ['--answer', 'yes'], ['--kill-at', '-1'], ['--allow', ' '], ['--allow', 'B999']],
}


def call(*command, **options):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=300, **options)


class FirstSight(unittest.TestCase):
    """In a copy of the sources in which nothing is built, and nothing can be: no compiler, no package manager."""
    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())) / 'project'
        for folder in 'tools', 'bench':
            shutil.copytree(ROOT / folder, self.root / folder, ignore=shutil.ignore_patterns('__pycache__'))
        shutil.copy(ROOT / 'CMakeLists.txt', self.root)
        self.programs = self.root.parent / 'programs'
        self.programs.mkdir()
        for name in 'bash', 'env', 'dirname', 'sed', 'python3':
            (self.programs / name).symlink_to(shutil.which(name))
        self.tools = sorted(file.name for file in (self.root / 'tools').glob('*.sh') if os.access(file, os.X_OK))

    def tool(self, name, *arguments):
        result = call(f'tools/{name}', *arguments, cwd=self.root, env={'PATH': str(self.programs)})
        self.assertFalse((self.root / 'build').exists(), f'{name} has begun to build: {result.stdout}')
        return result.returncode, result.stdout

    def test_help(self):
        self.assertLessEqual({*REFUSED, 'agree.sh', 'update-dependencies.sh'}, set(self.tools))
        for python in True, False:
            for name in self.tools:
                with self.subTest(name, python=python):
                    code, output = self.tool(name, '--help')
                    self.assertEqual(0, code, output)
                    self.assertGreater(len(output.splitlines()), 1, output)
                    self.assertNotIn('set -euo', output)
            (self.programs / 'python3').unlink(missing_ok=True)  # a bare machine

    def test_wrong_use(self):
        for name in self.tools:
            for arguments in [['--no-such-option'], *REFUSED.get(name, [])]:
                with self.subTest(name, arguments=arguments):
                    code, output = self.tool(name, *arguments)
                    self.assertEqual(WRONG_USE, code, output)
                    self.assertIn(f'tools/{name}', output)


class Builds(unittest.TestCase):
    def test_progress(self):
        steps = ''.join(f'echo "[{step}/40] Compiling"; ' for step in range(1, 41))
        shown = call('bash', '-c', f'. tools/tool.sh; {{ echo "[setup] ready"; SECONDS=9; {steps} echo cc1plus; }} | '
                     '{ SECONDS=9; show_progress; }', cwd=ROOT).stdout.splitlines()
        self.assertEqual(['[setup] ready', '[build] 1 of 40 steps'], shown)

    @unittest.skipUnless((ROOT / 'build/release/bin/Brevant.exe').exists(), 'no release build: run tools/build.sh')
    def test_the_checker_speaks_of_the_hosts_files(self):
        samples = ROOT / 'samples' / 'second'
        with tempfile.TemporaryDirectory() as folder:
            shutil.copytree(samples / 'installed', f'{folder}/in stalled')
            shutil.copytree(samples / 'update', f'{folder}/update')
            for arguments, told in (
                    (['update', '--strict', '--installed', 'in stalled', '--format', 'sarif'],
                     f'"file://{folder}/update/"'),
                    (['plan', 'update', '--installed', 'in stalled', '--language', 'ES-ES'],
                     f'in {folder}/in stalled/\n'),
                    (['plan', 'update', '--installed', 'none'], 'none: cannot be read')):
                with self.subTest(arguments):
                    done = call(ROOT / 'tools/check.sh', *arguments, cwd=folder)
                    self.assertEqual(3 if 'none' in arguments else 0, done.returncode, done.stdout)
                    self.assertIn(told, done.stdout)
                    self.assertNotIn('Z:', done.stdout)

    @unittest.skipUnless((ROOT / 'build/release/bin/Brevant.exe').exists(), 'no release build: run tools/build.sh')
    def test_a_program_that_does_not_start_fails_the_build(self):
        with tempfile.TemporaryDirectory() as folder:
            shutil.copytree(ROOT / 'build/release/bin', folder, dirs_exist_ok=True)
            for name, other, code in ('Brevant.exe', None, 0), ('Brevant.exe', 'BrevantCheck.exe', 1), (
                    'BrevantCheck.exe', 'Brevant.exe', 1):
                with self.subTest(name, other=other):
                    if other:
                        shutil.copy(ROOT / 'build/release/bin' / other, pathlib.Path(folder) / name)
                    result = call('python3', '-B', '-m', 'brevantlab.first_start',
                                  env={**os.environ, 'BREVANT_BIN': folder, 'PYTHONPATH': str(ROOT / 'tools')})
                    self.assertEqual(code, result.returncode, result.stdout)
                    self.assertIn(f'FAILED: {name}' if code else 'start', result.stdout)
                    shutil.copy(ROOT / 'build/release/bin' / name, folder)


if __name__ == '__main__':
    unittest.main()
