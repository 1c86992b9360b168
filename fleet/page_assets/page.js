'use strict';
// Draws the answers that stand in the page as data. Long tables are drawn in steps.
const data = JSON.parse(document.getElementById('data').textContent);
const answers = new Map(data.questions.map(question => [question.name, question]));
const kStep = 50;

function add(parent, tag, text, attributes = {}) {
  const element = parent.appendChild(document.createElement(tag));
  if (text !== undefined) element.textContent = text;
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  return element;
}

function shown(value) {
  if (value === null) return '';
  return typeof value === 'number' ? String(Number(value.toPrecision(6))) : String(value);
}

function compare(one, other) {
  if (one === null || other === null) return (one === null) - (other === null);
  return typeof one === 'number' && typeof other === 'number' ? one - other : String(one).localeCompare(String(other));
}

// What a spreadsheet would run as a formula is text there, too.
function csv(names, rows) {
  const quoted = value => {
    const text = value === null ? '' : String(value);
    const safe = typeof value === 'string' && /^[=+\-@\t\r]/.test(text) ? "'" + text : text;
    return /[",\n\r]/.test(safe) ? '"' + safe.replaceAll('"', '""') + '"' : safe;
  };
  return [names, ...rows].map(row => row.map(quoted).join(',')).join('\r\n') + '\r\n';
}

function save(name, text) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([text], {type: 'text/csv'}));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

// A table that can be sorted, searched and saved. fill(cell, value, row, column) draws a cell its own way
// and says whether it did.
function drawTable(parent, name, names, rows, fill = () => false) {
  let sorted = rows;
  let found = rows;
  let drawn = kStep;
  let by = -1;
  let descending = false;
  const numeric = names.map((_, at) => rows.length > 0 && rows.every(row => row[at] === null || typeof row[at] === 'number'));
  const tools = add(parent, 'div', undefined, {class: 'tools'});
  const count = document.createElement('span');
  if (rows.length > 10) {
    const search = add(tools, 'input', undefined, {type: 'search', placeholder: 'Filter', 'aria-label': 'Filter the rows'});
    search.addEventListener('input', () => {
      const word = search.value.toLowerCase();
      found = word === '' ? sorted : sorted.filter(row => row.some(value => shown(value).toLowerCase().includes(word)));
      drawn = kStep;
      draw();
    });
  }
  add(tools, 'button', 'Save as CSV', {type: 'button'}).addEventListener('click', () => save(name + '.csv', csv(names, found)));
  tools.append(count);
  const table = add(add(parent, 'div', undefined, {class: 'scroll'}), 'table', undefined, {'data-answer': name});
  const head = add(add(table, 'thead'), 'tr');
  names.forEach((title, at) => {
    const th = add(head, 'th', undefined, {scope: 'col', ...(numeric[at] ? {class: 'number'} : {})});
    add(th, 'button', title.replaceAll('_', ' '), {type: 'button'}).addEventListener('click', () => {
      descending = by === at ? !descending : numeric[at];
      by = at;
      for (const other of head.children) other.removeAttribute('aria-sort');
      th.setAttribute('aria-sort', descending ? 'descending' : 'ascending');
      const order = (one, other) => compare(one[at], other[at]) * (descending ? -1 : 1);
      sorted = [...rows].sort(order);
      found = [...found].sort(order);
      draw();
    });
  });
  const body = add(table, 'tbody');
  const more = add(parent, 'div', undefined, {class: 'tools'});
  add(more, 'button', 'Show more', {type: 'button'}).addEventListener('click', () => {
    drawn += 10 * kStep;
    draw();
  });
  function draw() {
    body.replaceChildren();
    for (const row of found.slice(0, drawn)) {
      const tr = add(body, 'tr');
      row.forEach((value, at) => {
        const td = add(tr, 'td');
        if (typeof value === 'number') td.className = 'number';
        else if (value !== null && String(value).length < 30) td.className = 'word';
        if (!fill(td, value, row, at)) td.textContent = shown(value);
      });
    }
    more.hidden = found.length <= drawn;
    count.textContent = found.length === rows.length ? rows.length + ' rows' : found.length + ' of ' + rows.length + ' rows';
  }
  draw();
}

function column(answer, name) {
  return answer.names.indexOf(name);
}

function drawRisen(section) {
  const risen = answers.get('risen');
  if (!risen || risen.rows.length === 0) return add(section, 'p', risen ? 'Nothing has risen that could not be chance.' : 'Not asked.');
  drawTable(section, 'risen', risen.names, risen.rows);
}

