"""An update to begin with: the starter, what "new" makes of it, and the schemas of what the tools write and read."""
import copy
import json
import pathlib
import re
import shutil
import subprocess
import tempfile

import jsonschema

from brevantlab import report
from brevantlab.expect import LabTest
from brevantlab.layouts import SAMPLES, write_sample
from brevantlab.machine import PRODUCT, Machine
from brevantlab.prefix import ROOT
from brevantlab.try_update import Options, Trial, host_path

STARTER, SCHEMAS = ROOT / 'starter', ROOT / 'schemas'


def faults(name, document):
    """What a schema finds in a JSON document."""
    schema = json.loads((SCHEMAS / f'{name}.schema.json').read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return [error.message for error in jsonschema.Draft202012Validator(schema).iter_errors(document)]


def valid(name, file):
    return subprocess.run(['xmllint', '--noout', '--schema', SCHEMAS / f'{name}.xsd', file],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0


def first(entries, member):
    return next(entry for entry in entries if member in entry)


class Start(LabTest):
    def setUp(self):
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def checker(self):
        machine = self.enterContext(Machine())
        machine.install_program()
        return lambda *words, errors=True: machine.run(
            PRODUCT + 'BrevantCheck.exe',
            *(host_path(word) if isinstance(word, pathlib.Path) else word for word in words), errors=errors)

    def assertTried(self, folder, language):
        outcome = Trial(Options(folder / 'update', folder / 'installed', language), lambda stage: None).run()
        self.assertSame(([], [], {}), (outcome.problems(), outcome.never_looked_at(), outcome.question))
        self.assertEqual((0, 0), (outcome.exit_code(), len(outcome.failures()[0])))
        return outcome

    def test_a_new_update(self):
        check = self.checker()
        default, named = self.home / 'default', self.home / 'named'
        self.assertEqual((0, 0), (check('new', default).code, check(
            'new', named, '--product', 'Ärger & Söhne', '--version', '10.0.0.1200', '--languages', 'FR-FR,DE-DE').code))
        self.assertEqual(3, check('new', default).code)
        for made in default.rglob('*'):
            if made.is_file():
                self.assertEqual((STARTER / made.relative_to(default)).read_bytes(), made.read_bytes(), made)
        self.assertEqual(len(list(STARTER.rglob('*'))), len(list(default.rglob('*'))))
        for folder, languages in (STARTER, ('EN-US', 'DE-DE')), (named, ('FR-FR', 'DE-DE')):
            options = [word for language in languages for word in ('--language', language)]
            for installed in ['--installed', folder / 'installed'], []:
                self.assertEqual((0, '0 errors, 0 warnings\n'),
                                 tuple(check('lint', folder / 'update', *installed, *options, '--strict')))
        self.assertTried(named, 'FR-FR')

    def test_the_starter_is_complete(self):
        outcome = self.assertTried(STARTER, 'DE-DE')
        told = json.loads(report.write(outcome, self.home).with_suffix('.json').read_text())
        self.assertEqual([], faults('report', told))
        told['details']['files'][0]['before'] = None
        self.assertEqual(["None is not of type 'string'"], faults('report', told))

    def test_what_the_checker_writes_fits_its_schema(self):
        check = self.checker()
        written = {'plan': [], 'manifest': [], 'verify': []}
        manifest = self.home / 'update.json'
        for update, installed in write_sample(self.home), (SAMPLES / 'second/update', SAMPLES / 'second/installed'):
            options = ['--installed', installed, '--format', 'json']
            written['plan'].append(check('plan', update, *options, errors=False))
            written['manifest'].append(check('manifest', update, errors=False))
            manifest.write_text(written['manifest'][-1].output)
            written['verify'].append(check('verify', manifest, *options, errors=False))
        for name, results in written.items():
            for result in results:
                self.assertEqual([], faults(name, json.loads(result.output)), name)
        for name, words, spoil in (
                ('plan', "'moves' is not one of", lambda plan: plan['steps'][0]['changes'][0].update(action='moves')),
                ('plan', "'target' is a required", lambda plan: plan['steps'][0]['changes'][0].pop('target')),
                ('plan', "('total' was unexpected)", lambda plan: plan['count'].update(total=1)),
                ('manifest', "('size' was unexpected)", lambda manifest: manifest['registry'][0].update(size=1)),
                ('manifest', "'sha256' is a dep", lambda manifest: first(manifest['files'], 'sha256').pop('sha256')),
                ('manifest', "'data' is a required", lambda manifest: first(manifest['registry'], 'data').pop('data')),
                ('manifest', 'is not valid under any', lambda manifest: manifest['deletions'][0].clear()),
                ('verify', "'Missing' is not one of", lambda verify: verify['answers'][0].update(verdict='Missing')),
                ('verify', "is not of type 'boolean'", lambda verify: verify.update(complete=1))):
            with self.subTest(name, words=words):
                document = copy.deepcopy(json.loads(written[name][0].output))
                spoil(document)
                self.assertIn(words, '\n'.join(faults(name, document)))

    def test_settings_and_shortcuts_fit_their_schemas(self):
        for name in 'config', 'qorshcut':
            files = [file for top in (STARTER, SAMPLES) for file in top.rglob(f'{name}*.xml')]
            self.assertGreater(len(files), 5)
            self.assertEqual([SAMPLES / 'second/installed/config.xml'] if name == 'config' else [],
                             [file for file in files if not valid(name, file)], 'one has its password in clear')
        for name, guide in ('config', 'configuration-store'), ('qorshcut', 'update-layout'):
            for text in re.findall('```xml\n(.*?)```', (ROOT / f'docs/{guide}.md').read_text(), re.DOTALL):
                (self.home / 'guide.xml').write_text(text)
                self.assertTrue(valid(name, self.home / 'guide.xml'), guide)
        for name, old, new in (
                ('config', '"bool"', '"boolean"'), ('config', '"1"', '"true"'), ('config', 'Port', 'Prot'),
                ('config', '8080', '0x1F'), ('config', 'ProxySettings>\n    <Enable type="bool">0',
                                             'ProxySettings>\n    <Enable type="bool">yes'),
                ('qorshcut', 'available="1"', 'available="yes"'), ('qorshcut', 'lnk=', 'link='),
                ('qorshcut', 'name=', 'Name='), ('qorshcut', '>Kazmere Qorvault<', '>a:b<')):
            with self.subTest(name, old=old):
                text = (SAMPLES / 'update/Setting' / f'{name}_EN-US.xml').read_text()
                self.assertIn(old, text)
                spoilt = self.home / 'spoilt.xml'
                spoilt.write_text(text.replace(old, new))
                self.assertFalse(valid(name, spoilt))

    def test_lines_of_lint_are_problems(self):
        page = (ROOT / 'docs/build-servers.md').read_text()
        patterns = {pattern.encode().decode('unicode_escape') for pattern in re.findall(r'"regexp": "(.*)"', page)}
        self.assertEqual(1, len(patterns))
        for text in re.findall('```json\n(.*?)```', page, re.DOTALL):
            json.loads(text)
        update = pathlib.Path(shutil.copytree(STARTER / 'update', self.home / 'update'))
        (update / 'QorPaFrwk.ini').write_text('[QOR_DIR]\nAdd={InstalledDir}Help\n')
        next(update.glob('Component/*/Share/Setting/config_DE-DE.xml')).unlink()
        lines = self.checker()('lint', update).output.splitlines()[:-1]
        found = [re.fullmatch(next(iter(patterns)), line) for line in lines]
        self.assertTrue(all(found), lines)
        self.assertIn(('QorPaFrwk.ini', '2', '1', 'error', 'B005'), [
            (re.split(r'[\\/]', match[1])[-1], *match.groups()[1:5]) for match in found])
        self.assertIn((None, None, 'B072'), [match.group(2, 3, 5) for match in found])

    def test_samples_of_the_first_guide_have_no_findings(self):
        """Each in turn below its section of the starter, with the files that its commands name."""
        page = (ROOT / 'docs/first-update.md').read_text()
        samples = page.split('```ini\n')[1:]
        self.assertGreater(len(samples), 2)
        check = self.checker()
        for sample in samples:
            folder = pathlib.Path(shutil.copytree(STARTER, self.home / 'copy', dirs_exist_ok=True))
            records = sample.partition('```')[0]
            section, _, rest = records.partition('\n')
            file = folder / 'update/QorPaFrwk.ini'
            text = (STARTER / 'update/QorPaFrwk.ini').read_bytes().decode('utf-16')
            self.assertIn(section, text)
            text = text.replace(section + '\r\n', section + '\r\n' + rest.replace('\n', '\r\n'))
            file.write_bytes(text.encode('utf-16'))
            for name in re.findall(r'"{InstalledDir}([\w.]+)"', rest):
                next(folder.glob('update/Component/*/Share/Setting')).joinpath(name).write_text('x')
            result = check('lint', folder / 'update', '--installed', folder / 'installed', '--strict')
            self.assertEqual((0, '0 errors, 0 warnings\n'), tuple(result), records)
