"""The whole story that the demo shows: deployment, question, restart, new name, in both languages and answers."""
import io
import unittest

from brevantlab import demo


class Story(unittest.TestCase):
    def test_update_from_deployment_to_new_name(self):
        for language in demo.LANGUAGES:
            with self.subTest(language):
                self.assertEqual([], demo.play(language, io.StringIO())[1])


if __name__ == '__main__':
    unittest.main()
