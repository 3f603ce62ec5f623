"""Requirements of a release: dependencies as locked, refusals that leave nothing behind, signatures, symbols."""
import copy
import json
import os
import pathlib
import re
import shutil
import subprocess
import tarfile
import tempfile
import unittest
import unittest.mock

from shipping import schema
from shipping.apt import Source
from shipping.bill import BillError, bill_of_materials, runtime_licences
from shipping.dependencies import DependencyError
from shipping.release import write_sources

ROOT = pathlib.Path(__file__).resolve().parents[2]
SHIPPED = ROOT / 'build' / 'release' / 'bin'
CONTROL = 'Source: small\nMaintainer: Nobody <nobody@example.org>\nStandards-Version: 4.6.0\n\n' \
          'Package: small\nArchitecture: all\nDescription: a package of the tests\n'
ENTRY = 'small ({}) unstable; urgency=low\n\n  * Made.\n\n' \
        ' -- Nobody <nobody@example.org>  Thu, 01 Jan 2026 00:00:00 +0000\n'


def run(*command, folder=None, **variables):
    """Exit code, and all that the command wrote."""
    result = subprocess.run(command, cwd=folder, env={**os.environ, **variables}, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return result.returncode, result.stdout


class Case(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))


class LockedDependencies(Case):
    """The package "small" in an archive of the test's own; version 2 is locked."""

    def serve(self, *versions):
        """An archive of these versions; returns the hashes of their descriptions."""
        self.archive = self.folder / 'archive'
        shutil.rmtree(self.archive, ignore_errors=True)
        self.archive.mkdir()
        for version in versions:
            files = {'control': CONTROL, 'changelog': ENTRY.format(version), 'source/format': '3.0 (native)\n'}
            for name, text in files.items():
                file = self.archive / 'small' / 'debian' / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text)
            self.assertEqual(0, run('dpkg-source', '-b', 'small', folder=self.archive)[0])
        with (self.archive / 'Sources').open('w') as lists:
            subprocess.run(['dpkg-scansources', '.'], cwd=self.archive, check=True, stdout=lists,
                           stderr=subprocess.DEVNULL)
        (self.folder / 'archive.list').write_text(f'deb-src [trusted=yes] file:{self.archive} ./\n')
        return {version: run('sha256sum', f'small_{version}.dsc', folder=self.archive)[1].split()[0]
                for version in versions}

    def lock(self, version, digest):
        (self.folder / 'lock').write_text(f'# a comment\nsmall  {version}  {digest}\n')

    def dependencies(self, *arguments, kept=(), archive=None):
        """Runs the tool with a download folder that has these files."""
        cache = self.folder / 'cache'
        shutil.rmtree(cache, ignore_errors=True)
        cache.mkdir()
        for file in kept:
            shutil.copy(file, cache)
        return run('python3', '-B', '-m', 'shipping.dependencies', '--lock', str(self.folder / 'lock'), *arguments,
                   PYTHONPATH=str(ROOT / 'tools'), BREVANT_ARCHIVE=str(archive or self.folder / 'archive.list'),
                   BREVANT_SOURCES=str(cache))

    def fetch(self, code, words, *options, **places):
        """Fetches, which succeeds or leaves nothing behind."""
        shutil.rmtree(self.folder / 'out', ignore_errors=True)
        result, output = self.dependencies('fetch', str(self.folder / 'out'), *options, **places)
        self.assertEqual(code, result, output)
        self.assertIn(words, output)
        for made in ('small/debian/control', 'SOURCES.txt'):
            self.assertEqual(code == 0, (self.folder / 'out' / made).exists(), made)

    def test_only_the_locked_version_or_a_newer_one(self):
        locked = ''
        for served, options, code, words in (
                (('1', '2', '3'), ['--exact'], 0, 'small 2\n'),
                (('1', '3'), [], 0, 'NOTICE: small 2 is locked but no longer served; taking the newer 3'),
                (('1', '3'), ['--exact'], 1, 'small 2 is missing: the archive names 3, 1'),
                (('1',), [], 1, 'small 2 is missing: the archive names 1'),
                ((), [], 1, 'small 2 is missing: the archive names no version')):
            with self.subTest(served=served, options=options):
                locked = self.serve(*served).get('2', locked)
                self.lock('2', locked)
                self.fetch(code, words, *options)

    def test_what_is_not_the_locked_file_is_refused(self):
        digest = self.serve('2')['2']
        self.lock('2', digest[::-1])
        self.fetch(1, 'does not have the locked SHA-256', kept=self.archive.glob('small_2.*'))

        self.lock('2', digest)
        archive = next(self.archive.glob('small_2.tar.*'))
        content = bytearray(archive.read_bytes())
        content[len(content) // 2] ^= 1
        archive.write_bytes(content)
        # Where the download was kept, apt, which would refuse it, is not asked.
        for kept, word in ((), 'missing'), (self.archive.glob('small_2.*'), 'damaged'):
            self.fetch(1, 'FAILED: small 2 is ' + word, kept=kept)

    def test_a_lock_that_lacks_a_fix_is_told(self):
        digest = self.serve('2')['2']
        for served, locked, code, words in (
                (('1', '2'), '2', 0, ''),
                (('2', '3'), '2', 1, 'small 2 is locked; the archive names 3. It may fix a security fault'),
                (('1',), '2', 3, 'the archive names only 1'),
                ((), '2', 3, 'the archive names no version of it')):
            with self.subTest(served=served):
                self.serve(*served)
                self.lock(locked, digest)
                result, output = self.dependencies('check')
                self.assertEqual(code, result, output)
                self.assertIn(words, output)
                self.assertEqual(bool(words), bool(output), output)

        (self.folder / 'archive.list').write_text('deb-src [trusted=yes] http://localhost:9/ ./\n')
        for verb, code in (('check',), 3), (('fetch', str(self.folder / 'out')), 1), (('renew',), 1):
            result, output = self.dependencies(*verb)
            self.assertEqual(code, result, output)
            self.assertIn('the archive cannot be reached: http://localhost:9/', output)
            self.assertNotIn('serves', output)

    def test_the_sources_of_a_release_are_an_archive(self):
        digest = self.serve('2')['2']
        self.enterContext(unittest.mock.patch.dict(os.environ, BREVANT_SOURCES=str(self.archive)))
        packs = [self.folder / name for name in ('sources.tar', 'again.tar', 'other.tar')]
        for pack in packs[:2]:
            write_sources(pack, [Source('small', '2', digest)], 1700000000)
            os.utime(next(self.archive.glob('small_2.tar.*')), (0, 0))
        self.assertEqual(packs[0].read_bytes(), packs[1].read_bytes())
        self.lock('2', digest)
        self.fetch(0, 'small 2\n', '--exact', archive=packs[0])
        self.lock('3', digest)
        self.fetch(1, f'small 3 is missing in {packs[0]}', archive=packs[0])
        with tarfile.open(packs[2], 'w') as other:
            other.add(packs[0], '../outside')
        self.fetch(1, 'is no pack of sources', archive=packs[2])
        self.assertFalse((self.folder / 'outside').exists())
        next(self.archive.glob('small_2.tar.*')).write_bytes(b'')
        with self.assertRaises(DependencyError):
            write_sources(packs[0], [Source('small', '2', digest)], 0)

    def test_the_lock_takes_the_newest_that_is_served(self):
        digests = self.serve('1', '2', '3')
        self.lock('1', digests['1'])
        (self.archive / 'small_3.dsc').unlink()
        output = self.dependencies('renew')[1]
        self.assertIn('the archive names 3 but does not serve it; 2 is the newest', output)
        self.assertEqual(['small', '2', digests['2']], (self.folder / 'lock').read_text().splitlines()[1].split())

        before = self.folder.joinpath('lock').read_text().replace(' 2 ', ' 9 ')
        (self.folder / 'lock').write_text(before)
        self.assertEqual(1, self.dependencies('renew')[0])
        self.assertEqual(before, (self.folder / 'lock').read_text(), 'never back to an older one')


@unittest.skipUnless((ROOT / '.git').exists(), 'no checkout of git')
class Refusals(Case):
    def test_nothing_is_made_of_what_is_no_release(self):
        clone = self.folder / 'clone'
        self.assertEqual(0, run('git', 'clone', '-q', '--shared', str(ROOT), str(clone))[0])
        version = re.search(r'project\(Brevant VERSION ([\d.]+)', (clone / 'CMakeLists.txt').read_text())[1]

        def release(*arguments, **variables):
            result, output = run('tools/release.sh', *arguments, folder=clone,
                                 **{'BREVANT_SIGN': '', 'BREVANT_WITHOUT_NEXT': 'a test', **variables})
            self.assertNotEqual(0, result)
            self.assertFalse((clone / 'dist').exists())
            self.assertEqual([], list(clone.glob('build/release-work*')), 'nothing half made')
            return output

        self.assertIn(f'HEAD is not tagged v{version}', release())
        run('git', 'tag', 'v0.1', folder=clone)
        self.assertIn('(tags here: v0.1)', release('--unsigned'))
        run('git', 'tag', f'v{version}', folder=clone)
        for nobody in ('', ' '):
            self.assertIn('BREVANT_SIGN names no signing command', release(BREVANT_SIGN=nobody))
        self.assertIn('the signing command is not there: nosigner', release(BREVANT_SIGN='nosigner -x'))
        nothing = self.folder / 'nothing'
        nothing.touch()
        (clone / 'changed').touch()
        for option in ('--unsigned', '--verify'):
            self.assertIn('the tree is dirty', release(option))
        (clone / 'changed').unlink()
        places = {'BREVANT_ARCHIVE': str(nothing), 'BREVANT_SOURCES': str(self.folder / 'empty')}
        output = release('--unsigned', **places)
        self.assertIn('FAILED: whether a shipped library lacks a security fix is not known', output)
        try:
            schema.fetch(self.folder / 'schema')
        except DependencyError as error:
            self.skipTest(str(error))
        (self.folder / 'empty').mkdir()
        shutil.copy(schema.package_file(), self.folder / 'empty')
        output = release('--unsigned', '--known-older', 'a trial', **places)
        self.assertIn('goes on, for a known reason: a trial', output)
        self.assertIn('is missing: the archive names no version of it', output)
        self.assertNotIn('CMake', output, 'nothing is tried without the dependencies')
        # Nothing is built before the next Debian has had its say.
        (clone / 'tools' / 'next.sh').write_text('#!/bin/sh\necho next year\nexit 1\n')
        run('git', 'add', '.', folder=clone)
        run('git', '-c', 'user.name=Test', '-c', 'user.email=test@example.org', 'commit', '-qm', 'Test', folder=clone)
        run('git', 'tag', '-f', f'v{version}', folder=clone)
        output = release('--unsigned', '--known-older', 'a trial', **{**places, 'BREVANT_WITHOUT_NEXT': ''})
        self.assertRegex(output, r'next year\n.*FAILED: tools/next.sh')


class NextDebian(Case):
    """tools/next.sh, as far as it goes without a Debian of its own."""

    def test_it_says_what_it_lacks(self):
        nobody = ('setpriv', '--reuid=65534', '--clear-groups') if os.getuid() == 0 else ()
        tool = str(ROOT / 'tools' / 'next.sh')
        for arguments, code, words in ((['--help'], 0, 'tools/next.sh --only RUNTIME'),
                                       (['--only', 'x'], 64, 'no such option: --only x'),
                                       (['trixie', 'forky'], 64, 'no such option: forky'),
                                       (['--'], 64, 'no command follows'),
                                       (['--only', 'ucrt'], 1, 'FAILED: root is needed')):
            with self.subTest(arguments):
                result, output = run(*nobody, tool, *arguments)
                self.assertEqual((code, True), (result, words in output), output)

    def test_the_entries_of_a_machine_for_another_release(self):
        etc = self.folder / 'etc'
        (etc / 'apt' / 'sources.list.d').mkdir(parents=True)
        (etc / 'os-release').write_text('ID=debian\nVERSION_CODENAME=bookworm\n')
        (etc / 'apt' / 'sources.list').write_text(
            'deb [trusted=yes] http://bookworm.example/debian bookworm main\ndeb http://cloud cloud-bookworm main\n')
        paragraph = 'Types: deb\nURIs: http://a\nSuites: {}\nComponents: {}\n'
        (etc / 'apt' / 'sources.list.d' / 'a.sources').write_text('\n'.join(
            [paragraph.format('bookworm bookworm-updates', 'main contrib'), paragraph.format('bookworm', 'stable'),
             paragraph.format('bookworm-security', 'main') + 'Enabled: no\n']))
        run('python3', '-c', 'import pathlib, sys, shipping.apt as apt\n'
            'apt.write_entries(pathlib.Path(sys.argv[1]), "trixie", "deb-src", pathlib.Path(sys.argv[2]))',
            str(self.folder), str(etc), PYTHONPATH=str(ROOT / 'tools'))
        self.assertEqual('deb-src [trusted=yes] http://bookworm.example/debian trixie main\n',
                         (self.folder / 'debian.list').read_text())
        self.assertEqual('Types: deb-src\nURIs: http://a\nSuites: trixie trixie-updates\nComponents: main contrib\n',
                         (self.folder / 'debian.sources').read_text())


@unittest.skipUnless((SHIPPED / 'Brevant.exe').exists(), 'no release build: run tools/build.sh')
class ShippedFiles(Case):
    def setUp(self):
        super().setUp()
        self.programs = sorted([*SHIPPED.glob('*.exe'), *SHIPPED.glob('*.dll')])

    def test_places_of_a_stripped_program_have_names(self):
        exports = run('x86_64-w64-mingw32-objdump', '-p', str(SHIPPED / 'KzDbg64.dll'))[1]
        base = int(re.search(r'^ImageBase\s+([0-9a-f]+)', exports, re.M)[1], 16)
        addresses = re.findall(r'\+base\[ *\d+\]\s+([0-9a-f]+) Export RVA', exports)
        # Newer versions also print the ordinal and the hint.
        names = re.findall(r'^\s+\[ *\d+\](?: \+base\[ *\d+\] +[0-9a-f]{4})? (KzDbg\w+)$', exports, re.M)
        self.assertEqual(3, len(names))
        self.assertEqual(3, len(addresses))
        # Also as an address, for a library that was loaded where it asks to be.
        places = [*addresses, f'{int(addresses[0], 16) + base:x}']
        result, output = run(str(ROOT / 'tools/symbolise.sh'), str(SHIPPED / 'KzDbg64.dll'), *places)
        self.assertEqual(0, result, output)
        self.assertEqual([*names, names[0]], re.findall(r'^(\w+).* at src/kzdbg/KzDbg\.cpp:\d+$', output, re.M), output)

        # The runtime has no lines: its functions are named without a file. What is no code has no name.
        symbols = run('x86_64-w64-mingw32-nm', str(SHIPPED / 'Brevant.exe.debug'))[1]
        memcpy, table = (re.search(f'^([0-9a-f]+) {kind}$', symbols, re.M)[1] for kind in ('T memcpy', 'd .*'))
        call = str(ROOT / 'tools/symbolise.sh'), str(SHIPPED / 'Brevant.exe')
        self.assertEqual((0, 'memcpy+0x2 (no line information)\n'), run(*call, f'{int(memcpy, 16) + 2:x}'))
        for outside in '10', table, '7fffffff':
            result, output = run(*call, outside, memcpy)
            self.assertEqual(1, result, output)
            self.assertIn('is outside of the code of Brevant.exe', output)
            self.assertIn('memcpy+0x0', output)

        shutil.copy(SHIPPED / 'KzDbg64.dll', self.folder)
        other = {'BREVANT_SYMBOLS': str(self.folder / 'symbols')}
        (self.folder / 'symbols').mkdir()
        call = (str(ROOT / 'tools/symbolise.sh'), str(self.folder / 'KzDbg64.dll'), places[0])
        self.assertIn('no KzDbg64.dll.debug', run(*call, **other)[1])
        shutil.copy(SHIPPED / 'Brevant.exe.debug', self.folder / 'symbols' / 'KzDbg64.dll.debug')
        self.assertIn('belongs to another build', run(*call, **other)[1])

    def test_the_bill_of_materials_is_valid(self):
        bill = bill_of_materials(ROOT, self.programs, '1.2.3', 1700000000, 'not served yet')
        components = {component['name']: component for component in bill['components']}
        self.assertEqual(['1.2.3', '2.5.0'],
                         [components[name]['version'] for name in ('Brevant.exe', 'libexpat.dll')])
        runtime = components['mingw-w64-x86-64-dev']['licenses'][0]['expression'].split(' AND ')
        self.assertLessEqual({'ZPL-2.1', 'MIT', 'ISC', 'BSD-2-Clause', 'BSD-3-Clause'}, set(runtime))
        self.assertIn('not served yet', json.dumps(bill['metadata']))
        for name, library in components.items():
            if 'purl' in library:
                self.assertRegex(library['purl'], r'^pkg:deb/debian/[a-zB0-9.%-]+@[^?:+]+\?arch=\w+&distro=[a-z]+$')
                package = library['version'], 0 if 'arch=source' in library['purl'] else 1
                self.assertTrue(package[1] == 0 or run('dpkg-query', '-W', '-f=${Version}', name) == (0, package[0]))
        graph = {row['ref']: row['dependsOn'] for row in bill['dependencies']}
        self.assertIn('file:libexpat.dll', graph['file:BrevantCheck.exe'])
        self.assertNotIn('g%2B%2B', ''.join(graph['file:libexpat.dll']))

        try:
            schema.fetch(self.folder)
        except DependencyError as error:
            self.skipTest(str(error))
        self.assertEqual([], schema.faults(bill, self.folder))
        for words, spoil in (
                ("'name' is a required property", lambda bill: bill['components'][0].pop('name')),
                ('is not one of', lambda bill: bill['components'][0]['hashes'][0].update(alg='SHA-7')),
                ('was unexpected', lambda bill: bill['metadata'].update(maker='x')),
                ('file:x is no component', lambda bill: bill['dependencies'][0]['dependsOn'].append('file:x')),
                ('nothing leads to file:Brevant.exe', lambda bill: bill['dependencies'][0]['dependsOn'].pop(0)),
                ('BSD is no name', lambda bill: bill['components'][-1].update(licenses=[{'expression': 'BSD'}]))):
            spoilt = copy.deepcopy(bill)
            spoil(spoilt)
            self.assertIn(words, '\n'.join(schema.faults(spoilt, self.folder)))

    def test_a_licence_of_the_runtime_that_is_not_known(self):
        text = 'Files: *\nLicense: ZPL-2.1\n\nFiles: mingw-w64-crt/misc/a.c\n mingw-w64-headers/b.h\nLicense: {}\n'
        self.assertEqual('ZPL-2.1 AND BSD-2-Clause AND ISC',
                         runtime_licences('', text.format('BSD-2-clause-NetBSD and ISC')))
        with self.assertRaisesRegex(BillError, 'the licence Other'):
            runtime_licences('', text.format('Other'))

    def test_signatures_are_verified_ones(self):
        def sign(command):
            return run('bash', '-c', '. tools/release.sh; work=$1; read -ra signer <<<"$2"; sign "$1/bin"', 'sign',
                       str(self.folder), command, folder=ROOT)

        shutil.copytree(SHIPPED, self.folder / 'bin', ignore=shutil.ignore_patterns('standins'))
        key, certificate = self.folder / 'key.pem', self.folder / 'certificate.pem'
        self.assertEqual(0, run('openssl', 'req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-subj', '/CN=Test',
                                '-addext', 'extendedKeyUsage=codeSigning', '-keyout', str(key),
                                '-out', str(certificate))[0])
        signer = self.folder / 'signer'
        signer.write_text(f'#!/bin/sh\nosslsigncode sign -certs {certificate} -key {key} -in "$1" -out "$1.signed" &&\n'
                          'mv "$1.signed" "$1"\n')
        signer.chmod(0o755)
        self.assertIn('left Brevant.exe as it was', sign('true')[1])
        self.assertIn('FAILED: signing Brevant.exe', sign('false')[1])
        result, output = sign(str(signer))
        self.assertEqual(0, result, output)
        for program in self.programs:
            signed = str(self.folder / 'bin' / program.name)
            result, output = run('osslsigncode', 'verify', '-CAfile', str(certificate), signed)
            self.assertEqual(0, result, output)
            result, output = run(str(ROOT / 'tools/symbolise.sh'), signed, '1500')
            self.assertEqual(0, result, 'signing leaves the link to the symbols: ' + output)


if __name__ == '__main__':
    unittest.main()
