"""What the sources know, the pages, the samples and the random updates know: every instruction key and type of registry
data, every folder that a deploy step looks at, every lint rule. And the layers."""
import re
import unittest

from brevantlab.prefix import ROOT
from brevantlab.random_update import random_scenario


def text_of(name):
    return (ROOT / name).read_text(encoding='utf-8-sig')


def keys():
    """Every key of every section in the agent's table."""
    for row in re.split(r'\n    \{(?=L")', text_of('src/agent/Sections.h'))[1:]:
        section = re.match(r'L"(\w+)"', row)[1]
        for key in re.findall(r'\{L"(\w+)", RecordEffect::', row):
            yield section, key


def used_in(name):
    """Every key that an instruction file uses, languages left out of its sections."""
    section = None
    for line in text_of(name).splitlines():
        if line.startswith('['):
            section = re.sub('(?<=RestartNotification_).*', '', line.strip('[]'))
        elif '=' in line and not line.startswith(';'):
            yield section, line.split('=')[0]


# Every folder of the sources, and the folders whose headers it may include besides its own.
LAYERS = {
    'common': set(), 'kzdbg': {'common'}, 'runtime': set(),
    'installer': {'common'}, 'config': {'common'},
    'agent': {'installer', 'config', 'common', 'runtime'},
    'check/update': {'agent', 'config', 'common'},
    'check/simulate': {'check/update', 'agent', 'config', 'common'},
    'check/verify': {'check/update', 'agent', 'installer', 'config', 'common'},
    'check/sign': {'check/verify', 'check/update', 'agent', 'common'},
    'check/ready': {'check/simulate', 'check/verify', 'check/update', 'agent', 'common'},
    'check/fleet': {'check/verify', 'check/update', 'common'},
    'check/undo': {'check/simulate', 'check/verify', 'check/update', 'agent', 'config', 'common'},
    'check/lint': {'check/verify', 'check/simulate', 'check/update', 'agent', 'installer', 'config', 'common'},
    'check/trace': {'check/update', 'agent', 'common'},
    'check/start': {'check/update', 'common'},
    'check': {'check/fleet', 'check/lint', 'check/ready', 'check/sign', 'check/simulate', 'check/start', 'check/trace',
              'check/undo', 'check/update', 'check/verify', 'common'},
}


class Pages(unittest.TestCase):
    def test_every_key_is_used_and_described(self):
        table = set(keys())
        self.assertIn(('QOR_FILE', 'delete_now'), table)
        self.assertEqual(table, set(used_in('samples/update/QorPaFrwk.ini')))
        page = re.search(r'\| Section \| Key .*?\n\n', text_of('docs/instruction-file.md'), re.DOTALL)[0]
        section, described = None, set()
        for named, key in re.findall(r'^\| (?:`(\w+)`[^|]*)?\| `(\w+)` \|', page, re.MULTILINE):
            section = named or section
            described.add((section, key))
        self.assertEqual(table, described)

    def test_random_updates_use_every_key_and_type(self):
        sections = [section for seed in range(1, 100) for section in random_scenario(seed).sections.items()]
        used = {(re.sub('(?<=RestartNotification_).*', '', name), line.partition('=')[0])
                for name, lines in sections for line in lines}
        self.assertEqual(set(), set(keys()) - used)
        types = re.findall(r'^    \{L"(REG_\w+)", RegistryType::', text_of('src/agent/RegistryPatch.cpp'), re.MULTILINE)
        self.assertIn('REG_SZ', types)
        for place, text in (('page', text_of('docs/instruction-file.md')),
                            ('random updates', '\n'.join(line for _, lines in sections for line in lines))):
            with self.subTest(place):
                self.assertEqual(set(), set(types) - set(re.findall(r'REG_\w+', text)))

    def test_every_deploy_step_is_tried_and_described(self):
        rows = re.findall(r'\{\{e(Product|Share), L"([^"]+)"\}, ', text_of('src/agent/PackageLayout.cpp'))
        self.assertIn(('Share', 'Task'), rows)
        sample, page = text_of('samples/files.txt'), text_of('docs/update-layout.md')
        for base, folder in rows:
            below = folder.replace('\\\\', '\\') + '\\'
            with self.subTest(base=base, folder=below):
                self.assertIn('| `' + ('Share\\' if base == 'Share' else '') + below + '` |', page)
                self.assertIn('\n{' + base.lower() + '}' + below, sample)

    def test_every_rule_has_its_page(self):
        rules = re.findall(r'^    \{Rule::e\w+, .*?L"([a-z-]+)"', text_of('src/check/lint/Rules.cpp'), re.MULTILINE)
        pages = re.findall(r'^### B\d{3} ([a-z0-9-]+)$', text_of('docs/check-rules.md'), re.MULTILINE)
        numbers = re.findall(r'^    e\w+ = \d+,', text_of('src/check/lint/Rules.h'), re.MULTILINE)
        self.assertEqual(len(numbers), len(rules))
        self.assertEqual(rules, pages)

    def test_includes_point_one_way(self):
        layers = [(source, str(source.parent.relative_to(ROOT / 'src'))) for source in (ROOT / 'src').rglob('*.[hc]*')]
        self.assertEqual([], [f'{source.name} includes {named}' for source, layer in layers for named in re.findall(
            r'^#include "(.+)/[^/]+\.h"$', text_of(source), re.MULTILINE) if named not in LAYERS[layer] | {layer}])
