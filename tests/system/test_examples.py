"""What the checking program prints, as docs/examples show it: whole outputs, in the order of an update's life.

After an intended change this command writes the files again, and "git diff docs/examples" shows the change:

    BREVANT_EXAMPLES=write ctest --preset test -R system.examples
"""
import difflib
import json
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from brevantlab.expect import HomeTest
from brevantlab.layouts import install_folder
from brevantlab.machine import PRODUCT, SESSION_MANAGER, SETTINGS, Machine
from brevantlab.prefix import ROOT

EXAMPLES = ROOT / 'docs/examples'
SETTING = 'Component\\c21t2103v3.9.3l1p1r1o1\\Share\\Setting\\'
POWER = SESSION_MANAGER + '\\Power'
# What differs from one run, machine or release to another, and what is shown in its place.
SHOWN = [(re.compile(pattern), shown) for pattern, shown in (
    (r'((?:arrived|pending) |\n  "update": ")[0-9a-f]{64}', r'\1IDENTITY'), (r'(with key) [0-9a-f]+', r'\1 KEY'),
    (r'(\n  "machine": )"[^"]*"', r'\1"PC1"'), (r'(\n  "pending_minutes": )\d+', r'\g<1>1'),
    (r'(\n  "(?:started|time)": )"[^"]*"', r'\1"2026-01-31T12:00:00Z"'),
    (r'[\d/]{10} [\d:]{8}(  .*\(process) \w+, [\d.]+ s', r'31/01/2026 12:00:00\1 0120, 0.050 s'),
    (r'(FrwkDeployTick": |FrwkDeployTick", "new": |FrwkDeployTick: )"\d+"', r'\1"1234567"'),
    (r'(not examined: .*?\.xml: )[^\n]+', r'\1The filename cannot be resolved'),  # Windows says it
    (r'(?<![\d.])1\.\d+\.(?!1100)\d{4}(?![\d.])', '1.9.9999'))]  # the version of the agent
# Of the instruction file, for a later update.
CHANGES = (('}Help\r\n', '}Help\r\nadd={InstalledDir}Extra\r\n'), ('=/Window/Skin', '=/Window/Width'), ('!15', '!20'),
           ('delete={InstalledDir}Retired', 'delete_now={InstalledDir}Retired'), ('/updated', '/new'),
           ('3.9.3.1140', '3.9.4.1200'))

BROKEN = """[QOR_DIR]
Add={InstalledDir}Help
[QOR_FILE]
delete={InstaledDir}Old.dat
delete={InstalledDir}Gr\u00fcn.dat
[QOR_REGISTRY_PATCH]
add=SOFTWARE\\Kazmere\\KZVLT!Password!REG_SZ!Maple-Street-1906
add=SOFTWARE\\Kazmere\\KZVLT!Number!REG_TEXT!1
[Run]
SysRunOnce=Setup.exe /quiet
"""


def without_rules(part):
    """SARIF without the list of all rules."""
    return part | ({'rules': '...'} if 'rules' in part else {})


def laid_out(value, indent='\n'):
    """JSON with each short or simple part on one line."""
    text = json.dumps(value)
    parts = [*value.values()] if isinstance(value, dict) else value
    if len(text) < 110 or not any(isinstance(part, (dict, list)) for part in parts):
        return text
    names = [f'{json.dumps(name)}: ' for name in value] if isinstance(value, dict) else [''] * len(value)
    rows = [name + laid_out(part, indent + '  ') for name, part in zip(names, parts)]
    return f',{indent}  '.join(rows).join((f'{text[0]}{indent}  ', f'{indent}{text[-1]}'))


