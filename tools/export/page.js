'use strict';
// Draws the page from its data. Names come from outside: they go into the page as text alone.

const POINTS = [0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87, 100];
const MOST_ROWS = 200; // of the table
const data = JSON.parse(document.getElementById('data').textContent);
const ends = data.intervals.map(interval => interval[0]);
const begins = data.intervals.map(interval => interval[0] - interval[1]);
const whole = {from: begins[0], to: ends[ends.length - 1]};
const page = {object: null, instance: null, view: {...whole}, cursor: null,
  sort: 'Departure', falling: true, shown: [], lines: []};

const find = id => document.getElementById(id);
const colour = name => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
const clamp = (value, low, high) => Math.min(Math.max(value, low), high);
const largest = (list, least = -Infinity) => list.reduce((a, b) => Math.max(a, b), least);
const smallest = (list, most = Infinity) => list.reduce((a, b) => Math.min(a, b), most);
const short = name => name.length > 60 ? `${name.slice(0, 60)}…` : name;

function element(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === 'function') made[name] = value;
    else if (value !== null) made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}
const named = name => element('bdi', {title: name}, name);

// Values and times as text

const STEPS = {
  bytes: ['B', 'kB', 'MB', 'GB', 'TB', 'PB', 'EB'],
  percent: ['%'],
  ns: ['ns', 'µs', 'ms', 's'],
  bits: ['bit', 'kbit', 'Mbit', 'Gbit', 'Tbit', 'Pbit', 'Ebit'],
  us: ['µs', 'ms', 's'],
  ms: ['ms', 's'],
  s: ['s']
};
const PREFIXES = ['', 'k', 'M', 'G', 'T', 'P', 'E'];

function text(value, {unit, rate} = page.object) {
  const steps = STEPS[unit] ?? PREFIXES;
  let step = 0;
  for (; Math.abs(value) >= 999.5 && step + 1 < steps.length; ++step) value /= 1000;
  const rounded = Number(value.toPrecision(Math.abs(value) < 1000 ? 3 : 6));
  const digits = rounded.toLocaleString('en', {maximumFractionDigits: 20});
  const known = STEPS[unit] ? steps[step] : steps[step] + unit;
  return `${digits}${known && '\u202f'}${known}${rate ? '/s' : ''}`;
}
const count = value => value.toLocaleString('en');
const widths = value => value ? `${value < 10 ? value.toFixed(1) : Math.round(value)} ×` : '–';
function when(seconds, options) {
  return new Date(seconds * 1000).toLocaleString('en-GB', {timeZone: 'UTC', ...options});
}
const CLOCK = {hour: '2-digit', minute: '2-digit'};
const FINE = {...CLOCK, second: '2-digit'};
const DAY = {day: 'numeric', month: 'short'};
const inSeconds = ends.some(end => end % 60 !== 0) && whole.to - whole.from < 7200;
const clock = seconds => when(seconds, inSeconds ? FINE : CLOCK);
const time = seconds => whole.to - whole.from > 86400 ? `${when(seconds, DAY)} ${clock(seconds)}` : clock(seconds);

// The data, in the units that are shown

function load(object) {
  if (object.ranges.loaded) return;
  const factor = object.factor;
  object.ranges = object.ranges.map(([start, last, buckets]) => {
    const edge = i => (start + Math.ceil(i * (last + 1 - start) / buckets)) * factor;
    return Array.from({length: buckets + 1}, (_, i) => edge(i));
  });
  object.ranges.loaded = true;
  for (const instance of object.instances) {
    instance.learnt = instance.learnt?.map(value => value * factor);
    instance.at = [];
    for (const [i, values] of instance.rows.entries()) {
      const [interval, samples, points, range, counts, below, above, outside, resets] = values;
      const row = {interval, samples, points: points.map(value => value * factor), edges: object.ranges[range],
        counts: counts ?? [], below: below ?? 0, above: above ?? 0, outside: outside ?? 0, resets: resets ?? 0};
      if (points.length === 0) row.points = POINTS.map(point => quantile(parts([row]), point / 100));
      instance.rows[i] = instance.at[interval] = row;
    }
    instance.whole = totals(object.since ? instance.rows.slice(-1) : instance.rows);
    instance.outside = instance.rows.reduce((sum, row) => sum + row.outside, 0);
  }
}
const middle = row => row.points[row.points.length >> 1];
const around = (row, steps) => row.points[clamp((row.points.length >> 1) + steps, 0, row.points.length - 1)];
const least = row => row.points[0];
const most = row => row.points[row.points.length - 1];

