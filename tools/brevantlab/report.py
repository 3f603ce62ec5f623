"""The report of a trial: one page of HTML that needs nothing else, and the same as JSON."""
import html
import json
import pathlib

from .outcome import Outcome

PAGE = '''<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>@TITLE@</title>
<style>
body { font: 14px/1.4 sans-serif; margin: 1.5em; } h1 { font-size: 1.3em; } .no { color: #b00; } .yes { color: #070; }
table { border-collapse: collapse; width: 100%; table-layout: fixed; margin-bottom: 1.5em; }
td, th { border: 1px solid #ccc; padding: .2em .5em; text-align: left; vertical-align: top; }
td { white-space: pre-wrap; overflow-wrap: anywhere; max-height: 12em; font: 12px/1.35 monospace; }
th:last-child { width: 11em; } #summary th { width: 12em; } #filters { position: sticky; top: 0; background: #fff; }
td.bad { background: #fdd; } td.new, td.changed { background: #efe; } td.gone { background: #eee; }
</style></head><body>
<h1>@TITLE@: <span class="@CLASS@">@VERDICT@</span></h1>
<table id="summary"></table>
<p id="filters"><input id="text" placeholder="name or content"> <select id="room"></select> <select id="state"></select>
<span id="count"></span></p>
<div id="rooms"></div>
<script type="application/json" id="data">@DATA@</script>
<script>
'use strict';
const data = JSON.parse(document.getElementById('data').textContent);
const usual = ['same', 'new', 'changed', 'gone', 'carried over', 'left alone', 'line', 'folded'];
function add(parent, tag, text, name) {
  const element = parent.appendChild(document.createElement(tag));
  element.textContent = text;
  if (name) element.className = name;
  return element;
}
const summary = document.getElementById('summary');
for (const [label, text] of data.summary) {
  const row = summary.insertRow();
  add(row, 'th', label);
  add(row, 'td', text, label === label.toUpperCase() ? 'bad' : '');
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
    for (const key of ['name', 'before', 'after']) add(row, 'td', entry[key]);
    add(row, 'td', entry.state, usual.includes(entry.state) ? entry.state : 'bad');
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
