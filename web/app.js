// The viewer's page: nodes, picture with the tool's on-screen controls, the selected tool's
// inputs, presets, timeline, undo and rendering to files, all through the server's JSON calls.
'use strict';

const $ = (id) => document.getElementById(id);
const state = {
  tools: {},          // registered name -> description
  flow: null,
  node: null,         // selected node name
  values: {},         // input ID -> {value, animated, keys, hidden, disabled}
  frame: 1,
  width: 0, height: 0,
  zoom: 1, panX: 0, panY: 0, fitted: false,
  playing: false,
  renderSeq: 0, shownSeq: 0,
  lastPictureMs: 0,
};

// ---- calls to the server --------------------------------------------------------------------

function showMessage(text, isError) {
  const m = $('message');
  m.textContent = text || '';
  m.className = isError ? 'error' : '';
}

async function call(method, path, body) {
  const options = { method, headers: {} };
  if (body !== undefined) {
    options.headers['Content-Type'] = 'application/json';
    options.body = JSON.stringify(body);
  }
  const res = await fetch(path, options);
  const data = await res.json().catch(() => ({ error: 'the server gave no answer' }));
  if (!res.ok) {
    const err = new Error(data.error || res.statusText);
    err.status = res.status;
    throw err;
  }
  return data;
}

// Writes go one at a time, in order; a write still waiting is replaced by a newer one to the same
// inputs, so a slider never queues up stale values.
let writeChain = Promise.resolve();
const waiting = new Map();
function write(path, body, keyName) {
  if (keyName && waiting.has(keyName)) {
    waiting.get(keyName).body = body;
    return waiting.get(keyName).promise;
  }
  const entry = { body };
  entry.promise = writeChain = writeChain.then(async () => {
    if (keyName) waiting.delete(keyName);
    try {
      return await call('POST', path, entry.body);
    } catch (e) {
      showMessage(e.message, true);
      return null;
    }
  });
  if (keyName) waiting.set(keyName, entry);
  return entry.promise;
}

// ---- the flow and its nodes -------------------------------------------------------------------

async function loadFlow() {
  const tools = await call('GET', '/api/tools');
  for (const t of tools) state.tools[t.name] = t;
  state.flow = await call('GET', '/api/flow');
  $('origin').textContent = state.flow.origin;
  const [first, last] = state.flow.range;
  $('frame').min = first;
  $('frame').max = last;
  state.frame = Math.min(Math.max(state.flow.frame, first), last);
  drawNodes();
  const firstTool = state.flow.nodes.find((n) => n.tool) || state.flow.nodes[0];
  await selectNode(state.node && state.flow.nodes.some((n) => n.name === state.node)
    ? state.node : firstTool.name);
}

function drawNodes() {
  const nav = $('nodes');
  nav.textContent = '';
  for (const n of state.flow.nodes) {
    const div = document.createElement('div');
    div.className = 'node' + (n.name === state.node ? ' selected' : '');
    div.dataset.node = n.name;
    div.textContent = n.name;
    const small = document.createElement('small');
    const wires = Object.entries(n.wires).map(([input, from]) => `${input} ← ${from}`);
    small.textContent = n.type + (wires.length ? ': ' + wires.join(', ') : '');
    div.appendChild(small);
    div.onclick = () => selectNode(n.name);
    nav.appendChild(div);
  }
}

function currentNode() {
  return state.flow.nodes.find((n) => n.name === state.node);
}

async function selectNode(name) {
  state.node = name;
  drawNodes();
  const node = currentNode();
  $('tool-title').textContent = node.tool ? `${node.name} (${node.tool})` : `${node.name} (${node.type})`;
  const note = $('state-note');
  note.hidden = !node.keeps_state;
  note.textContent = node.keeps_state
    ? `${node.tool} keeps state: every render steps it once, whatever the frame. Play renders the ` +
      `range in order; to see a frame as a render from the start makes it, tick "from start".`
    : '';
  if (node.tool) {
    await refreshValues();
    buildPanel();
  } else {
    $('inputs').textContent = '';
    $('presets').textContent = '';
    if (node.kind === 'Loader') buildLoaderPanel();
  }
  await renderPicture();
}