class Examples(HomeTest):
    def test_each_verb_prints_what_its_example_shows(self):
        self.machine, self.found, self.place = self.enterContext(Machine()), {}, 'C:\\Work\\'
        self.machine.install_program()
        self.machine.make_dir(self.place)
        self.of_authors()
        self.place = PRODUCT
        self.before_the_deployment()
        self.after_it()
        for name, text in self.found.items():
            example = EXAMPLES / f'{name}.txt'
            if os.environ.get('BREVANT_EXAMPLES') == 'write':
                example.write_text(text)
            with self.subTest(example.name):
                self.assertFalse('\n'.join(difflib.unified_diff(
                    example.read_text().splitlines(), text.splitlines(), 'example', 'printed', '', '', 0, '')))
        self.assertEqual({f'{name}.txt' for name in self.found}, {file.name for file in EXAMPLES.iterdir()})

    def show(self, name, *commands):
        """Adds calls to an example, with their output and exit code."""
        for command in commands:
            result = self.machine.run(PRODUCT + 'BrevantCheck.exe', *command.split(), cwd=self.machine.host(self.place))
            self.add(name, f'BrevantCheck {command}', f'{result.output}(exit code {result.code})\n')

    def show_file(self, name, file):
        self.add(name, f'type {file}', self.machine.read(self.place + file, 'utf-16' if '.ini' in file else 'utf-8'))

    def add(self, name, command, text):
        if text.startswith('{'):
            document, end = json.JSONDecoder(object_hook=without_rules).raw_decode(text)
            text = laid_out(document) + text[end:]
        for pattern, shown in SHOWN:
            text = pattern.sub(shown, text)
        self.found[name] = self.found.get(name, '') + f'> {command}\n{text}\n'

    def of_authors(self):
        self.show('new', 'new spring')
        spring = self.machine.host(self.place + 'spring\\update')
        self.summer, broken = (pathlib.Path(shutil.copytree(spring, spring.parents[1] / name))
                               for name in ('summer', 'broken'))
        self.change(*CHANGES)
        table = next(self.summer.glob('Component/*/DE-DE/StringTable.ini'))
        table.write_bytes(table.read_bytes().decode('utf-16').replace('Kazmere', 'K.').encode('utf-16'))
        shutil.copytree(table.parent, table.parent.with_name('FR-FR'))
        links = next(self.summer.glob('Component/*/Share/Setting/qorshcut_DE-DE.xml'))
        links.write_text(links.read_text().replace('Qorvault.cmd', 'Other.cmd'))
        (broken / 'QorPaFrwk.ini').write_text(BROKEN)
        next(broken.glob('Component/*/Share/Setting/config_DE-DE.xml')).unlink()
        self.show('lint', 'lint spring\\update --installed spring\\installed --strict', 'lint broken')
        self.show('lint.sarif', 'lint broken --format sarif')
        self.show('manifest', 'manifest spring\\update')
        self.show('diff', 'diff spring\\update spring\\update', 'diff spring\\update summer',
                  'diff spring\\update summer --format json')
        install_folder(self.machine, spring.parent / 'installed')

    def change(self, *changes):
        """Changes the instruction file of the later update, and copies that over the product."""
        file = self.summer / 'QorPaFrwk.ini'
        text = file.read_bytes().decode('utf-16')
        for old, new in changes:
            self.assertIn(old, text)
            text = text.replace(old, new)
        file.write_bytes(text.encode('utf-16'))

    def lay(self):
        shutil.copytree(self.summer, self.machine.host(PRODUCT), dirs_exist_ok=True)

    def before_the_deployment(self):
        machine, component = self.machine, self.machine.host(PRODUCT) / 'Component'
        self.lay()
        machine.set_value(POWER, 'HiberbootEnabled', 1)
        machine.set_value(SESSION_MANAGER, 'PendingFileRenameOperations', [
            '\\??\\C:\\other.dll', f'!\\??\\{PRODUCT}readme.htm', f'\\??\\{PRODUCT}config.xml', ''])
        component.chmod(0o777)
        self.show('plan', 'plan .')
        self.show('ready', 'ready .', 'ready . --format json')
        component.chmod(0o755)
        machine.set_value(POWER, 'HiberbootEnabled', 0)
        machine.set_value(SESSION_MANAGER, 'PendingFileRenameOperations', [])
        config = machine.host(PRODUCT + 'config.xml').rename(self.home / 'config.xml')
        machine.host(PRODUCT + 'config.xml').symlink_to('config.xml')
        self.show('ready', 'ready .')
        shutil.move(config, machine.host(PRODUCT + 'config.xml'))
        self.change(('InstalledDir}Extra', 'InstalledDir}Resource\\FR-FR'))
        self.lay()
        self.show('ready', 'ready .')
        self.show('plan.json', 'plan . --format json')
        self.show('undo', 'undo . --output ..\\Undo')
        self.show_file('undo', '..\\Undo\\QorPaFrwk.ini')
        self.show('verify', 'verify')
        self.sign()
        self.show('verify', 'verify')

    def sign(self):
        private, public, keys = self.home / 'key', self.machine.host('C:\\key.pem'), ['openssl']
        subprocess.run([*keys, 'ecparam', '-name', 'prime256v1', '-genkey', '-noout', '-out', private], check=True)
        subprocess.run([*keys, 'ec', '-in', private, '-pubout', '-out', public], check=True, stderr=subprocess.DEVNULL)
        self.show('check-signature', 'manifest . --into', 'check-signature . --key C:\\key.pem')
        manifest = self.machine.host(PRODUCT + SETTING + 'QorUpdate.json')
        subprocess.run([*keys, 'dgst', '-sha256', '-sign', private, '-out', f'{manifest}.sig', manifest], check=True)
        self.show('check-signature', 'check-signature . --key C:\\key.pem')
        script = self.machine.host(PRODUCT + SETTING) / 'Help/index.htm'
        content = script.read_bytes()
        script.write_bytes(content + b' ')
        script.with_name('more.htm').touch()
        self.show('check-signature', 'check-signature . --key C:\\key.pem')
        script.write_bytes(content)
        script.with_name('more.htm').unlink()

    def after_it(self):
        machine = self.machine
        machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        self.show('verify', 'verify --record pending.json')
        self.show('verify.json', 'verify --format json')
        self.show('detect', 'verify --detect', 'verify --detect --pending arrived', 'verify --detect --pending missing')
        machine.restart()
        self.show('verify', 'verify --record done.json')
        self.show('detect', 'verify --detect')
        for name in ('pending.json', 'done.json'):
            self.show_file('record', name)
        machine.write(PRODUCT + 'Retired.dat', '')
        machine.set_value(SETTINGS + '\\Vault', 'HelpFile', 'C:\\Help')
        self.show('verify.json', 'verify --format json')
        self.roll_up()
        machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        self.machine.write(PRODUCT + 'Brevant.log', '\n'.join(machine.trace_lines()) + '\n')
        self.show('trace', 'trace Brevant.log --all')

    def roll_up(self):
        """Records of a small fleet."""
        spring, package = '0123456789abcdef' * 4, 'c21t2103v3.9.3l1p1r1o1'
        record = {'record': 1, 'update': spring, 'package': package, 'product_version': '3.9.3.1139', 'machine': 'PC1',
                  'agent_version': '1.9.1100', 'time': '2026-01-31T12:00:00Z', 'started': '2026-01-31T11:30:00Z',
                  'verdict': 'arrived', 'kept': 23, 'not_kept': 0, 'open': []}
        missing = {'verdict': 'missing', 'kept': 20, 'not_kept': 3, 'open': [
            {'verdict': 'MISSING', 'what': 'C:\\Help', 'detail': 'nothing'}, {'verdict': 'NOT DELETED', 'what': 'C:\\Old'}]}
        for name, other in (('1', {}), ('1 before', {'time': '2026-01-30T12:00:00Z', **missing}), ('1 copy', {}),
                            ('2', {'machine': '=PC2', **missing}), ('3', {'machine': 'PC3', **missing, 'not_kept': 1,
                                                                          'open': missing['open'][:1]}),
                            ('4', {'machine': 'PC4', 'verdict': 'pending', 'pending_minutes': 7, 'update': 'ab' * 32}),
                            ('5', {'record': 2})):
            self.machine.write(f'{PRODUCT}records\\{name}.json', json.dumps(record | other))
        self.machine.write(PRODUCT + 'machines.txt', 'pc1\nPC4\nPC5\n')
        self.show('rollup', *(f'rollup records{words}' for words in (
            ' --machines machines.txt', ' --machines machines.txt --format json', ' --format csv')))


if __name__ == '__main__':
    unittest.main()
