'use strict';
// The charts. Those over time show the same span, which is page.view.

const charts = {};
const TIME_STEPS = [10, 30, 60, 300, 600, 1800, 3600, 7200, 10800, 21600, 43200, 86400, 172800, 604800, 2592000];

const NO_BUCKETS = () => page.object.since ? 'A baseline alone: these are the points since it has learnt.' :
  'No distribution is kept: a range makes its buckets.';

function show(id, label, config) {
  charts[id]?.destroy();
  const canvas = element('canvas', {role: 'img', 'aria-label': label});
  find(id).replaceChildren(canvas, element('div', {class: 'cursor', hidden: ''}), element('div', {class: 'span', hidden: ''}));
  find(id).setAttribute('aria-label', label);
  const options = {animation: false, parsing: false, normalized: true, maintainAspectRatio: false, events: [], layout: {padding: {right: 12, top: 4}},
    elements: {point: {radius: 0}, line: {borderWidth: 0}}, ...config.options,
    plugins: {legend: {display: false}, tooltip: {enabled: false}}};
  charts[id] = new Chart(canvas, {...config, options});
}

function note(id, words) {
  charts[id]?.destroy();
  delete charts[id];
  find(id).replaceChildren(element('p', {class: 'note'}, words));
}

const axis = more => ({type: 'linear', grid: {color: colour('line')}, ...more,
  ticks: {color: colour('soft'), maxRotation: 0, font: {size: 11}, ...more.ticks}});

function timeAxis() {
  let step;
  return axis({min: page.view.from, max: page.view.to,
    afterBuildTicks: scale => {
      const least = (scale.max - scale.min) / Math.max(scale.width / 70, 2);
      step = TIME_STEPS.find(seconds => seconds >= least) ?? TIME_STEPS.at(-1);
      scale.ticks = [];
      for (let t = Math.ceil(scale.min / step) * step; t <= scale.max; t += step) scale.ticks.push({value: t});
    },
    ticks: {autoSkip: false, callback: t => t % 86400 === 0 ? when(t, DAY) : step < 60 ? when(t, FINE) : when(t, CLOCK)}});
}

// Values of the rows. Where extremes are not asked for and would press the others flat, what is above `usual` is
// cut off.
function valueAxis(rows, usual) {
  const high = largest(rows.map(most), 0);
  const low = smallest(rows.map(least));
  const cut = find('extremes').checked || high <= 2 * usual ? high : usual * 1.25;
  const bottom = low > 0.6 * cut ? low - 0.1 * (cut - low) : Math.min(low, 0);
  return axis({min: bottom, max: cut > bottom ? cut : bottom + 1, afterFit: scale => { scale.width = 64; },
    ticks: {maxTicksLimit: 8, callback: value => text(value)}});
}
const upper = rows => largest(rows.map(row => around(row, 2)), 0);

// The fan: each interval's points, those of the same distance from the median in the same shade.

function fanPoints(rows, point) {
  const list = [];
  const isWide = rows.length < 60; // then each interval is a step
  rows.forEach((row, i) => {
    const y = row.points[point];
    const x = [begins[row.interval], ends[row.interval]];
    if (rows[i - 1]?.interval !== row.interval - 1) list.push({x: x[0], y: NaN});
    if (isWide || rows[i - 1]?.interval !== row.interval - 1) list.push({x: x[0], y});
    list.push({x: (x[0] + x[1]) / 2, y});
    if (isWide || rows[i + 1]?.interval !== row.interval + 1) list.push({x: x[1], y});
  });
  return list;
}

function drawFan(rows) {
  const {instance} = page;
  const count = rows[0].points.length;
  const mid = count >> 1;
  const datasets = rows[0].points.map((_, i) => ({data: fanPoints(rows, i), fill: i > 0 && '-1',
    backgroundColor: colour(`fan${count === 3 ? 2 : i > mid ? i - mid - 1 : mid - i}`)}));
  datasets[mid].borderColor = colour('median');
  datasets[mid].borderWidth = 1.8;
  const lines = ({ctx, chartArea: area, scales: {x, y}}) => {
    const line = (name, from, to) => {
      ctx.strokeStyle = colour(name);
      ctx.beginPath();
      ctx.moveTo(...from);
      ctx.lineTo(...to);
      ctx.stroke();
    };
    ctx.save();
    ctx.beginPath();
    ctx.rect(area.left, area.top, area.width, area.height);
    ctx.clip();
    ctx.setLineDash([6, 4]);
    ctx.lineWidth = 1.5;
    for (const value of instance.learnt ?? []) {
      line('learnt', [area.left, y.getPixelForValue(value)], [area.right, y.getPixelForValue(value)]);
    }
    ctx.setLineDash([2, 3]);
    const at = x.getPixelForValue(begins[instance.departed]);
    if (instance.departure >= 1) line('mark', [at, area.top], [at, area.bottom]);
    ctx.restore();
  };
  show('fan', `Percentiles of ${short(instance.name)} over time`, {type: 'line', data: {datasets},
    plugins: [{id: 'lines', afterDatasetsDraw: lines}], options: {scales: {x: timeAxis(), y: valueAxis(rows, upper(rows))}}});
  drawLegend(count);
}

