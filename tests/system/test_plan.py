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
    def files(self, machine):
        """The contents of all files that a deployment may touch, by path in small letters."""
        found = {(folder + name).lower(): content for folder in (machine.install, APP_DATA, *LOGS)
                 for name, content in machine.listing(folder).items()}
        found |= {path: machine.host(path).read_bytes() for path in ('c:\\kbfilter.ini', 'c:\\kbfilter.sys')
                  if machine.host(path).is_file()}
        return {path: content for path, content in found.items() if not path.endswith(('.log', 'wtsapi32.answer'))}

    def compare(self, install, language):
        """Plans, which changes nothing, deploys, and returns the changes that were planned."""
        machine = self.enterContext(SampleMachine(language, install, drives='D'))
        file = install + 'QorPaFrwk.ini'
        text = machine.read(file, 'utf-16')
        for section, records in MORE.items():
            text = text.replace(f'[{section}]\n', f'[{section}]\n{records}', 1)
        machine.write(file, text, 'utf-16')
        before = self.files(machine), machine.read_tree('HKLM\\Software'), []
        code, output = machine.run(install + 'BrevantCheck.exe', 'plan', install.rstrip('\\'), '--format', 'json')
        self.assertEqual(0, code)
        self.assertSame(before, (self.files(machine), machine.read_tree('HKLM\\Software'), machine.pending_moves()))
        self.assertNotIn(PROXY_PASSWORD, output)
        changes = [change for step in json.loads(output)['steps'] for change in step['changes']]

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
        self.compare_files(before[0], self.files(machine), of)
        return changes

    def compare_registry(self, machine, changes):
        left = {(change['target'].replace('HKEY_LOCAL_MACHINE', 'HKLM'), change.get('name', '').lower()):
                change.get('old' if change['outcome'] == 'stay' else 'new')
                for change in changes if change['outcome'] != 'fail'}
        values = {key: {name.lower(): str(data) for name, data in machine.values(key).items()} for key, _ in left}
        found = {(key, name): values[key].get(name) for key, name in left}
        for key in left:
            if key[1] == 'frwkdeploytick':
                left[key] = found[key] is not None and found[key]
        self.assertSame(left, found)

    def compare_files(self, before, after, of):
        made = {(change.get('staged') or change['target']).lower(): change['source'].lower()
                for change in of('copy', 'stage', 'keep')}
        gone = {change['target'].lower() for change in of('delete') if not change['atRestart']}
        self.assertSame((before.keys() | made.keys()) - gone, after.keys())
        edits = {(change['target'], change['name']): change for change in of('writeIni', 'carryOver')}
        edited = {path.lower() for path, _ in edits}
        expected = {path: before.get(made.get(path, path)) for path in after.keys() - edited}
        self.assertSame(expected, {path: after[path] for path in expected})
        for (path, name), change in edits.items():
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
