"""What is shipped: self-contained, hardened, small, with its manifest and version."""
import os
import re
import struct
import subprocess
import unittest

from brevantlab.expect import LabTest, call
from brevantlab.layouts import SampleMachine
from brevantlab.prefix import BUILD, ROOT, VERSION

SHIPPED = BUILD / 'release' / 'bin'
HARDENING = {'HIGH_ENTROPY_VA', 'DYNAMIC_BASE', 'NX_COMPAT'}
# What every process of Windows has loaded. Whatever else a program imported would be mapped at each of its starts.
# Of the two C runtimes it may import the one that it was built with alone: libexpat.dll and the agent share it.
RUNTIME = 'api-ms-win-crt-[a-z]+-l1-1-0' if os.environ.get('BREVANT_TOOLCHAIN') == 'ucrt' else 'msvcrt'
CORE = re.compile(rf'(KERNEL32|ntdll|{RUNTIME}|api-ms-win-(core|security)-[a-z0-9-]+)\.dll')
VERSION_MARK = struct.pack('<I', 0xFEEF04BD)  # begins the numbers of a version resource
WRITABLE = 1 << 31  # the flag of a section


def protect_sections(content):
    """A program of which no section but those of its variables can be written; and the sections that could before."""
    content = bytearray(content)
    header, = struct.unpack_from('<I', content, 60)
    count, optional = struct.unpack_from('<H12xH', content, header + 6)
    protected = set()
    for entry in range(header + 24 + optional, header + 24 + optional + count * 40, 40):
        name = content[entry:entry + 8].rstrip(b'\0').decode()
        flags, = struct.unpack_from('<I', content, entry + 36)
        if flags & WRITABLE and name not in ('.data', '.bss'):
            protected.add(name)
            struct.pack_into('<I', content, entry + 36, flags & ~WRITABLE)
    return bytes(content), protected


class ShippedBinaries(unittest.TestCase):
    def test_self_contained_and_hardened(self):
        for name in ('Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll', 'libexpat.dll'):
            with self.subTest(name):
                headers = subprocess.run(['x86_64-w64-mingw32-objdump', '-p', '-h', SHIPPED / name], check=True,
                                         stdout=subprocess.PIPE, text=True).stdout
                imports = re.findall(r'DLL Name: (\S+)', headers)
                self.assertIn('KERNEL32.dll', imports)
                others = {dll for dll in imports if not CORE.fullmatch(dll)}
                self.assertLessEqual(others, {'ADVAPI32.dll'} if name == 'libexpat.dll' else set())
                self.assertLessEqual(HARDENING, set(headers.split()))
                self.assertIn('(Windows CUI)', headers)
                symbols = call('x86_64-w64-mingw32-nm', SHIPPED / f'{name}.debug')[1].split()
                self.assertLessEqual({'__stack_chk_fail', '__chk_fail'}, set(symbols), 'checks of stack and copies')
                if name != 'libexpat.dll':
                    self.assertEqual(['10', '10'], re.findall(r'Major(?:OSystem|Subsystem)Version\s+(\d+)', headers))
                self.assertEqual(name.endswith('.exe'), 'TERMINAL_SERVICE_AWARE' in headers.split())
                sections = dict(re.findall(r'^ +\d+ (\S+) .*\n +(.*)$', headers, re.M))
                self.assertIn('.reloc', sections, 'without relocations the address cannot be random')
                self.assertNotIn('.debug_info', sections)
                self.assertEqual(['.text'], [section for section, flags in sections.items() if 'CODE' in flags])
                self.assertIn('READONLY', sections['.text'], 'nothing that runs can be written')
                self.assertEqual(-1, (SHIPPED / name).read_bytes().find(str(ROOT).encode()), 'no path of the machine')

    def test_program_resources_and_size(self):
        # The agent is started elevated, the checker with its caller's rights.
        for folder, name, level, megabytes in (('agent', 'Brevant', b'requireAdministrator', 2),
                                               ('check', 'BrevantCheck', b'asInvoker', 2.5)):
            with self.subTest(name):
                content = (SHIPPED / f'{name}.exe').read_bytes()
                manifest = (ROOT / 'src' / folder / f'{name}.manifest').read_bytes()
                self.assertEqual(1, content.count(manifest.strip()))
                self.assertIn(b'level="' + level + b'"', manifest)
                self.assertLess(len(content), megabytes * 2 ** 20)

    def test_version(self):
        header = (BUILD / 'deps' / 'include' / 'expat.h').read_text()
        expat = '.'.join(re.findall(r'define XML_M[A-Z]+_VERSION (\d+)', header)) + '.0'
        for name in ('Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll', 'libexpat.dll'):
            with self.subTest(name):
                version = expat if name == 'libexpat.dll' else VERSION + '.0'
                content = (SHIPPED / name).read_bytes()
                numbers = struct.unpack_from('<4H', content, content.index(VERSION_MARK) + 8)
                self.assertEqual(version, '.'.join(str(numbers[index]) for index in (1, 0, 3, 2)))
                named = {} if version == expat else {'ProductName': 'Kazmere Qorvault', 'OriginalFilename': name}
                for field, text in {'FileVersion': version, **named}.items():
                    self.assertTrue(re.search(field + '\0+' + text, content.decode('utf-16-le', 'replace')), field)


class ProtectedSections(LabTest):
    """Linkers differ in what they protect: newer ones the tables of imports, which delayed calls change."""
    def test_only_variables_are_written(self):
        machine = self.enterContext(SampleMachine())
        for name in ('Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll', 'libexpat.dll'):
            content, protected = protect_sections((SHIPPED / name).read_bytes())
            self.assertLessEqual(protected, {'.idata', '.didat', '.CRT', '.tls', '.rsrc'}, name)
            machine.host(machine.install + name).write_bytes(content)
        machine.mark_renamed()
        checker = machine.install + 'BrevantCheck.exe'
        manifest = machine.run(checker, 'manifest', machine.install.rstrip('\\'))
        self.assertEqual(0, manifest.code, manifest.output)
        machine.write('C:\\update.json', manifest.output)
        code, messages = machine.agent('/DeployFramework')
        self.assertEqual(0, code)
        self.assertIn('@@@ ***QorPatchTool.exe stop.', messages)
        machine.restart()
        verified = machine.run(checker, 'verify', 'C:\\update.json')
        self.assertEqual(0, verified.code, verified.output)