// A Loader reads an image of the served folder: a path typed in, or a file uploaded into it.
function buildLoaderPanel() {
  const box = $('inputs');
  const path = document.createElement('input');
  path.placeholder = 'image path inside the folder';
  const use = document.createElement('button');
  use.textContent = 'Use';
  const file = document.createElement('input');
  file.type = 'file';
  file.accept = '.png,.tif,.tiff,.exr,.jpg,.jpeg';
  const point = async (p) => {
    const r = await write('/api/loader', { node: state.node, path: p });
    if (r) { showMessage(`${state.node} reads ${p}`); await loadFlow(); }
  };
  use.onclick = () => point(path.value);
  file.onchange = async () => {
    const f = file.files[0];
    if (!f) return;
    const res = await fetch(`/api/upload?name=${encodeURIComponent(f.name)}`, { method: 'POST', body: f });
    const data = await res.json();
    if (!res.ok) { showMessage(data.error, true); return; }
    await point(data.path);
  };
  box.append(path, use, document.createElement('br'), file);
}

async function refreshValues() {
  const node = currentNode();
  if (!node || !node.tool) return;
  const s = await call('GET', `/api/node?node=${encodeURIComponent(state.node)}&frame=${state.frame}`);
  applyState(s);
}

function applyState(s) {
  if (!s || !s.values || s.node !== state.node) return;
  state.values = s.values;
  updatePanel();
  drawKeys();
  $('undo').disabled = !s.undo || s.undo.length === 0;
}

// ---- the inputs panel ---------------------------------------------------------------------------

const rows = new Map();  // input ID (or colour group key) -> {element, update}

function buildPanel() {
  const desc = state.tools[currentNode().tool];
  const box = $('inputs');
  box.textContent = '';
  rows.clear();
  // Presets first.
  const presets = $('presets');
  presets.textContent = '';
  if (desc.presets) {
    const sel = document.createElement('select');
    sel.id = 'preset';
    sel.appendChild(new Option('Demos…', ''));
    desc.presets.entries.forEach((e) => sel.appendChild(new Option(e, e)));
    sel.onchange = async () => {
      if (!sel.value) return;
      const s = await write('/api/preset', { node: state.node, entry: sel.value, frame: state.frame });
      sel.value = '';
      if (s) { applyState(s); showMessage(`preset chosen: ${Object.keys(s.written).length} input(s) written`); }
      renderPicture();
    };
    presets.appendChild(sel);
  }
  const pages = new Map();
  const page = (name) => {
    const key = name || 'Inputs';
    if (!pages.has(key)) {
      const fs = document.createElement('fieldset');
      const lg = document.createElement('legend');
      lg.textContent = key;
      fs.appendChild(lg);
      box.appendChild(fs);
      pages.set(key, fs);
    }
    return pages.get(key);
  };
  const groups = new Map();
  for (const inp of desc.inputs) {
    if (inp.colour_group !== undefined) {
      const key = 'colour' + inp.colour_group;
      if (!groups.has(key)) {
        groups.set(key, []);
        const row = makeColourRow(key, groups.get(key));
        page(inp.page).appendChild(row.element);
        rows.set(key, row);
      }
      groups.get(key).push(inp);
      continue;
    }
    const row = makeRow(inp);
    page(inp.page).appendChild(row.element);
    rows.set(inp.id, row);
  }
  updatePanel();
}

function rowShell(inp, ids) {
  const el = document.createElement('div');
  el.className = 'row';
  el.dataset.id = inp.id;
  const label = document.createElement('label');
  label.textContent = inp.label;
  label.title = `${inp.label} (${ids.join(', ')})`;
  const control = document.createElement('div');
  control.className = 'control';
  const key = document.createElement('button');
  key.className = 'key';
  key.textContent = '◆';
  key.title = 'Set a key at this frame (again to remove it)';
  el.append(label, control, key);
  if (inp.fixed || inp.kind === 'button') key.style.visibility = 'hidden';
  key.onclick = () => toggleKey(ids);
  return { el, control, key };
}

