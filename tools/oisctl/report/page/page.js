"use strict";

const data = JSON.parse(document.getElementById("data").textContent);
const byId = id => document.getElementById(id);

// A text stands in the page as text, whatever is in it.
function element(kind, className, text) {
  const made = document.createElement(kind);
  if (className) made.className = className;
  if (text !== undefined) made.textContent = text;
  return made;
}

// ---- columns, as packed_column.h writes them

function unpack(packed, scale = 1, Kind = Float64Array) {
  const bytes = atob(packed.bytes);
  const values = new Kind(packed.count);
  for (let i = 0, at = 0, last = 0; i < values.length; ++i) {
    let code = 0;
    let weight = 1;
    let byte;
    do {
      byte = bytes.charCodeAt(at++);
      code += (byte & 127) * weight;
      weight *= 128;
    } while (byte > 127);
    if (code === 0) {
      values[i] = NaN;
    } else {
      last += code % 2 === 1 ? (code - 1) / 2 : -code / 2;
      values[i] = last * scale;
    }
  }
  return values;
}

const kSeconds = 1e-6;
const ticks = Object.fromEntries(Object.entries(data.ticks).map(
  ([name, packed]) => [name, unpack(packed, name.endsWith("_us") ? kSeconds : 1)]));
const rows = data.recording && unpackRows(data.recording);

function unpackRows(recording) {
  const {time_us: time, breaks, ...others} = recording.columns;
  const columns = {};
  for (const [name, packed] of Object.entries(others))
    columns[name] = unpack(packed, name.startsWith("gyro") ? 1 : 1 / recording.angle_steps, Float32Array);
  const times = unpack(time, kSeconds);
  const begins = new Uint8Array(times.length);  // 1: there is a gap in front of that row
  for (const row of unpack(breaks)) begins[row] = 1;
  return {time: times, begins, columns};
}

// The first index whose time is not before `time`.
function firstFrom(times, time) {
  let low = 0;
  let high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] < time) low = middle + 1; else high = middle;
  }
  return low;
}

// ---- what is in view, the same for all of the timeline

const whole = wholeView();
const view = {...whole};
const redraws = [];
let redrawDue = false;

function wholeView() {
  let from = ticks.time_us.length ? ticks.time_us[0] : 0;
  let to = data.end_us * kSeconds;
  if (rows) {
    from = Math.min(from, rows.time[0]);
    to = Math.max(to, rows.time[rows.time.length - 1]);
  }
  return {from, to: Math.max(to, from + 1e-3)};
}

function look(from, to) {
  const length = Math.min(Math.max(to - from, 1e-4), whole.to - whole.from);
  view.from = Math.min(Math.max((from + to - length) / 2, whole.from), whole.to - length);
  view.to = view.from + length;
  if (redrawDue) return;
  redrawDue = true;
  requestAnimationFrame(() => {
    redrawDue = false;
    for (const redraw of redraws) redraw();
  });
}

function zoom(factor, shift = 0) {
  const length = view.to - view.from;
  const middle = (view.from + view.to) / 2 + shift * length;
  look(middle - length * factor / 2, middle + length * factor / 2);
}

function showRange() {
  const digits = view.to - view.from < 1 ? 4 : 2;
  let text = `${view.from.toFixed(digits)} to ${view.to.toFixed(digits)} s`;
  if (rows) {
    const count = firstFrom(rows.time, view.to) - firstFrom(rows.time, view.from);
    text += `, ${count.toLocaleString("en")} rows`;
    if (library && count > 2 * plotWidth())
      text += `; where several share a pixel, the lowest and the highest are drawn`;
  }
  byId("range").textContent = text;
}

// ---- the time that the pointer is at, in every plot

const gutter = () => parseFloat(getComputedStyle(document.documentElement).getPropertyValue("--gutter"));
const kRightMargin = 12;
const plotWidth = () => Math.max(byId("plots").clientWidth - gutter() - kRightMargin, 50);
const xOf = time => gutter() + (time - view.from) / (view.to - view.from) * plotWidth();
const timeAt = x => view.from + (x - gutter()) / plotWidth() * (view.to - view.from);
const readings = [];

