"""What the verbs of the checking program print is what docs/examples show, to the last character. After an intended
change, tools/examples.sh writes them again."""
import difflib
import unittest

from brevantlab.examples import EXAMPLES, Examples
from brevantlab.expect import LabTest
from brevantlab.machine import Machine


class WholeOutputs(LabTest):
    def test_every_verb_prints_what_its_example_shows(self):
        found = Examples(self.enterContext(Machine())).run()
        shown = {file.stem: file.read_text('utf-8') for file in EXAMPLES.iterdir() if file.stem != 'findings'}
        for name in sorted(found.keys() | shown.keys()):
            with self.subTest(name):
                if lines := [*difflib.unified_diff(shown.get(name, '').splitlines(), found.get(name, '').splitlines(),
                                                   'the example', 'printed', n=0, lineterm='')]:
                    self.fail('\n'.join(['it differs', *lines]))


if __name__ == '__main__':
    unittest.main()
