#include "tools/tlx/page_style.h"

namespace tlx {

const std::string_view kPageStyle = R"css(
:root {
  color-scheme: light;
  --page: #ffffff; --text: #1b1f24; --quiet: #57606a; --rule: #c4ccd4; --panel: #f3f5f8;
  --link: #0a56b0; --good: #0f5f28; --bad: #a4161a; --road: #0a56b0; --seen: #e1eefc;
  --idle: #8a939d; --added: #dff3e4; --removed: #fce4e4; --part: #e8ebf0;
}
@media screen and (prefers-color-scheme: dark) {
  :root {
    color-scheme: dark;
    --page: #14171b; --text: #e4e8ec; --quiet: #a6b0ba; --rule: #3d454e; --panel: #1c2127;
    --link: #7ab8ff; --good: #74d492; --bad: #ff9d97; --road: #7ab8ff; --seen: #17314e;
    --idle: #76808a; --added: #15361f; --removed: #481d20; --part: #262d35;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; max-width: 75rem; padding: 0 1.25rem 2rem; background: var(--page);
  color: var(--text); font: 1rem/1.5 system-ui, sans-serif; overflow-wrap: anywhere;
}
a { color: var(--link); }
:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
main:focus { outline: none; }
.skip { position: absolute; left: -100rem; }
.skip:focus { position: static; display: inline-block; padding: .5rem 0; }
h1 { margin: 0; font-size: 1.5rem; line-height: 1.25; }
h2 { margin: 2.5rem 0 .75rem; padding-bottom: .25rem; border-bottom: 1px solid var(--rule);
  font-size: 1.25rem; }
h3 { margin: 1.5rem 0 .5rem; font-size: 1.05rem; }
header { padding-top: 1.5rem; }
.kind { margin: 0; color: var(--quiet); }
.outcome { margin: .75rem 0; padding: .5rem .75rem; border: 2px solid; border-radius: .375rem;
  font-weight: 600; }
.good { color: var(--good); }
.bad { color: var(--bad); }
nav ul { display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; margin: 0; padding: 0;
  list-style: none; }
nav a { display: inline-block; padding: .25rem 0; }
footer { margin-top: 2.5rem; color: var(--quiet); font-size: .875rem; }
code, pre, .lines, .flow { font-family: ui-monospace, "DejaVu Sans Mono", monospace;
  font-size: .8125rem; }
code { unicode-bidi: isolate; }
.left { color: var(--quiet); font-style: italic; }
dl { margin: 0; }
dl > div { display: grid; grid-template-columns: 11rem 1fr; gap: 0 1rem; padding: .25rem 0; }
dt { color: var(--quiet); }
dd { margin: 0; }
table { width: 100%; border-collapse: collapse; }
caption { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); }
th, td { padding: .25rem .75rem .25rem 0; text-align: left; vertical-align: top; }
th, .word { overflow-wrap: break-word; }
thead th { border-bottom: 1px solid var(--rule); color: var(--quiet); font-weight: 600; }
tbody th { font-weight: 400; }
tbody tr + tr > * { border-top: 1px solid var(--part); }
.lines tbody tr + tr > * { border-top: 0; }
.lines th, .lines td { padding-top: 0; padding-bottom: 0; }
.lines td:last-child, .trace span, .diff > * { white-space: pre-wrap; }
.lines tbody th, .visits { width: 1%; color: var(--quiet); text-align: right; white-space: nowrap; }
.lines .visits { text-align: left; }
tr.never > td, tr.never > th { background: var(--panel); }
tr.failed > td, tr.failed > th { background: var(--removed); }
tr.failed > th, tr.failed > .visits { color: var(--text); font-weight: 600; }
tr:target > * { outline: 2px solid var(--link); outline-offset: -2px; }
details { margin: .25rem 0; border: 1px solid var(--rule); border-radius: .375rem; }
summary { padding: .375rem .75rem; cursor: pointer; }
details > :not(summary) { margin: .25rem .75rem .5rem; }
.tag { display: inline-block; min-width: 4.75em; color: var(--quiet); }
.change { margin: .25rem 0; padding: .375rem .75rem .375rem 1.75rem; border: 1px solid var(--rule);
  border-radius: .375rem; }
.facts { padding-left: 1.25rem; }
.scroll { overflow: auto; border: 1px solid var(--rule); border-radius: .375rem; }
.scroll.trace { max-height: 70vh; }
.trace pre, .diff { margin: 0; padding: .5rem .75rem; background: var(--panel); }
.trace span, .diff > * { display: block; padding-left: 2ch; text-indent: -2ch; text-decoration: none; }
.trace span[hidden] { display: none; }
ins { background: var(--added); }
del { background: var(--removed); }
.diff .part { background: var(--part); color: var(--quiet); }
.filter input { width: min(24rem, 100%); padding: .25rem .5rem; border: 1px solid var(--idle);
  border-radius: .25rem; background: var(--page); color: var(--text); font: inherit; }
.legend { color: var(--quiet); font-size: .875rem; }
.flow { display: block; }
.flow text { fill: var(--text); font-size: 12px; white-space: pre; }
.flow .name, .flow .failed .count { font-weight: 700; }
.flow .line, .flow .label { fill: var(--quiet); }
.flow .caption { fill: var(--quiet); font-style: italic; }
.flow .count { text-anchor: end; }
.flow rect { fill: var(--seen); stroke: var(--road); stroke-width: 1.5; }
.flow .never rect { fill: var(--panel); stroke: var(--idle); stroke-dasharray: 4 3; }
.flow .never text, .flow .never .line, .flow .never .label { fill: var(--quiet); }
.flow .failed rect { fill: var(--removed); stroke: var(--bad); stroke-width: 2.5; }
.flow .shared rect { fill: var(--page); stroke: var(--idle); }
.flow .edge { fill: none; stroke: var(--idle); }
.flow .edge.taken { stroke: var(--road); stroke-width: 2.5; }
.flow .edge.fallback { stroke-dasharray: 5 3; }
.flow .tip { fill: var(--idle); }
.flow .tip.taken { fill: var(--road); }
.flow a:focus-visible { outline: none; }
.flow a:focus-visible rect { stroke: var(--link); stroke-width: 4; }
@media (max-width: 40rem) {
  body { padding: 0 .75rem 1.5rem; }
  dl > div { grid-template-columns: 1fr; }
  th, .word { overflow-wrap: anywhere; }
  th, td { padding-right: .5rem; }
}
@media print {
  body { max-width: none; padding: 0; font-size: 10pt; }
  .skip, .skip-picture, nav, .filter { display: none; }
  .scroll, .scroll.trace { max-height: none; overflow: visible; border: 0; }
  .flow { width: 100%; height: auto; }
  details::details-content { content-visibility: visible; block-size: auto; }
  h2, h3, summary { break-after: avoid; }
  tr, .box { break-inside: avoid; }
  ins, del, .flow rect, tr.never > *, tr.failed > * { print-color-adjust: exact; }
}
)css";

const std::string_view kPageScript = R"js(
(() => {
  "use strict";
  const filter = document.getElementById("filter");
  if (filter) {
    const lines = [...document.querySelectorAll(".trace pre > span")];
    const texts = lines.map((line) => line.textContent.toLowerCase());
    const shown = document.getElementById("shown");
    const apply = () => {
      const wanted = filter.value.toLowerCase();
      let count = 0;
      lines.forEach((line, at) => {
        line.hidden = !texts[at].includes(wanted);
        count += line.hidden ? 0 : 1;
      });
      shown.textContent = `${count} of ${lines.length} lines`;
    };
    filter.closest(".filter").hidden = false;
    filter.addEventListener("input", apply);
    apply();
  }
  let closed = [];
  addEventListener("beforeprint", () => {
    closed = [...document.querySelectorAll("details:not([open])")];
    closed.forEach((one) => { one.open = true; });
  });
  addEventListener("afterprint", () => {
    closed.forEach((one) => { one.open = false; });
  });
})();
)js";

}  // namespace tlx