function point(time) {
  const visible = time !== null && time >= view.from && time <= view.to;
  for (const cursor of document.querySelectorAll(".cursor")) {
    cursor.style.display = visible ? "block" : "none";
    if (visible) cursor.style.left = `${xOf(time)}px`;
  }
  for (const read of readings) read(visible ? time : null);
}

function addCursor(plot, over) {
  const cursor = element("div", "cursor");
  plot.append(cursor);
  const place = () => {
    cursor.style.top = `${over.offsetTop}px`;
    cursor.style.height = `${over.offsetHeight}px`;
  };
  redraws.push(place);
  plot.addEventListener("pointermove", event => point(timeAt(event.clientX - plot.getBoundingClientRect().left)));
  plot.addEventListener("pointerleave", () => point(null));
}

// ---- lanes: calls, commands, messages

const kLaneHeight = 20;
const kNarrowLaneHeight = 32;  // its name stands above it
const kReach = 8;              // pixels from which a tick is meant
const lanes = {canvas: document.querySelector("#lanes canvas"), plot: byId("lanes"), chosen: -1, drag: null};
const isNarrow = () => gutter() < 100;
const laneHeight = () => isNarrow() ? kNarrowLaneHeight : kLaneHeight;
const colour = name => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();

function sizeCanvas(canvas, width, height) {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  canvas.style.height = `${height}px`;
  const context = canvas.getContext("2d");
  context.scale(ratio, ratio);
  return context;
}

function drawLanes() {
  const width = byId("plots").clientWidth;
  const height = data.lanes.length * laneHeight() + 20;
  const context = sizeCanvas(lanes.canvas, width, height);
  drawLaneNames(context, width);
  drawLaneTimes(context, height);
  drawTicks(context);
  if (lanes.drag) {
    context.fillStyle = colour("accent");
    context.globalAlpha = 0.18;
    context.fillRect(lanes.drag.from, 0, lanes.drag.to - lanes.drag.from, height - 20);
    context.globalAlpha = 1;
  }
}

function drawLaneNames(context, width) {
  context.font = "12px system-ui, 'DejaVu Sans', sans-serif";
  data.lanes.forEach((lane, i) => {
    const top = i * laneHeight();
    const first = i === 0 || data.lanes[i - 1].kind !== lane.kind;
    context.fillStyle = colour(first && i > 0 ? "soft" : "grid");
    context.fillRect(0, top, width, 1);
    context.fillStyle = colour(lane.kind === "command" ? "ink" : "soft");
    context.fillText(lane.name, 0, top + 14, isNarrow() ? width : gutter() - 10);
  });
}

function drawLaneTimes(context, height) {
  context.textAlign = "center";
  for (const {time, text} of timeMarks()) {
    context.fillStyle = colour("grid");
    context.fillRect(Math.round(xOf(time)), 0, 1, height - 20);
    context.fillStyle = colour("soft");
    context.fillText(text, Math.min(xOf(time), gutter() + plotWidth() - 8), height - 5);
  }
  context.textAlign = "left";
}

// Round times in view, as many as there is room for.
function timeMarks() {
  const least = (view.to - view.from) / Math.max(plotWidth() / 110, 2);
  const power = 10 ** Math.floor(Math.log10(least));
  const step = power * [1, 2, 5, 10].find(factor => factor * power >= least);
  const digits = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  const marks = [];
  for (let i = Math.ceil(view.from / step); i * step <= view.to; ++i)
    marks.push({time: i * step, text: `${(i * step).toFixed(digits)} s`});
  return marks;
}

function drawTicks(context) {
  const high = laneHeight();
  const colours = data.lanes.map(lane => colour({call: "accent", command: "x", message: "warning", note: "bad"}[lane.kind]));
  const failed = colour("bad");
  const drawn = new Float64Array(data.lanes.length).fill(-1);
  context.save();
  context.beginPath();
  context.rect(gutter(), 0, plotWidth() + kRightMargin, data.lanes.length * high);
  context.clip();
  for (let i = 0; i < ticks.time_us.length; ++i) {
    const begin = ticks.time_us[i];
    const end = begin + ticks.length_us[i];
    if (end < view.from || begin > view.to) continue;
    const x = Math.round(xOf(begin));
    const lane = ticks.lane[i];
    const bad = ticks.failed[i] === 1;
    if (drawn[lane] === x && !bad && i !== lanes.chosen && end === begin) continue;
    drawn[lane] = x;
    const wide = Math.max(xOf(end) - x, bad || i === lanes.chosen ? 3 : 1.5);
    context.fillStyle = bad ? failed : colours[lane];
    if (i === lanes.chosen) context.fillStyle = colour("ink");
    context.fillRect(x, (lane + 1) * high - (i === lanes.chosen || bad ? 17 : 14), wide, i === lanes.chosen || bad ? 16 : 10);
  }
  context.restore();
}

