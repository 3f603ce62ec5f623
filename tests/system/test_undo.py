"""What "undo" writes restores the product: the same files, folders and values as before, except for the listed ones.
Any number of random updates: python3 -m brevantlab.undo."""
import pathlib
import re
import tempfile
import unittest

from brevantlab.agree import State
from brevantlab.expect import HomeTest, LabTest
from brevantlab.layouts import write_sample
from brevantlab.machine import SETTINGS
from brevantlab.prefix import ROOT
from brevantlab.random_update import random_scenario
from brevantlab.trials import TRIALS, Trials
from brevantlab.undo import UNDO, UndoMachine, spread, unlisted

VAULT = SETTINGS + '\\Vault'
BELOW = VAULT.removeprefix('HKLM\\')
ODD_VALUES = {'Text': ['1'], 'Number': [1], 'Quoted': ['"q" ;=\\'], 'Spaced': [' x '], 'Empty': [''], 'Bang': ['a!b'],
              'Expand': ['%TEMP%\\x', 'expand'], 'Multi': [['a', 'b']], 'Service': ['a {ServiceLogDir}x']}
UNWRITABLE = 'spaced', 'empty', 'bang', 'expand', 'multi', 'service'
ODD_SEEDS = 44, 69, 78, 162, 165
# What is listed as not restored.
ALWAYS = (r'.*\\(config|qorshcut|readme)_en-us\.\w+', r'.*\\qorupdate\.json(\.sig)?', r'.*\\qorpafrwk\.ini, .*',
          r'.* component103_iud_version', r'.*\\kzvlt : (doupdatedeploy|frwkdeploytick)', 'the effects of .*')
OF_STARTER = r'.*\\help\\',
OF_SAMPLE = (r'.*\\(lang|policy|icons|32|qornativemessaging|images|daily)\\', r'c:\\.*\\keystride(\.old|1\.tmp)',
             'the new name .*', r'.*\\kzvlt : \{2b7f61c4.*')