function drawLegend(count) {
  const swatch = (name, label, height = '') => element('span', {}, Object.assign(element('i'),
    {style: `background:var(--${name});${height}`}), label);
  const bands = ['15.87–84.13 %', '2.28–97.72 %', '0.13–99.87 %', '0–100 %'].map((label, i) => swatch(`fan${i}`, label));
  const line = 'height:2px;vertical-align:middle';
  find('legend').replaceChildren(
    ...(count === 3 ? [swatch('median', 'average', line), swatch('fan2', 'minimum to maximum')] : [swatch('median', 'median', line), ...bands]),
    ...(page.instance.learnt ? [swatch('learnt', 'learnt range', line)] : []),
    ...(page.instance.departure >= 1 ? [swatch('mark', 'departure', line)] : []));
}

// A heat map: samples by time and value. A bucket's samples are spread over the cells that it covers.

function heatCells(rows, area, x, y) {
  const height = Math.max(1, Math.round(area.height / 2));
  const every = Math.max(1, Math.ceil((page.view.to - page.view.from) / (area.width / 2) / (ends[0] - begins[0])));
  const cell = value => (value - y.min) / (y.max - y.min) * height;
  const columns = new Map();
  for (const row of rows) {
    const column = Math.floor(row.interval / every);
    if (!columns.has(column)) columns.set(column, new Float32Array(height));
    const cells = columns.get(column);
    eachPart(row, (low, high, samples) => {
      const from = cell(Math.max(low, least(row)));
      const to = Math.max(cell(Math.min(high, most(row))), from + 1e-6);
      for (let i = Math.max(Math.floor(from), 0); i < Math.min(to, height); ++i) {
        cells[i] += samples * (Math.min(i + 1, to) - Math.max(i, from)) / (to - from);
      }
    });
  }
  return {columns, every, height};
}

function heatColours() {
  const stops = [0, 1, 2, 3].map(i => colour(`heat${i}`).match(/\w\w/g).map(part => parseInt(part, 16)));
  return Array.from({length: 64}, (_, i) => {
    const at = i / 64 * 3;
    const [a, b] = [stops[Math.floor(at)], stops[Math.floor(at) + 1]];
    return `rgb(${a.map((value, j) => Math.round(value + (b[j] - value) * (at % 1))).join()})`;
  });
}

function drawHeat(id, label, rows, usual) {
  const colours = heatColours();
  const paint = ({ctx, chartArea: area, scales: {x, y}}) => {
    const {columns, every, height} = heatCells(rows, area, x, y);
    let top = 0;
    for (const cells of columns.values()) for (const value of cells) top = Math.max(top, value);
    ctx.save();
    ctx.beginPath();
    ctx.rect(area.left, area.top, area.width, area.height);
    ctx.clip();
    for (const [column, cells] of columns) {
      const left = Math.round(x.getPixelForValue(begins[column * every]));
      const right = Math.round(x.getPixelForValue(ends[Math.min((column + 1) * every, ends.length) - 1]));
      cells.forEach((value, i) => {
        if (value < 1e-3) return;
        ctx.fillStyle = colours[Math.min(63, Math.floor(Math.sqrt(value / top) * 64))];
        const upperEdge = area.bottom - area.height * (i + 1) / height;
        ctx.fillRect(left, upperEdge, Math.max(right - left, 1), area.height / height + 0.3);
      });
    }
    ctx.restore();
  };
  show(id, label, {type: 'scatter', data: {datasets: []}, plugins: [{id: 'heat', beforeDatasetsDraw: paint}],
    options: {scales: {x: timeAxis(), y: valueAxis(rows, usual)}}});
}

// How the samples of the shown time spread.