// Calls visit(low, high, samples) for each bucket of the interval that has any, and for what is beyond the range.
function eachPart(row, visit) {
  if (!row.edges) return;
  const low = least(row) ?? -Infinity;
  const high = most(row) ?? Infinity;
  if (row.below) visit(Math.min(low, row.edges[0]), row.edges[0], row.below);
  let i = 0;
  for (const samples of row.counts) {
    if (samples < 0) i -= samples;
    else visit(row.edges[i], row.edges[++i], samples);
  }
  const last = row.edges[row.edges.length - 1];
  if (row.above) visit(last, Math.max(high, last), row.above);
}

function parts(rows) {
  const sums = new Map();
  for (const row of rows) {
    eachPart(row, (low, high, samples) => {
      const known = sums.get(low);
      if (known && known[1] === high) known[2] += samples;
      else sums.set(known ? Symbol() : low, [low, high, samples]);
    });
  }
  return [...sums.values()];
}

// The value below which this share of the samples lies, if they are spread evenly over their parts.
function quantile(list, share, low = smallest(list.map(part => part[0])), high = largest(list.map(part => part[1]))) {
  const samples = list.reduce((sum, part) => sum + part[2], 0);
  for (let i = 0; i < 50; ++i) {
    const value = (low + high) / 2;
    let below = 0;
    for (const [first, last, n] of list) {
      below += value >= last ? n : value <= first ? 0 : n * (value - first) / (last - first);
    }
    if (below < share * samples) low = value;
    else high = value;
  }
  return high;
}

function totals(rows) {
  const sum = member => rows.reduce((total, row) => total + row[member], 0);
  const all = {samples: sum('samples'), beyond: sum('below') + sum('above'), resets: sum('resets'), parts: parts(rows),
    low: rows.length ? smallest(rows.map(least)) : NaN, high: rows.length ? largest(rows.map(most)) : NaN};
  all.point = percent => {
    if (rows.length === 1 && rows[0].points.length === POINTS.length) return rows[0].points[POINTS.indexOf(percent)];
    if (percent === 0 || percent === 100) return percent ? all.high : all.low;
    return all.parts.length ? quantile(all.parts, percent / 100, all.low, all.high) : NaN;
  };
  return all;
}
const visible = rows =>
    rows.filter(({interval}) => ends[interval] > page.view.from && begins[interval] < page.view.to);

// The table of instances

const COLUMNS = [
  {name: 'Departure', value: i => i.departure, show: widths},
  {name: 'Median', value: i => i.whole.median, show: text},
  {name: '97.72 %', value: i => i.whole.upper, show: text},
  {name: 'Max', value: i => i.whole.high, show: text},
  {name: 'Min', value: i => i.whole.low, show: text, wide: true},
  {name: 'Samples', value: i => i.whole.samples, show: count, wide: true},
  {name: 'Beyond', value: i => i.whole.beyond + i.outside, show: count, wide: true,
    title: 'Samples beyond the range of the buckets, or the learnt range'},
  {name: 'Resets', value: i => i.whole.resets, show: count, wide: true, title: 'Of the counter'},
];

function sparkline(instance) {
  const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  const top = largest(instance.rows.map(row => around(row, 1)), 0) || 1;
  const bottom = smallest(instance.rows.map(row => around(row, -1)), 0);
  const x = interval => ((ends[interval] + begins[interval]) / 2 - whole.from) / (whole.to - whole.from) * 200;
  const y = value => 23 - (value - bottom) / (top - bottom) * 21;
  const step = Math.ceil(instance.rows.length / 200);
  const groups = [];
  for (let i = 0; i < instance.rows.length; i += step) groups.push(instance.rows.slice(i, i + step));
  const draw = (name, values) => {
    const path = document.createElementNS(svg.namespaceURI, 'path');
    path.setAttribute('class', name);
    path.setAttribute('d', 'M' + values.map(([at, value]) => `${at.toFixed(1)} ${value.toFixed(1)}`).join('L'));
    svg.append(path);
  };
  const along = (rows, value, pick) => rows.map(group => [x(group[0].interval), y(pick(...group.map(value)))]);
  draw('band', [...along(groups, row => around(row, 1), Math.max),
    ...along([...groups].reverse(), row => around(row, -1), Math.min)]);
  draw('line', along(groups, middle, Math.max));
  if (instance.departure >= 1) draw('when', [[x(instance.departed), 0], [x(instance.departed), 24]]);
  svg.setAttribute('viewBox', '0 0 200 24');
  svg.setAttribute('preserveAspectRatio', 'none');
  svg.setAttribute('aria-hidden', 'true');
  return svg;
}

