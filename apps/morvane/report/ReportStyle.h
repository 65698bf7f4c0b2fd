#pragma once

namespace halvern::morvane::client {

// All colours stand here twice, for light and for dark; pairs of text and ground keep a contrast of at
// least 4.5 to 1 (WCAG 2.1, success criterion 1.4.3).
constexpr const char* REPORT_STYLE = R"(
:root { color-scheme: light dark; --ground: #fbfbfa; --panel: #ffffff; --ink: #1b1f24; --soft: #57606a;
  --line: #d8dee4; --hit: #1f5fbf; --miss: #c2410c; --on: #ffffff; --chip: #eef1f4; --mark-miss: #ffe3d3;
  --mark-hit: #d9e8ff; }
@media (prefers-color-scheme: dark) {
  :root { --ground: #14171b; --panel: #1c2127; --ink: #e7ebef; --soft: #a3adb8; --line: #343b44; --hit: #6aa9ff;
    --miss: #ff9a63; --on: #10141a; --chip: #2a313a; --mark-miss: #5a2f18; --mark-hit: #1d3c66; }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--ground); color: var(--ink);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", "DejaVu Sans", sans-serif; }
main { max-width: 1180px; margin: 0 auto; padding: 2rem 1.25rem 4rem; }
h1 { font-size: 1.7rem; line-height: 1.2; margin: 0 0 .25rem; overflow-wrap: anywhere; }
h2 { font-size: 1.2rem; margin: 2.5rem 0 .75rem; }
p { margin: .25rem 0 .75rem; max-width: 70ch; }
.soft, .axis { color: var(--soft); }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(15rem, 42%), 1fr)); gap: .75rem;
  margin: 1.5rem 0 0; padding: 0; }
.tiles div { background: var(--panel); border: 1px solid var(--line); border-radius: .6rem; padding: .7rem .9rem; }
.tiles dt { color: var(--soft); font-size: .85rem; }
.tiles dd { margin: 0; font-size: 1.5rem; font-weight: 600; font-variant-numeric: tabular-nums; }
.panel { background: var(--panel); border: 1px solid var(--line); border-radius: .6rem; padding: 1rem;
  overflow-x: auto; }
.beside { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(32rem, 100%), 1fr)); gap: 1rem;
  align-items: start; }
svg { display: block; height: auto; max-width: 100%; }
.wide svg { max-width: none; } .gap { height: 1rem; }
svg text { fill: var(--ink); font-family: inherit; }
svg text.on { fill: var(--on); }
svg text.axis { fill: var(--soft); font-size: 13px; }
.ground { fill: none; stroke: var(--line); }
.hit { fill: var(--hit); } .miss { fill: var(--miss); } .count { fill: var(--soft); }
.grid { stroke: var(--line); } .ideal { stroke: var(--soft); stroke-dasharray: 5 5; }
.curve { fill: none; stroke: var(--hit); stroke-width: 2; }
.point { fill: var(--hit); stroke: var(--panel); stroke-width: 1.5; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; font-size: .92rem; }
caption { text-align: left; color: var(--soft); padding-bottom: .5rem; }
th, td { padding: .3rem .5rem; text-align: right; border-bottom: 1px solid var(--line); white-space: nowrap; }
th { font-weight: 600; }
th:first-child, td:first-child, .left { text-align: left; white-space: normal; overflow-wrap: anywhere;
  min-width: 8rem; }
tbody tr:last-child > * { border-bottom: 0; }
tbody th { font-weight: 400; }
.scroll { max-height: 34rem; overflow: auto; }
.scroll thead th { position: sticky; top: 0; background: var(--panel); }
meter { width: 6rem; height: .7rem; vertical-align: middle; margin-left: .5rem; }
ol.mistakes { list-style: none; margin: 0; padding: 0; display: grid; gap: .75rem; }
.mistakes p { margin: 0; max-width: none; }
.mistakes .head { display: flex; flex-wrap: wrap; gap: .25rem .75rem; align-items: baseline; }
.mistakes .text { margin: .5rem 0; white-space: pre-wrap; overflow-wrap: anywhere; max-width: 90ch; }
.mistakes strong.wrong { color: var(--miss); } .mistakes strong.right { color: var(--hit); }
mark { color: inherit; background: var(--chip); border-radius: .2rem; padding: 0 .15rem; }
mark.wrong, .chip.wrong { background: var(--mark-miss); }
mark.right, .chip.right { background: var(--mark-hit); }
.chips { display: flex; flex-wrap: wrap; gap: .35rem; font-size: .88rem; margin: 0; padding: 0; list-style: none; }
.chip { background: var(--chip); border-radius: 1rem; padding: .05rem .65rem; overflow-wrap: anywhere; }
@media print { main { max-width: none; } .scroll { max-height: none; } .panel, li { break-inside: avoid; } }
)";

}  // namespace halvern::morvane::client