// A value written from the panel: a key at the current frame when the input is animated, else the
// value as a whole.
async function setValues(values, keyName) {
  const animated = Object.keys(values).some((id) => state.values[id] && state.values[id].animated);
  const s = await write('/api/set', { node: state.node, values, frame: state.frame, key: animated }, keyName);
  if (s) { applyState(s); showMessage(''); } else { await refreshValues(); }
  renderPicture();
}

async function toggleKey(ids) {
  const v = state.values[ids[0]];
  let s;
  if (v.keys.includes(state.frame)) {
    for (const id of ids) s = await write('/api/remove-key', { node: state.node, input: id, frame: state.frame });
  } else {
    const values = {};
    for (const id of ids) values[id] = state.values[id].value;
    s = await write('/api/set', { node: state.node, values, frame: state.frame, key: true });
  }
  if (s) applyState(s);
  renderPicture();
}

function makeRow(inp) {
  const { el, control } = rowShell(inp, [inp.id]);
  let update = () => {};
  const send = (v) => setValues({ [inp.id]: v }, inp.id);
  if (inp.kind === 'slider' || inp.kind === 'screw') {
    const lo = inp.scale ? inp.scale[0] : (inp.allowed && inp.allowed[0] !== null ? inp.allowed[0] : 0);
    const hi = inp.scale ? inp.scale[1] : (inp.allowed && inp.allowed[1] !== null ? inp.allowed[1] : 1);
    const num = document.createElement('input');
    num.type = 'number';
    num.step = inp.whole ? 1 : 'any';
    let range = null;
    if (inp.kind === 'slider') {
      range = document.createElement('input');
      range.type = 'range';
      range.min = lo; range.max = hi;
      range.step = inp.whole ? 1 : (hi - lo) / 1000 || 0.001;
      range.oninput = () => { num.value = range.value; send(Number(range.value)); };
      control.appendChild(range);
    } else {
      num.step = inp.whole ? 1 : (hi - lo) / 100 || 0.01;
    }
    num.onchange = () => {
      const v = Number(num.value);
      if (num.value.trim() === '' || !Number.isFinite(v)) {
        showMessage(`${inp.label}: '${num.value}' is not a number`, true);
        update();
        return;
      }
      send(v);
    };
    control.appendChild(num);
    update = () => {
      const v = state.values[inp.id].value;
      if (document.activeElement !== num) num.value = +v.toFixed(6);
      if (range && document.activeElement !== range) range.value = v;
      num.disabled = state.values[inp.id].disabled;
      if (range) range.disabled = num.disabled;
    };
  } else if (inp.kind === 'checkbox') {
    const box = document.createElement('input');
    box.type = 'checkbox';
    box.onchange = () => send(box.checked ? 1 : 0);
    control.appendChild(box);
    update = () => {
      box.checked = state.values[inp.id].value !== 0;
      box.disabled = state.values[inp.id].disabled;
    };
  } else if (inp.kind === 'combo') {
    const sel = document.createElement('select');
    (inp.entries || []).forEach((e, i) => sel.appendChild(new Option(e, i)));
    sel.onchange = () => send(Number(sel.value));
    control.appendChild(sel);
    update = () => {
      sel.value = String(Math.trunc(state.values[inp.id].value));
      sel.disabled = state.values[inp.id].disabled;
    };
  } else if (inp.kind === 'point') {
    const xs = document.createElement('input');
    const ys = document.createElement('input');
    for (const b of [xs, ys]) { b.type = 'number'; b.step = 0.01; control.appendChild(b); }
    const go = () => {
      const x = Number(xs.value), y = Number(ys.value);
      if (!Number.isFinite(x) || !Number.isFinite(y)) { showMessage(`${inp.label}: give two numbers`, true); return; }
      send([x, y]);
    };
    xs.onchange = go; ys.onchange = go;
    update = () => {
      const [x, y] = state.values[inp.id].value;
      if (document.activeElement !== xs) xs.value = +x.toFixed(5);
      if (document.activeElement !== ys) ys.value = +y.toFixed(5);
      xs.disabled = ys.disabled = state.values[inp.id].disabled;
    };
  } else if (inp.kind === 'button') {
    const b = document.createElement('button');
    b.textContent = inp.label;
    b.onclick = async () => {
      const s = await write('/api/press', { node: state.node, input: inp.id, frame: state.frame });
      if (s) applyState(s);
      renderPicture();
    };
    control.appendChild(b);
    update = () => { b.disabled = state.values[inp.id].disabled; };
  } else {
    control.textContent = inp.kind;
  }
  const full = () => {
    const v = state.values[inp.id];
    if (!v) return;
    el.classList.toggle('hidden', v.hidden);
    el.classList.toggle('disabled', v.disabled);
    el.classList.toggle('animated', v.animated);
    el.classList.toggle('keyed', v.keys.includes(state.frame));
    update();
  };
  return { element: el, update: full };
}