function drawTable() {
  const {instances} = page.object;
  for (const instance of instances) {
    instance.whole.median ??= instance.whole.point(50);
    instance.whole.upper ??= instance.whole.point(97.72);
  }
  const column = COLUMNS.find(({name}) => name === page.sort);
  const wanted = find('find').value.toLowerCase();
  const list = instances.filter(({name}) => name.toLowerCase().includes(wanted));
  const order = column ? (a, b) => column.value(a) - column.value(b) :
    (a, b) => a.name.localeCompare(b.name, 'en', {numeric: true});
  list.sort((a, b) => page.falling ? order(b, a) : order(a, b));
  const direction = page.falling ? 'descending' : 'ascending';
  const head = (name, attributes) => element('th',
    {scope: 'col', 'aria-sort': page.sort === name ? direction : null, ...attributes},
    element('button', {type: 'button', onclick: () => sortBy(name)}, name === 'key' ? data.key || 'instance' : name));
  const table = find('table');
  table.tHead.replaceChildren(element('tr', {}, head('key'), element('th', {scope: 'col', class: 'spark soft'}, 'Over time'),
    ...COLUMNS.map(({name, wide, title = null}) => head(name, {class: wide ? 'wide' : '', title}))));
  page.shown = list.slice(0, MOST_ROWS);
  page.lines = page.shown.map(instance => element('tr', {onclick: () => choose(instance, true)},
    element('th', {scope: 'row'}, element('button', {type: 'button'}, named(instance.name))),
    element('td', {class: 'spark'}, instance.rows.length ? sparkline(instance) : ''),
    ...COLUMNS.map(({value, show, wide}) => element('td', {class: wide ? 'wide' : ''},
      Number.isNaN(value(instance)) ? '–' : show(value(instance))))));
  page.shown.forEach(({departure}, i) => page.lines[i].children[2].classList.toggle('high', departure >= 1));
  table.tBodies[0].replaceChildren(...page.lines);
  markChosen();
  find('instances-title').textContent =
      `${count(list.length)} instance${list.length === 1 ? '' : 's'} of ${short(page.object.name)}`;
  find('more').hidden = list.length <= MOST_ROWS;
  find('more').textContent = `The first ${MOST_ROWS} are shown.`;
}

function sortBy(name) {
  page.falling = page.sort === name ? !page.falling : COLUMNS.some(column => column.name === name);
  page.sort = name;
  drawTable();
}

function markChosen() {
  const chosen = page.shown.indexOf(page.instance);
  page.lines.forEach((line, i) => {
    const button = line.querySelector('button');
    line.classList.toggle('chosen', i === chosen);
    button.setAttribute('aria-pressed', i === chosen);
    button.tabIndex = i === Math.max(chosen, 0) ? 0 : -1; // the arrows lead to the others
  });
}

function walkTable(event) {
  const at = page.shown.indexOf(page.instance);
  const to = {ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: page.shown.length - 1}[event.key];
  if (to === undefined || !page.shown[to]) return;
  event.preventDefault();
  choose(page.shown[to]);
  page.lines[to].querySelector('button').focus();
}

// What is chosen

function open(object, instance) {
  if (page.object !== object) {
    load(object);
    page.object = object;
    find('find').value = '';
    for (const button of find('objects').children) button.setAttribute('aria-pressed', button.object === object);
    drawTable();
    drawAll();
  }
  choose(instance ?? object.instances[0]);
}

function choose(instance, isClick = false) {
  page.instance = instance;
  markChosen();
  drawChosen();
  const names = [page.object.name, instance?.name ?? ''].map(encodeURIComponent);
  location.replace(`#${names.join('/')}`);
  const box = find('chosen').getBoundingClientRect();
  if (isClick && (box.top < 0 || box.top > innerHeight - 200)) find('chosen').scrollIntoView({block: 'start'});
}