function drawSpread(sums, usual) {
  const marks = POINTS.map(point => [point, sums.point(point)]);
  find('points').tBodies[0].replaceChildren(...marks.filter(([, value]) => !Number.isNaN(value)).map(([point, value]) =>
    element('tr', {}, element('td', {}, point), element('td', {}, text(value)))));
  if (!sums.parts.length) return note('spread', NO_BUCKETS());
  const end = find('extremes').checked || sums.high <= 2 * usual ? sums.high : usual * 1.25;
  const bins = clamp(sums.parts.length, 20, 80);
  const width = (end - sums.low) / bins || 1;
  const shares = new Float64Array(bins);
  for (const [low, high, samples] of sums.parts) {
    const from = (clamp(low, sums.low, sums.high) - sums.low) / width;
    const to = Math.max((clamp(high, sums.low, sums.high) - sums.low) / width, from + 1e-6);
    for (let i = Math.floor(from); i < Math.min(to, bins); ++i) {
      shares[i] += samples / sums.samples * 100 * (Math.min(i + 1, to) - Math.max(i, from)) / (to - from);
    }
  }
  const points = Array.from({length: bins + 1}, (_, i) => ({x: sums.low + i * width, y: shares[Math.min(i, bins - 1)]}));
  const lines = ({ctx, chartArea: area, scales: {x}}) => {
    ctx.save();
    ctx.font = '11px system-ui, sans-serif';
    ctx.textAlign = 'center';
    let last = -Infinity;
    for (const [point, value] of marks.slice(2, 7)) {
      const at = x.getPixelForValue(value);
      if (at > area.right) break;
      ctx.fillStyle = ctx.strokeStyle = colour(point === 50 ? 'median' : 'soft');
      ctx.setLineDash(point === 50 ? [] : [3, 3]);
      ctx.beginPath();
      ctx.moveTo(at, area.top);
      ctx.lineTo(at, area.bottom);
      ctx.stroke();
      if (at - last > 46 && at - area.left > 24) ctx.fillText(`${point} %`, last = at, area.top - 4);
    }
    ctx.restore();
  };
  show('spread', `Distribution of ${short(page.instance.name)}`, {type: 'line', plugins: [{id: 'points', afterDatasetsDraw: lines}],
    data: {datasets: [{data: points, stepped: 'before', fill: 'origin', backgroundColor: colour('fan1'),
      borderColor: colour('fan0'), borderWidth: 1}]},
    options: {layout: {padding: {top: 16, right: 12}}, scales: {
      x: axis({min: sums.low, max: sums.low + width * bins, ticks: {maxTicksLimit: 8, callback: value => text(value)}}),
      y: axis({min: 0, ticks: {maxTicksLimit: 6, callback: value => `${Number(value.toPrecision(3))} %`}})}}});
}

function drawChosen() {
  const rows = visible(page.instance.rows);
  drawFacts();
  drawNumbers();
  const isWhole = page.view.from === whole.from && page.view.to === whole.to;
  find('reset').hidden = isWhole;
  find('spread-title').replaceChildren('Distribution of ', named(page.instance.name),
    isWhole ? ', whole time' : `, ${time(page.view.from)} to ${time(page.view.to)}`);
  if (rows.length === 0) {
    find('points').tBodies[0].replaceChildren();
    for (const id of ['fan', 'heat', 'spread']) note(id, 'There are no samples in this time.');
    return;
  }
  drawFan(rows);
  if (rows.some(row => row.edges)) drawHeat('heat', `Distribution of ${short(page.instance.name)} over time`, rows, upper(rows));
  else note('heat', NO_BUCKETS());
  drawSpread(totals(page.object.since ? rows.slice(-1) : rows), upper(rows));
}

function drawAll() {
  find('together').hidden = page.object.instances.length === 1;
  const rows = visible(page.object.instances.flatMap(instance => instance.rows)).filter(row => row.edges);
  const uppers = rows.map(row => around(row, 2)).sort((a, b) => a - b);
  if (rows.length === 0) note('all', NO_BUCKETS());
  else drawHeat('all', `Distribution of all instances of ${short(page.object.name)} over time`, rows, uppers[Math.floor(uppers.length * 0.995)]);
}

function drawCharts() {
  drawAll();
  drawChosen();
}

function zoom(from, to) {
  const length = clamp(to - from, Math.min(ends[0] - begins[0], whole.to - whole.from), whole.to - whole.from);
  const start = clamp(from, whole.from, whole.to - length);
  page.view = {from: start, to: start + length};
  drawCharts();
}

// Hovering, zooming and moving

function lines(id, interval, value) {
  const head = `${time(begins[interval])} – ${time(ends[interval])}`;
  const holds = row => {
    let found = 0;
    if (row && value !== undefined) eachPart(row, (low, high, samples) => { if (low <= value && value < high) found += samples; });
    return found;
  };
  if (id === 'all') {
    const there = page.object.instances.map(instance => ({instance, samples: holds(instance.at[interval])}))
      .filter(({samples}) => samples).sort((a, b) => b.samples - a.samples);
    const names = there.slice(0, 5).map(({instance, samples}) => `${samples} of ${short(instance.name)}`);
    return {there, words: [head, value === undefined ? '' : `about ${text(value)}: ${names.length ? '' : 'no samples'}`, ...names,
      there.length > 5 ? `and ${there.length - 5} more` : ''].filter(Boolean)};
  }
  const row = page.instance.at[interval];
  if (!row) return {words: [head, 'no samples']};
  const names = labels(row.points);
  return {words: [head, `${count(row.samples)} samples`, ...(id === 'heat' && holds(row) ? [`${holds(row)} of them about ${text(value)}`] : []),
    ...row.points.map((point, i) => `${names[i].padStart(7, '\u2007')}  ${text(point)}`).reverse()]};
}