function makeColourRow(key, channels) {
  // The channels are known once the panel is built; the row reads them late.
  const inp = { id: key, label: '', fixed: false, kind: 'colour' };
  const ids = [];
  const { el, control, key: keyButton } = rowShell(inp, ids);
  const picker = document.createElement('input');
  picker.type = 'color';
  const alpha = document.createElement('input');
  alpha.type = 'number'; alpha.step = 0.01; alpha.title = 'alpha';
  control.append(picker, alpha);
  const hex = (v) => Math.round(Math.min(Math.max(v, 0), 1) * 255).toString(16).padStart(2, '0');
  picker.oninput = () => {
    const c = picker.value;
    const values = {};
    ['R', 'G', 'B'].forEach((ch, i) => {
      const inpC = channels.find((x) => x.channel === ch);
      if (inpC) values[inpC.id] = parseInt(c.substr(1 + 2 * i, 2), 16) / 255;
    });
    setValues(values, key);
  };
  alpha.onchange = () => {
    const a = channels.find((x) => x.channel === 'A');
    if (a) setValues({ [a.id]: Number(alpha.value) }, key + 'a');
  };
  keyButton.onclick = () => toggleKey(channels.map((c) => c.id));
  const update = () => {
    if (!channels.length) return;
    el.querySelector('label').textContent = channels[0].label;
    el.dataset.id = channels.map((c) => c.id).join(',');
    const v = (ch) => {
      const c = channels.find((x) => x.channel === ch);
      return c && state.values[c.id] ? state.values[c.id].value : 0;
    };
    if (document.activeElement !== picker) picker.value = '#' + hex(v('R')) + hex(v('G')) + hex(v('B'));
    const a = channels.find((x) => x.channel === 'A');
    alpha.hidden = !a || state.values[a.id].hidden;
    if (a && document.activeElement !== alpha) alpha.value = +v('A').toFixed(4);
    const first = state.values[channels[0].id];
    if (!first) return;
    el.classList.toggle('hidden', first.hidden);
    el.classList.toggle('disabled', first.disabled);
    el.classList.toggle('animated', first.animated);
    el.classList.toggle('keyed', first.keys.includes(state.frame));
    picker.disabled = alpha.disabled = first.disabled;
  };
  return { element: el, update };
}

function updatePanel() {
  for (const row of rows.values()) row.update();
}

// ---- the picture, zoom and pan ------------------------------------------------------------------

function applyTransform() {
  $('stage').style.transform = `translate(${state.panX}px, ${state.panY}px) scale(${state.zoom})`;
  $('zoom-label').textContent = `${Math.round(state.zoom * 100)}%`;
}