// The tick that a place of the canvas means, or -1.
function tickAt(x, y) {
  const lane = Math.floor(y / laneHeight());
  let nearest = -1;
  let distance = kReach;
  for (let i = 0; i < ticks.time_us.length; ++i) {
    if (ticks.lane[i] !== lane) continue;
    const left = xOf(ticks.time_us[i]);
    const right = xOf(ticks.time_us[i] + ticks.length_us[i]);
    const away = Math.max(left - x, x - right, 0);
    if (away < distance || (away === distance && ticks.failed[i])) {
      nearest = i;
      distance = away;
    }
  }
  return nearest;
}

const laneOf = tick => data.lanes[ticks.lane[tick]];
const detailOf = tick => Number.isNaN(ticks.detail[tick]) ? null : data.details[ticks.detail[tick]];
const shortText = tick => `${ticks.time_us[tick].toFixed(4)} s  ${detailOf(tick)?.text ?? laneOf(tick).name}`;

function listenToLanes() {
  const {canvas} = lanes;
  const place = event => {
    const box = canvas.getBoundingClientRect();
    return [event.clientX - box.left, event.clientY - box.top];
  };
  canvas.addEventListener("pointerdown", event => {
    const [x] = place(event);
    lanes.drag = {from: x, to: x};
    canvas.setPointerCapture(event.pointerId);
  });
  canvas.addEventListener("pointermove", event => {
    const [x, y] = place(event);
    const tick = lanes.drag ? -1 : tickAt(x, y);
    document.querySelector("#lanes .reading").textContent = tick < 0 ? "" : shortText(tick);
    if (!lanes.drag) return;
    lanes.drag.to = x;
    drawLanes();
  });
  canvas.addEventListener("pointerup", event => {
    const [x, y] = place(event);
    const from = lanes.drag?.from ?? x;
    lanes.drag = null;
    if (Math.abs(x - from) > 5) look(timeAt(Math.min(x, from)), timeAt(Math.max(x, from)));
    else choose(tickAt(x, y));
  });
  canvas.addEventListener("pointercancel", () => { lanes.drag = null; drawLanes(); });
  canvas.addEventListener("dblclick", () => look(whole.from, whole.to));
}

// ---- the payload of one tick

function choose(tick) {
  if (tick < 0) return;
  lanes.chosen = tick;
  const box = byId("detail");
  box.replaceChildren(element("h3", "", "Payload"), stepButtons(tick));
  const detail = detailOf(tick);
  const failed = ticks.failed[tick] === 1;
  box.append(element("p", failed ? "what failed" : "what", detail?.text ?? laneOf(tick).name));
  const facts = [["time", `${ticks.time_us[tick].toFixed(6)} s`], ["thread", `${ticks.thread[tick]}`],
                 ["trace", `line ${ticks.line[tick]}`]];
  if (ticks.length_us[tick] > 0) facts.push(["took", `${(ticks.length_us[tick] * 1e3).toFixed(3)} ms`]);
  if (detail && detail.result !== null) facts.push(["result", `${detail.result}`]);
  if (detail && detail.error) facts.push(["error", detail.error]);
  box.append(tableOf(facts));
  const call = ticks.call[tick];
  if (!Number.isNaN(call)) box.append(chooseButton(`under ${shortText(call)}`, call));
  if (detail) {
    addBytes(box, "sent", detail.sent, detail.sent_bytes);
    addBytes(box, "came back", detail.received, detail.received_bytes);
  } else {
    box.append(element("p", "hint", "One of very many: its payload is in the trace, and not in this page."));
    box.append(chooseButton("nearest that has it here", nearestWithDetail(tick)));
  }
  const time = ticks.time_us[tick];
  const length = view.to - view.from;
  if (time < view.from || time > view.to) look(time - length / 2, time + length / 2);
  drawLanes();
}

