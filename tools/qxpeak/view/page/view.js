// qxpeak view: draws what the server's JSON API reports and sends every edit back to it.
// No rule, validator or message lives here: the server answers with the library's words.
'use strict';

const $ = (s, root = document) => root.querySelector(s);
const $$ = (s, root = document) => [...root.querySelectorAll(s)];

let state = null;       // the last /api/state reply
let signal = null;      // {x, y} of the trace shown
let signalKey = '';     // which trace and binning `signal` belongs to
let xView = null;       // [x0, x1] shown, null: the whole signal
let currentSegment = 0;
let sortKey = 'apex_x', sortDir = 1;
let selected = -1;      // index into state.peaks
let hover = -1;

// ---- Talking to the server ----

async function api(path, body) {
  const init = body === undefined ? {} : {
    method: 'POST', headers: {'Content-Type': 'application/json'}, body: JSON.stringify(body)};
  const reply = await fetch(path, init);
  const json = await reply.json();
  if (!reply.ok) {
    await showMessage(json.error || ('HTTP ' + reply.status));
    return null;
  }
  return json;
}

// Posts an edit; the reply is the new state, or an error after which the page shows the
// unchanged state again (so a refused field goes back to its value).
async function post(path, body) {
  setStatus('working…');
  const reply = await api(path, body);
  await apply(reply || await api('/api/state'));
  return reply;
}

async function apply(next) {
  if (!next) return;
  state = next;
  const key = state.current + '/' + state.binning.enabled + '/' + state.binning.width;
  if (key !== signalKey) {
    if (signalKey.split('/')[0] !== String(state.current)) xView = null;
    signal = await api('/api/signal');
    signalKey = key;
  }
  if (selected >= state.peaks.length) selected = -1;
  render();
  setStatus(state.message ? state.message : state.peaks.length + ' peaks');
}

function setStatus(text) { $('#status').textContent = text; }

function modal(id, text) {
  const dlg = $('#' + id);
  $('.text', dlg).textContent = text;
  return new Promise(resolve => {
    const done = e => {
      if (e.target.tagName !== 'BUTTON') return;
      dlg.removeEventListener('click', done);
      dlg.close();
      resolve(e.target.value);
    };
    dlg.addEventListener('click', done);
    dlg.showModal();
  });
}
const ask = async text => (await modal('ask', text)) === 'yes';
const showMessage = text => modal('message', text);

// A range edit: the rules may ask questions; each answer is sent back with the same edit.
async function editRange(index, bound, text) {
  const answers = [];
  for (;;) {
    setStatus('working…');
    const reply = await api('/api/segments/range', {index, bound, text, answers});
    if (!reply) return apply(await api('/api/state'));
    if (!reply.question) return apply(reply);
    answers.push(await ask(reply.question.text));
  }
}

// ---- Formatting ----

const fixed = (v, d) => (v === null || v === undefined || !isFinite(v)) ? '—' : v.toFixed(d);
const DECIMALS = () => (state && state.traces[state.current] &&
                        state.traces[state.current].kind === 'chromatogram') ? 3 : 4;

const COLUMNS = [
  ['#', null], ['apex x', 'apex_x'], ['apex y', 'apex_y'], ['centroid x', 'centroid_x'],
  ['left x', 'left_x'], ['right x', 'right_x'], ['area', 'area'], ['height', 'height'],
  ['FWHM', 'fwhm'], ['S/N', 'snr'], ['z', 'charge'], ['label', 'label'],
];

function cell(p, key) {
  const d = DECIMALS();
  switch (key) {
    case 'apex_x': case 'left_x': case 'right_x': return fixed(p[key], d);
    case 'centroid_x': return fixed(p.centroid_x, Math.max(4, d));
    case 'fwhm': return fixed(p.fwhm, d + 1);
    case 'apex_y': case 'area': case 'height': return fixed(p[key], 1);
    case 'snr': return fixed(p.snr, 1);
    case 'charge': return p.charge ? String(p.charge) : '';
    default: return p[key] === undefined ? '' : String(p[key]);
  }
}