function drawFacts() {
  const {instance, object} = page;
  const {samples, beyond, resets} = instance.whole;
  const facts = {
    Departure: instance.departure ? `${widths(instance.departure)} at ${time(ends[instance.departed])}` : 'not known yet',
    Samples: count(samples),
    'Beyond the range': beyond ? `${count(beyond)} (${(beyond / samples * 100).toPrecision(2)} %)` : null,
    'Learnt range': instance.learnt ? instance.learnt.map(value => text(value)).join(' to ') : null,
    'Beyond the learnt': instance.learnt ? count(instance.outside) : null,
    Resets: resets || null,
  };
  find('facts').replaceChildren(...Object.entries(facts).filter(([, value]) => value !== null)
    .map(([name, value]) => element('div', {}, element('dt', {}, name), element('dd', {}, value))));
  find('chosen').replaceChildren(named(instance.name), ` · ${short(object.name)}`);
}

function labels(points) {
  return points.length === 3 ? ['minimum', 'average', 'maximum'] : POINTS.map(point => `${point} %`);
}

function drawNumbers() {
  if (!find('numbers').open) return;
  const rows = visible(page.instance.rows);
  const line = (tag, cells) => element('tr', {}, ...cells.map(cell => element(tag, {}, cell)));
  find('numbers').querySelector('table').replaceChildren(
    element('thead', {}, line('th', ['Until', 'Samples', ...labels(rows[0]?.points ?? []), 'Beyond', 'Resets'])),
    element('tbody', {}, ...rows.map(row => line('td', [time(ends[row.interval]), count(row.samples),
      ...row.points.map(value => text(value)), row.below + row.above + row.outside, row.resets]))));
}

function begin() {
  document.title = `${data.title} · zorstat`;
  find('title').textContent = data.title;
  if (!data.objects.some(object => object.instances.length)) {
    find('period').textContent = 'There are no samples.';
    for (const part of document.querySelectorAll('main, footer, details')) part.hidden = true;
    return;
  }
  const full = {...DAY, year: 'numeric', ...CLOCK};
  const length = largest(data.intervals.map(interval => interval[1]));
  const [amount, unit] = length % 3600 === 0 ? [length / 3600, 'h'] : length % 60 === 0 ? [length / 60, 'min'] : [length, 's'];
  find('period').textContent = `${when(whole.from, full)} to ${when(whole.to, full)} UTC, ` +
      `${count(ends.length)} interval${ends.length === 1 ? '' : 's'} of ${amount} ${unit}`;
  find('objects').append(...data.objects.map(object =>
    Object.assign(element('button', {type: 'button'}, named(object.name)), {object, onclick: () => open(object)})));
  find('objects').hidden = data.objects.length === 1;
  const far = data.objects.flatMap(object => object.instances.map(instance => ({object, instance})))
    .filter(({instance}) => instance.departure >= 1)
    .sort((a, b) => b.instance.departure - a.instance.departure).slice(0, 3);
  find('first').hidden = far.length === 0;
  find('first').append(...far.map(({object, instance}) => element('button',
    {type: 'button', onclick: () => open(object, instance)}, named(instance.name),
    data.objects.length > 1 ? ` ${short(object.name)}` : '',
    ` ${widths(instance.departure)} at ${time(ends[instance.departed])}`)));
  find('find').oninput = drawTable;
  find('extremes').onchange = drawCharts;
  find('reset').onclick = () => zoom(whole.from, whole.to);
  find('numbers').ontoggle = drawNumbers;
  find('table').onkeydown = walkTable;
  document.querySelectorAll('.time').forEach(watch);
  for (const query of ['print', '(prefers-color-scheme: dark)']) matchMedia(query).onchange = drawCharts;
  const [object, instance] = location.hash.slice(1).split('/').map(name => {
    try { return decodeURIComponent(name); } catch { return ''; }
  });
  const known = data.objects.find(({name}) => name === object) ?? data.objects.find(({instances}) => instances.length);
  open(known, known.instances.find(({name}) => name === instance));
  if (data.refresh) setTimeout(() => location.reload(), data.refresh * 1000);
}

begin();