// Fits the picture and the controls that stand outside it (at most half the picture beyond each
// side) into the view.
function fit() {
  const vp = $('viewport');
  if (!state.width) return;
  let x0 = 0, y0 = 0, x1 = state.width, y1 = state.height;
  for (const l of lines) {
    for (const [x, y] of l.points) {
      const sy = state.height - y;
      x0 = Math.min(x0, Math.max(x, -state.width / 2));
      x1 = Math.max(x1, Math.min(x, state.width * 1.5));
      y0 = Math.min(y0, Math.max(sy, -state.height / 2));
      y1 = Math.max(y1, Math.min(sy, state.height * 1.5));
    }
  }
  const z = Math.min((vp.clientWidth - 30) / (x1 - x0), (vp.clientHeight - 30) / (y1 - y0));
  state.zoom = Math.max(0.05, Math.min(z, 8));
  state.panX = (vp.clientWidth - (x1 - x0) * state.zoom) / 2 - x0 * state.zoom;
  state.panY = (vp.clientHeight - (y1 - y0) * state.zoom) / 2 - y0 * state.zoom;
  applyTransform();
  drawControls();
}

function zoomAt(factor, cx, cy) {
  const z = Math.max(0.05, Math.min(state.zoom * factor, 32));
  state.panX = cx - (cx - state.panX) * (z / state.zoom);
  state.panY = cy - (cy - state.panY) * (z / state.zoom);
  state.zoom = z;
  applyTransform();
  drawControls();
}

// Renders the selected node at the current frame. Requests overlap freely: the server lets a newer
// one abort an older one, and an answer older than the one shown is dropped.
async function renderPicture(fromStart) {
  if (!state.node) return;
  const seq = ++state.renderSeq;
  const started = performance.now();
  const useStart = fromStart === undefined ? $('from-start').checked && currentNode().keeps_state : fromStart;
  const url = `/api/render?node=${encodeURIComponent(state.node)}&frame=${state.frame}` +
    (useStart ? '&from_start=1' : '');
  await writeChain;
  let res;
  try {
    res = await fetch(url, { cache: 'no-store' });
  } catch (e) {
    showMessage('the server cannot be reached', true);
    return;
  }
  if (!res.ok) {
    if (res.status !== 409) showMessage((await res.json()).error, true);
    return;
  }
  const blob = await res.blob();
  if (seq < state.shownSeq) return;
  state.shownSeq = seq;
  const img = $('picture');
  const w = Number(res.headers.get('X-Width')), h = Number(res.headers.get('X-Height'));
  const url2 = URL.createObjectURL(blob);
  await new Promise((resolve) => { img.onload = resolve; img.onerror = resolve; img.src = url2; });
  if (img.dataset.url) URL.revokeObjectURL(img.dataset.url);
  img.dataset.url = url2;
  state.lastPictureMs = performance.now() - started;
  img.dataset.seq = String(seq);
  const sized = w !== state.width || h !== state.height;
  state.width = w; state.height = h;
  img.width = w; img.height = h;
  $('size-label').textContent = `${w}×${h}  ${state.lastPictureMs.toFixed(0)} ms`;
  await drawControls();
  if (sized || !state.fitted) { state.fitted = true; fit(); }
  if (useStart) $('from-start').checked = false;
}

// ---- on-screen controls ---------------------------------------------------------------------------

let lines = [];
async function drawControls(fresh) {
  const node = currentNode();
  if (!node || !node.tool || !state.width) { lines = []; paintLines(); return; }
  if (fresh !== undefined) { lines = fresh; paintLines(); return; }
  try {
    const c = await call('GET', `/api/controls?node=${encodeURIComponent(state.node)}&frame=${state.frame}&zoom=${state.zoom}`);
    lines = c.lines;
  } catch (e) {
    lines = [];
  }
  paintLines();
}

