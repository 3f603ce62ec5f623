"""What "undo" writes restores the product: the same files, folders and values as before, except for the listed ones.
Any number of random updates: python3 -m brevantlab.undo."""
import pathlib
import re
import tempfile
import unittest

from brevantlab.agree import State
from brevantlab.expect import LabTest
from brevantlab.layouts import write_sample
from brevantlab.machine import SETTINGS
from brevantlab.prefix import ROOT
from brevantlab.random_update import random_scenario
from brevantlab.undo import UNDO, UndoMachine, spread, unlisted

VAULT = SETTINGS + '\\Vault'
ODD_SEEDS = 44, 69, 78, 162, 165
# What is listed as not restored.
ALWAYS = (r'.*\\(config|qorshcut|readme)_en-us\.\w+', r'.*\\qorupdate\.json', r'.*\\qorpafrwk\.ini, .*',
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
        for (update, installed), listed, parts in (
                (write_sample(self.home), [*ALWAYS, *OF_SAMPLE], spread(10)),
                (starter, [*ALWAYS, *OF_STARTER], spread(2))):
            for ended_at in parts:
                with self.subTest(update=update, ended_at=ended_at):
                    scenario = self.machine.prepare(update, installed)
                    self.assertSame([], self.machine.undo(scenario, strict=True, ended_at=ended_at))
                    self.assertSame([], [what for what in self.machine.listed
                                         if not any(re.fullmatch(known, what) for known in listed)])
                    self.assertLess(len(self.machine.listed) + 5, len(self.machine.changed))
                    self.assertSame(changed.setdefault(update, self.machine.changed), self.machine.changed)
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

    def test_what_cannot_be_restored_is_listed(self):
        scenario = self.machine.prepare(*write_sample(self.home))
        self.machine.set_value(VAULT, 'HelpFile', '%TEMP%\\x', 'expand')
        self.machine.set_value(VAULT, 'MostBytes', ['a', 'b'])
        self.machine.set_value(VAULT, 'Package', 'with an ! in it')
        self.assertSame([], self.machine.undo(scenario))
        below = scenario.install.lower()
        for what in (*(f'hkey_local_machine\\software\\kazmere\\kzvlt\\vault : {name}'
                       for name in ('helpfile', 'mostbytes', 'package')),
                     below + 'policy\\', below + 'config_en-us.xml', 'c:\\windows\\temp\\keystride1.tmp'):
            self.assertIn(what, self.machine.listed)
        self.assertFalse({place for place in self.machine.listed if 'idleminutes' in place or 'legacy' in place})

    def test_wrong_use(self):
        scenario = self.machine.prepare(*write_sample(self.home))
        checker, update = scenario.install + 'BrevantCheck.exe', scenario.install.rstrip('\\')
        self.machine.write(UNDO + 'a', '')
        self.assertEqual((2, 3), (self.machine.run(checker, 'undo', update).code,
                                  self.machine.run(checker, 'undo', update, '--output', UNDO).code))

    def test_a_difference_is_told(self):
        def state(**parts):
            return State(**{'files': {}, 'folders': set(), 'links': {}, 'values': {}, 'moves': [], 'commands': [],
                            **parts})
        for after, told in ((state(files={'c:\\k\\a': b''}), 'file c:\\k\\a'), (state(folders={'c:\\k\\b'}), ''),
                            (state(values={('hklm\\k', ''): '1'}), 'value hkey_local_machine\\k : (unnamed)'),
                            (state(files={'c:\\k\\updateinfo.ini': b'[A]\nB=1'}), 'key c:\\k\\updateinfo.ini [a] b')):
            found = list(unlisted(state(), after, 'c:\\k\\', {'c:\\k\\b\\'}))
            self.assertEqual([told] if told else [], [line.partition(':  ')[0].rpartition(': ')[0] for line in found])


if __name__ == '__main__':
    unittest.main()
