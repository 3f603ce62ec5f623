"""Commands for after the restart, and the touchpad that keeps some of them back."""
import re

from brevantlab.expect import LabTest
from brevantlab.machine import PRODUCT, RUN_ONCE, SETTINGS, Machine
from brevantlab.prefix import ROOT

SAME = 'cmd.exe /c echo once more>>C:\\said.txt'
FILTER = f'cmd.exe /c echo {PRODUCT} kbfilter.ini>>C:\\said.txt'
OTHER_CASE = f'cmd.exe /c echo {PRODUCT} KBFILTER.INI>>C:\\said.txt'


class RunOnce(LabTest):
    def test_commands_and_touchpad(self):
        machine = self.enterContext(Machine())
        machine.install_program()
        machine.set_value(SETTINGS, 'ProductPath', PRODUCT)
        machine.set_value(SETTINGS, 'Language', 'ja-jp')  # which keeps the product's old name
        machine.import_reg((ROOT / 'tests' / 'support' / 'touchpad.reg').read_text().partition('\n')[2])
        machine.write(PRODUCT + 'QorPaFrwk.ini', '[Run]\n' + ''.join(
            f'SysRunOnce={command}\n'.replace(PRODUCT, '{InstalledDir}')
            for command in (SAME, FILTER, SAME, OTHER_CASE)), 'utf-16')

        machine.enable_trace()
        traced = []
        for name, minimum, blacklist, kept_back in (
            ('Touchpad', '10.2.0.3', '', True),
            ('Touchpad', '10.2.0.2', '1', False),
            ('Touchpad', '', '1', False),
            ('touchpad', '99', 'yes', False),
            ('touchpad', '99', '1', True),
            ('without', '99', '1', True),
            ('without', '99', '', False),
            ('', '99', '', False),
        ):
            with self.subTest(name=name, minimum=minimum, blacklist=blacklist):
                for value in (('ETDName', name), ('ETDMinVersion', minimum), ('KeystrokeBlackList', blacklist)):
                    machine.set_value(SETTINGS, *value)
                planned = machine.run(PRODUCT + 'BrevantCheck.exe', 'plan', PRODUCT.rstrip('\\')).output
                self.assertEqual((1, kept_back), (planned.count(FILTER), 'left out' in planned), planned)
                traced += machine.run_traced(PRODUCT + 'Brevant.exe', '/DeployFramework')[1]

        step = r'(?s)PostRunScript\(\)\.\.\.\n(.*?\n)[^\n]*Leave\] FrameworkDeployAgent::PostRunScript'
        self.assertTraced('touchpad', re.findall(step, '\n'.join(traced)))

        machine.restart()
        self.assertEqual({}, machine.values(RUN_ONCE))
        self.assertEqual(3 + 4 + 4 + 4 + 3 + 3 + 4 + 4, len(machine.read('C:\\said.txt').splitlines()))
