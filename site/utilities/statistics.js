// Distribution functions and effect-size conversions, exact in the far tails: probabilities are
// natural logarithms throughout, so that neither p = 1e-400 nor z = 38 is lost.

const LN2 = Math.LN2;
const LN_SQRT_PI = Math.log(Math.PI) / 2;

/** The value of b0 + a1/(b1 + a2/(b2 + ...)), by the modified Lentz algorithm (Thompson and Barnett
 * 1986, Journal of Computational Physics 64:490). term(n) gives [a_n, b_n] for n = 1, 2, ... */
function continuedFraction(b0, term) {
  const tiny = 1e-300;
  let f = b0 || tiny, c = f, d = 0;
  for (let n = 1; n < 100000; ++n) {
    const [a, b] = term(n);
    d = 1 / (b + a * d || tiny);
    c = b + a / c || tiny;
    f *= c * d;
    if (Math.abs(c * d - 1) < 1e-16) break;
  }
  return f;
}

/** ln(gamma(a + 1/2) / gamma(a)) for a > 0: the asymptotic series at an argument that is large
 * enough for it, and the recurrence from there down. */
export function lnGammaHalfStep(a) {
  let shift = 0;
  for (; a < 20; ++a) shift += Math.log(a / (a + 0.5));
  const r = 1 / (a * a);
  const series = -1 / 8 + r * (1 / 192 + r * (-1 / 640 + r * (17 / 14336 - r * 31 / 18432)));
  return Math.log(a) / 2 + series / a + shift;
}

/** ln of the incomplete beta function I_x(a, b), given ln(x^a (1-x)^b / B(a, b)). For
 * x < (a + 1) / (a + b + 2); Numerical Recipes (Press et al. 2007), section 6.4. */
function lnIncompleteBeta(x, a, b, lnFront) {
  const fraction = continuedFraction(1, (n) => {
    const m = Math.floor(n / 2);
    const numerator = n % 2 === 0
      ? m * (b - m) * x / ((a + 2 * m - 1) * (a + 2 * m))
      : -(a + m) * (a + b + m) * x / ((a + 2 * m) * (a + 2 * m + 1));
    return [numerator, 1];
  });
  return lnFront - Math.log(a) - Math.log(fraction);
}

/** ln P(T > t) of Student's t distribution. */
export function lnUpperT(t, df) {
  if (t < 0) return lnComplement(lnUpperT(-t, df));
  if (t === 0) return -LN2;
  const a = df / 2, b = 0.5, ratio = t / Math.sqrt(df);
  // x = df / (df + t^2) and y = 1 - x, neither by a difference.
  const lnX = ratio > 1e100 ? -2 * Math.log(ratio) : -Math.log1p(ratio * ratio);
  const x = Math.exp(lnX), y = ratio > 1e100 ? 1 : ratio * ratio / (1 + ratio * ratio);
  const lnFront = a * lnX + Math.log(y) / 2 + lnGammaHalfStep(a) - LN_SQRT_PI;
  const twoTailed = x < (a + 1) / (a + b + 2)
    ? lnIncompleteBeta(x, a, b, lnFront)
    : lnComplement(lnIncompleteBeta(y, b, a, lnFront));
  return twoTailed - LN2;
}

/** ln P(Z > z) of the standard normal distribution. */
export function lnUpperNormal(z) {
  if (z < 0) return lnComplement(lnUpperNormal(-z));
  const x = z * z / 2;
  if (x < 1) {
    // erf by its series.
    let term = 1, sum = 1;
    for (let n = 1; term > 1e-17 * sum; ++n) sum += term *= x / (n + 0.5);
    return Math.log1p(-2 * Math.sqrt(x / Math.PI) * Math.exp(-x) * sum) - LN2;
  }
  // The incomplete gamma function Q(1/2, x) by its continued fraction.
  const fraction = continuedFraction(x + 0.5, (n) => [-n * (n - 0.5), x + 0.5 + 2 * n]);
  return -x + Math.log(x) / 2 - LN_SQRT_PI - Math.log(fraction) - LN2;
}

/** ln(1 - exp(lnP)) without loss for small and large probabilities. */
export function lnComplement(lnP) {
  return lnP > -LN2 ? Math.log(-Math.expm1(lnP)) : Math.log1p(-Math.exp(lnP));
}

/** The x at which the falling function lnUpper is lnP, at most ln(1/2). Found by bisection and
 * secants on asinh(x), because heavy tails reach up to 1e300. */
function inverse(lnUpper, lnP) {
  const difference = (s) => lnUpper(Math.sinh(s)) - lnP;
  let low = 0, high = 1, fLow = difference(0), fHigh = difference(high);
  if (fLow <= 0) return 0;
  while (fHigh > 0) [low, fLow, high] = [high, fHigh, high * 1.5], fHigh = difference(high);
  for (let i = 0; i < 200; ++i) {
    const secant = low + (high - low) * fLow / (fLow - fHigh);
    const middle = i % 3 === 2 || !(secant > low && secant < high) ? (low + high) / 2 : secant;
    const f = difference(middle);
    if (f === 0 || middle === low || middle === high) return Math.sinh(middle);
    if (f > 0) [low, fLow] = [middle, f];
    else [high, fHigh] = [middle, f];
  }
  return Math.sinh((low + high) / 2);
}

