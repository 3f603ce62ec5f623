"""The whole story that the demo shows: deployment, question, restart, new name, in both languages and answers."""
from brevantlab.expect import HomeTest
from brevantlab.trials import TRIALS, Trials


class Story(HomeTest):
    def test_update_from_deployment_to_new_name(self):
        self.assertShown(TRIALS / 'demo.txt', Trials(self.home).demo())
