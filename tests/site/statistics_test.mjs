// The converters' mathematics against R: node statistics_test.mjs

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

const here = new URL('.', import.meta.url);
const source = readFileSync(new URL('../../site/utilities/statistics.js', here), 'utf8');
const js = await import(`data:text/javascript,${encodeURIComponent(source)}`);
const reference = JSON.parse(readFileSync(new URL('reference.json', here), 'utf8'));

function assertClose(value, expected, tolerance, row) {
  const error = Math.abs(value - expected) / Math.max(Math.abs(expected), 1e-300);
  assert.ok(value === expected || error <= tolerance,
    `${JSON.stringify(row)}: ${value} instead of ${expected}`);
}

// p = exp(lnP): an error of 1e-11 in lnP is one of 1e-11 in p.
const lnTolerance = (lnP) => 1e-11 / Math.max(Math.abs(lnP), 1) + 1e-13;

test('upper tails agree with R, far beyond the smallest number too', () => {
  for (const row of reference.upper_t)
    assertClose(js.lnUpperT(row.t, row.df), row.lnP, lnTolerance(row.lnP), row);
  for (const row of reference.upper_normal)
    assertClose(js.lnUpperNormal(row.z), row.lnP, lnTolerance(row.lnP), row);
});

test('quantiles agree with R', () => {
  for (const row of reference.quantile_t)
    assertClose(js.tOfLnP(row.lnP, row.df), row.t, 1e-9, row);
  for (const row of reference.quantile_normal)
    assertClose(js.zOfLnP(row.lnP), row.z, 1e-9, row);
});

test("Hedges' factor agrees with R", () => {
  for (const row of reference.J) assertClose(js.hedgesJ(row.df), row.J, 1e-12, row);
});

test('both tails make one', () => {
  for (const [t, df] of [[0.3, 4], [2, 50], [9, 1e5], [1e-9, 3]])
    assertClose(Math.exp(js.lnUpperT(t, df)) + Math.exp(js.lnUpperT(-t, df)), 1, 1e-14, [t, df]);
});

// Textbook values; those of a t distribution can be read in any table.
const sizes = { df: 38, tails: 2, negative: false, n1: 20, n2: 20 };
const CONVERSIONS = [
  // kind, text, given, t
  ['p', '0.05', { df: 10, tails: 2 }, 2.2281388519862739],
  ['p', '0.05', { df: 10, tails: 1 }, 1.8124611228116756],
  ['p', '0.05', { df: 10, tails: 1, negative: true }, -1.8124611228116756],
  ['p', '0.95', { df: 10, tails: 1 }, -1.8124611228116756],
  ['p', ' 5e-2 ', { df: 10, tails: 2 }, 2.2281388519862739],
  ['log10p', '1.3010299956639813', { df: 10, tails: 2 }, 2.2281388519862739],
  ['z', '1.959963984540054', { df: 10 }, 2.2281388519862739],
  ['z', '-1.959963984540054', { df: 10 }, -2.2281388519862739],
  ['t', '-3.1', { df: 10 }, -3.1],
  ['F', '9.61', { df: 10, negative: true }, -3.1],
  ['r', '0.6', { df: 16 }, 3],
  ['r', '-0.6', { df: 16 }, -3],
  ['d', '1', sizes, Math.sqrt(10)],
  ['d', '1', { df: 15, n1: 16 }, 4],
];
test('each statistic becomes its t value', () => {
  for (const row of CONVERSIONS) {
    const [kind, text, given, t] = row;
    assertClose(js.tOf(kind, text, { tails: 1, negative: false, ...given }), t, 1e-12, row);
  }
});

test('what is no such statistic is refused', () => {
  const REFUSED = [
    ['p', '0'], ['p', '1'], ['p', '-0.1'], ['p', '1.2'], ['p', ''], ['p', 'p<0.05'], ['p', '0,05'],
    ['log10p', '0'], ['log10p', '-2'], ['F', '-1'], ['r', '1'], ['r', '-1'], ['z', 'abc'],
    ['z', '1 2'], ['t', 'Infinity'], ['t', '0x10'], ['d', 'NaN'],
  ];
  for (const row of REFUSED)
    assert.ok(Number.isNaN(js.tOf(row[0], row[1], { ...sizes })), `${row} was accepted`);
});

test('a t value becomes all statistics and comes back from each', () => {
  for (const t of [-38, -2.5, -1e-3, 0.4, 3, 25, 1e5])
    for (const df of [1, 4.5, 38, 500]) {
      const all = js.statisticsOf(t, { df, n1: 20, n2: 20 });
      const given = { df, tails: 2, negative: t < 0, n1: 20, n2: 20 };
      const log10p = String(-all.lnTwoTailed / Math.LN10);
      // Two-tailed p values close to 1, and r close to 1, hold few digits of t.
      if (Math.abs(t) > 0.1) assertClose(js.tOf('log10p', log10p, given), t, 1e-9, [t, df]);
      if (Math.abs(all.r) < 0.999) assertClose(js.tOf('r', String(all.r), given), t, 1e-9, [t, df]);
      for (const kind of ['z', 'F', 'd', 't'])
        assertClose(js.tOf(kind, String(all[kind]), given), t, 1e-9, [kind, t, df]);
    }
});

test('probabilities below the smallest number are read and written', () => {
  for (const [text, ln] of [['1e-400', -400 * Math.LN10], ['2.5E-1000', Math.log(2.5) - 1000 * Math.LN10],
    ['1e-5', -5 * Math.LN10], ['.5', -Math.LN2]])
    assertClose(js.lnOf(text), ln, 1e-14, text);
  for (const [ln, text] of [[-400 * Math.LN10, '1e-400'], [Math.log(2.5) - 1000 * Math.LN10, '2.5e-1000'],
    [Math.log(0.05), '0.05'], [Math.log(9.9999999e-10), '1e-9'], [0, '1']])
    assert.equal(js.textOfLn(ln), text);
});
