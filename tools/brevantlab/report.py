"""The report of a trial: one page of HTML that needs nothing else, and the same as JSON."""
import html
import json
import pathlib

from .outcome import Outcome

PAGE = '''<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>@TITLE@</title>
<meta name="viewport" content="width=device-width, initial-scale=1">
<style>
body { font: 14px/1.4 sans-serif; margin: 1.5em; } h1 { font-size: 1.3em; } .no { color: #b00; } .yes { color: #070; }
table { border-collapse: collapse; width: 100%; table-layout: fixed; margin-bottom: 1.5em; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1em 1em; }
dt { font-weight: bold; } dd { margin: 0; }
dd { overflow-wrap: anywhere; } ins { background: #dfd; text-decoration: none; } del { background: #fdd; }
del { text-decoration: none; }
td, th { border: 1px solid #ccc; padding: .2em .5em; text-align: left; vertical-align: top; }
td { white-space: pre-wrap; overflow-wrap: anywhere; font: 12px/1.35 monospace; }
th:last-child { width: 11em; } #summary th { width: 12em; } #filters { position: sticky; top: 0; background: #fff; }
td.bad { background: #fdd; } td.new, td.changed { background: #efe; } td.gone { background: #eee; }
td.left { background: #ffd; }
@media (max-width: 700px) {
  body { margin: .5em; } dl { display: block; } dd { margin: 0 0 .3em 1em; } #filters { position: static; }
  #filters > * { max-width: 100%; box-sizing: border-box; }
  #rooms thead th:not(:first-child) { display: none; } #rooms tr { display: block; margin-bottom: .4em; }
  #rooms tr[hidden] { display: none; } #rooms td, #rooms th { display: block; width: auto; border-bottom: 0; }
  #rooms td:empty { display: none; } #rooms td:last-child { border-bottom: 1px solid #ccc; }
  :is(#files, #registry, #agent, #shortcuts, #settings) td:nth-child(2):not(.diff)::before { content: "before: "; }
  :is(#files, #registry, #agent, #shortcuts, #settings) td:nth-child(3):not(:last-child)::before { content: "after: "; }
  #summary tr { display: block; } #summary th, #summary td { display: block; width: auto; }
}
</style></head><body>
<h1>@TITLE@: <span class="@CLASS@">@VERDICT@</span></h1>
<dl id="head"></dl>
<table id="summary"></table>
<details id="help"><summary>What the filters and the states mean</summary>
<p>The three filters count together: a row is shown when its name or content holds the text, it is in the chosen
room, and it has the chosen state. At first everything is shown that the update has changed (all but "same").</p>
<dl><dt>files</dt><dd>of drive C: outside of the Windows folder. Of texts the lines that differ are shown, "-" as they
were, "+" as they are; of other files the size.</dd>
<dt>registry</dt><dd>values with their types, of the product and of what the update names.</dd>
<dt>agent</dt><dd>values with which the agent itself remembers its work: no part of the update.</dd>
<dt>shortcuts, settings</dt><dd>"carried over": the user's value is in the new file; "left alone": the user had none;
"left behind": the user's value is lost, the new file's counts.</dd>
<dt>trace</dt><dd>what the agent has written; "folded": looks like a failure but is harmless; "no effect": the failure
line of a record that changed nothing.</dd>
<dt>checker</dt><dd>what lint and verify have found, and why a plan or a manifest failed.</dd>
<dt>never looked at</dt><dd>the update brings the file, and no step of the deployment takes it.</dd>
<dt>what went wrong</dt><dd>every state that is not one of a deployment as it should be.</dd></dl></details>
<p id="filters"><input id="text" placeholder="name or content"> <select id="room"></select> <select id="state"></select>
<span id="count"></span></p>
<div id="rooms"></div>
<script type="application/json" id="data">@DATA@</script>
<script>
'use strict';
const data = JSON.parse(document.getElementById('data').textContent);
const usual = ['same', 'new', 'changed', 'gone', 'carried over', 'left alone', 'left behind', 'line', 'folded'];
function add(parent, tag, text, name) {
  const element = parent.appendChild(document.createElement(tag));
  element.textContent = text;
  if (name) element.className = name;
  return element;
}
const head = document.getElementById('head');
const question = data.question.message ? data.question.title + ': "' + data.question.message + '"' : 'not asked';
for (const [label, text] of [['update', data.update], ['language', data.language], ...Object.entries(data.versions),
                             ['lint', data.lintSummary], ['question', question]]) {
  add(head, 'dt', label);
  add(head, 'dd', text);
}
function showDiff(cell, text) {
  for (const line of text.split('\\n')) {
    add(cell, line[0] === '+' ? 'ins' : line[0] === '-' ? 'del' : 'span', line);
    cell.append('\\n');
  }
}
const summary = document.getElementById('summary');
for (const [label, text] of data.summary) {
  const row = summary.insertRow();
  add(row, 'th', label);
  const problem = data.problems.some(([name, where]) => name === label && where === text);
  add(row, 'td', text, problem ? 'bad' : label === 'LEFT BEHIND' ? 'left' : '');
}
const rows = [];
for (const [room, entries] of Object.entries(data.details)) {
  const table = add(document.getElementById('rooms'), 'table', '');
  table.id = room;
  const head = table.createTHead().insertRow();
  for (const title of [room, 'before', 'after', 'state']) add(head, 'th', title);
  const body = table.createTBody();
  for (const entry of entries) {
    const row = body.insertRow();
    add(row, 'td', entry.name);
    if (entry.diff) {
      const cell = add(row, 'td', '', 'diff');
      cell.colSpan = 2;
      showDiff(cell, entry.diff);
    } else {
      for (const key of ['before', 'after']) add(row, 'td', entry[key]);
    }
    add(row, 'td', entry.state, usual.includes(entry.state) ? entry.state.split(' ')[0] : 'bad');
    rows.push({row, room, state: entry.state, text: Object.values(entry).join('\\n').toLowerCase()});
  }
}
const filters = {};
for (const name of ['text', 'room', 'state']) filters[name] = document.getElementById(name);
for (const name of ['room', 'state']) {
  add(filters[name], 'option', 'every ' + name).value = '';
  for (const value of new Set(rows.map(row => row[name]))) add(filters[name], 'option', value).value = value;
}
add(filters.state, 'option', 'all but "same"').value = '!same';
add(filters.state, 'option', 'what went wrong').value = '!';
function apply() {
  const {text, room, state} = filters;
  const words = text.value.toLowerCase();
  let count = 0;
  for (const entry of rows) {
    const fits = state.value === '' || state.value === entry.state
      || (state.value === '!same' && entry.state !== 'same') || (state.value === '!' && !usual.includes(entry.state));
    entry.row.hidden = !(fits && (!room.value || room.value === entry.room) && entry.text.includes(words));
    count += entry.row.hidden ? 0 : 1;
  }
  for (const table of document.querySelectorAll('#rooms table'))
    table.hidden = !table.querySelector('tbody tr:not([hidden])');
  document.getElementById('count').textContent = count + ' of ' + rows.length + ' rows';
}
filters.state.value = '!same';
for (const [name, value] of new URLSearchParams(location.hash.slice(1))) if (filters[name]) filters[name].value = value;
for (const name in filters) filters[name].addEventListener('input', apply);
apply();
</script></body></html>
'''


def write(outcome: Outcome, folder: pathlib.Path) -> pathlib.Path:
    """Writes report.html and report.json into the folder; returns the page."""
    folder.mkdir(parents=True, exist_ok=True)
    data = outcome.as_json()
    text = json.dumps(data, ensure_ascii=False, indent=1)
    (folder / 'report.json').write_text(text, 'utf-8', 'backslashreplace')
    parts = {'TITLE': html.escape(f'{pathlib.Path(outcome.update).name}, {outcome.language}'),
             'CLASS': 'yes' if data['complete'] else 'no',
             'VERDICT': 'complete' if data['complete'] else 'not complete',
             'DATA': json.dumps(data).replace('<', '\\u003c')}
    page = PAGE
    for name, value in parts.items():
        page = page.replace(f'@{name}@', value)
    (folder / 'report.html').write_text(page, 'utf-8', 'backslashreplace')
    return folder / 'report.html'
