// The converters' page: reads the form at every change and fills the table.

import { STATISTICS, numberOf, statisticsOf, textOfLn, tOf } from './statistics.js';

const DIGITS = 6;
const COLUMNS = [
  ['t', 't'], ['z', 'z'], ['p, one-tailed', 'lnOneTailed'], ['p, two-tailed', 'lnTwoTailed'],
  ['−log10 p, one-tailed', 'log10p'], ['r', 'r'], ['F', 'F'], ['d', 'd'], ['g', 'g'],
];

const byId = (id) => document.getElementById(id);
const chosen = (name) => document.querySelector(`input[name="${name}"]:checked`).value;

// What the user typed stays; only a value that came from the sample sizes follows them.
let dfIsOurs = true;

function text(all, key) {
  const shown = (value) => Number(value.toPrecision(DIGITS)).toString();
  if (key === 'log10p') return shown(-all.lnOneTailed / Math.LN10);
  if (all[key] === undefined) return '';
  return key.startsWith('ln') ? textOfLn(all[key], DIGITS) : shown(all[key]);
}

function sampleSize(id, least) {
  const typed = byId(id).value.trim();
  const size = numberOf(typed);
  if (typed && !(Number.isInteger(size) && size >= least))
    throw new Error(`${id} must be a whole number, ${least} or more.`);
  return typed ? size : undefined;
}

/** Everything but the values. Throws an Error that says what is missing or wrong. */
function readGiven(kind) {
  const given = { tails: Number(chosen('tails')), negative: chosen('direction') === 'negative',
    n1: sampleSize('n1', 2), n2: sampleSize('n2', 2) };
  if (given.n2 && !given.n1) throw new Error('n1 is missing.');
  if (dfIsOurs && given.n1) byId('df').value = given.n2 ? given.n1 + given.n2 - 2 : given.n1 - 1;
  const df = byId('df').value.trim();
  if (!df) throw new Error('Please give the degrees of freedom or the sample sizes.');
  given.df = numberOf(df);
  if (!(given.df >= 1 && given.df <= 1e6))
    throw new Error('The degrees of freedom must be a number from 1 to 1000000.');
  if (kind.needsSizes && !given.n1) throw new Error('Cohen’s d needs the sample sizes.');
  return given;
}

function row(cells, tag = 'td') {
  const tr = document.createElement('tr');
  for (const cell of cells) {
    const element = document.createElement(tag);
    element.className = 'number';
    element.textContent = cell;
    tr.append(element);
  }
  return tr;
}

function convert() {
  const id = byId('kind').value, kind = STATISTICS[id];
  byId('tails').hidden = !kind.hasTails;
  byId('direction').hidden = !kind.hasDirection;
  const rows = [], tValues = [], refused = [];
  let problem = '';
  try {
    const given = readGiven(kind);
    for (const line of byId('values').value.split('\n').map((l) => l.trim()).filter(Boolean)) {
      const t = tOf(id, line, given);
      if (Number.isFinite(t)) {
        const all = statisticsOf(t, given);
        rows.push(row([line, ...COLUMNS.map(([, key]) => text(all, key))]));
      } else {
        refused.push(line);
        rows.push(row([line, '?']));
      }
      tValues.push(Number.isFinite(t) ? Number(t.toPrecision(DIGITS)).toString() : '?');
    }
    if (refused.length) problem = `Not a ${kind.label} (${kind.rule}): ${refused.join(', ')}`;
  } catch (error) {
    problem = error.message;
  }
  byId('problem').textContent = problem;
  byId('results').replaceChildren(...rows);
  byId('t-values').value = tValues.join('\n');
}

byId('kind').append(...Object.entries(STATISTICS).map(([id, { label }]) => new Option(label, id)));
byId('heads').replaceChildren(...row(['Given', ...COLUMNS.map(([head]) => head)], 'th').children);
byId('df').addEventListener('input', () => { dfIsOurs = byId('df').value.trim() === ''; });
byId('converter').addEventListener('input', convert);
byId('converter').addEventListener('submit', (event) => event.preventDefault());
convert();

const topic = new URLSearchParams(location.search).get('show');
if (topic) document.getElementById(topic)?.focus();
