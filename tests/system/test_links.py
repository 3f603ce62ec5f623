"""Links that a user could have put where a run, which has full rights, writes."""

import subprocess

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine
from brevantlab.try_update import host_path

DATA = 'C:\\ProgramData\\Kazmere\\KZVLT\\'
PRELOAD = DATA + 'Engine\\Preload\\'
ELSEWHERE = 'C:\\Elsewhere\\'


class Links(LabTest):
    def setUp(self):
        self.machine = self.enterContext(SampleMachine())
        self.machine.mark_renamed()

    def instruct(self, old, new):
        path = self.machine.install + 'QorPaFrwk.ini'
        self.machine.write(path, self.machine.read(path, 'utf-16').replace(old, new), 'utf-16')

    def test_nothing_of_an_update_goes_where_one_leads(self):
        machine = self.machine
        self.instruct('[QOR_DIR]\n', f'[QOR_DIR]\nadd={PRELOAD}New\\Deep\n')
        machine.link(DATA + 'Engine', ELSEWHERE)
        machine.link(machine.folders['share'] + 'Task', 'C:\\Package')
        before = machine.listing(ELSEWHERE)
        plan = machine.run(machine.install + 'BrevantCheck.exe', 'plan', machine.install).output
        self.assertEqual(2, plan.count('(a junction or symbolic link leads there)'), plan)
        self.assertIn('(a link, which is not followed)', plan)
        code, messages = machine.agent('/DeployFramework')
        self.assertEqual(0, code)
        self.assertTraced('links', messages)
        self.assertGreater(len(machine.pending_moves()), 20)
        machine.restart()
        self.assertSame(before, machine.listing(ELSEWHERE))
        self.assertEqual([], [path for path in machine.host(ELSEWHERE).rglob('New')])

    def test_no_signature_covers_what_one_leads_to(self):
        machine, folder, key = self.machine, self.machine.install.rstrip('\\'), self.machine.root / 'key.pem'
        checker = folder + '\\BrevantCheck.exe'
        manifest = machine.host(machine.folders['share']) / 'Setting/QorUpdate.json'
        machine.run(checker, 'manifest', '--into', folder)
        for words in (f'ecparam -name prime256v1 -genkey -noout -out {key}', f'pkey -in {key} -pubout -out {key}.pub',
                      f'dgst -sha256 -sign {key} -out QorUpdate.json.sig QorUpdate.json'):
            subprocess.run(['openssl', *words.split()], check=True, cwd=manifest.parent)
        check = ['check-signature', folder, '--key', host_path(f'{key}.pub')]
        self.assertEqual(0, machine.run(checker, *check).code)
        machine.host('C:\\Way').symlink_to(machine.host(folder).parent, target_is_directory=True)
        told = machine.run(checker, 'check-signature', 'C:\\Way\\' + folder.rpartition('\\')[2], *check[2:])
        self.assertEqual((1, True), (told.code, 'a link leads there' in told.output), told.output)
        machine.make_dir(machine.folders['share'] + 'Empty')
        machine.link(machine.folders['share'] + 'Empty', 'C:\\Empty')
        for code, words in ((1, check), (3, ['sign', folder, '--with', 'cmd.exe /c rem'])):
            told = machine.run(checker, *words)
            self.assertEqual((code, True), (told.code, 'Empty\\: a link' in told.output), told.output)

    def test_windows_is_asked_to_follow_none_of_a_users(self):
        for argument in ('/DeployFramework', '/ApplyNewName'):
            output = self.machine.run(self.machine.install + 'Brevant.exe', argument, debug='-all,fixme+process').output
            self.assertRegex(output, r'SetProcessMitigationPolicy \(16, \w+, 4\)', argument)
