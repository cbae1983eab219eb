// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "tools/krv-image-check/html_style.h"

namespace ImageCheck {

// Below 760 pixels each row of a table becomes a block, and each cell says its column.
const std::string_view htmlStyle = R"css(
:root {
  color-scheme: light dark;
  --page: #f6f7f9; --card: #ffffff; --ink: #1b2330; --soft: #5a6576; --line: #dde2e9; --shade: #eef1f5;
  --good: #1b6e42; --good-back: #e5f3ea; --info: #1d5a96; --info-back: #e4eff9;
  --warn: #855300; --warn-back: #fbf0d9; --bad: #a92424; --bad-back: #fbe6e4; --calm: #525d6d; --calm-back: #edf0f4;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #12161c; --card: #1a2029; --ink: #e4e8ee; --soft: #9da8b7; --line: #2d3643; --shade: #222a35;
    --good: #7fd0a0; --good-back: #173324; --info: #8fc1f0; --info-back: #16304a;
    --warn: #e9bd6b; --warn-back: #3a2c10; --bad: #f39a92; --bad-back: #431f1d; --calm: #aab4c2; --calm-back: #272f3b;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--ink); font: 15px/1.55 system-ui, "Segoe UI", Roboto,
  "Helvetica Neue", "Noto Sans", "DejaVu Sans", sans-serif; overflow-wrap: anywhere; }
main, header > div, footer { max-width: 1180px; margin: 0 auto; padding: 0 28px; }
header { background: var(--card); border-bottom: 1px solid var(--line); padding: 30px 0 26px; }
h1 { font-size: 25px; line-height: 1.25; margin: 2px 0 4px; font-weight: 650; letter-spacing: -.01em; }
h2 { font-size: 18px; margin: 40px 0 4px; font-weight: 650; }
h3 { font-size: 15.5px; margin: 0; font-weight: 650; }
p { margin: 0; }
.lead { color: var(--soft); margin-bottom: 14px; max-width: 76ch; }
.label { color: var(--soft); font-size: 12.5px; letter-spacing: .07em; text-transform: uppercase; font-weight: 600; }
.mono, code { font-family: ui-monospace, "SF Mono", Menlo, Consolas, "DejaVu Sans Mono", monospace; font-size: .88em; }
.soft { color: var(--soft); }
.card { background: var(--card); border: 1px solid var(--line); border-radius: 8px; }

.verdict { display: flex; gap: 16px; align-items: center; margin-top: 20px; padding: 15px 20px; border-radius: 8px; }
.verdict .sign { font-size: 23px; font-weight: 700; line-height: 1; }
.verdict strong { display: block; font-size: 17px; font-weight: 650; }
.counts { display: grid; grid-template-columns: repeat(5, 1fr); gap: 12px; list-style: none; margin: 16px 0 0; padding: 0; }
.counts li { background: var(--shade); border-radius: 8px; padding: 9px 15px; }
.counts b { display: block; font-size: 21px; line-height: 1.3; font-weight: 650; font-variant-numeric: tabular-nums; }
.counts span { color: var(--soft); font-size: 13px; }

nav { display: flex; flex-wrap: wrap; gap: 4px 22px; margin-top: 16px; font-weight: 600; font-size: 14px; }
a { color: var(--info); text-decoration: none; } a:hover { text-decoration: underline; }

.good { color: var(--good); } .info { color: var(--info); } .warn { color: var(--warn); } .bad { color: var(--bad); }
.calm { color: var(--calm); }
.good-back { background: var(--good-back); } .info-back { background: var(--info-back); }
.warn-back { background: var(--warn-back); } .bad-back { background: var(--bad-back); }
.calm-back { background: var(--calm-back); }

table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; vertical-align: top; padding: 10px 14px; border-top: 1px solid var(--line); font-weight: 400; }
thead th { border-top: 0; background: var(--shade); color: var(--soft); font-size: 13px; font-weight: 600; }
thead th:first-child { border-top-left-radius: 7px; } thead th:last-child { border-top-right-radius: 7px; }
tbody th b, .entry { font-weight: 600; }
tbody th small, td small { display: block; color: var(--soft); font-size: 12.5px; }
.plan { table-layout: fixed; }
.plan td { border-left: 3px solid var(--card); }
.plan td b { font-weight: 650; }
.plan td small { color: inherit; opacity: .92; }
.sign { display: inline-block; width: 1.15em; font-weight: 700; }
.legend { display: flex; flex-wrap: wrap; gap: 6px 18px; color: var(--soft); font-size: 13px; margin: 10px 2px 0; }

