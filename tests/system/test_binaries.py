"""What is shipped: self-contained, hardened, small, with its manifest and version."""
import re
import struct
import subprocess
import unittest

from brevantlab.prefix import BUILD, ROOT, VERSION

SHIPPED = BUILD / 'release' / 'bin'
HARDENING = {'HIGH_ENTROPY_VA', 'DYNAMIC_BASE', 'NX_COMPAT'}
# What every process of Windows has loaded. Whatever else a program imported would be mapped at each of its starts.
CORE = re.compile(r'KERNEL32\.dll|msvcrt\.dll|api-ms-win-[a-z0-9-]+\.dll')
VERSION_MARK = struct.pack('<I', 0xFEEF04BD)  # begins the numbers of a version resource


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
        # The agent is started elevated, the checker as whoever calls it.
        for folder, name, level in (('agent', 'Brevant', b'requireAdministrator'),
                                    ('check', 'BrevantCheck', b'asInvoker')):
            with self.subTest(name):
                content = (SHIPPED / f'{name}.exe').read_bytes()
                manifest = (ROOT / 'src' / folder / f'{name}.manifest').read_bytes()
                self.assertEqual(1, content.count(manifest.strip()))
                self.assertIn(b'level="' + level + b'"', manifest)
                self.assertLess(len(content), 2 << 20)

    def test_version(self):
        version = VERSION + '.0'
        for name in ('Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll'):
            with self.subTest(name):
                content = (SHIPPED / name).read_bytes()
                numbers = struct.unpack_from('<4H', content, content.index(VERSION_MARK) + 8)
                self.assertEqual(version, '.'.join(str(numbers[index]) for index in (1, 0, 3, 2)))
                for field, text in (('FileVersion', version), ('ProductName', 'Kazmere Qorvault'),
                                    ('OriginalFilename', name)):
                    self.assertTrue(re.search(field + '\0+' + text, content.decode('utf-16-le', 'replace')), field)


if __name__ == '__main__':
    unittest.main()