function addBytes(box, title, fields, bytes) {
  if (fields.length === 0 && bytes === "") return;
  box.append(element("h3", "", title), tableOf(fields.map(([name, value, meaning]) => [name, `${value} ${meaning}`])));
  if (bytes) box.append(element("p", "bytes", bytes));
}

// `other` is -1 where there is none.
function chooseButton(text, other) {
  const button = element("button", "", text);
  button.disabled = other < 0;
  button.addEventListener("click", () => choose(other));
  return button;
}

// To the one before and the next of the same lane.
function stepButtons(tick) {
  const bar = element("div", "bar");
  bar.append(chooseButton("\u2190 before", neighbour(tick, -1)), chooseButton("next \u2192", neighbour(tick, 1)));
  return bar;
}

// The next tick of the same lane in that direction that `fits`, or -1.
function neighbour(tick, step, fits = () => true) {
  let other = tick + step;
  while (other >= 0 && other < ticks.lane.length && !(ticks.lane[other] === ticks.lane[tick] && fits(other))) other += step;
  return other < ticks.lane.length ? other : -1;
}

function nearestWithDetail(tick) {
  const [before, after] = [-1, 1].map(step => neighbour(tick, step, detailOf));
  if (before < 0 || after < 0) return Math.max(before, after);
  return tick - before < after - tick ? before : after;
}

// ---- charts

const library = typeof Dygraph === "undefined" ? null : Dygraph;

// Appends a line "x, y, y..." for each row from `begin` to `end`, or, where several fall on one of `pixels`, two that
// have the lowest and the highest of each series in the order in which they come. Gaps stay open.
function appendRows(lines, series, begin, end, from, perPixel) {
  for (let row = begin; row < end;) {
    const pixel = Math.floor((rows.time[row] - from) / perPixel);
    let next = row + 1;
    while (next < end && rows.time[next] < from + (pixel + 1) * perPixel) ++next;
    if (rows.begins[row] && row > begin) lines.push([rows.time[row], ...series.map(() => NaN)]);
    if (next - row <= 2) {
      for (let i = row; i < next; ++i) lines.push([rows.time[i], ...series.map(values => values[i])]);
    } else {
      appendExtremes(lines, series, row, next);
    }
    row = next;
  }
}

function appendExtremes(lines, series, begin, end) {
  const first = [rows.time[begin]];
  const second = [rows.time[end - 1]];
  for (const values of series) {
    let low = begin;
    let high = begin;
    for (let i = begin + 1; i < end; ++i) {
      if (values[i] < values[low] || Number.isNaN(values[low])) low = i;
      if (values[i] > values[high] || Number.isNaN(values[high])) high = i;
    }
    first.push(values[Math.min(low, high)]);
    second.push(values[Math.max(low, high)]);
  }
  lines.push(first, second);
}

// The whole in few lines, so that a chart can move at once, and what is in view as fine as it can be shown.
function linesInView(series, coarse) {
  const times = rows.time;
  const begin = Math.max(firstFrom(times, view.from) - 1, 0);
  const end = Math.min(firstFrom(times, view.to) + 1, times.length);
  const lines = coarse.filter(line => line[0] < times[begin]);
  appendRows(lines, series, begin, end, view.from, (view.to - view.from) / plotWidth());
  const last = end > 0 ? times[end - 1] : view.from;
  for (const line of coarse) if (line[0] > last) lines.push(line);
  return lines;
}

function panels() {
  const limits = data.recording.limits_deg;
  const both = name => [{name: "x", column: `${name}_x`, colour: "x"}, {name: "y", column: `${name}_y`, colour: "y"}];
  const lens = (axis, limit) => ({
    title: `Lens ${axis} [deg]`, digits: 4, limit,
    series: [{name: "target", column: `target_${axis}`, colour: "target", width: 3}, {name: "hall", column: `hall_${axis}`, colour: "hall"}],
  });
  const all = [{title: "Gyro [raw counts]", digits: 0, series: [...both("gyro"), {name: "z", column: "gyro_z", colour: "z"}]},
               lens("x", limits[0]), lens("y", limits[1]),
               {title: "Tracking error, target minus hall [deg]", digits: 4, series: both("error")}];
  if (rows.columns.residual_x)
    all.push({title: "Residual shake, true motion minus lens [deg]", digits: 4, series: both("residual")});
  return all;
}

