"""An update to begin with: the starter, what "new" makes of it, and the schemas of what the tools write and read."""
import copy
import json
import pathlib
import re
import shutil

from brevantlab import report
from brevantlab.expect import HomeTest, call, faults
from brevantlab.layouts import SAMPLES, write_sample
from brevantlab.machine import PRODUCT, Machine
from brevantlab.prefix import ROOT
from brevantlab.try_update import Options, Trial, host_path

STARTER, SCHEMAS = ROOT / 'starter', ROOT / 'schemas'


def valid(name, file):
    return call('xmllint', '--noout', '--schema', SCHEMAS / f'{name}.xsd', file)[0] == 0


def first(entries, member):
    return next(entry for entry in entries if member in entry)


class Start(HomeTest):
    def checker(self):
        machine = self.enterContext(Machine())
        machine.install_program()
        return lambda *words, errors=True: machine.run(
            PRODUCT + 'BrevantCheck.exe',
            *(host_path(word) if isinstance(word, pathlib.Path) else word for word in words), errors=errors)

    def assertTried(self, folder, language):
        outcome = Trial(Options(folder / 'update', folder / 'installed', language), lambda stage: None).run()
        self.assertSame(([], [], {}, 0, []), (outcome.problems(), outcome.never_looked_at(), outcome.question,
                                              outcome.exit_code(), outcome.failures()[0]))
        return outcome

    def test_a_new_update(self):
        check = self.checker()
        default, named = self.home / 'default', self.home / 'named'
        self.assertEqual([0, 0, 3], [check('new', *words).code for words in (
            [default], [named, '--product', 'Ärger & Söhne', '--version', '10.0.0.1200', '--languages', 'FR-FR,DE-DE'],
            [default])])
        self.assertEqual(*({str(file.relative_to(top)): file.is_file() and file.read_bytes() for file in top.rglob('*')}
                           for top in (STARTER, default)))
        for folder, languages in (STARTER, ('EN-US', 'DE-DE')), (named, ('FR-FR', 'DE-DE')):
            options = [word for language in languages for word in ('--language', language)]
            for installed in ['--installed', folder / 'installed'], []:
                self.assertEqual((0, '0 errors, 0 warnings\n'),
                                 tuple(check('lint', folder / 'update', *installed, *options, '--strict')))
        self.assertTried(named, 'FR-FR')

    def test_the_starter_is_complete_and_what_the_tools_write_fits_its_schema(self):
        check = self.checker()
        outcome = self.assertTried(STARTER, 'DE-DE')
        written = {'plan': [], 'manifest': [], 'verify': [], 'diff': [],
                   'report': [json.loads(report.write(outcome, self.home).with_suffix('.json').read_text())]}
        manifest = self.home / 'update.json'
        for update, installed in write_sample(self.home), (SAMPLES / 'second/update', SAMPLES / 'second/installed'):
            options = ['--installed', installed, '--format', 'json']
            for name, words in ('plan', [update, *options]), ('manifest', [update]), ('verify', [manifest, *options]), (
                    'diff', [manifest, STARTER / 'update', *options[2:]]):
                output = check(name, *words, errors=False).output
                written[name].append(json.loads(output))
                if name == 'manifest':
                    manifest.write_text(output)
        for name, documents in written.items():
            self.assertEqual([[]] * len(documents), [faults(name, document) for document in documents], name)
        for name, words, spoil in (
                ('plan', "'moves' is not one of", lambda plan: plan['steps'][0]['changes'][0].update(action='moves')),
                ('plan', "'target' is a required", lambda plan: plan['steps'][0]['changes'][0].pop('target')),
                ('plan', "('total' was unexpected)", lambda plan: plan['count'].update(total=1)),
                ('manifest', "('size' was unexpected)", lambda manifest: manifest['registry'][0].update(size=1)),
                ('manifest', "'sha256' is a dep", lambda manifest: first(manifest['files'], 'sha256').pop('sha256')),
                ('manifest', "'data' is a required", lambda manifest: first(manifest['registry'], 'data').pop('data')),
                ('manifest', 'is not valid under any', lambda manifest: manifest['deletions'][0].clear()),
                ('verify', "'Missing' is not one of", lambda verify: verify['answers'][0].update(verdict='Missing')),
                ('verify', "is not of type 'boolean'", lambda verify: verify.update(complete=1)),
                ('report', "is not of type 'string'", lambda told: told['details']['files'][0].update(before=None))):
            document = copy.deepcopy(written[name][0])
            spoil(document)
            self.assertIn(words, '\n'.join(faults(name, document)))

    def test_settings_and_shortcuts_fit_their_schemas(self):
        for name, guide, expected in (('config', 'configuration-store', [SAMPLES / 'second/installed/config.xml']),
                                      ('qorshcut', 'update-layout', [])):
            files = [file for top in (STARTER, SAMPLES) for file in top.rglob(f'{name}*.xml')]
            self.assertGreater(len(files), 5)
            self.assertEqual(expected, [file for file in files if not valid(name, file)], 'a password in clear')
            for text in re.findall('```xml\n(.*?)```', (ROOT / f'docs/{guide}.md').read_text(), re.DOTALL):
                (self.home / 'guide.xml').write_text(text)
                self.assertTrue(valid(name, self.home / 'guide.xml'), guide)
        for name, old, new in (
                ('config', '"bool"', '"boolean"'), ('config', '"1"', '"true"'), ('config', 'Port', 'Prot'),
                ('config', '8080', '0x1F'), ('config', 'ProxySettings>\n    <Enable type="bool">0',
                                             'ProxySettings>\n    <Enable type="bool">yes'),
                ('qorshcut', 'available="1"', 'available="yes"'), ('qorshcut', 'lnk=', 'link='),
                ('qorshcut', 'name=', 'Name='), ('qorshcut', '>Kazmere Qorvault<', '>a:b<')):
            text = (SAMPLES / 'update/Setting' / f'{name}_EN-US.xml').read_text()
            self.assertIn(old, text)
            (self.home / 'spoilt.xml').write_text(text.replace(old, new))
            self.assertFalse(valid(name, self.home / 'spoilt.xml'), old)

    def test_lines_of_lint_are_problems_and_the_samples_of_the_first_guide_have_none(self):
        page = (ROOT / 'docs/build-servers.md').read_text()
        pattern, = {pattern.encode().decode('unicode_escape') for pattern in re.findall(r'"regexp": "(.*)"', page)}
        for text in re.findall('```json\n(.*?)```', page, re.DOTALL):
            json.loads(text)
        check = self.checker()
        update = pathlib.Path(shutil.copytree(STARTER / 'update', self.home / 'update'))
        (update / 'QorPaFrwk.ini').write_text('[QOR_DIR]\nAdd={InstalledDir}Help\n')
        next(update.glob('Component/*/Share/Setting/config_DE-DE.xml')).unlink()
        found = [re.fullmatch(pattern, line).groups() for line in check('lint', update).output.splitlines()[:-1]]
        self.assertLessEqual({('QorPaFrwk.ini', '2', '1', 'error', 'B005'), (None, None, 'B072')}, {
            part for place, *rest in found
            for part in ((re.split(r'[\\/]', place)[-1], *rest[:4]), (rest[0], rest[1], rest[3]))})

        # Each in turn below its section of the starter, with the files that its commands name.
        samples = (ROOT / 'docs/first-update.md').read_text().split('```ini\n')[1:]
        self.assertGreater(len(samples), 2)
        for sample in samples:
            folder = pathlib.Path(shutil.copytree(STARTER, self.home / 'copy', dirs_exist_ok=True))
            section, _, rest = sample.partition('```')[0].partition('\n')
            text = (STARTER / 'update/QorPaFrwk.ini').read_bytes().decode('utf-16')
            self.assertIn(section, text)
            text = text.replace(section + '\r\n', section + '\r\n' + rest.replace('\n', '\r\n'))
            (folder / 'update/QorPaFrwk.ini').write_bytes(text.encode('utf-16'))
            for name in re.findall(r'"{InstalledDir}([\w.]+)"', rest):
                next(folder.glob('update/Component/*/Share/Setting')).joinpath(name).write_text('x')
            result = check('lint', folder / 'update', '--installed', folder / 'installed', '--strict')
            self.assertEqual((0, '0 errors, 0 warnings\n'), tuple(result), rest)