function paintLines() {
  const svg = $('overlay');
  svg.setAttribute('width', state.width);
  svg.setAttribute('height', state.height);
  svg.setAttribute('viewBox', `0 0 ${state.width} ${state.height}`);
  svg.textContent = '';
  if (!$('show-controls').checked) return;
  const ns = 'http://www.w3.org/2000/svg';
  const flip = (p) => `${p[0]},${state.height - p[1]}`;
  for (const l of lines) {
    const add = (tag, pts) => {
      const e = document.createElementNS(ns, tag);
      e.setAttribute('points', pts.map(flip).join(' '));
      e.setAttribute('fill', 'none');
      e.setAttribute('stroke', l.colour);
      e.setAttribute('stroke-width', '1.2');
      e.setAttribute('vector-effect', 'non-scaling-stroke');
      svg.appendChild(e);
    };
    if (l.mode === 'lines') {
      for (let i = 0; i + 1 < l.points.length; i += 2) add('polyline', [l.points[i], l.points[i + 1]]);
    } else {
      add(l.mode === 'loop' ? 'polygon' : 'polyline', l.points);
    }
  }
}

// Screen position to image pixels, y up.
function imagePoint(ev) {
  const r = $('picture').getBoundingClientRect();
  return {
    x: (ev.clientX - r.left) / r.width * state.width,
    y: state.height - (ev.clientY - r.top) / r.height * state.height,
  };
}

let drag = null;  // {mode: 'handle'|'pan', ...}
let moveBusy = false, moveNext = null;

async function pointer(event, p) {
  return call('POST', '/api/pointer', {
    node: state.node, frame: state.frame, zoom: state.zoom, event, x: p.x, y: p.y,
  });
}

async function sendMove() {
  if (moveBusy || !moveNext) return;
  moveBusy = true;
  const p = moveNext;
  moveNext = null;
  try {
    const r = await pointer('move', p);
    drawControls(r.lines);
    if (Object.keys(r.written).length) { refreshValues(); renderPicture(); }
  } catch (e) {
    showMessage(e.message, true);
  }
  moveBusy = false;
  if (moveNext) sendMove();
}

function setupPointer() {
  const vp = $('viewport');
  vp.addEventListener('pointerdown', async (ev) => {
    vp.setPointerCapture(ev.pointerId);
    const node = currentNode();
    if (ev.button === 0 && node && node.tool && $('show-controls').checked && state.width) {
      drag = { mode: 'wait', x: ev.clientX, y: ev.clientY, px: state.panX, py: state.panY };
      await writeChain;
      try {
        const r = await pointer('down', imagePoint(ev));
        if (r.hit) {
          drag.mode = 'handle';
          showMessage(`dragging ${r.input}`);
        } else if (drag) {
          drag.mode = 'pan';
        }
        drawControls(r.lines);
      } catch (e) {
        showMessage(e.message, true);
        drag = null;
      }
      if (drag && drag.mode === 'handle' && drag.upAt) finishDrag(drag.upAt);
    } else {
      drag = { mode: 'pan', x: ev.clientX, y: ev.clientY, px: state.panX, py: state.panY };
    }
  });
  vp.addEventListener('pointermove', (ev) => {
    if (!drag) return;
    if (drag.mode === 'handle') {
      moveNext = imagePoint(ev);
      sendMove();
    } else if (drag.mode === 'pan') {
      state.panX = drag.px + ev.clientX - drag.x;
      state.panY = drag.py + ev.clientY - drag.y;
      applyTransform();
    }
  });
  vp.addEventListener('pointerup', (ev) => {
    if (!drag) return;
    if (drag.mode === 'wait') { drag.upAt = imagePoint(ev); return; }
    if (drag.mode === 'handle') finishDrag(imagePoint(ev));
    drag = null;
  });
  vp.addEventListener('wheel', (ev) => {
    ev.preventDefault();
    const r = vp.getBoundingClientRect();
    zoomAt(ev.deltaY < 0 ? 1.25 : 0.8, ev.clientX - r.left, ev.clientY - r.top);
  }, { passive: false });
}

async function finishDrag(p) {
  drag = null;
  while (moveBusy || moveNext) await new Promise((r) => setTimeout(r, 10));
  try {
    const r = await pointer('up', p);
    drawControls(r.lines);
    showMessage(r.undo.length ? `undo step: ${r.undo[r.undo.length - 1]}` : '');
  } catch (e) {
    showMessage(e.message, true);
  }
  await refreshValues();
  renderPicture();
}

