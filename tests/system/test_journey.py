"""From a new update to many machines and back: the commands of the README in their order."""
import json
import pathlib
import re
import shutil
import subprocess
import tempfile

from brevantlab.expect import LabTest, faults
from brevantlab.machine import PRODUCT, Machine
from brevantlab.layouts import install_folder
from brevantlab.prefix import ROOT
from brevantlab.try_update import host_path
from brevantlab.undo import unlisted, whole_state

SETTING = 'Component/c21t2103v3.9.3l1p1r1o1/Share/Setting'
PENDING = 3010 & 0xFF
UNDO = 'C:\\Program Files\\Kazmere\\Undo'
PLACES = PRODUCT, 'C:\\ProgramData\\', 'C:\\windows\\Temp\\', 'C:\\users\\Public\\'
KEYS = [f'HKLM\\Software\\{key}' for key in ('Kazmere', 'WOW6432Node\\Kazmere', 'Microsoft\\Windows\\CurrentVersion')]


class Journey(LabTest):
    def setUp(self):
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.keys = {name: self.make_key(name) for name in ('own', 'other')}

    def openssl(self, *words):
        subprocess.run(['openssl', *words], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def make_key(self, name):
        private, public = self.home / f'{name}.pem', self.home / f'{name}.pub'
        self.openssl('ecparam', '-name', 'prime256v1', '-genkey', '-noout', '-out', private)
        self.openssl('ec', '-in', private, '-pubout', '-out', public)
        return public

    def place(self, path):
        # Above a folder on the machine's drive C: are its own folders only, not those of the host.
        drive = self.machine.host('C:\\')
        return str(path).replace(str(drive), 'C:').replace('/', '\\') if drive in path.parents else host_path(path)

    def check(self, *words):
        return self.machine.run(self.checker, *(self.place(word) if isinstance(word, pathlib.Path) else word
                                                for word in words), errors=True)

    def sign(self, command=None, update=None):
        signer = self.home / 'my signer'
        signer.write_text(f'#!/bin/sh\nexec openssl dgst -sha256 -sign {self.home}/own.pem -out "$1.sig" "$1"\n')
        signer.chmod(0o755)
        subprocess.run([ROOT / 'tools/check.sh', 'sign', update or self.update, '--with', command or f'"{signer}"'],
                       check=True, stdout=subprocess.DEVNULL)

    def start(self):
        self.machine = self.enterContext(Machine())
        self.machine.install_program()
        self.checker = PRODUCT + 'BrevantCheck.exe'

    def test_a_signature_covers_every_byte(self):
        self.start()
        self.update = pathlib.Path(shutil.copytree(ROOT / 'starter/update', self.machine.host('C:\\Made') / 'update'))
        self.signature = self.update / SETTING / 'QorUpdate.json.sig'
        self.sign()
        own = ['--key', self.keys['own']]
        good = self.check('check-signature', self.update, '--key', self.keys['other'], *own)
        self.assertEqual((0, 'signed with key '), (good.code, good.output[:16]))
        self.assertEqual(0, self.check('lint', self.update, '--strict').code)
        self.assertEqual(1, self.check('check-signature', self.update, '--key', self.keys['other']).code)
        self.assertEqual(3, self.check('check-signature', self.update, '--key', self.home / 'own.pem').code)
        files = [file for file in self.update.rglob('*') if file.is_file() and file.name != 'UpdateInfo.ini']
        self.assertGreater(len(files), 8)
        for file in files:
            content = file.read_bytes()
            for spoilt in (content[:-1] + bytes([content[-1] ^ 1]), content[:-1], content + b'\n' * 2000, None):
                with self.subTest(file=file.name, size=len(spoilt or b'')):
                    file.unlink() if spoilt is None else file.write_bytes(spoilt)
                    self.assertIn(self.check('check-signature', self.update, *own).code, (1, 3))
                    self.assertEqual(spoilt is not None, file.exists())
            file.write_bytes(content)
        (more := self.signature.with_name('more.txt')).touch()
        self.assertEqual(1, self.check('check-signature', self.update, *own).code)
        more.unlink()
        for place in (self.update.parent, self.update, self.update / 'QorPaFrwk.ini', more.parent, self.signature):
            place.chmod(place.stat().st_mode ^ 0o002)
            told = self.check('check-signature', self.update, *own)
            self.assertRegex(f'{told.code}{told.output}',
                             f'^1{re.escape(self.place(place))}\\\\?: standard users can .*\n1 fault\n$')
            place.chmod(place.stat().st_mode ^ 0o002)
        (self.home / 'UpdateInfo.ini').write_text('[COMPONENT_LIST]\nComponent101_Version=9.0.0.0\n')
        own += ['--installed', self.home]
        self.assertEqual(1, self.check('check-signature', self.update, *own).code)
        self.assertEqual(0, self.check('check-signature', self.update, *own, '--older').code)
        manifest = self.signature.with_suffix('')
        told = self.check('sign', self.update, '--with', 'cmd.exe /c copy ' + host_path(self.keys['own'])
                          + ' ' + self.place(self.signature) + ' &rem')
        self.assertEqual((0, self.keys['own'].read_bytes()), (told.code, self.signature.read_bytes()), told.output)
        self.assertEqual(3, self.check('sign', self.update, '--with', 'cmd.exe /c rem').code)
        instructions = (self.update / 'QorPaFrwk.ini').rename(self.home / 'QorPaFrwk.ini')
        self.sign()
        instructions.rename(self.update / 'QorPaFrwk.ini')
        self.assertEqual(1, self.check('check-signature', self.update, *own).code)
        self.assertTrue(manifest.exists())
        told = self.check('sign', self.update, '--with', f'cmd.exe /c type nul >{self.place(self.signature)} &rem')
        self.assertEqual((3, True), (told.code, 'wrote no signature' in told.output), told.output)
        self.assertRaises(subprocess.CalledProcessError, self.sign, 'true')  # the old signature is no new one

    def lay_out(self):
        self.start()
        spring = self.home / 'spring'
        self.assertEqual(0, self.check('new', spring).code)
        self.update = spring / 'update'
        self.assertEqual(0, self.check('lint', self.update, '--installed', spring / 'installed', '--strict').code)
        install_folder(self.machine, spring / 'installed', 'EN-US')
        self.sign()
        self.lay(self.update)

    def lay(self, update):
        """Copies the update over the product, as the update client does."""
        for name in ('Component', 'QorPaFrwk.ini', 'UpdateInfo.ini'):
            source, target = update / name, self.machine.host(PRODUCT + name)
            shutil.copytree(source, target, dirs_exist_ok=True) if source.is_dir() else shutil.copy(source, target)

    def deploy_undo(self, own):
        """Signs what undo wrote, and deploys it like any other update, but for its older version."""
        undo, folder = self.machine.host(UNDO), PRODUCT.rstrip('\\')
        self.assertEqual(0, self.check('lint', UNDO, '--strict').code)
        self.sign(update=undo)
        self.lay(undo)
        own += ['--older']
        self.assertEqual([1, 0], [self.check('check-signature', folder, *words).code for words in (own[:-1], own)])
        self.assertEqual((0, 'ready\n'), tuple(self.check('ready', folder)))
        self.machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        self.machine.restart()
        self.assertRegex(self.check('verify', '--detect', *own[:-1]).output, '^arrived [0-9a-f]{64}\n$')
        manifest = json.loads(next(undo.glob('Component/*/Share/Setting/QorUpdate.json')).read_text())
        return {part['what'].replace('{InstalledDir}', PRODUCT).lower() for part in manifest['not_covered']
                if part['kind'] == 'not_restored'}

    def test_from_a_new_update_to_many_machines_and_back(self):
        self.lay_out()
        folder, own = PRODUCT.rstrip('\\'), ['--key', self.keys['own']]
        before = whole_state(self.machine, KEYS, PLACES)
        self.assertEqual(0, self.check('check-signature', folder, *own).code)
        self.assertEqual((0, 'ready\n'), tuple(self.check('ready', folder)))
        self.assertEqual(0, self.check('undo', folder, '--output', UNDO).code)
        self.machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        self.assertEqual(3, self.check('undo', folder, '--output', UNDO + '2').code)  # too late
        self.assertEqual([PENDING, 3], [self.check('verify', '--key', self.keys[name]).code for name in self.keys])
        self.assertEqual((0, ''), tuple(self.check('verify', '--detect')))
        self.assertRegex(self.check('verify', '--detect', '--pending', 'arrived').output, '^pending ')
        self.machine.restart()
        self.assertRegex(self.check('verify', '--detect', *own).output, '^arrived [0-9a-f]{64}\n$')
        record = self.home / 'records'
        record.mkdir()
        self.assertEqual(0, self.check('verify', '--record', record / 'pc.json').code)
        told = json.loads(self.check('rollup', record, '--format', 'json').output)
        self.assertEqual([1], [update['arrived'] for update in told['updates']])
        (record / 'spoilt.json').touch()
        self.assertEqual(1, self.check('rollup', record).code)
        self.assertEqual((0, 'equal\n'), tuple(self.check('diff', self.update, PRODUCT + 'QorUpdate.json')))
        deployed = whole_state(self.machine, KEYS, PLACES)
        self.assertGreater(len(list(unlisted(before, deployed, PRODUCT.lower(), set()))), 10)
        listed = self.deploy_undo(own)
        self.assertSame([], list(unlisted(before, whole_state(self.machine, KEYS, PLACES), PRODUCT.lower(), listed)))

    def test_of_two_updates_the_later_one_counts(self):
        self.lay_out()
        self.machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        info, folder = self.machine.host(PRODUCT + 'UpdateInfo.ini'), self.machine.host(PRODUCT + 'Component')
        name, later = SETTING.split('/')[1], 'c21t2103v3.9.4l1p1r1o1'
        shutil.copytree(self.update / 'Component' / name, folder / later)
        (folder / later / '64bit' / name).rename(folder / later / '64bit' / later)
        (folder / later / '64bit' / later / 'Qorvault.cmd').write_text('later')
        info.write_bytes(info.read_bytes().decode('utf-16').replace(name, later).encode('utf-16'))
        self.assertEqual(0, self.check('manifest', '--into', PRODUCT.rstrip('\\')).code)
        self.machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        told = json.loads(self.check('verify', '--format', 'json').output)
        self.assertEqual([], faults('verify', told))
        self.assertEqual([('file', '{InstalledDir}Qorvault.cmd')],
                         [(row['kind'], row['what']) for row in told['replaced']])


if __name__ == '__main__':
    import unittest
    unittest.main()
