#include "disk/map_page.h"

namespace quorbix::virtdisk::tool {

const std::string_view kPageStyle = R"(
:root { color: #2b2f38; background: #fbfaf7; font: 15px/1.45 system-ui, 'DejaVu Sans', sans-serif; }
body { margin: 0 auto; max-width: 1400px; padding: 24px; }
h1 { margin: 0; font-size: 26px; }
h2 { margin: 0 0 8px; font-size: 16px; }
header p { margin: 4px 0 20px; color: #5c6370; }
small { color: #5c6370; }
main { display: grid; grid-template-columns: minmax(0, 2fr) minmax(280px, 1fr); gap: 28px; }
@media (max-width: 900px) { main { grid-template-columns: minmax(0, 1fr); } }
#map { border-radius: 6px; cursor: crosshair; }
#map:focus-visible, button:focus-visible, input:focus-visible { outline: 3px solid #1a5fb4; outline-offset: 3px; }
#cells { display: block; width: 100%; height: auto; }
#cells.chosen .g { opacity: 0.22; }
#cells.chosen .g.lit { opacity: 1; }
#lit { fill: none; stroke: #14171c; stroke-width: 1.6; pointer-events: none; }
#cursor { stroke: #14171c; stroke-width: 2.5; pointer-events: none; }
#told { min-height: 4.4em; margin: 12px 0; white-space: pre-line; overflow-wrap: anywhere; }
.legend { display: flex; flex-wrap: wrap; gap: 6px 22px; list-style: none; margin: 10px 0 0; padding: 0; }
label { display: block; margin-bottom: 4px; }
input { box-sizing: border-box; width: 100%; padding: 7px 10px; font: inherit; border: 1px solid #8c94a3; border-radius: 6px; background: #fff; color: inherit; }
#found { margin: 8px 0; color: #5c6370; }
#list { list-style: none; margin: 0; padding: 3px; max-height: 65vh; overflow: auto; }
#list button { display: flex; gap: 8px; align-items: center; width: 100%; padding: 5px 8px; font: inherit; text-align: left; color: inherit; background: none; border: 0; border-radius: 6px; cursor: pointer; }
#list button:hover { background: #efece4; }
#list button[aria-pressed=true] { background: #dde6f2; font-weight: 600; }
#list i { flex: none; width: 13px; height: 13px; border-radius: 3px; }
#list span { flex: 1; min-width: 0; overflow-wrap: anywhere; }
@media (forced-colors: active) { #cells, #list i { forced-color-adjust: none; } }
)";

const std::string_view kPageMapOpening = R"(<section aria-labelledby="clusters">
<h2 id="clusters">Clusters</h2>
<div id="map" tabindex="0" role="application" aria-label="Map of the clusters" aria-describedby="keys told">
)";

const std::string_view kPageFiles = R"(<p id="told" role="status"></p>
<p id="keys"><small>Point at a cell to see whose it is, click to light all of its file. On the keyboard: arrow keys, Home and End move, Enter chooses the file, Escape lets go.</small></p>
<noscript><p>Without scripts the cells still tell their files when pointed at; the list stays empty.</p></noscript>
</section>
<section aria-labelledby="files">
<h2 id="files">Files and directories</h2>
<label for="search">Search in paths</label>
<input id="search" type="search" autocomplete="off" spellcheck="false" aria-controls="list">
<p id="found" role="status"></p>
<ul id="list"></ul>
</section>
)";

const std::string_view kPageScript = R"('use strict';
(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const byId = (id) => document.getElementById(id);
  const [map, cells, outline, cursor, told, search, found, list] =
      ['map', 'cells', 'lit', 'cursor', 'told', 'search', 'found', 'list'].map(byId);
  const mostListed = 300;

  const runs = [];  // with the number of each one's first cell
  let cellCount = 0;
  for (const [area, owner, first, count] of data.cells) {
    runs.push({area, owner, first, begin: cellCount, end: cellCount + count});
    cellCount += count;
  }
  const runOf = (cell) => {
    let low = 0, high = runs.length - 1;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (cell < runs[middle].end) high = middle; else low = middle + 1;
    }
    return runs[low];
  };

  const number = (value) => value.toLocaleString('en');
  const count = (value, one, many) => number(value) + ' ' + (value === 1 ? one : many);
  const describe = (owner) =>
      owner.path + '\n' + (owner.directory ? 'directory' : count(owner.bytes, 'byte', 'bytes')) +
      ', ' + count(owner.clusters, 'cluster', 'clusters') + ' in ' +
      count(owner.parts, 'part', 'parts') + ': ' + owner.where +
      (owner.hidden ? '\nin no listing' : '');

  // The cells that a run of clusters touches, the first and the one behind the last.
  const firstWithClusters = runs.find((run) => run.area >= data.firstWithClusters)?.begin ?? 0;
  const cellsOf = ([first, length]) => {
    const begin = Math.floor((first - 2) / data.perCell);
    const end = Math.floor((first + length - 3) / data.perCell) + 1;
    return [firstWithClusters + begin, firstWithClusters + end];
  };
  const inCell = new Map();  // the numbers of all who have clusters there
  data.owners.forEach((owner, i) => owner.runs.forEach((run) => {
    const [begin, end] = cellsOf(run);
    for (let cell = begin; cell < end; ++cell) {
      if (!inCell.has(cell)) inCell.set(cell, []);
      const there = inCell.get(cell);
      if (there[there.length - 1] !== i) there.push(i);
    }
  }));
  const othersIn = (cell, owner) => {
    const others = (inCell.get(cell) ?? []).filter((i) => i !== owner);
    if (others.length === 0) return '';
    const named = others.slice(0, 3).map((i) => data.owners[i].path).join(', ');
    const rest = others.length - 3;
    return '\nAlso in this cell: ' + named + (rest > 0 ? ' and ' + rest + ' more' : '');
  };

  const describeCell = (cell) => {
    const run = runOf(cell);
    const harmed = run.area >= data.firstHarmed ? data.areas[run.area] + '. ' : '';
    let place = 'Cell ' + number(cell + 1) + ' of ' + number(cellCount);
    if (run.area >= data.firstWithClusters) {
      const first = run.first + (cell - run.begin) * data.perCell;
      const last = Math.min(first + data.perCell - 1, data.clusters + 1);
      place += first === last ? ', cluster ' + first : ', clusters ' + first + ' to ' + last;
    }
    return place + '\n' + harmed +
        (run.owner < 0 ? (harmed ? '' : data.areas[run.area]) : describe(data.owners[run.owner])) +
        othersIn(cell, run.owner);
  };

  let current = -1;
  let chosen = -1;

  const tell = (text) => { if (told.textContent !== text) told.textContent = text; };
  const tellState = () => tell(current >= 0 ? describeCell(current) :
                               chosen >= 0 ? describe(data.owners[chosen]) : '');

  const goTo = (cell) => {
    current = cell;
    const size = data.pitch - 2;
    cursor.setAttribute('x', cell % data.columns * data.pitch);
    cursor.setAttribute('y', Math.floor(cell / data.columns) * data.pitch);
    cursor.setAttribute('width', cell < 0 ? 0 : size);
    cursor.setAttribute('height', cell < 0 ? 0 : size);
    tellState();
  };

  // Bars around cells, row by row.
  const shapeOf = ([begin, end]) => {
    let shape = '';
    while (begin < end) {
      const row = Math.floor(begin / data.columns);
      const stop = Math.min(end, (row + 1) * data.columns);
      const width = (stop - begin) * data.pitch - 2;
      shape += 'M' + begin % data.columns * data.pitch + ' ' + row * data.pitch + 'h' + width +
          'v' + (data.pitch - 2) + 'h' + -width + 'z';
      begin = stop;
    }
    return shape;
  };

  // Within the list's own box, to its top: the page stays where it is, with the map in sight.
  const scrollListTo = (button) => {
    const box = list.getBoundingClientRect(), at = button.getBoundingClientRect();
    const isInSight = at.top >= box.top && at.bottom <= box.bottom;
    if (!isInSight) list.scrollTop += Math.floor(at.top - box.top);
  };

  const choose = (owner, scroll) => {
    chosen = owner;
    for (const group of cells.querySelectorAll('.lit')) group.classList.remove('lit');
    for (const group of cells.querySelectorAll('[data-owner="' + owner + '"]')) {
      group.classList.add('lit');
    }
    cells.classList.toggle('chosen', owner >= 0);
    outline.setAttribute('d', owner < 0 ? '' : data.owners[owner].runs.map(cellsOf).map(shapeOf).join(''));
    if (scroll) showList();
    for (const button of list.querySelectorAll('button')) {
      const isChosen = Number(button.dataset.number) === owner;
      button.setAttribute('aria-pressed', isChosen);
      if (isChosen && scroll) scrollListTo(button);
    }
    tellState();
  };

  const cellAt = (event) => {
    const box = cells.getBoundingClientRect();
    const scale = cells.viewBox.baseVal.width / box.width;
    const column = Math.floor((event.clientX - box.left) * scale / data.pitch);
    const row = Math.floor((event.clientY - box.top) * scale / data.pitch);
    const cell = row * data.columns + column;
    const isOne = column >= 0 && column < data.columns && cell >= 0 && cell < cellCount;
    return isOne ? cell : -1;
  };

  map.addEventListener('mousemove', (event) => {
    const cell = cellAt(event);
    if (cell !== current) goTo(cell);
  });
  map.addEventListener('mouseleave', () => goTo(-1));
  map.addEventListener('click', (event) => {
    const cell = cellAt(event);
    if (cell >= 0) choose(runOf(cell).owner, true);
  });

  const steps = {ArrowRight: 1, ArrowLeft: -1, ArrowDown: data.columns, ArrowUp: -data.columns};
  map.addEventListener('keydown', (event) => {
    const key = event.key;
    if (cellCount === 0) return;
    if (key in steps) {
      const next = current < 0 ? 0 : current + steps[key];
      if (next >= 0 && next < cellCount) goTo(next);
    } else if (key === 'Home') {
      goTo(0);
    } else if (key === 'End') {
      goTo(cellCount - 1);
    } else if ((key === 'Enter' || key === ' ') && current >= 0) {
      choose(runOf(current).owner, true);
    } else if (key === 'Escape') {
      choose(-1, false);
    } else {
      return;
    }
    event.preventDefault();
  });

  const order = data.owners.map((owner, i) => i).sort((a, b) =>
      data.owners[b].bytes - data.owners[a].bytes || (data.owners[a].path < data.owners[b].path ? -1 : 1));

  const row = (i) => {
    const owner = data.owners[i];
    const item = document.createElement('li');
    const button = document.createElement('button');
    const mark = document.createElement('i');
    const name = document.createElement('span');
    const size = document.createElement('small');
    button.type = 'button';
    button.dataset.number = i;
    button.setAttribute('aria-pressed', i === chosen);
    mark.style.background = owner.colour;
    mark.setAttribute('aria-hidden', 'true');
    name.textContent = owner.path;
    size.textContent = owner.size + (owner.parts > 1 ? ' in ' + number(owner.parts) + ' parts' : '');
    button.append(mark, name, size);
    button.addEventListener('click', () => { current = -1; goTo(-1); choose(i === chosen ? -1 : i, false); });
    item.append(button);
    return item;
  };

  const showList = () => {
    const wanted = search.value.toLowerCase();
    const matches = order.filter((i) => data.owners[i].path.toLowerCase().includes(wanted));
    const shown = matches.slice(0, mostListed);
    if (matches.indexOf(chosen) >= mostListed) shown.unshift(chosen);
    list.replaceChildren(...shown.map(row));
    const rest = matches.length - mostListed;
    found.textContent = number(matches.length) + ' of ' + number(order.length) +
        (rest > 0 ? ', the largest ' + mostListed + ' shown; search for the others' : '');
  };
  search.addEventListener('input', showList);

  const chooseByAddress = () => {
    let path = location.hash.slice(1);
    try { path = decodeURIComponent(path); } catch (error) { return; }
    const i = data.owners.findIndex((owner) => owner.path === path);
    if (i >= 0) choose(i, true);
  };
  window.addEventListener('hashchange', chooseByAddress);
  showList();
  chooseByAddress();
})();
)";

}  // namespace quorbix::virtdisk::tool
