"""Requirements of a release: locked dependencies, refusals that leave nothing behind, signatures, symbols, archives."""
import copy
import json
import os
import re
import shutil
import tarfile
import unittest
import unittest.mock

from brevantlab.expect import HomeTest, call
from brevantlab.prefix import ROOT
from brevantlab.trials import TRIALS, Trials, output_of
from shipping import release, schema
from shipping.apt import Source, machine_suite, write_entries
from shipping.bill import BillError, bill_of_materials, compiler, runtime_licences
from shipping.dependencies import DependencyError

SHIPPED = ROOT / 'build' / 'release' / 'bin'
TOOLS = {'PYTHONPATH': str(ROOT / 'tools')}
SMALL = {'control': 'Source: small\nMaintainer: A <a@example.org>\nStandards-Version: 4.6.0\n\n'
                    'Package: small\nArchitecture: all\nDescription: a package of the tests\n',
         'changelog': 'small ({}) unstable; urgency=low\n\n  * Made.\n\n'
                      ' -- A <a@example.org>  Thu, 01 Jan 2026 00:00:00 +0000\n',
         'source/format': '3.0 (native)\n'}


class LockedDependencies(HomeTest):
    """The package "small" in an archive of the test's own; version 2 is locked."""

    def setUp(self):
        super().setUp()
        self.said = []

    def tearDown(self):
        if self.said:  # apart from what apt has said
            text = re.sub(r'(?<=reached: ).*', '...', '\n'.join(self.said).replace(str(self.home), ''))
            self.assertShown(TRIALS / f'dependencies_{self.page}.txt', text + '\n')

    def serve(self, *versions):
        """An archive of these versions; returns the hashes of their descriptions."""
        self.archive = self.home / 'archive'
        shutil.rmtree(self.archive, ignore_errors=True)
        for version in versions or ['0']:
            for name, text in SMALL.items():
                file = self.archive / 'small' / 'debian' / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text.replace('{}', version))
            if versions:
                self.assertEqual(0, call('dpkg-source', '-b', 'small', folder=self.archive)[0])
        (self.archive / 'Sources').write_text(
            call('bash', '-c', 'dpkg-scansources . 2>/dev/null', folder=self.archive)[1])
        (self.home / 'archive.list').write_text(f'deb-src [trusted=yes] file:{self.archive} ./\n')
        return {version: call('sha256sum', f'small_{version}.dsc', folder=self.archive)[1].split()[0]
                for version in versions}

    def lock(self, version, digest):
        (self.home / 'lock').write_text(f'# a comment\nsmall  {version}  {digest}\n')

    def dependencies(self, *arguments, kept=(), archive=None):
        """Runs the tool with a download folder that has these files."""
        cache = self.home / 'cache'
        shutil.rmtree(cache, ignore_errors=True)
        cache.mkdir()
        for file in kept:
            shutil.copy(file, cache)
        code, output = call('python3', '-B', '-m', 'shipping.dependencies', '--lock', self.home / 'lock', *arguments,
                            BREVANT_ARCHIVE=str(archive or self.home / 'archive.list'), BREVANT_SOURCES=str(cache),
                            **TOOLS)
        lines = [line for line in output.splitlines() if line.startswith(('[dependencies] ', 'E: '))]
        self.said += [f'> {" ".join(map(str, arguments))}', *lines, f'(exit code {code})']
        return code, output

    def fetch(self, *options, **places):
        """Fetches, which succeeds or leaves nothing behind."""
        shutil.rmtree(self.home / 'out', ignore_errors=True)
        code, output = self.dependencies('fetch', self.home / 'out', *options, **places)
        self.assertEqual([code == 0] * 2, [(self.home / 'out' / made).exists()
                                           for made in ('small/debian/control', 'SOURCES.txt')], output)

    def test_only_the_locked_version_or_a_newer_one_is_taken_and_a_lock_without_a_fix_is_told(self):
        self.page, locked = 'versions', ''
        for served, *options in ['123', '--exact'], ['12'], ['13'], ['13', '--exact'], ['1'], ['']:
            locked = self.serve(*served).get('2', locked)
            self.lock('2', locked)
            self.fetch(*options)
            self.dependencies('check')

        served = self.serve('1', '2', '3')
        (self.home / 'lock').write_text(f'small 3 {served["3"]}\nsmall 2 {served["2"]}\n')
        self.dependencies('check')  # one of two is older
        sources = (self.archive / 'Sources').read_text()
        (self.archive / 'Sources').write_text(sources.replace('Package: small\n', 'Package: googletest\n'))
        (self.home / 'lock').write_text(f'googletest 1 {served["1"]}\n')
        self.dependencies('check')  # of the tests alone
        (self.home / 'archive.list').write_text('deb-src [trusted=yes] http://localhost:9/ ./\n')
        for verb in ['check'], ['fetch', self.home / 'out'], ['renew']:
            self.assertIn('the archive cannot be reached: http://localhost:9/', self.dependencies(*verb)[1])

    def test_only_the_locked_file_is_taken_and_the_sources_of_a_release_are_an_archive(self):
        self.page, digest = 'files', self.serve('2')['2']
        self.lock('2', digest[::-1])
        self.fetch(kept=self.archive.glob('small_2.*'))
        self.lock('2', digest)
        self.enterContext(unittest.mock.patch.dict(os.environ, BREVANT_SOURCES=str(self.archive)))
        archive = next(self.archive.glob('small_2.tar.*'))
        packs = [self.home / name for name in ('sources.tar', 'again.tar', 'other.tar')]
        for pack in packs[:2]:
            release.write_sources(pack, [Source('small', '2', digest)], 1700000000)
            os.utime(archive, (0, 0))
        self.assertEqual(packs[0].read_bytes(), packs[1].read_bytes())
        with tarfile.open(packs[0]) as packed:
            self.assertEqual({(1700000000, 0o644)}, {(entry.mtime, entry.mode) for entry in packed})
        self.fetch('--exact', archive=packs[0])
        with tarfile.open(packs[2], 'w') as other:
            other.add(packs[0], '../outside')
        self.fetch(archive=packs[2])
        self.assertFalse((self.home / 'outside').exists())

        content = bytearray(archive.read_bytes())
        content[len(content) // 2] ^= 1
        archive.write_bytes(content)
        # Where the download was kept, apt, which would refuse it, is not asked.
        self.fetch()
        self.fetch(kept=self.archive.glob('small_2.*'))
        with self.assertRaises(DependencyError):
            release.write_sources(packs[0], [Source('small', '2', digest)], 0)
        self.lock('3', digest)
        self.fetch(archive=packs[1])

    def test_of_the_machines_archives_only_those_in_use_count(self):
        (entries := self.home / 'apt/sources.list.d').mkdir(parents=True)
        (self.home / 'os-release').write_text('VERSION_CODENAME=bookworm\n')
        entry = '{}Types: deb\nURIs: http://{}\nSuites: bookworm\nComponents: {}main\n\n'
        (entries / 'a.sources').write_text(''.join(entry.format(*row) for row in (
            ('', 'own', ''), ('Enabled: no\n', 'off', ''), ('ENABLED:false\n', 'off', ''), ('', 'other', 'not-'))))
        (entries / 'b.list').write_text('deb http://own bookworm main\ndeb http://own bookworm main\n'
                                        '# deb http://off bookworm main\ndeb http://other bookworm not-main\n')
        (self.home / 'apt/sources.list').write_text('deb [a=b] http://old bookworm-updates main\n')
        write_entries(self.home, 'trixie', 'deb-src', self.home)
        self.assertEqual('deb-src [a=b] http://old trixie-updates main\ndeb-src http://own trixie main\n',
                         (self.home / 'debian.list').read_text())
        self.assertEqual('Types: deb-src\nURIs: http://own\nSuites: trixie\nComponents: main\n',
                         (self.home / 'debian.sources').read_text())

    def test_the_lock_takes_the_newest_that_is_served(self):
        self.page, digests = 'renewed', self.serve('1', '2', '3')
        self.lock('1', digests['1'])
        (self.archive / 'small_3.dsc').unlink()
        self.dependencies('renew')
        self.assertEqual(['small', '2', digests['2']], (self.home / 'lock').read_text().splitlines()[1].split())
        for description in self.archive.glob('*.dsc'):
            description.unlink()
        self.lock('1', digests['1'])
        self.dependencies('renew')
        self.lock('9', digests['2'])
        before = (self.home / 'lock').read_text()
        self.dependencies('renew')
        self.assertEqual(before, (self.home / 'lock').read_text(), 'never back to an older one')


@unittest.skipUnless((ROOT / '.git').exists(), 'no checkout of git')
class Refusals(HomeTest):
    def test_nothing_is_made_of_what_is_no_release(self):
        clone, empty = self.home / 'clone', self.home / 'empty'

        def git(*words):
            self.assertEqual(0, call('git', '-c', 'user.name=Test', '-c', 'user.email=test@example.org', *words,
                                     folder=clone if clone.exists() else None)[0])

        git('clone', '-q', '--shared', ROOT, clone)
        version = re.search(r'project\(Brevant VERSION ([\d.]+)', (clone / 'CMakeLists.txt').read_text())[1]

        def refused(words, *arguments, **variables):
            result, output = call('tools/release.sh', *arguments, folder=clone,
                                  **{'BREVANT_SIGN': '', 'BREVANT_WITHOUT_NEXT': 'a test', **variables})
            self.assertTrue(result and re.search(words, output), output)
            self.assertFalse((clone / 'dist').exists())
            self.assertEqual([], list(clone.glob('build/release-work*')), 'nothing half made')
            self.assertNotIn('\n-- ', output, 'nothing is configured without the dependencies')

        refused(f'HEAD is not tagged v{version}')
        git('tag', 'v0.1')
        refused(r'\(tags here: v0.1\)', '--unsigned')
        git('tag', f'v{version}')
        refused('BREVANT_SIGN names no signing command')
        (clone / 'changed').touch()
        for option in '--unsigned', '--verify':
            refused('the tree is dirty', option)
        (clone / 'changed').unlink()
        (self.home / 'nothing').touch()
        places = {'BREVANT_ARCHIVE': str(self.home / 'nothing'), 'BREVANT_SOURCES': str(empty)}
        refused('FAILED: whether a shipped library lacks a security fix is not known', '--unsigned', **places)
        try:
            schema.fetch(self.home / 'schema')
        except DependencyError as error:
            self.skipTest(str(error))
        empty.mkdir()
        shutil.copy(schema.package_file(), empty)
        known = '--unsigned', '--known-older', 'a trial'
        refused('(?s)for a known reason: a trial.*is missing: the archive names no version of it', *known, **places)
        # Nothing is built before the next Debian was tried.
        (clone / 'tools' / 'next.sh').write_text('#!/bin/sh\necho next year\nexit 1\n')
        git('commit', '-qam', 'Test')
        git('tag', '-f', f'v{version}')
        refused(r'next year\n.*FAILED: tools/next.sh', *known, **{**places, 'BREVANT_WITHOUT_NEXT': ''})


@unittest.skipUnless((SHIPPED / 'Brevant.exe').exists(), 'no release build: run tools/build.sh')
class ShippedFiles(HomeTest):
    def test_places_of_a_stripped_program_have_names(self):
        exports = call('x86_64-w64-mingw32-objdump', '-p', SHIPPED / 'KzDbg64.dll')[1]
        base = int(re.search(r'^ImageBase\s+([0-9a-f]+)', exports, re.M)[1], 16)
        addresses = re.findall(r'\+base\[ *\d+\]\s+([0-9a-f]+) Export RVA', exports)
        # Newer versions also print the ordinal and the hint.
        names = re.findall(r'^\s+\[ *\d+\](?: \+base\[ *\d+\] +[0-9a-f]{4})? (KzDbg\w+)$', exports, re.M)
        self.assertEqual((3, 3), (len(names), len(addresses)))
        # Also as an address, for a library that was loaded where it asks to be.
        places = [*addresses, f'{int(addresses[0], 16) + base:x}']
        symbolise = ROOT / 'tools/symbolise.sh'
        result, output = call(symbolise, SHIPPED / 'KzDbg64.dll', *places)
        self.assertEqual(0, result, output)
        self.assertEqual([*names, names[0]], re.findall(r'^(\w+).* at src/kzdbg/KzDbg\.cpp:\d+$', output, re.M), output)

        # The runtime has no lines: its functions are named without a file. What is no code has no name.
        symbols = call('x86_64-w64-mingw32-nm', SHIPPED / 'Brevant.exe.debug')[1]
        memcpy, table = (re.search(f'^([0-9a-f]+) {kind}$', symbols, re.M)[1] for kind in ('T memcpy', 'd .*'))
        self.assertEqual((0, 'memcpy+0x2 (no line information)\n'),
                         call(symbolise, SHIPPED / 'Brevant.exe', f'{int(memcpy, 16) + 2:x}'))
        for outside in '10', table, '7fffffff':
            result, output = call(symbolise, SHIPPED / 'Brevant.exe', outside, memcpy)
            self.assertEqual(1, result, output)
            self.assertRegex(output, r'(?s)(?=.*is outside of the code of Brevant.exe)(?=.*memcpy\+0x0)')

        shutil.copy(SHIPPED / 'KzDbg64.dll', self.home)
        (self.home / 'symbols').mkdir()
        for words in 'no KzDbg64.dll.debug', 'belongs to another build':
            self.assertIn(words, call(symbolise, self.home / 'KzDbg64.dll', places[0],
                                      BREVANT_SYMBOLS=str(self.home / 'symbols'))[1])
            shutil.copy(SHIPPED / 'Brevant.exe.debug', self.home / 'symbols' / 'KzDbg64.dll.debug')

    def test_the_bill_of_materials_is_valid(self):
        bill = bill_of_materials(ROOT, release.programs(SHIPPED), '1.2.3', 1700000000, 'not served yet')
        components = {component['name']: component for component in bill['components']}
        self.assertEqual(['1.2.3', '2.5.0'],
                         [components[name]['version'] for name in ('Brevant.exe', 'libexpat.dll')])
        runtime, = (row['licenses'][0]['expression'] for name, row in components.items() if name.startswith('mingw-'))
        self.assertLessEqual({'ZPL-2.1', 'MIT', 'ISC', 'BSD-2-Clause', 'BSD-3-Clause'}, set(runtime.split(' AND ')))
        self.assertIn('not served yet', json.dumps(bill['metadata']))
        for name, library in components.items():
            if 'purl' in library:
                self.assertRegex(library['purl'], r'^pkg:deb/debian/[a-zB0-9.%-]+@[^?:+]+\?arch=\w+&distro=[a-z]+$')
                self.assertTrue('arch=source' in library['purl'] or call('dpkg-query', '-W', '-f=${Version}', name)
                                == (0, library['version']))
        graph = {row['ref']: row['dependsOn'] for row in bill['dependencies']}
        self.assertIn('file:libexpat.dll', graph['file:BrevantCheck.exe'])
        self.assertNotIn('g%2B%2B', ''.join(graph['file:libexpat.dll']))
        text = 'Files: *\nLicense: ZPL-2.1\n\nFiles: mingw-w64-crt/misc/a.c\n mingw-w64-headers/b.h\nLicense: {}\n'
        self.assertEqual('ZPL-2.1 AND BSD-2-Clause AND ISC',
                         runtime_licences('', text.format('BSD-2-clause-NetBSD, and ISC')))
        with self.assertRaisesRegex(BillError, 'the licence Other'):
            runtime_licences('', text.format('Other'))

        try:
            schema.fetch(self.home)
        except DependencyError as error:
            self.skipTest(str(error))
        (self.home / 'bill').write_text(json.dumps(bill))
        with unittest.mock.patch('sys.argv', ['schema', 'validate', str(self.home / 'bill'), str(self.home)]):
            self.assertEqual('[release] bill is valid\n(exit code 0)\n', output_of(lambda _: schema.main()))
        kept, good = self.home / schema.package_file().name, schema.package_file().read_bytes()
        kept.write_bytes(good[:-1])  # a damaged download is fetched again
        with unittest.mock.patch.object(schema, 'downloads', return_value=self.home), \
                unittest.mock.patch.object(schema, 'Archive') as archive:
            archive.return_value.download_binary.side_effect = lambda *_: kept.write_bytes(good)
            schema.fetch(self.home / 'again')
        for words, spoil in (
                ('was unexpected', lambda bill: bill['metadata'].update(maker='x')),
                ('file:x is no component', lambda bill: bill['dependencies'][0]['dependsOn'].append('file:x')),
                ('file:y is no component', lambda bill: bill['dependencies'].append({'ref': 'file:y'})),
                ('nothing leads to file:Brevant.exe', lambda bill: bill['dependencies'][0]['dependsOn'].pop(0)),
                ('BSD is no name', lambda bill: bill['components'][-1].update(licenses=[{'expression': 'BSD'}]))):
            spoilt = copy.deepcopy(bill)
            spoil(spoilt)
            self.assertIn(words, '\n'.join(schema.faults(spoilt, self.home)))

    def test_the_archives_have_all_that_is_shipped_and_two_builds_are_compared(self):
        dist, trials = self.home / 'one' / 'dist', Trials(self.home)
        self.assertShown(TRIALS / 'release.txt', trials.release())
        if machine_suite() == 'bookworm' and 'ucrt' not in compiler():
            self.assertShown(TRIALS / 'bill.json', trials.bill())
        for name in 'Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll', 'libexpat.dll':
            with self.assertRaisesRegex(release.ReleaseError, f'{name} was not built'):
                others = [SHIPPED / other for other in release.NEEDED if other != name]
                release.programs(unittest.mock.Mock(**{'iterdir.return_value': others}))
        code, output = call('sha256sum', '--check', '--strict', 'SHA256SUMS', folder=dist)
        self.assertEqual((0, 4), (code, output.count(': OK')), output)

        for place in 'one', 'two':
            shutil.copytree(SHIPPED, self.home / place / release.BIN, ignore=shutil.ignore_patterns('standins'))
        shutil.copytree(dist, self.home / 'two' / 'dist')
        compare = 'python3', '-B', '-m', 'shipping.release', 'compare', self.home / 'one', self.home / 'two'
        self.assertEqual(0, call(*compare, **TOOLS)[0])
        for name in 'dist/SHA256SUMS', release.BIN / 'KzDbg64.dll.debug', 'dist/more':
            with (self.home / 'two' / name).open('a') as file:
                file.write('x')
            code, output = call(*compare, **TOOLS)
            self.assertEqual((1, True), (code, f'builds of this commit differ in {name}\n' in output), output)
            shutil.rmtree(self.home / 'two')
            shutil.copytree(self.home / 'one', self.home / 'two')
        (self.home / 'two' / release.BIN / 'KzDbg64.dll.debug').unlink()
        self.assertIn('KzDbg64.dll has no symbols beside it', call(*compare, **TOOLS)[1])

    def test_signatures_are_verified_ones(self):
        def sign(command):
            return call('bash', '-c', '. tools/release.sh; work=$1; read -ra signer <<<"$2"; sign "$1/bin"', 'sign',
                        self.home, command, folder=ROOT)

        shutil.copytree(SHIPPED, self.home / 'bin', ignore=shutil.ignore_patterns('standins'))
        key, certificate = self.home / 'key.pem', self.home / 'certificate.pem'
        self.assertEqual(0, call('openssl', *'req -x509 -newkey rsa:2048 -nodes -subj /CN=Test -addext'.split(),
                                 'extendedKeyUsage=codeSigning', '-keyout', key, '-out', certificate)[0])
        signer = self.home / 'signer'
        signer.write_text(f'#!/bin/sh\nosslsigncode sign -certs {certificate} -key {key} -in "$1" -out "$1.signed" &&\n'
                          'mv "$1.signed" "$1"\n')
        signer.chmod(0o755)
        self.assertIn('left Brevant.exe as it was', sign('true')[1])
        self.assertIn('FAILED: signing Brevant.exe', sign('false')[1])
        self.assertEqual(0, sign(signer)[0])
        for program in release.programs(self.home / 'bin'):
            self.assertEqual(0, call('osslsigncode', 'verify', '-CAfile', certificate, program)[0])
            # Signing leaves the link to the symbols.
            self.assertEqual(0, call(ROOT / 'tools/symbolise.sh', program, '1500', BREVANT_SYMBOLS=str(SHIPPED))[0])
