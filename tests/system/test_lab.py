"""The throwaway machine itself: a tool that fails there is asked again, and never believed."""
import os
import pathlib
import shutil
import tempfile
import unittest
import unittest.mock

from brevantlab.expect import LabTest, differences
from brevantlab.machine import SETTINGS, Machine, ToolError

# Fails as often as "failures" says: "reg export" with an error, "reg import" silently.
SPOILT_WINE = r'''#!/bin/sh
left=$(cat "$HOME/failures" 2>/dev/null || echo 0)
if [ "${{1##*\\}}" = reg.exe ] && [ "$left" -gt 0 ]; then
    echo $((left - 1)) >"$HOME/failures"
    [ "$2" = import ]
    exit
fi
exec {} "$@"
'''


class Tools(LabTest):
    def setUp(self):
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (folder / 'wine').write_text(SPOILT_WINE.format(shutil.which('wine')))
        (folder / 'wine').chmod(0o755)
        self.enterContext(unittest.mock.patch.dict(os.environ, PATH=f'{folder}:{os.environ["PATH"]}'))
        self.enterContext(unittest.mock.patch('sys.stderr'))
        self.enterContext(unittest.mock.patch('time.sleep'))
        self.machine = self.enterContext(Machine())

    def fail(self, times):
        (self.machine.root / 'failures').write_text(str(times))

    def test_registry(self):
        values = {'text': 'a "quoted" \\ text', 'number': 7, 'list': ['a', '', 'b'], 'bytes': b'\1\2'}
        for name, data in values.items():
            self.machine.set_value(SETTINGS, name, data)
        self.fail(2)  # the import, and the check of its mark
        self.assertSame(values, self.machine.values(SETTINGS))
        self.assertEqual(2, len(self.machine.repeated), self.machine.repeated)
        self.assertEqual({}, self.machine.values(SETTINGS + '\\None'))
        self.fail(100)
        with self.assertRaises(ToolError):
            self.machine.values(SETTINGS)

    def test_leftovers(self):
        folder = os.fsencode(self.machine.host('C:\\left'))
        os.mkdir(folder)
        for name in (b'\xff\xed\xa0\x80', b'con', b'trailing. ', b'line\nbreak'):
            with open(os.path.join(folder, name), 'wb'):
                pass
        deep = os.path.join(folder, *[b'd' * 250] * 12)
        os.makedirs(deep)
        self.assertEqual(4, len(self.machine.listing('C:\\left')))
        self.machine.add_drive('E')
        drive = self.machine.host('E:\\')
        self.machine.close()
        for folder in (self.machine.root, drive):
            self.assertFalse(folder.exists(), folder)


class Differences(unittest.TestCase):
    def test_few_lines(self):
        old = {'a': b'x' * 50000, 'b': {'c': 1, 'd': 2}, 'e': 3}
        lines = differences(old, {**old, 'a': b'x' * 40000 + b'y' * 10000, 'b': {'c': 1, 'd': 4}})
        self.assertEqual(['a', 'b: d'], [line.rpartition(': expected')[0] for line in lines])
        self.assertIn('xyy', lines[0])
        self.assertLess(max(map(len, lines)), 500)
        self.assertEqual((['1: missing, expected 2'], ["not expected: 'b'"]),
                         (differences([1, 2], [1]), differences({'a'}, {'a', 'b'})))


if __name__ == '__main__':
    unittest.main()
