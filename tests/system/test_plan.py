"""What BrevantCheck says a deployment would do is what the deployment then does, and saying so changes nothing."""
import unittest

from brevantlab.agree import KEY, changes_of, disagreements, state_of
from brevantlab.expect import LabTest, shown
from brevantlab.layouts import PROXY_PASSWORD, SampleMachine
from brevantlab.standins import CANCEL, Question

KEYS = (KEY, 'HKLM\\Software\\Plan')
# Records that the sample has no use for: what is there already, what cannot be done, what comes twice.
MORE = {
    'QOR_REGISTRY_PATCH': 'delete=SOFTWARE\\Kazmere\\KZVLT\\Vault!Theme\nadd=SOFTWARE\\Plan!Word!REG_WORD!1\n'
                          'add=SOFTWARE\\Plan!Text!REG_DWORD!0x10\nadd_if_non=SOFTWARE\\Plan!Text!REG_SZ!sixteen\n'
                          'add=SOFTWARE\\Plan!Mark!REG_DWORD!3943305780\nadd_if_non=SOFTWARE\\Plan!Mark!REG_DWORD!7\n',
    'QOR_DIR': 'add={InstalledDir}Driver\nadd=Relative\ndelete={UdComponentsSrcDir}Share\\Task\n',
    'QOR_FILE': 'delete={InstalledDir}*.previous.xml\ndelete_now={InstalledDir}*.none\ndelete_now=..\\*\n',
    'QOR_CONFIG_MERGE': 'migrate=/No/Such/Setting\nmigrate=//\n',
    'Run': 'SysRunOnce=cmd.exe /c echo cut! off\n',
    'UPDATE_INFO': 'modify=COMPONENT_LIST!OnlyAKey\nmodify=New!Key!1\nmodify=New!Key!2\n',
}


class Plan(LabTest):
    def compare(self, install, language):
        """Plans, which changes nothing, deploys, and returns the changes that were planned."""
        machine = self.enterContext(SampleMachine(language, install, drives='D'))
        file = install + 'QorPaFrwk.ini'
        text = machine.read(file, 'utf-16')
        for section, records in MORE.items():
            text = text.replace(f'[{section}]\n', f'[{section}]\n{records}', 1)
        machine.write(file, text, 'utf-16')
        before = state_of(machine, KEYS), machine.read_tree('HKLM\\Software')
        code, output = machine.run(install + 'BrevantCheck.exe', 'plan', install.rstrip('\\'), '--format', 'json')
        self.assertEqual(0, code)
        self.assertSame(vars(before[0]), vars(state_of(machine, KEYS)))
        self.assertSame(before[1], machine.read_tree('HKLM\\Software'))
        self.assertNotIn(PROXY_PASSWORD, output)
        changes = changes_of(output)

        question = Question(machine, install)
        question.answer(CANCEL)
        code, _ = machine.agent('/DeployFramework')
        self.assertEqual(0, code)
        found = list(disagreements(before[0], changes, state_of(machine, KEYS), bool(question.asked())))
        self.assertFalse(found, shown(found))
        return changes

    def test_a_run_does_what_was_planned(self):
        for install, language in (('C:\\Kazmere\\', 'EN-US'), ('D:\\Kazmere\\', 'DE-DE')):
            with self.subTest(install=install):
                changes = self.compare(install, language)
                self.assertEqual(install[0] == 'D', any(change['action'] == 'stage' for change in changes))
                reasons = {change.get('reason') for change in changes if change['outcome'] == 'fail'}
                self.assertLessEqual({'there is no type REG_WORD', 'no full path, or a whole drive'}, reasons)


if __name__ == '__main__':
    unittest.main()