function chartOptions(panel) {
  const short = value => Math.abs(value) >= 1e4 ? value.toExponential(0) : `${+value.toPrecision(4)}`;
  return {
    labels: ["time", ...panel.series.map(series => series.name)],
    legend: "never", highlightCircleSize: 0, animatedZooms: false, rightGap: kRightMargin, pixelsPerLabel: 40,
    colors: panel.series.map(series => colour(series.colour)),
    series: Object.fromEntries(panel.series.map(series => [series.name, {strokeWidth: series.width ?? 1.2}])),
    gridLineColor: colour("grid"), axisLineColor: colour("line"),
    axes: {x: {axisLabelFormatter: value => `${+value.toFixed(6)}`, pixelsPerLabel: 90},
           y: {axisLabelWidth: gutter() - 6, axisLabelFormatter: short, pixelsPerLabel: 30}},
    underlayCallback: (context, area, chart) => drawLimits(context, area, chart, panel.limit),
  };
}

function drawLimits(context, area, chart, limit) {
  if (!limit) return;
  context.strokeStyle = colour("soft");
  context.setLineDash([5, 4]);
  for (const at of [-limit, limit]) {
    const y = chart.toDomYCoord(at);
    if (y < area.y || y > area.y + area.h) continue;
    context.beginPath();
    context.moveTo(area.x, y);
    context.lineTo(area.x + area.w, y);
    context.stroke();
  }
  context.setLineDash([]);
}

function addPlot(title) {
  const plot = element("div", "plot");
  const head = element("h3", "", title);
  const box = element("div", "chart");
  plot.append(head, box);
  return {plot, head, box};
}

function addPanel(panel) {
  const {plot, head, box} = addPlot(panel.title);
  byId("plots").append(plot);
  const series = panel.series.map(({column}) => rows.columns[column]);
  const keys = panel.series.map(({colour: key}) => {
    const made = element("span", "key");
    made.style.setProperty("--key", `var(--${key})`);
    head.append(made);
    return made;
  });
  const coarse = [];
  appendRows(coarse, series, 0, rows.time.length, whole.from, (whole.to - whole.from) / 500);
  let updating = true;
  const chart = new library(box, coarse, {
    ...chartOptions(panel), dateWindow: [view.from, view.to],
    drawCallback: shown => { if (!updating) look(...shown.xAxisRange()); },
  });
  updating = false;
  redraws.push(() => {
    updating = true;
    chart.updateOptions({...chartOptions(panel), file: linesInView(series, coarse), dateWindow: [view.from, view.to]});
    updating = false;
  });
  readings.push(time => {
    const row = time === null ? -1 : nearestRow(time);
    keys.forEach((key, i) => {
      const value = row < 0 ? "" : ` ${series[i][row].toFixed(panel.digits)}`;
      key.textContent = panel.series[i].name + value;
    });
  });
  addCursor(plot, box);
}

function nearestRow(time) {
  const row = Math.min(firstFrom(rows.time, time), rows.time.length - 1);
  return row > 0 && time - rows.time[row - 1] < rows.time[row] - time ? row - 1 : row;
}

// ---- spectrum, path of the lens

function addSpectrum() {
  const {hz, series} = data.recording.spectrum;
  if (hz.length === 0) return;
  const section = element("section");
  section.id = "spectrum";
  section.append(element("h2", "", "Spectrum"));
  const {plot, head, box} = addPlot("Density [deg/\u221aHz] over frequency [Hz]");
  section.append(plot);
  byId("pictures").append(section);
  const names = ["target", "accent", "hall", "warning"];
  series.forEach(({name}, i) => {
    const key = element("span", "key", name);
    key.style.setProperty("--key", `var(--${names[i]})`);
    head.append(key);
  });
  const lines = hz.map((frequency, i) => [frequency, ...series.map(({values}) => values[i] > 0 ? values[i] : null)]);
  const plain = value => `${+value.toPrecision(3)}`;
  const options = () => ({
    labels: ["Hz", ...series.map(({name}) => name)], legend: "never", highlightCircleSize: 0, logscale: true,
    colors: names.map(colour), gridLineColor: colour("grid"), axisLineColor: colour("line"), strokeWidth: 1.4,
    axes: {x: {logscale: true, axisLabelFormatter: plain, pixelsPerLabel: 60},
           y: {axisLabelWidth: 60, axisLabelFormatter: value => value.toExponential(0)}},
  });
  const chart = new library(box, lines, options());
  recolour.push(() => chart.updateOptions(options()));
}

