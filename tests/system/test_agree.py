"""What a run does is what was planned, on the cases in which the two once differed and on random updates; any number of
these: tools/agree.sh."""
import unittest.mock

from brevantlab import agree, undo, valid_update
from brevantlab.agree import State, arrivals, disagreements, wrong_verdicts
from brevantlab.expect import HomeTest, differences, shown
from brevantlab.machine import Result
from brevantlab.trials import TRIALS, Trials, output_of


def state(**parts):
    return State(**{'files': {}, 'folders': set(), 'links': {}, 'values': {}, 'moves': [], 'commands': [], **parts})


class ExitCodes(HomeTest):
    def test_one_that_disagrees_is_told(self):
        for tool, name, method in (agree, 'AgreementMachine', 'try_scenario'), (undo, 'UndoMachine', 'undo'):
            for found, code in ([], 0), (['x'] * 13, 1):
                option = f'--keep={self.home}' if tool == agree else ['--kills=2', '--wild'][code]
                with unittest.mock.patch.object(tool, name) as machine, unittest.mock.patch.object(undo, 'make_update'):
                    tried = getattr(machine.return_value.__enter__.return_value, method)
                    tried.side_effect = [[], found]
                    text = output_of(tool.main, '--seeds', 2, option)
                    self.assertEqual(option == '--kills=2', tried.call_args[0][1], 'strict: made without mistakes')
                    self.assertIn(f'{2 - code} of 2 a', text)
                    lines = {agree: 12, undo: 13}[tool] * code
                    self.assertEqual((code, lines), (int(text[-3]), text.count(' x')), text)

        def make(home, *_):
            (home / 'update').mkdir(parents=True)
            (home / 'update/QorPaFrwk.ini').write_text('a=b', 'utf-16')
        with unittest.mock.patch.multiple(valid_update, Machine=unittest.mock.DEFAULT, make_update=make) as mocks:
            mocks['Machine'].return_value.__enter__.return_value.run.side_effect = [Result(0, ''), Result(1, '')]
            self.assertIn('1 of 2 without a finding\n(exit code 1)', output_of(valid_update.main, '--seeds', 2))
        kept = {str(file.relative_to(self.home)) for file in self.home.rglob('*.*')}
        self.assertLessEqual({'seed-2/scenario.json', 'seed-2/C/Kazmere/QorPaFrwk.ini'}, kept)


class Agree(HomeTest):
    def test_differences_are_short(self):
        long = 'x' * 150
        for expected, found, lines in (
                ({'a': {}}, {'a': {}}, []), ({'a': {}}, {}, ['a: missing, expected {}']),
                ({'a': {'b': 1}}, {'a': {'b': 2}, 'c': 3}, ['a: b: expected 1, found 2', 'c: not expected, found 3']),
                ([1, 2], [1], ['1: missing, expected 2']), (1, '1', ["expected 1, found '1'"]),
                ({1, 2}, {2, 3}, ['missing: 1', 'not expected: 3']),
                (long + 'yz' * 99, long, [f"expected ...'{'x' * 50}{'yz' * 25}'... (of 348, from 100), "
                                          f"found ...'{'x' * 50}'... (of 150, from 100)"]),
                ([long * 2], [], [f"0: missing, expected '{'x' * 199}..."])):
            self.assertEqual(lines, differences(expected, found))
        self.assertEqual('\n  1\n  2\n  3\n  4\n  5\n  6\n  ... and 1 more', shown('1234567'))
        self.assertEqual('\n  1\n  2\n  3\n  4\n  5\n  6', shown('123456'))

    def test_plan_and_run_agree(self):
        self.assertShown(TRIALS / 'agree.txt', Trials(self.home).agree())

    def test_a_disagreement_is_told(self):
        move = {'action': 'move', 'outcome': 'new', 'atRestart': True, 'source': 'C:\\a', 'target': 'C:\\b'}
        value = {'action': 'writeValue', 'outcome': 'new', 'atRestart': False, 'target': 'HKEY_LOCAL_MACHINE\\K',
                 'name': 'N', 'new': '1'}
        for planned, after, told in (
                ([], state(files={'c:\\a': b'x'}), 'file c:\\a: not expected'),
                ([], state(commands=['x']), 'command 0: not expected'),
                ([move], state(), 'pending move c:\\a > !c:\\b: missing'),
                ([{**move, 'outcome': 'fail'}], state(), 'pending move c:\\a > !c:\\b: missing'),
                ([value], state(values={('hklm\\k', 'n'): '2'}), 'value hklm\\k : n: expected'),
                ([{**value, 'outcome': 'stay', 'old': '1'}], state(), 'value hklm\\k : n: missing')):
            with self.subTest(told):
                self.assertIn(told, '\n'.join(disagreements(state(), planned, after, asked=False)))
        first = {**move, 'outcome': 'replace'}
        other = {**move, 'target': 'C:\\c'}
        for planned, after, told in (([first, other], state(files={'c:\\c': b''}), 'did not arrive'),
                                     ([other, move], state(files={'c:\\c': b''}), 'did not arrive'),
                                     ([{**move, 'outcome': 'fail'}], state(files={'c:\\b': b'x'}), 'arrived')):
            self.assertEqual([f'after the restart c:\\b: {told}'], list(arrivals(state(), planned, after)))
        removed = {'action': 'delete', 'outcome': 'remove', 'atRestart': True, 'target': 'C:\\b'}
        self.assertEqual(['after the restart c:\\b: not removed'],
                         list(arrivals(state(), [removed], state(folders={'c:\\b'}))))
        for outcome, told in ('new', ['MISSING', 'LEFT IN DOWNLOAD', 'STILL WAITING']), ('fail', ['ARRIVED']):
            answers = [{'what': what, 'verdict': verdict} for what in ('C:\\b', 'C:\\not planned') for verdict in (
                'ARRIVED', 'MISSING', 'NOT KNOWN', 'LEFT IN DOWNLOAD', 'STILL WAITING')]
            found = [line.partition(' c:')[0] for line in wrong_verdicts([{**move, 'outcome': outcome}], answers)]
            self.assertEqual([f'verify: {verdict}' for verdict in told], found)