/** The value that leaves probability exp(lnP) above it, negative when that is more than 1/2. */
function upperQuantile(lnUpper, lnP) {
  return lnP <= -LN2 ? inverse(lnUpper, lnP) : -inverse(lnUpper, lnComplement(lnP));
}
export const tOfLnP = (lnP, df) => upperQuantile((t) => lnUpperT(t, df), lnP);
export const zOfLnP = (lnP) => upperQuantile(lnUpperNormal, lnP);

const DECIMAL = /^[+-]?(\d+\.?\d*|\.\d+)([eE]([+-]?\d+))?$/;

/** The number that the text is; NaN when it is none. */
export const numberOf = (text) => DECIMAL.test(text.trim()) ? Number(text) : NaN;

/** ln of a number written as text, also of one as small as 1e-400. NaN when it is none above 0. */
export function lnOf(text) {
  const value = numberOf(text);
  if (value >= 1e-300) return Math.log(value);
  const [, mantissa, , exponent] = DECIMAL.exec(text.trim()) ?? [];
  const ln = Math.log(Number(mantissa)) + Number(exponent) * Math.LN10;
  return value >= 0 && Number.isFinite(ln) ? ln : NaN;
}

/** exp(lnP) as text, also where it is less than the smallest number. */
export function textOfLn(lnP, digits = 6) {
  if (lnP > Math.log(1e-4)) return Number(Math.exp(lnP).toPrecision(digits)).toString();
  const log10 = lnP / Math.LN10;
  let exponent = Math.floor(log10), mantissa = (10 ** (log10 - exponent)).toFixed(digits - 1);
  if (Number(mantissa) >= 10) [mantissa, exponent] = ['1', exponent + 1];
  return `${Number(mantissa)}e${exponent}`;
}

/** Hedges' small-sample factor J(df) (Hedges 1981); 2 degrees of freedom or more. */
export const hedgesJ = (df) =>
  Math.exp(lnGammaHalfStep((df - 1) / 2)) / Math.sqrt(df / 2);

/** d = t * factor: sqrt(1/n1 + 1/n2) for two samples, sqrt(1/n1) for one. */
export const dPerT = ({ n1, n2 }) => Math.sqrt(1 / n1 + (n2 ? 1 / n2 : 0));

const only = (value, isGood) => isGood ? value : NaN;
const directed = (t, { negative }) => negative ? -t : t;
const tOfProbability = (lnP, given) =>
  directed(tOfLnP(given.tails === 2 ? lnP - LN2 : lnP, given.df), given);

/** The statistics that can be given: their names, what they must be, how their text is read (NaN
 * when it is no such statistic), and the t value that they stand for. `given` has df, tails (1 or 2,
 * of p values), negative (the direction of what has no sign of its own) and, when known, the sample
 * sizes n1 and n2. */
export const STATISTICS = {
  p: {
    label: 'p value', rule: 'above 0 and below 1', hasTails: true, hasDirection: true,
    read: (text) => { const lnP = lnOf(text); return only(lnP, lnP < 0); },
    t: tOfProbability,
  },
  log10p: {
    label: '−log10 of a p value', rule: 'above 0', hasTails: true, hasDirection: true,
    read: (text) => { const value = numberOf(text); return only(-value * Math.LN10, value > 0); },
    t: tOfProbability,
  },
  z: {
    label: 'z score', rule: 'a number', read: numberOf,
    t: (z, { df }) => Math.sign(z) * tOfLnP(lnUpperNormal(Math.abs(z)), df),
  },
  t: { label: 't value', rule: 'a number', read: numberOf, t: (t) => t },
  F: {
    label: 'F with 1 numerator degree of freedom', rule: '0 or more', hasDirection: true,
    read: (text) => { const F = numberOf(text); return only(F, F >= 0); },
    t: (F, given) => directed(Math.sqrt(F), given),
  },
  r: {
    label: 'correlation r', rule: 'above −1 and below 1',
    read: (text) => { const r = numberOf(text); return only(r, Math.abs(r) < 1); },
    t: (r, { df }) => r * Math.sqrt(df / ((1 - r) * (1 + r))),
  },
  d: {
    label: 'Cohen’s d', rule: 'a number', needsSizes: true, read: numberOf,
    t: (d, given) => d / dPerT(given),
  },
};

/** The t value of a statistic given as text; NaN when it is none. */
export function tOf(kind, text, given) {
  const value = STATISTICS[kind].read(text);
  return Number.isNaN(value) ? NaN : STATISTICS[kind].t(value, given);
}

/** All statistics of a t value; the p values as natural logarithms, the effect sizes only when a
 * sample size is known. */
export function statisticsOf(t, given) {
  const { df, n1 } = given;
  const lnUpper = lnUpperT(Math.abs(t), df), ratio = t / Math.sqrt(df);
  const lnOneTailed = t < 0 ? lnComplement(lnUpper) : lnUpper;
  const lnTwoTailed = Math.min(0, LN2 + lnUpper);
  const all = { t, z: Math.sign(t) * zOfLnP(lnUpper), lnOneTailed, lnTwoTailed,
    r: ratio / Math.hypot(1, ratio), F: t * t };
  if (n1) {
    all.d = t * dPerT(given);
    if (df >= 2) all.g = all.d * hedgesJ(df);
  }
  return all;
}