function addPath() {
  const section = element("section");
  section.id = "path";
  const canvas = element("canvas");
  const note = element("p", "soft", "");
  section.append(element("h2", "", "Path of the lens"), element("h3", "", "Hall y over hall x [deg], of what is in view"), canvas, note);
  byId("pictures").append(section);
  redraws.push(() => drawPath(canvas));
}

const kPathMargin = 36;

function drawPath(canvas) {
  const side = Math.max(canvas.clientWidth, 100);
  const context = sizeCanvas(canvas, side, side);
  const {hall_x: x, hall_y: y} = rows.columns;
  const limits = data.recording.limits_deg;
  let reach = Math.max(limits[0] ?? 0, limits[1] ?? 0);
  for (let i = 0; i < x.length; ++i) reach = Math.max(reach, Math.abs(x[i]) || 0, Math.abs(y[i]) || 0);
  reach = (reach || 1) * 1.08;
  const scale = (side - 2 * kPathMargin) / (2 * reach);
  const at = value => side / 2 + value * scale;
  drawPathFrame(context, side, reach, at);
  const begin = firstFrom(rows.time, view.from);
  const end = firstFrom(rows.time, view.to);
  context.fillStyle = colour("hall");
  const seen = visits(x, y, begin, end, at, side);
  const most = Math.log1p(seen.most);
  seen.cells.forEach((count, cell) => {
    if (count === 0) return;
    context.globalAlpha = 0.35 + 0.65 * Math.log1p(count) / most;
    context.fillRect(cell % seen.side, Math.floor(cell / seen.side), 1.4, 1.4);
  });
  context.globalAlpha = 1;
}

// How often the lens was in each pixel, the way between two rows included.
function visits(x, y, begin, end, at, side) {
  const cells = new Uint32Array(Math.ceil(side) ** 2);
  const width = Math.ceil(side);
  let most = 0;
  for (let i = begin; i < end; ++i) {
    const open = i === begin || rows.begins[i];
    const toX = at(x[i]);
    const toY = side - at(y[i]);
    const fromX = open ? toX : at(x[i - 1]);
    const fromY = open ? toY : side - at(y[i - 1]);
    const steps = Math.max(1, Math.ceil(Math.max(Math.abs(toX - fromX), Math.abs(toY - fromY))));
    if (!Number.isFinite(steps)) continue;
    for (let step = 1; step <= steps; ++step) {
      const cell = Math.floor(fromY + (toY - fromY) * step / steps) * width + Math.floor(fromX + (toX - fromX) * step / steps);
      if (cell >= 0 && cell < cells.length) most = Math.max(most, ++cells[cell]);
    }
  }
  return {cells, most, side: width};
}

function drawPathFrame(context, side, reach, at) {
  context.strokeStyle = colour("grid");
  context.fillStyle = colour("soft");
  context.font = "11px system-ui, 'DejaVu Sans', sans-serif";
  const step = [0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50].find(value => reach / value <= 4) ?? 100;
  for (let i = -Math.floor(reach / step); i * step <= reach; ++i) {
    const text = `${+(i * step).toFixed(2)}`;
    context.beginPath();
    context.moveTo(at(i * step), kPathMargin);
    context.lineTo(at(i * step), side - kPathMargin);
    context.moveTo(kPathMargin, at(i * step));
    context.lineTo(side - kPathMargin, at(i * step));
    context.stroke();
    context.textAlign = "center";
    context.fillText(text, at(i * step), side - kPathMargin + 14);
    context.textAlign = "right";
    context.fillText(text, kPathMargin - 5, side - at(i * step) + 4);
  }
  const [limitX, limitY] = data.recording.limits_deg;
  if (!limitX || !limitY) return;
  context.strokeStyle = colour("soft");
  context.setLineDash([5, 4]);
  context.strokeRect(at(-limitX), at(-limitY), at(limitX) - at(-limitX), at(limitY) - at(-limitY));
  context.setLineDash([]);
}

// ---- words

