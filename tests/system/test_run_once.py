"""Commands for after the restart, the touchpad that keeps some of them back, and the view of the registry."""
import collections
import unittest

from brevantlab.expect import LabTest
from brevantlab.machine import PRODUCT, RUN_ONCE, SETTINGS, Machine
from brevantlab.prefix import ROOT

SAME = 'cmd.exe /c echo once more>>C:\\said.txt'
FILTER = 'cmd.exe /c echo kbfilter.ini>>C:\\said.txt'
OTHER_CASE = 'cmd.exe /c echo KBFILTER.INI>>C:\\said.txt'


class RunOnce(LabTest):
    def test_commands_and_touchpad(self):
        machine = self.enterContext(Machine())
        machine.install_program()
        machine.enable_trace()
        machine.set_value(SETTINGS, 'ProductPath', PRODUCT)
        machine.set_value(SETTINGS, 'Language', 'ja-jp')  # which keeps the product's old name
        # A 32-bit program's idea of the product, which is none of this program's business.
        machine.set_value('HKLM\\Software\\Wow6432Node\\Kazmere\\KZVLT', 'ProductPath', 'C:\\elsewhere')
        machine.import_reg((ROOT / 'tests' / 'support' / 'touchpad.reg').read_text().partition('\n')[2])
        commands = [SAME, FILTER, SAME, OTHER_CASE]
        machine.write(PRODUCT + 'QorPaFrwk.ini',
                      '[Run]\n' + ''.join(f'SysRunOnce={command}\n' for command in commands), 'utf-16')

        before = {}
        for name, minimum, blacklist, kept_back in (
            ('Touchpad', '10.2.0.3', '', True),
            ('Touchpad', '10.2.0.2', '1', False),
            ('Touchpad', '', '1', False),
            ('touchpad', '99', 'yes', False),
            ('touchpad', '99', '1', True),
        ):
            with self.subTest(name=name, minimum=minimum, blacklist=blacklist):
                for value in (('ETDName', name), ('ETDMinVersion', minimum), ('KeystrokeBlackList', blacklist)):
                    machine.set_value(SETTINGS, *value)
                _, messages = machine.run_traced(PRODUCT + 'Brevant.exe', '/DeployFramework')
                expected = [command for command in commands if command != FILTER or not kept_back]
                registered = machine.values(RUN_ONCE)
                new = [registered[key] for key in registered.keys() - before.keys()]
                before = registered
                self.assertSame(collections.Counter(expected), collections.Counter(new))
                added = '@@@ *** FrameworkDeployAgent::PostRunScript() - add to sys RunOnce: ['
                self.assertSame([f'{added}{command}]' for command in expected],
                                [text for text in messages if text.startswith(added)])

        self.assertEqual(['ProductPath'], list(machine.values('HKLM\\Software\\Wow6432Node\\Kazmere\\KZVLT')))
        machine.restart()
        self.assertEqual({}, machine.values(RUN_ONCE))
        self.assertEqual(10 + 3 + 5, len(machine.read('C:\\said.txt').splitlines()))


if __name__ == '__main__':
    unittest.main()
