"""What BrevantCheck says a deployment would do is what the deployment then does, and saying so changes nothing."""
import json
import unittest

from brevantlab.expect import LabTest
from brevantlab.layouts import PROXY_PASSWORD, SampleMachine
from brevantlab.machine import RUN_ONCE
from brevantlab.standins import CANCEL, Question

APP_DATA = 'C:\\ProgramData\\Kazmere\\'
LOGS = ('C:\\Trace\\Interactive\\', 'C:\\windows\\Temp\\')
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
    def machine_with_plan(self, install, language):
        """A machine and the changes that are planned for it, which have been shown to change nothing."""
        machine = self.enterContext(SampleMachine(language, install, drives='D'))
        file = install + 'QorPaFrwk.ini'
        text = machine.read(file, 'utf-16')
        for section, records in MORE.items():
            text = text.replace(f'[{section}]\n', f'[{section}]\n{records}', 1)
        machine.write(file, text, 'utf-16')
        before = self.files(machine), machine.read_tree('HKLM\\Software')
        code, output = machine.run(install + 'BrevantCheck.exe', 'plan', install.rstrip('\\'), '--format', 'json')
        self.assertEqual(0, code)
        self.assertSame(before, (self.files(machine), machine.read_tree('HKLM\\Software')))
        self.assertEqual([], machine.pending_moves())
        self.assertNotIn(PROXY_PASSWORD, output)
        self.before = before[0]
        return machine, [change for step in json.loads(output)['steps'] for change in step['changes']]

    def files(self, machine):
        """The contents of all files that a deployment may touch, by path in small letters."""
        found = {}
        for folder in (machine.install, APP_DATA, *LOGS):
            found |= {(folder + name).lower(): content for name, content in machine.listing(folder).items()}
        for name in ('kbfilter.ini', 'kbfilter.sys'):
            if (content := machine.host('C:\\' + name)).is_file():
                found['c:\\' + name] = content.read_bytes()
        return {path: content for path, content in found.items() if not path.endswith(('.log', 'wtsapi32.answer'))}

    def compare(self, install, language):
        machine, changes = self.machine_with_plan(install, language)
        Question(machine, install).answer(CANCEL)
        code, messages = machine.agent('/DeployFramework')
        self.assertEqual(0, code)
        done = [change for change in changes if change['outcome'] not in ('stay', 'fail')]

        def of(*actions, among=done):
            return [change for change in among if change['action'] in actions]

        moves = [(change['source'], '!' + change['target']) for change in of('move', among=changes)]
        moves += [(change['staged'], '!' + change['target']) for change in of('stage')]
        moves += [(change['target'], '') for change in of('delete') if change['atRestart']]
        self.assertSame(sorted(moves), sorted(machine.pending_moves()))

        self.compare_registry(machine, of('writeValue', 'deleteValue', among=changes))
        self.assertSame(sorted(change['target'] for change in of('runOnce')),
                        sorted(machine.values(RUN_ONCE).values()), 'commands')
        for change in of('createFolder', among=changes):
            self.assertEqual(change['outcome'] != 'fail', machine.host(change['target']).is_dir(), change)
        self.assertEqual(bool(of('ask')), '@@@ To display notification dialog...' in messages)
        self.compare_files(machine, of)
        return changes

    def compare_registry(self, machine, changes):
        left = {}
        for change in changes:
            key = change['target'].replace('HKEY_LOCAL_MACHINE', 'HKLM'), change.get('name', '')
            left[key] = change.get('old' if change['outcome'] == 'stay' else 'new')
            if change['outcome'] == 'fail':
                left.pop(key)
        values = {key: {name.lower(): data for name, data in machine.values(key).items()} for key, _ in left}
        found = {key: values[key[0]].get(key[1].lower()) for key in left}
        for key, data in found.items():
            if key[1] == 'FrwkDeployTick':
                left[key] = found[key] = data is not None
        self.assertSame(left, {key: data if data is None or data is True else str(data) for key, data in found.items()})

    def compare_files(self, machine, of):
        after = self.files(machine)
        made = {change.get('staged') or change['target']: change['source'] for change in of('copy', 'stage', 'keep')}
        gone = {change['target'].lower() for change in of('delete') if not change['atRestart']}
        self.assertSame((self.before.keys() | {path.lower() for path in made}) - gone, after.keys())
        edited = {change['target'].lower() for change in of('carryOver', 'writeIni')}
        for path, source in made.items():
            if path.lower() not in edited:
                self.assertEqual(self.before.get(source.lower()), after[path.lower()], path)
        for path in (self.before.keys() & after.keys()) - {path.lower() for path in made} - edited:
            self.assertEqual(self.before[path], after[path], path)
        keys = {}
        for change in of('writeIni', 'carryOver'):
            keys[change['target'], change['name']] = change
        for (path, name), change in keys.items():
            text = after[path.lower()]
            text = text.decode('utf-16' if text[:1] == b'\xff' else 'utf-8')
            value = change.get('new')
            if value is not None and change['action'] == 'writeIni':
                self.assertIn(name.partition('] ')[2] + '=' + value, text.splitlines())
            elif value is not None:
                self.assertRegex(text, f'<{name.rpartition("/")[2]}[^>]*>{value}<')

    def test_a_run_does_what_was_planned(self):
        for install, language in (('C:\\Kazmere\\', 'EN-US'), ('D:\\Kazmere\\', 'DE-DE')):
            with self.subTest(install=install):
                changes = self.compare(install, language)
                self.assertEqual(install[0] == 'D', any(change['action'] == 'stage' for change in changes))
                reasons = {change.get('reason') for change in changes if change['outcome'] == 'fail'}
                self.assertLessEqual({'there is no type REG_WORD', 'no full path, or a whole drive'}, reasons)


if __name__ == '__main__':
    unittest.main()