details { margin-top: 12px; }
summary { cursor: pointer; color: var(--info); font-weight: 600; padding: 4px 0; }
details > .card { margin-top: 8px; }

.finding { margin-top: 12px; padding: 15px 20px 16px; border-left: 4px solid currentColor; }
.finding > * { color: var(--ink); }
.finding .head { display: flex; flex-wrap: wrap; gap: 4px 12px; align-items: baseline; }
.badge { font-size: 12px; font-weight: 650; border-radius: 4px; padding: 1px 8px; white-space: nowrap; }
.finding .id { margin-left: auto; color: var(--soft); }
.places { list-style: none; margin: 8px 0 10px; padding: 0; }
.places li { padding: 5px 0; border-top: 1px dotted var(--line); }
.places li:first-child { border-top: 0; }
.advice { display: grid; grid-template-columns: 1fr 1fr; gap: 8px 28px; margin: 0; padding-top: 10px;
  border-top: 1px solid var(--line); }
.advice dt { color: var(--soft); font-size: 12.5px; font-weight: 600; } .advice dd { margin: 1px 0 0; }

.time { padding: 14px 20px 16px; }
.time ul { list-style: none; margin: 0; padding: 0; }
.time .row { display: grid; grid-template-columns: 330px 1fr 195px; gap: 4px 20px; align-items: center; padding: 8px 0;
  border-top: 1px solid var(--line); }
.time .row:first-child { border-top: 0; }
.track { position: relative; height: 14px; border-radius: 7px; background: var(--shade); overflow: hidden; }
.bar { position: absolute; inset: 0 auto 0 0; min-width: 4px; border-radius: 7px; background: currentColor; opacity: .75; }
.bar.beyond { border-radius: 7px 0 0 7px; mask-image: linear-gradient(to right, #000 85%, transparent); }
.axis { padding: 0 0 6px; color: var(--soft); font-size: 12.5px; }
.ticks { position: relative; height: 18px; }
.ticks span { position: absolute; top: 0; white-space: nowrap; border-left: 1px solid var(--line); padding-left: 4px; }
.plain { margin: 0; padding: 12px 20px 12px 36px; } .plain li { padding: 3px 0; }
footer { color: var(--soft); font-size: 13px; padding-top: 30px; padding-bottom: 36px; }

@media (max-width: 760px) {
  main, header > div, footer { padding-left: 15px; padding-right: 15px; }
  h1 { font-size: 21px; }
  .counts { grid-template-columns: repeat(2, 1fr); gap: 8px; }
  .counts li:last-child { grid-column: 1 / -1; }
  table, tbody, tr, th, td { display: block; width: auto; }
  thead { display: none; }
  tbody tr { border-top: 1px solid var(--line); padding: 11px 14px 12px; }
  tbody tr:first-child { border-top: 0; }
  tbody th, tbody td { border: 0; padding: 3px 0; }
  tbody td::before { content: attr(data-column); display: block; color: var(--soft); font-size: 12.5px; }
  .plan td { margin-top: 7px; padding: 7px 11px; border-left: 0; border-radius: 6px; }
  .advice { grid-template-columns: 1fr; }
  .finding { padding: 13px 14px; } .finding .id { margin-left: 0; }
  .time .row { grid-template-columns: 1fr; } .axis { display: none !important; }
}
@media print { body { background: none; } .finding, tr { break-inside: avoid; } }
)css";

} // namespace ImageCheck