function point(box, interval, value, place) {
  const {words} = lines(box.id, interval, value);
  const tip = find('tip');
  page.cursor = interval;
  for (const id of ['fan', 'heat', 'all']) {
    const cursor = find(id).querySelector('.cursor');
    if (!cursor || !charts[id]) continue;
    const {chartArea: area, scales: {x}} = charts[id];
    cursor.hidden = false;
    cursor.style = `left:${x.getPixelForValue((begins[interval] + ends[interval]) / 2)}px;top:${area.top}px;height:${area.height}px`;
  }
  box.setAttribute('aria-valuenow', interval);
  box.setAttribute('aria-valuetext', words.join(', '));
  tip.textContent = words.join('\n');
  tip.hidden = false;
  const edge = box.getBoundingClientRect();
  const left = place?.clientX ?? edge.left + charts[box.id].scales.x.getPixelForValue(ends[interval]);
  const top = place?.clientY ?? edge.top + 20;
  tip.style.left = `${clamp(left + 16 + tip.offsetWidth > innerWidth ? left - tip.offsetWidth - 16 : left + 16, 4, innerWidth)}px`;
  tip.style.top = `${clamp(top - tip.offsetHeight / 2, 4, innerHeight - tip.offsetHeight - 4)}px`;
}

function leave() {
  find('tip').hidden = true;
  document.querySelectorAll('.cursor').forEach(cursor => { cursor.hidden = true; });
}

function watch(box) {
  let drag = null; // where it began
  const at = event => {
    const edge = box.getBoundingClientRect();
    const {scales: {x, y}} = charts[box.id];
    const t = clamp(x.getValueForPixel(event.clientX - edge.left), page.view.from, page.view.to);
    return {t, left: x.getPixelForValue(t), value: y.getValueForPixel(event.clientY - edge.top),
      interval: clamp(ends.findIndex(end => end >= t), 0, ends.length - 1)};
  };
  Object.entries({tabindex: 0, role: 'slider', 'aria-valuemin': 0, 'aria-valuemax': ends.length - 1, 'aria-valuenow': 0})
    .forEach(([name, value]) => box.setAttribute(name, value));
  box.onpointermove = event => {
    if (!charts[box.id]) return;
    const here = at(event);
    point(box, here.interval, here.value, event);
    if (!drag) return;
    const span = box.querySelector('.span');
    const area = charts[box.id].chartArea;
    span.hidden = event.shiftKey || Math.abs(here.left - drag.left) < 5;
    span.style = `left:${Math.min(here.left, drag.left)}px;width:${Math.abs(here.left - drag.left)}px;top:${area.top}px;height:${area.height}px`;
  };
  box.onpointerdown = event => {
    if (!charts[box.id] || event.button !== 0) return;
    drag = at(event);
    box.setPointerCapture(event.pointerId);
  };
  box.onpointercancel = () => { drag = null; };
  box.onpointerup = event => {
    if (!drag) return;
    const here = at(event);
    const from = drag;
    drag = null;
    if (Math.abs(here.left - from.left) >= 5) {
      if (event.shiftKey) zoom(page.view.from + from.t - here.t, page.view.to + from.t - here.t);
      else zoom(Math.min(from.t, here.t), Math.max(from.t, here.t));
    } else if (box.id === 'all') {
      const {there} = lines('all', here.interval, here.value);
      if (there.length) choose(there[0].instance, true);
    }
  };
  box.onpointerleave = leave;
  box.onblur = leave;
  box.ondblclick = () => zoom(whole.from, whole.to);
  box.onkeydown = event => {
    const {from, to} = page.view;
    const tenth = (to - from) / 10;
    const center = page.cursor === null ? (from + to) / 2 : clamp((begins[page.cursor] + ends[page.cursor]) / 2, from, to);
    const step = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (!charts[box.id] || event.ctrlKey || event.metaKey || event.altKey) return;
    if (step && event.shiftKey) zoom(from + step * tenth, to + step * tenth);
    else if (step) point(box, clamp((page.cursor ?? (step > 0 ? -1 : ends.length)) + step, 0, ends.length - 1));
    else if (event.key === '+') zoom(center - (center - from) / 2, center + (to - center) / 2);
    else if (event.key === '-') zoom(center - (center - from) * 2, center + (to - center) * 2);
    else if (event.key === 'Escape') zoom(whole.from, whole.to);
    else return;
    event.preventDefault();
  };
}