function tableOf(lines, className = "") {
  const table = element("table", className);
  for (const [label, text, style, note] of lines) {
    const row = element("tr");
    row.append(element("td", "", label), element("td", style, text));
    if (note !== undefined) row.append(element("td", "soft", note));
    table.append(row);
  }
  return table;
}

function addNotice(text) {
  byId("notices").append(element("p", "notice", text));
}

function addHead() {
  const sources = byId("sources");
  sources.append("trace ", element("b", "", data.trace));
  if (data.recording) sources.append(", recording ", element("b", "", data.recording.file));
  document.title = `OIS report: ${data.trace}`;
  byId("foot").textContent = `Written by ${data.tool}. This page needs no network.`;
  if (!data.recording) addNotice("The trace alone: there is no recording, so nothing is said of gyro, target and lens.");
  if (data.recording && !data.aligned)
    addNotice("The trace has no answer that became a row of the recording: both are shown from the trace's begin on, " +
              "and commands and rows of one time need not belong together.");
  if (data.recording && !library)
    addNotice("No charts: the chart library was not there when this page was written. Debian's package libjs-dygraphs has it.");
}

function verdictCard(title, style, head) {
  const card = element("div", `verdict ${style}`);
  card.append(element("h3", "", title), element("p", "head", head));
  byId("verdicts").append(card);
  return card;
}

function addVerdicts() {
  const [, text, style] = data.session.find(([label]) => label === "failures");
  const [head, ...more] = text.split("\n");
  const session = verdictCard("Failures in the session", style, head);
  for (const line of more) session.append(element("p", "", line));
  const first = ticks.failed.indexOf(1);
  if (first >= 0) session.append(chooseButton("show the first", first));
  if (!data.recording) return;
  const {good, verdicts, not_told: untold} = data.recording;
  const faults = verdicts.filter(verdict => verdict.fault).length;
  const praise = untold.length === 0 ? "good" : "good, as far as it tells";
  const card = verdictCard("Verdict on the recording", good ? "good" : "bad",
                           good ? praise : `${faults} ${faults === 1 ? "fault" : "faults"} found`);
  for (const verdict of verdicts) {
    const line = element("p", "", (verdict.fault ? "" : "remark: ") + verdict.text);
    for (const [from, to] of verdict.ranges.slice(0, 5)) {
      const button = element("button", "place", "show");
      button.addEventListener("click", () => showPlace(from, to));
      line.append(button);
    }
    card.append(line);
  }
  for (const text of untold) card.append(element("p", "", `not told: ${text}`));
}

function showPlace(from, to) {
  const around = Math.max((to - from) * 0.25, 0.05);
  look(from - around, to + around);
  byId("timeline").scrollIntoView();
}

function addTables() {
  const add = (title, lines) => {
    const section = element("section");
    section.append(element("h2", "", title), tableOf(lines.map(([label, text, style]) => [label, text, `figure ${style}`]), "stacks"));
    byId("tables").append(section);
  };
  if (data.recording) add("The recording in figures", data.recording.figures);
  add("The session in figures", data.session);
}

function addSettings() {
  const groups = Object.entries(data.settings);
  if (data.recording?.sidecar.length) groups.push(["Beside the recording", data.recording.sidecar]);
  for (const [title, lines] of groups) {
    if (lines.length === 0) continue;
    const box = element("details");
    box.append(element("summary", "", title));
    box.append(tableOf(lines.map(([name, value, note]) => [name, value, "", note]), "stacks"));
    byId("settings").append(box);
  }
}

// ---- all together

const recolour = [];

function listen() {
  byId("whole").addEventListener("click", () => look(whole.from, whole.to));
  byId("closer").addEventListener("click", () => zoom(0.5));
  byId("wider").addEventListener("click", () => zoom(2));
  byId("earlier").addEventListener("click", () => zoom(1, -0.4));
  byId("later").addEventListener("click", () => zoom(1, 0.4));
  window.addEventListener("resize", () => look(view.from, view.to));
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
    for (const paint of recolour) paint();
    look(view.from, view.to);
  });
}

addHead();
addVerdicts();
addTables();
addSettings();
redraws.push(showRange, drawLanes);
listenToLanes();
addCursor(lanes.plot, lanes.canvas);
if (rows && library) {
  panels().forEach(addPanel);
  addSpectrum();
}
if (rows) addPath();
listen();
point(null);
for (const redraw of redraws) redraw();