class Undo(LabTest):
    def setUp(self):
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.machine = self.enterContext(UndoMachine())

    def test_the_product_is_as_before(self):
        starter = ROOT / 'starter/update', ROOT / 'starter/installed'
        changed = {}
        for name, (update, installed), listed, parts in (
                ('the sample', write_sample(self.home), [*ALWAYS, *OF_SAMPLE], spread(10)),
                ('the starter', starter, [*ALWAYS, *OF_STARTER], spread(2))):
            for ended_at in parts:
                with self.subTest(name, ended_at=ended_at):
                    scenario = self.machine.prepare(update, installed)
                    scenario.name = name
                    self.assertSame([], self.machine.undo(scenario, strict=True, ended_at=ended_at))
                    self.assertSame([], [what for what in self.machine.listed
                                         if not any(re.fullmatch(known, what) for known in listed)])
                    self.assertLess(len(self.machine.listed) + 4, len(self.machine.changed))
                    changes = [what for what in self.machine.changed if 'frwkdeploytick' not in what]  # a time
                    self.assertSame(changed.setdefault(name, changes), changes)
        self.assertEqual(12, self.machine.ended)

    def test_settings_that_the_update_carries_over_stay_the_users(self):
        def change(install):
            text = self.machine.read(config)
            self.assertIn('<Skin>light<', text)
            self.machine.write(config, text.replace('proxy.example', 'proxy.new.example'))
        scenario = self.machine.prepare(*write_sample(self.home))
        config = scenario.install + 'config.xml'
        before = self.machine.read(config)
        self.machine.meanwhile = change
        self.assertEqual(1, len(self.machine.undo(scenario)))
        self.assertEqual(before.replace('proxy.example', 'proxy.new.example'), self.machine.read(config))

    def test_random_updates(self):
        for seed in ODD_SEEDS:
            with self.subTest(seed=seed):
                scenario = random_scenario(seed)
                self.machine.lay_out(scenario)
                self.assertSame([], self.machine.undo(scenario))

    def test_odd_places(self):
        """Each needs care in a record, or has none. The result lints clean."""
        scenario = self.machine.prepare(ROOT / 'starter/update', ROOT / 'starter/installed')
        install, data = scenario.install, 'C:\\ProgramData\\Kazmere\\'
        setting = f'{install}Component\\c21t2103v3.9.3l1p1r1o1\\Share\\Setting\\'
        for path in ('Same.dat', '{InstalledDir}x.dat', 'a;b!=[c].dat', 'Old\\{x}\\é 漢.dat'):
            self.machine.write(install + path if path[0] in 'SO' else setting + path, 'same')
        self.machine.write(setting + 'Same.dat', 'same')
        self.machine.host(install + 'Same.dat').chmod(0o444)
        for place in (data + 'Old\\q\\z.dat', data + 'KZVLT\\Engine\\Preload\\p.dat'):
            self.machine.write(place, 'old')
        for name, old in ODD_VALUES.items():
            self.machine.set_value(VAULT, name, *old)
        info = f'[COMPONENT_LIST]\nSemi=a;b=c\nQuoted="q"\nBang=a!b\nTwice=1\nTwice=2\nForeign=é\nLong={"x" * 1020}\n'
        self.machine.write(install + 'UpdateInfo.ini', self.machine.read(install + 'UpdateInfo.ini', 'utf-16').replace(
            '[COMPONENT_LIST]\n', info) + '[component_list]\nX=1\n', 'cp1252')
        self.machine.write(install + 'QorPaFrwk.ini', '\n'.join([
            '[QOR_DIR]', 'delete={InstalledDir}Old', f'delete={data}Old', f'delete={data}KZVLT',
            '[QOR_FILE]', 'delete={InstalledDir}none', '[UPDATE_INFO]', 'modify=COMPONENT_LIST!New!1',
            *(f'modify=COMPONENT_LIST!{key}!new' for key in ('Semi', 'Quoted', 'Bang', 'Twice', 'Foreign', 'Long')),
            '[QOR_REGISTRY_PATCH]', f'add={BELOW}\\New\\Deep\\Deeper!v!REG_DWORD!1',
            *(f'add={BELOW}!{name}!REG_QDWORD!1' for name in ODD_VALUES), '']), 'utf-16')
        scenario.name = 'odd places'
        self.assertSame([], self.machine.undo(scenario, strict=True))
        key = 'hkey_local_machine\\' + BELOW.lower()
        info_key = f'{install}updateinfo.ini [component_list] '.lower()
        for what in (*(f'{key} : {name}' for name in UNWRITABLE), f'{key}\\new', f'{key}\\new\\deep',
                     *(info_key + name for name in ('bang', 'foreign', 'new', 'long')),
                     *(install.lower() + name for name in ('{installeddir}x.dat', 'old\\{x}\\')),
                     *(data.lower() + name for name in ('old\\q\\', 'kzvlt\\engine\\preload\\p.dat'))):
            self.assertIn(what, self.machine.listed)
        self.assertNotIn(install.lower() + 'old\\', self.machine.listed)
        self.assertEqual(len(UNWRITABLE), sum(what.startswith(f'{key} : ') for what in self.machine.listed))

    def test_settings_that_the_update_does_not_bring_stay_the_users(self):
        scenario = self.machine.prepare(ROOT / 'starter/update', ROOT / 'starter/installed')
        for file in self.machine.host(scenario.install).glob('Component/*/Share/Setting/config_*.xml'):
            file.unlink()
        config = scenario.install + 'config.xml'
        self.machine.meanwhile = lambda install: self.machine.write(config, 'changed')
        self.assertEqual([config.lower()], [line.split()[1][:-1] for line in self.machine.undo(scenario)])
        self.assertEqual('changed', self.machine.read(config))

    def test_wrong_use(self):
        scenario = self.machine.prepare(*write_sample(self.home))
        checker, update = scenario.install + 'BrevantCheck.exe', scenario.install.rstrip('\\')
        self.machine.write(UNDO + 'a', '')
        for name in ('Update\\QorPaFrwk.ini', 'Bare\\UpdateInfo.ini'):
            self.machine.write('C:\\Other\\' + name, '')
        self.machine.make_dir('C:\\Other\\Undo')
        self.machine.host('C:\\Other\\Undo').chmod(0o777)

        def undo(*words):
            return self.machine.run(checker, 'undo', *words)
        self.assertEqual([3, 2, 2], [undo(update, '--output', place).code for place in (
            UNDO, update + '/Component/undo', f'\\\\?\\{update.upper()}\\undo')])
        self.assertEqual(2, undo(update).code)
        code, output = undo('C:/Other/Update/', '--output', 'C:/Other/Undo', '--installed', 'C:\\Other\\Bare')
        self.assertEqual((0, True, True), (code, 'nothing to restore' in output, 'standard users' in output), output)
        self.assertEqual(2, undo('C:/Other/Update/', '--output', 'C:\\Other\\Update\\Undo').code)

    def test_a_difference_is_told(self):
        def state(**parts):
            return State(**{'files': {}, 'folders': set(), 'links': {}, 'values': {}, 'moves': [], 'commands': [],
                            **parts})
        for after, told in ((state(files={'c:\\k\\a': b''}), 'file c:\\k\\a'), (state(folders={'c:\\k\\b'}), ''),
                            (state(values={('hklm\\k', ''): '1'}), 'value hkey_local_machine\\k : (unnamed)'),
                            (state(files={'c:\\k\\updateinfo.ini': b'[A]\nB=1'}), 'key c:\\k\\updateinfo.ini [a] b')):
            found = list(unlisted(state(), after, 'c:\\k\\', {'c:\\k\\b\\'}))
            self.assertEqual([told] if told else [], [line.partition(':  ')[0].rpartition(': ')[0] for line in found])


class WithoutMistakes(HomeTest):
    def test_updates_are_clean_and_undone(self):
        self.assertShown(TRIALS / 'undo.txt', Trials(self.home).undo())


if __name__ == '__main__':
    unittest.main()