// ---- Rendering ----

function render() {
  renderHeader();
  renderTable();
  renderSettings();
  renderCalculators();
  renderLabels();
  drawPlot();
}

function renderHeader() {
  $('#file').textContent = state.file;
  const sel = $('#trace');
  if (sel.options.length !== state.traces.length) {
    sel.innerHTML = '';
    for (const t of state.traces) {
      const o = document.createElement('option');
      const rt = t.rt === null ? '' : ' rt ' + (t.rt / 60).toFixed(2) + ' min';
      const level = t.ms_level ? ' MS' + t.ms_level : '';
      o.value = t.index;
      o.textContent = (t.id || t.kind + ' ' + t.index) + level + rt + ' (' + t.points + ' points)';
      sel.appendChild(o);
    }
  }
  sel.value = state.current;
  $('#mode').value = state.settings.mode;
  $('#command').textContent = state.command;
}

function sortedPeaks() {
  const order = state.peaks.map((p, i) => i);
  const key = sortKey;
  order.sort((a, b) => {
    let va = state.peaks[a][key], vb = state.peaks[b][key];
    if (va === null) va = -Infinity;
    if (vb === null) vb = -Infinity;
    return (va < vb ? -1 : va > vb ? 1 : 0) * sortDir || a - b;
  });
  return order;
}

function renderTable() {
  const head = $('#peaks thead');
  head.innerHTML = '<tr>' + COLUMNS.map(([name, key]) =>
    `<th data-key="${key || ''}">${name}${key === sortKey ? (sortDir > 0 ? ' ▲' : ' ▼') : ''}</th>`)
    .join('') + '</tr>';
  const body = $('#peaks tbody');
  const rows = [];
  for (const i of sortedPeaks()) {
    const p = state.peaks[i];
    rows.push(`<tr data-peak="${i}"${i === selected ? ' class="selected"' : ''}><td>${i + 1}</td>` +
      COLUMNS.slice(1).map(([, key]) =>
        `<td${key === 'label' ? ' class="text"' : ''}>${escapeHtml(cell(p, key))}</td>`).join('') +
      '</tr>');
  }
  body.innerHTML = rows.join('');
}

