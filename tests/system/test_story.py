"""The whole story that the demo shows: deployment, question, restart, new name, in both languages and answers."""
import contextlib
import io

from brevantlab import demo
from brevantlab.expect import LabTest


class Story(LabTest):
    def test_update_from_deployment_to_new_name(self):
        for language in demo.LANGUAGES:
            with self.subTest(language), contextlib.redirect_stdout(io.StringIO()):
                outcome, failures = demo.play(language)
                self.assertSame([], failures)
                self.assertSame([], outcome.problems())