// ---- timeline ---------------------------------------------------------------------------------------

function drawKeys() {
  const box = $('keys');
  box.textContent = '';
  const [first, last] = state.flow.range;
  const times = new Set();
  for (const v of Object.values(state.values)) for (const t of v.keys) times.add(t);
  for (const t of times) {
    if (t < first || t > last) continue;
    const i = document.createElement('i');
    i.style.left = last > first ? `${(t - first) / (last - first) * 100}%` : '0';
    i.title = `key at frame ${t}`;
    box.appendChild(i);
  }
  $('frame').value = state.frame;
  $('frame-label').textContent = `frame ${state.frame} of ${first}–${last}`;
}

async function goTo(frame, fromStart) {
  const [first, last] = state.flow.range;
  state.frame = Math.min(Math.max(frame, first), last);
  await refreshValues();
  drawKeys();
  await renderPicture(fromStart);
}

async function play() {
  state.playing = !state.playing;
  $('play').textContent = state.playing ? 'Pause' : 'Play';
  const [first, last] = state.flow.range;
  while (state.playing) {
    const next = state.frame >= last ? first : state.frame + 1;
    // A stateful tool starts again at the start of the range.
    await goTo(next, next === first && currentNode().keeps_state);
  }
}

// ---- rendering to files, saving, undo ---------------------------------------------------------

async function renderFiles() {
  try {
    await call('POST', '/api/render-files', { from_start: true });
  } catch (e) {
    showMessage(e.message, true);
    return;
  }
  const bar = $('job-progress');
  bar.hidden = false;
  for (;;) {
    const j = await call('GET', '/api/job');
    bar.max = j.total || 1;
    bar.value = j.done;
    $('job-text').textContent = `${j.done} of ${j.total}`;
    if (!j.running) {
      if (j.error) showMessage(j.error, true);
      else showMessage(`wrote ${j.written.length} file(s)` + (j.written.length ? `: ${j.written[0]} …` : ''));
      break;
    }
    await new Promise((r) => setTimeout(r, 300));
  }
  bar.hidden = true;
}

async function undoRedo(which) {
  const r = await write('/api/' + which, {});
  if (!r) return;
  showMessage(r.done ? `${which} done` : `nothing to ${which}`);
  await refreshValues();
  renderPicture();
}

function setupButtons() {
  $('undo').onclick = () => undoRedo('undo');
  $('redo').onclick = () => undoRedo('redo');
  $('save').onclick = async () => {
    const r = await write('/api/save', { path: $('save-path').value });
    if (r) showMessage(`saved ${r.saved}`);
  };
  $('render-files').onclick = renderFiles;
  $('zoom-in').onclick = () => zoomAt(1.25, $('viewport').clientWidth / 2, $('viewport').clientHeight / 2);
  $('zoom-out').onclick = () => zoomAt(0.8, $('viewport').clientWidth / 2, $('viewport').clientHeight / 2);
  $('zoom-fit').onclick = fit;
  $('zoom-one').onclick = () => zoomAt(1 / state.zoom, $('viewport').clientWidth / 2, $('viewport').clientHeight / 2);
  $('show-controls').onchange = () => drawControls();
  $('frame').oninput = () => goTo(Number($('frame').value));
  $('step-prev').onclick = () => goTo(state.frame - 1);
  $('step-next').onclick = () => goTo(state.frame + 1);
  $('play').onclick = play;
  document.addEventListener('keydown', (ev) => {
    if (ev.target.tagName === 'INPUT' && ev.target.type !== 'range') return;
    if ((ev.ctrlKey || ev.metaKey) && ev.key.toLowerCase() === 'z') {
      ev.preventDefault();
      undoRedo(ev.shiftKey ? 'redo' : 'undo');
    }
  });
}

window.addEventListener('load', async () => {
  setupButtons();
  setupPointer();
  try {
    await loadFlow();
    document.body.dataset.ready = '1';
  } catch (e) {
    showMessage(e.message, true);
  }
});