function drawMatrix(section) {
  const builds = answers.get('builds');
  if (!builds) return;
  const [what, build, has, of, percent] = ['what', 'build', 'has', 'of_build', 'percent'].map(name => column(builds, name));
  const risen = new Set((answers.get('risen')?.rows ?? []).map(row => row[0]));
  const names = [...new Set(builds.rows.map(row => row[build]))].sort();
  const newest = names[names.length - 1];
  const cells = new Map();
  for (const row of builds.rows) {
    if (!cells.has(row[what])) cells.set(row[what], names.map(() => 0));
    cells.get(row[what])[names.indexOf(row[build])] = row[percent];
  }
  const sizes = new Map(builds.rows.map(row => [row[build], row[of]]));
  const counts = new Map(builds.rows.map(row => [row[what] + '\n' + row[build], row[has]]));
  const rows = [...cells].map(([name, percents]) => [name, ...percents]);
  rows.sort((one, other) => risen.has(other[0]) - risen.has(one[0]) || other[names.length] - one[names.length]);
  drawTable(section, 'matrix', ['trouble', ...names], rows, (td, value, row, at) => {
    if (at === 0) return false;
    const name = names[at - 1];
    const marked = name === newest && risen.has(row[0]);
    td.textContent = value.toFixed(1) + ' %' + (marked ? ' ▲' : '');
    td.title = (counts.get(row[0] + '\n' + name) ?? 0) + ' of ' + sizes.get(name) + ' reports';
    if (marked) {
      td.classList.add('risen');
      td.setAttribute('data-risen', row[0]);
    }
    return true;
  });
}

function drawDevices(section) {
  const devices = answers.get('devices');
  if (!devices) return;
  const [who, key] = [column(devices, 'who'), column(devices, 'a_report')];
  drawTable(section, 'devices', devices.names.filter((_, at) => at !== key),
      devices.rows.map(row => Object.assign(row.filter((_, at) => at !== key), {link: data.links[row[key]]})),
      (td, value, row, at) => {
        if (at !== who || row.link === undefined) return false;
        add(td, 'a', value, {href: row.link, 'data-device': value});
        return true;
      });
}

function drawSpread(section) {
  const spread = answers.get('spread');
  if (!spread) return;
  const at = Object.fromEntries(spread.names.map((name, index) => [name, index]));
  const facts = Map.groupBy ? Map.groupBy(spread.rows, row => row[at.fact]) : spread.rows.reduce(
      (map, row) => map.set(row[at.fact], [...(map.get(row[at.fact]) ?? []), row]), new Map());
  for (const [fact, rows] of facts) {
    const least = Math.min(...rows.map(row => row[at.least]));
    const most = Math.max(...rows.map(row => row[at.most]));
    if (least === most) continue;
    add(section, 'h3', fact + ', from ' + shown(least) + ' to ' + shown(most));
    const plot = add(section, 'div', undefined, {class: 'plot', 'data-spread': fact});
    for (const row of rows) {
      add(plot, 'span', row[at.device] + ', ' + (row[at.build] || 'no build'));
      const x = value => (value - least) / (most - least) * 1000;
      const svg = plot.appendChild(document.createElementNS('http://www.w3.org/2000/svg', 'svg'));
      svg.setAttribute('viewBox', '-6 0 1012 20');
      svg.setAttribute('preserveAspectRatio', 'none');
      svg.setAttribute('role', 'img');
      svg.setAttribute('aria-label', 'half ' + shown(row[at.half]));
      const draw = (tag, shape, name) => {
        const element = svg.appendChild(document.createElementNS('http://www.w3.org/2000/svg', tag));
        for (const [key, value] of Object.entries({...shape, class: name, 'vector-effect': 'non-scaling-stroke'})) {
          element.setAttribute(key, value);
        }
      };
      draw('line', {x1: x(row[at.p5]), x2: x(row[at.p95]), y1: 10, y2: 10}, 'whisker');
      draw('rect', {x: x(row[at.p25]), width: Math.max(1, x(row[at.p75]) - x(row[at.p25])), y: 3, height: 14}, 'box');
      draw('line', {x1: x(row[at.half]), x2: x(row[at.half]), y1: 1, y2: 19}, 'half');
      add(plot, 'span', shown(row[at.p5]) + ' · ' + shown(row[at.half]) + ' · ' + shown(row[at.p95]), {class: 'note'});
    }
  }
}

function drawAnswers(section) {
  for (const question of data.questions) {
    const details = add(section, 'details', undefined, {'data-question': question.name});
    add(details, 'summary', question.title);
    details.addEventListener('toggle', () => {
      if (details.childElementCount > 1) return;
      drawTable(details, question.name, question.names, question.rows);
      add(details, 'pre', question.sql);
    });
  }
}

drawRisen(document.getElementById('risen'));
drawMatrix(document.getElementById('matrix'));
drawDevices(document.getElementById('devices'));
drawSpread(document.getElementById('spread'));
drawAnswers(document.getElementById('answers'));
requestAnimationFrame(() => setTimeout(() => { window.fleet = {ready: true}; }));
