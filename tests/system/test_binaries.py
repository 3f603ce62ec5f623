"""What is shipped: self-contained, hardened, small, with its manifest and version."""
import re
import subprocess
import unittest

from machine import BUILD

SHIPPED = BUILD / 'release' / 'bin'
HARDENING = {'HIGH_ENTROPY_VA', 'DYNAMIC_BASE', 'NX_COMPAT'}
# What every process of Windows has loaded. Whatever else a program imported would be mapped at each of its starts.
CORE = re.compile(r'KERNEL32\.dll|msvcrt\.dll|api-ms-win-[a-z0-9-]+\.dll')
PROGRAM_TEXTS = ('requireAdministrator', 'longPathAware', '{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}')


@unittest.skipUnless((SHIPPED / 'Brevant.exe').exists(), 'no release build: run tools/build.sh')
class ShippedBinaries(unittest.TestCase):
    def test_self_contained_and_hardened(self):
        for name in ('Brevant.exe', 'KzDbg64.dll', 'libexpat.dll'):
            with self.subTest(name):
                headers = subprocess.run(['x86_64-w64-mingw32-objdump', '-p', '-h', SHIPPED / name], check=True,
                                         stdout=subprocess.PIPE, text=True).stdout
                imports = re.findall(r'DLL Name: (\S+)', headers)
                self.assertIn('KERNEL32.dll', imports)
                others = {dll for dll in imports if not CORE.fullmatch(dll)}
                self.assertLessEqual(others, {'ADVAPI32.dll'} if name == 'libexpat.dll' else set())
                self.assertLessEqual(HARDENING, set(headers.split()))
                self.assertIn('.reloc', headers, 'without relocations the address cannot be random')
                self.assertNotIn('.debug_info', headers)

    def test_program_resources_and_size(self):
        content = (SHIPPED / 'Brevant.exe').read_bytes()
        for text in PROGRAM_TEXTS:
            self.assertIn(text.encode(), content)
        self.assertIn('Kazmere Qorvault'.encode('utf-16-le'), content)
        self.assertLess(len(content), 2 << 20)


if __name__ == '__main__':
    unittest.main()
