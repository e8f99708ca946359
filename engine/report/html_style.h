#pragma once

// The look of reports.

#include "engine/report/report_layer.h"

namespace kvo::report {

/// Style sheet; goes into a style element, so it has none of the characters that XML escapes.
inline constexpr const char* html_style = R"(
:root { color-scheme: light dark; --page: #fff; --text: #1c2128; --dim: #57606a; --line: #d0d7de;
  --soft: #f6f8fa; --mark: #9a6700; --accent: #0a5a9c; --bar: #cfe3f5; }
@media (prefers-color-scheme: dark) {
  :root { --page: #14181d; --text: #e4e8ec; --dim: #9aa4af; --line: #363d46; --soft: #1d232a;
    --mark: #e0a93b; --accent: #6cb6f5; --bar: #24476a; }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; }
body { margin: 0; background: var(--page); color: var(--text);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", "Noto Sans", "DejaVu Sans", sans-serif; }
main { max-width: 52rem; margin: 0 auto; padding: 2rem 1.25rem 3rem; overflow-wrap: anywhere; }
header { border-bottom: 2px solid var(--accent); margin-bottom: 1.5rem; padding-bottom: .75rem; }
h1 { font-size: 1.75rem; line-height: 1.2; margin: 0; }
h2 { font-size: 1.2rem; line-height: 1.3; margin: 2.25rem 0 .75rem; }
p { margin: 0 0 .75rem; }
.subtitle { color: var(--dim); margin: .35rem 0 0; }
.notice { border-left: 4px solid var(--mark); background: var(--soft); padding: .75rem 1rem; }
blockquote { margin: 0 0 .75rem; padding: .75rem 1rem; background: var(--soft);
  border-left: 4px solid var(--accent); }
td, th, li, code, h1, figcaption { unicode-bidi: isolate; }
table { border-collapse: collapse; width: 100%; font-size: .8125rem; line-height: 1.35;
  font-variant-numeric: tabular-nums lining-nums; }
p.caption { color: var(--dim); font-size: .875rem; margin-bottom: .4rem; }
th, td { padding: .3rem .26rem; text-align: left; vertical-align: top;
  border-bottom: 1px solid var(--line); }
th:first-child, td:first-child { padding-left: .25rem; }
thead th { border-bottom: 2px solid var(--line); color: var(--dim); font-weight: 600;
  vertical-align: bottom; }
.number { text-align: right; width: 1%; }
td.number { white-space: nowrap; }
td.share { min-width: 11rem;
  background: linear-gradient(var(--bar), var(--bar)) no-repeat left center /
    calc((100% - 4.5rem) * var(--share)) 55%; }
.leads td { font-weight: 600; border-top: 2px solid var(--line); }
.facts th { width: 13rem; font-weight: 600; color: var(--dim); }
.wide { overflow-x: auto; margin-bottom: 1rem; overflow-wrap: normal; }
.commands { margin: 0 0 .75rem; padding: .6rem .75rem .6rem 2.75rem; background: var(--soft);
  color: var(--dim); }
code { font: .875rem/1.5 ui-monospace, "DejaVu Sans Mono", monospace; color: var(--text); }
ul.sources { margin: 0; padding-left: 1.2rem; color: var(--dim); font-size: .875rem; }
a { color: var(--accent); }
ul.cards { list-style: none; margin: 0; padding: 0; display: grid; gap: 1rem;
  grid-template-columns: repeat(auto-fill, minmax(15rem, 1fr)); font-size: .875rem; }
.cards small { color: var(--dim); }
.cards img { margin-bottom: .35rem; }
details { margin: .75rem 0 1rem; }
summary { cursor: pointer; color: var(--accent); }
pre { margin: .5rem 0; padding: .6rem .75rem; background: var(--soft); white-space: pre-wrap;
  overflow-wrap: anywhere; font: .8125rem/1.45 ui-monospace, "DejaVu Sans Mono", monospace; }
figure { margin: 0 0 1.25rem; }
img { display: block; width: 100%; height: auto; border-radius: 4px; }
figcaption { color: var(--dim); font-size: .875rem; margin-top: .5rem; }
#explorer { margin: 1.5rem 0; scroll-margin-top: .5rem; }
.views { display: grid; grid-template-columns: var(--across); gap: .4rem; margin-bottom: .4rem;
  padding: .4rem; background: #000; border-radius: 4px; align-items: end; }
.views figure { margin: 0; min-width: 0; }
.views figcaption { margin: 0 0 .2rem; color: #e0e0e0; font-size: .75rem; display: flex;
  justify-content: space-between; }
.views canvas { display: block; width: 100%; cursor: crosshair; touch-action: pan-y; }
.views canvas:focus-visible { outline: 2px solid #7dff9a; }
.bars { display: flex; flex-wrap: wrap; gap: .25rem 1.5rem; font-size: .8125rem; margin: .5rem 0;
  color: var(--dim); font-variant-numeric: tabular-nums; }
.bars i { display: inline-block; width: 9rem; height: .6rem; vertical-align: middle; }
.bars [data-bar=negative] { outline: 1px solid #fff; box-shadow: 0 0 0 2px #888; }
.controls { display: flex; flex-wrap: wrap; gap: .5rem 1.25rem; margin: .75rem 0;
  font-size: .875rem; align-items: center; }
.controls input[type=range] { vertical-align: middle; width: 8rem; }
.controls input[type=number] { width: 4.2rem; font: inherit; }
.controls output { display: inline-block; min-width: 2.6rem; font-variant-numeric: tabular-nums; }
button.place { font: inherit; color: var(--accent); background: none; border: 0; padding: 0;
  text-align: left; cursor: pointer; text-decoration: underline; }
.near tbody td { padding-top: .15rem; padding-bottom: .15rem; }
.near tr.dim { color: var(--dim); }
.near td:nth-child(2), .near td:nth-child(4) { white-space: nowrap; }
.near td:last-child { width: 9rem; padding: 0; vertical-align: middle; }
.near svg { display: block; width: 9rem; }
.near .zero { stroke: var(--line); }
.near .limits { stroke: var(--accent); stroke-width: 1.5; }
.near circle { fill: var(--accent); }
@media (max-width: 34rem) {
  main { padding: 1.25rem .9rem 2rem; }
  h1 { font-size: 1.4rem; }
  .facts th { width: 8.5rem; }
  .wide table { font-size: .8rem; }
}
@page { size: A4; margin: 16mm 15mm; }
@media print {
  :root { color-scheme: light; --page: #fff; --text: #000; --dim: #444; --line: #bbb;
    --soft: #f3f4f6; --mark: #9a6700; --accent: #0a5a9c; --bar: #cfe3f5; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  html { font-size: 9.5pt; }
  body { font-size: 1rem; }
  main { max-width: none; padding: 0; }
  .wide { overflow: visible; }
  h2, p.caption { break-after: avoid; }
  h2 { margin-top: 1.5rem; }
  tr, figure, blockquote, .notice, .commands { break-inside: avoid; }
  img { width: auto; max-width: 100%; max-height: 228mm; }
  thead { display: table-header-group; }
  .controls, .hint { display: none; }
  button.place { color: inherit; text-decoration: none; }
  .leads + tr:not(.leads) { break-before: avoid; }
  p { orphans: 3; widows: 3; }
}
)";

}  // namespace kvo::report