function escapeHtml(s) {
  return s.replace(/[&<>"]/g, c => ({'&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;'}[c]));
}

const SEGMENT_FIELDS = [
  ['RelThreshold', 'Threshold, % of max'], ['AbsThreshold', 'Absolute threshold'],
  ['NoiseThreshold', 'Noise threshold'], ['FilterType', 'Filter type'],
  ['FilterWidth', 'Filter width (odd, 0 off)'], ['FilterInc', 'Filter increment'],
  ['MinPeakWidth', 'Min. peak width (odd)'], ['MaxPeakWidth', 'Max. peak width'],
  ['AutoPeakWidth', 'Automatic width (0/1)'], ['MinPeakArea', 'Min. peak area'],
  ['PctPeakArea', 'Min. area, % of largest'], ['IntegratedMethod', 'Integration method'],
  ['PctCentroid', 'Centroid at % height'], ['MaxCharge', 'Max. charge'],
  ['MaxIsotope', 'Max. isotopes'], ['RelMasMinIntensity', 'Rel. min. intensity (mass)'],
  ['RelMassMaxIntensity', 'Rel. max. intensity (mass)'],
];

function renderSettings() {
  const s = state.settings;
  const automatic = s.mode === 'automatic';
  $('#automatic').classList.toggle('inactive', !automatic);
  $('#classic').classList.toggle('inactive', automatic);
  for (const input of $$('[data-auto]')) setValue(input, s.automatic[input.dataset.auto]);
  const r = state.report;
  $('#report').textContent = automatic && r.noise !== null
    ? `noise ${fixed(r.noise, 2)}, FWHM ${fixed(r.fwhm_at_median_x, 5)} at the median x ` +
      `(${fixed(r.points_per_fwhm, 1)} points), width law ${r.width_law}, ${r.segments} segments`
    : '';
  for (const input of $$('[data-switch]')) setValue(input, s.switches[input.dataset.switch]);

  const segs = s.segments;
  if (currentSegment >= segs.length) currentSegment = segs.length - 1;
  $('#segments tbody').innerHTML = segs.map((g, i) =>
    `<tr data-segment="${i}"${i === currentSegment ? ' class="current"' : ''}><td>${i + 1}</td>` +
    `<td><input data-range="x1" data-index="${i}" value="${g.RangeX1Text}"></td>` +
    `<td><input data-range="x2" data-index="${i}" value="${g.RangeX2Text}"></td>` +
    `<td><button data-delsegment="${i}" title="delete">✕</button></td></tr>`).join('');
  const g = segs[currentSegment];
  $('#segfields').innerHTML = g ? `<div style="grid-column: 1 / 3"><b>Range ${currentSegment + 1}</b></div>` +
    SEGMENT_FIELDS.map(([key, name]) =>
      `<label>${name}<input data-field="${key}" value="${g[key]}"></label>`).join('') : '';
}

function setValue(input, value) {
  if (document.activeElement === input) return;
  if (input.type === 'checkbox') input.checked = !!value;
  else input.value = value === null || value === undefined ? '' : value;
}

function renderCalculators() {
  for (const name of ['sn', 'res']) {
    const calc = state[name];
    for (const input of $$(`[data-${name}]`)) setValue(input, calc[input.dataset[name]]);
    const box = name === 'sn' ? '#sncalc' : '#rescalc';
    $(box + ' tbody').innerHTML = calc.targets.map((t, i) =>
      `<tr><td><input data-target="${name}" data-index="${i}" data-key="target" value="${t.target}"></td>` +
      `<td><input data-target="${name}" data-index="${i}" data-key="delta" value="${t.delta}"></td>` +
      `<td>${t.found_x ? fixed(t.found_x, DECIMALS()) : '—'}</td>` +
      `<td class="result">${t.result < 0 ? '—' : name === 'sn' ? fixed(t.result, 1) : t.result}</td>` +
      `<td><button data-deltarget="${name}" data-index="${i}">✕</button></td></tr>`).join('');
  }
  $('#snnoise').textContent = state.sn.baseline_x1 === state.sn.baseline_x2 ? '' :
    `baseline ${fixed(state.sn.baseline, 2)}, noise ${fixed(state.sn.noise, 2)}`;
  for (const input of $$('[data-bin]')) setValue(input, state.binning[input.dataset.bin]);
}

function renderLabels() {
  const l = state.labels;
  for (const input of $$('[data-label]')) setValue(input, input.dataset.label === 'type' ? l.type === 1 : l[input.dataset.label]);
  $('#labeltable tbody').innerHTML = l.items.map((it, i) =>
    ['label', 'x', 'delta', 'charge'].map(k =>
      `<td><input data-labelitem="${i}" data-key="${k}" value="${escapeHtml(String(it[k]))}"></td>`).join('') +
    `<td><button data-dellabel="${i}">✕</button></td>`).map(r => `<tr>${r}</tr>`).join('');
}

// ---- The plot ----

const canvas = $('#plot');
const M = {left: 64, right: 12, top: 18, bottom: 34};

function fullRange() {
  if (!signal || signal.x.length === 0) return [0, 1];
  const a = signal.x[0], b = signal.x[signal.x.length - 1];
  return a === b ? [a - 0.5, b + 0.5] : [a, b];
}

function niceTicks(a, b, count) {
  const span = b - a;
  if (!(span > 0)) return [a];
  const step0 = span / count;
  const mag = Math.pow(10, Math.floor(Math.log10(step0)));
  const step = [1, 2, 5, 10].map(m => m * mag).find(s => s >= step0);
  const ticks = [];
  for (let t = Math.ceil(a / step) * step; t <= b + step * 1e-9; t += step) ticks.push(t);
  return {ticks, step};
}

let geom = null;  // the transform of the last drawing

function drawPlot() {
  const dpr = window.devicePixelRatio || 1;
  const w = canvas.clientWidth, h = canvas.clientHeight;
  canvas.width = Math.round(w * dpr);
  canvas.height = Math.round(h * dpr);
  const g = canvas.getContext('2d');
  g.setTransform(dpr, 0, 0, dpr, 0, 0);
  g.clearRect(0, 0, w, h);
  if (!signal) return;
  const [x0, x1] = xView || fullRange();
  const xs = signal.x, ys = signal.y;
  // The y scale follows the part of the signal in view.
  let lo = lowerIndex(xs, x0), hi = lowerIndex(xs, x1);
  lo = Math.max(0, lo - 1);
  hi = Math.min(xs.length, hi + 1);
  let yMax = 0, yMin = 0;
  for (let i = lo; i < hi; ++i) { if (ys[i] > yMax) yMax = ys[i]; if (ys[i] < yMin) yMin = ys[i]; }
  if (yMax === yMin) yMax = yMin + 1;
  yMax += (yMax - yMin) * 0.08;
  const pw = w - M.left - M.right, ph = h - M.top - M.bottom;
  const X = x => M.left + (x - x0) / (x1 - x0) * pw;
  const Y = y => M.top + (1 - (y - yMin) / (yMax - yMin)) * ph;
  geom = {x0, x1, X, Y, pw, ph, w, h};

  // Axes and ticks.
  g.strokeStyle = '#999'; g.fillStyle = '#444'; g.lineWidth = 1; g.font = '11px system-ui';
  g.beginPath(); g.moveTo(M.left, M.top); g.lineTo(M.left, M.top + ph); g.lineTo(M.left + pw, M.top + ph); g.stroke();
  const xt = niceTicks(x0, x1, Math.max(2, pw / 90));
  const xd = Math.max(0, -Math.floor(Math.log10(xt.step || 1)));
  g.textAlign = 'center';
  for (const t of xt.ticks) { g.fillText(t.toFixed(xd), X(t), M.top + ph + 14); g.beginPath(); g.moveTo(X(t), M.top + ph); g.lineTo(X(t), M.top + ph + 4); g.stroke(); }
  const kind = state.traces[state.current] ? state.traces[state.current].kind : 'spectrum';
  g.fillText(kind === 'chromatogram' ? 'time' : 'm/z', M.left + pw / 2, h - 4);
  g.textAlign = 'right';
  const yt = niceTicks(yMin, yMax, Math.max(2, ph / 50));
  for (const t of yt.ticks) { g.fillText(t >= 1e5 ? t.toExponential(1) : String(+t.toPrecision(6)), M.left - 4, Y(t) + 4); }

  g.save();
  g.beginPath(); g.rect(M.left, M.top, pw, ph); g.clip();

  // Peaks under the signal: filled area over the baseline between the bounds.
  const peaks = state.peaks;
  peaks.forEach((p, i) => {
    if (p.right_x < x0 || p.left_x > x1) return;
    const yl = ys[p.left_index], yr = ys[p.right_index];
    g.fillStyle = i === selected ? 'rgba(255,190,40,0.45)' : i === hover ? 'rgba(90,160,255,0.35)' : 'rgba(90,160,255,0.16)';
    g.beginPath();
    g.moveTo(X(xs[p.left_index]), Y(yl));
    for (let k = p.left_index; k <= p.right_index; ++k) g.lineTo(X(xs[k]), Y(ys[k]));
    g.lineTo(X(xs[p.right_index]), Y(yr));
    g.closePath(); g.fill();
  });

  // The signal: min and max per pixel column when points are denser than pixels.
  g.strokeStyle = '#223'; g.lineWidth = 1; g.beginPath();
  if (hi - lo > pw * 2) {
    let col = -1, mn = 0, mx = 0, first = true;
    const flush = () => {
      if (col < 0) return;
      if (first) { g.moveTo(col + 0.5, Y(mn)); first = false; } else g.lineTo(col + 0.5, Y(mn));
      g.lineTo(col + 0.5, Y(mx));
    };
    for (let i = lo; i < hi; ++i) {
      const c = Math.floor(X(xs[i]));
      if (c !== col) { flush(); col = c; mn = mx = ys[i]; }
      else { if (ys[i] < mn) mn = ys[i]; if (ys[i] > mx) mx = ys[i]; }
    }
    flush();
  } else {
    for (let i = lo; i < hi; ++i) { if (i === lo) g.moveTo(X(xs[i]), Y(ys[i])); else g.lineTo(X(xs[i]), Y(ys[i])); }
  }
  g.stroke();

  // Baselines, bounds, centroids and apex marks.
  peaks.forEach((p, i) => {
    if (p.right_x < x0 || p.left_x > x1) return;
    const yl = ys[p.left_index], yr = ys[p.right_index];
    g.strokeStyle = '#1a7f37'; g.lineWidth = 1.5;
    g.beginPath(); g.moveTo(X(p.left_x), Y(yl)); g.lineTo(X(p.right_x), Y(yr)); g.stroke();
    g.strokeStyle = '#1a7f37'; g.lineWidth = 1;
    for (const [bx, by] of [[p.left_x, yl], [p.right_x, yr]]) {
      g.beginPath(); g.moveTo(X(bx), Y(by) - 6); g.lineTo(X(bx), Y(by) + 6); g.stroke();
    }
    if (p.centroid_x !== null) {
      const base = yl + (yr - yl) * ((p.centroid_x - p.left_x) / ((p.right_x - p.left_x) || 1));
      g.strokeStyle = '#c0392b'; g.setLineDash([3, 3]);
      g.beginPath(); g.moveTo(X(p.centroid_x), Y(base)); g.lineTo(X(p.centroid_x), Y(p.apex_y)); g.stroke();
      g.setLineDash([]);
    }
    const ax = X(p.apex_x), ay = Y(p.apex_y);
    g.fillStyle = i === selected ? '#e67e00' : '#c0392b';
    g.beginPath(); g.moveTo(ax, ay - 3); g.lineTo(ax - 4, ay - 10); g.lineTo(ax + 4, ay - 10); g.closePath(); g.fill();
    if (p.label) { g.fillStyle = '#6a1b9a'; g.textAlign = 'center'; g.fillText(p.label, ax, ay - 13); }
  });
  g.restore();
}

function lowerIndex(xs, v) {
  let a = 0, b = xs.length;
  while (a < b) { const m = (a + b) >> 1; if (xs[m] < v) a = m + 1; else b = m; }
  return a;
}

function peakAt(px, py) {
  if (!geom || !state) return -1;
  let best = -1, bestD = 12;
  state.peaks.forEach((p, i) => {
    const d = Math.hypot(geom.X(p.apex_x) - px, (geom.Y(p.apex_y) - 6 - py) / 4);
    if (d < bestD) { bestD = d; best = i; }
  });
  if (best < 0) {  // inside a peak's bounds counts too
    const x = geom.x0 + (px - M.left) / geom.pw * (geom.x1 - geom.x0);
    state.peaks.forEach((p, i) => { if (best < 0 && x >= p.left_x && x <= p.right_x) best = i; });
  }
  return best;
}

function showTip(i, px, py) {
  const tip = $('#tip');
  if (i < 0) { tip.hidden = true; return; }
  const p = state.peaks[i];
  const d = DECIMALS();
  tip.textContent = [
    `peak ${i + 1}${p.label ? '  ' + p.label : ''}`,
    `apex     ${fixed(p.apex_x, d)}  ${fixed(p.apex_y, 1)}`,
    `centroid ${fixed(p.centroid_x, Math.max(4, d))}`,
    `bounds   ${fixed(p.left_x, d)} – ${fixed(p.right_x, d)}`,
    `area     ${fixed(p.area, 1)}`, `height   ${fixed(p.height, 1)}  baseline ${fixed(p.baseline, 1)}`,
    `FWHM     ${fixed(p.fwhm, d + 1)}`, `noise    ${fixed(p.noise, 2)}  S/N ${fixed(p.snr, 1)}`,
    `charge   ${p.charge || '—'}  marks 0x${p.marks.toString(16)}`].join('\n');
  tip.hidden = false;
  const box = $('#plotbox');
  tip.style.left = Math.min(px + 14, box.clientWidth - tip.offsetWidth - 4) + 'px';
  tip.style.top = Math.max(4, py - tip.offsetHeight - 8) + 'px';
}

let drag = null;
canvas.addEventListener('mousedown', e => { drag = {x: e.offsetX, view: xView || fullRange(), moved: false}; });
window.addEventListener('mouseup', e => {
  if (drag && !drag.moved && e.target === canvas) selectPeak(peakAt(e.offsetX, e.offsetY), false);
  drag = null;
});
canvas.addEventListener('mousemove', e => {
  if (drag && geom) {
    const dx = (e.offsetX - drag.x) / geom.pw * (drag.view[1] - drag.view[0]);
    if (Math.abs(e.offsetX - drag.x) > 2) drag.moved = true;
    if (drag.moved) { xView = [drag.view[0] - dx, drag.view[1] - dx]; drawPlot(); }
    return;
  }
  const i = peakAt(e.offsetX, e.offsetY);
  if (i !== hover) { hover = i; drawPlot(); }
  showTip(i, e.offsetX, e.offsetY);
});
canvas.addEventListener('mouseleave', () => { hover = -1; showTip(-1); drawPlot(); });
canvas.addEventListener('wheel', e => {
  e.preventDefault();
  if (!geom) return;
  const [a, b] = xView || fullRange();
  const at = a + (e.offsetX - M.left) / geom.pw * (b - a);
  const f = Math.exp(e.deltaY * 0.0015);
  xView = [at - (at - a) * f, at + (b - at) * f];
  const [fa, fb] = fullRange();
  if (xView[1] - xView[0] >= fb - fa) xView = null;
  drawPlot();
}, {passive: false});
canvas.addEventListener('dblclick', () => { xView = null; drawPlot(); });
window.addEventListener('resize', () => drawPlot());

function selectPeak(i, zoom) {
  selected = i;
  if (i >= 0 && zoom) {
    const p = state.peaks[i];
    const span = Math.max((p.right_x - p.left_x) * 8, 1e-9);
    const mid = (p.left_x + p.right_x) / 2;
    xView = [mid - span / 2, mid + span / 2];
  }
  renderTable();
  drawPlot();
  const row = $(`#peaks tr[data-peak="${i}"]`);
  if (row && !zoom) row.scrollIntoView({block: 'nearest'});
}

// ---- Edits ----

$('#peaks').addEventListener('click', e => {
  const th = e.target.closest('th');
  if (th && th.dataset.key) {
    if (sortKey === th.dataset.key) sortDir = -sortDir; else { sortKey = th.dataset.key; sortDir = 1; }
    renderTable();
    return;
  }
  const tr = e.target.closest('tr[data-peak]');
  if (tr) selectPeak(+tr.dataset.peak, true);
});
$('#peaks').addEventListener('mouseover', e => {
  const tr = e.target.closest('tr[data-peak]');
  const i = tr ? +tr.dataset.peak : -1;
  if (i !== hover) { hover = i; drawPlot(); }
});

$('#trace').addEventListener('change', e => { xView = null; selected = -1; post('/api/trace', {index: +e.target.value}); });
$('#mode').addEventListener('change', e => post('/api/mode', {mode: e.target.value}));
$('#tosegments').addEventListener('click', () => post('/api/automatic/to-segments', {}));

document.addEventListener('change', e => {
  const t = e.target, d = t.dataset;
  const val = t.type === 'checkbox' ? t.checked : t.value;
  if (d.auto) return post('/api/automatic', {[d.auto]: val});
  if (d.switch) return post('/api/switches', {[d.switch]: val});
  if (d.range) return editRange(+d.index, d.range, t.value);
  if (d.field) return post('/api/segments/field', {index: currentSegment, field: d.field, text: t.value});
  if (d.sn) return post('/api/calc/sn', {[d.sn]: val});
  if (d.res) return post('/api/calc/res', {[d.res]: val});
  if (d.target) {
    const targets = state[d.target].targets.map(x => ({target: x.target, delta: x.delta}));
    targets[+d.index][d.key] = t.value;
    return post('/api/calc/' + d.target, {targets});
  }
  if (d.label) return post('/api/labels/options', {[d.label]: d.label === 'type' ? (t.checked ? 1 : 0) : t.checked});
  if (d.labelitem !== undefined) {
    const item = {...state.labels.items[+d.labelitem], index: +d.labelitem};
    item[d.key] = t.value;
    return post('/api/labels/set', item);
  }
  if (d.bin) return post('/api/binning', {[d.bin]: val});
});

document.addEventListener('click', e => {
  const d = e.target.dataset || {};
  if (d.delsegment !== undefined) return post('/api/segments/delete', {index: +d.delsegment});
  if (d.addtarget) {
    const calc = state[d.addtarget];
    const targets = calc.targets.map(x => ({target: x.target, delta: x.delta}));
    const p = state.peaks[selected >= 0 ? selected : 0];
    targets.push({target: p ? p.apex_x : 0, delta: 1});
    return post('/api/calc/' + d.addtarget, {targets});
  }
  if (d.deltarget) {
    const targets = state[d.deltarget].targets.map(x => ({target: x.target, delta: x.delta}));
    targets.splice(+d.index, 1);
    return post('/api/calc/' + d.deltarget, {targets});
  }
  if (d.dellabel !== undefined) return post('/api/labels/delete', {index: +d.dellabel});
  const seg = e.target.closest('#segments tr[data-segment]');
  if (seg && e.target.tagName === 'TD') { currentSegment = +seg.dataset.segment; renderSettings(); }
});
document.addEventListener('focusin', e => {
  const seg = e.target.closest('#segments tr[data-segment]');
  if (seg && +seg.dataset.segment !== currentSegment) {
    currentSegment = +seg.dataset.segment;
    $$('#segments tr').forEach(r => r.classList.toggle('current', r === seg));
    const g = state.settings.segments[currentSegment];
    $('#segfields').innerHTML = `<div style="grid-column: 1 / 3"><b>Range ${currentSegment + 1}</b></div>` +
      SEGMENT_FIELDS.map(([key, name]) => `<label>${name}<input data-field="${key}" value="${g[key]}"></label>`).join('');
  }
});

$('#addsegment').addEventListener('click', () => post('/api/segments/add', {index: currentSegment + 1}));
$('#savesettings').addEventListener('click', async () => {
  const r = await api('/api/settings/save', {path: $('#inipath').value});
  if (r) setStatus('saved ' + r.saved);
});
$('#loadsettings').addEventListener('click', () => post('/api/settings/load', {path: $('#inipath').value}));
$('#addlabel').addEventListener('click', () => post('/api/labels/add', {
  label: $('#newlabel').value, x: $('#newx').value, delta: $('#newdelta').value, charge: $('#newcharge').value}));
$('#loadlabels').addEventListener('click', () => post('/api/labels/load', {path: $('#lbspath').value}));
$('#savelabels').addEventListener('click', async () => {
  const r = await api('/api/labels/save', {path: $('#lbspath').value});
  if (r) setStatus('saved ' + r.saved);
});
$('#lbsupload').addEventListener('change', async e => {
  const f = e.target.files[0];
  if (f) await post('/api/labels/load', {text: await f.text()});
  e.target.value = '';
});
$('#downloadlabels').addEventListener('click', async () => {
  const r = await api('/api/labels/save', {});
  if (!r) return;
  const a = document.createElement('a');
  a.href = URL.createObjectURL(new Blob([r.text], {type: 'text/plain'}));
  a.download = 'labels.lbs';
  a.click();
});

api('/api/state').then(apply);
