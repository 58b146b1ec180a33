// SPDX-License-Identifier: Apache-2.0
// The page in an installer's hand: shows what the event stream brings, and says how old it is. Snapshots and events
// come over one stream, which is opened again when it ends or falls silent; what was measured before is asked for
// whenever it is opened. Times are of this machine's monotonic clock, as that of a board may be set meanwhile.
"use strict";

const RADIOS = [{key: "lte", name: "LTE", band: "B"}, {key: "nr5g", name: "NR 5G", band: "n"}];
// The ends of the scales, in the unit shown, and how a record's number becomes it.
const GAUGES = [
  {key: "rsrp", name: "RSRP", unit: "dBm", least: -130, most: -60, scale: 1, digits: 0},
  {key: "sinr", name: "SINR", unit: "dB", least: -15, most: 35, scale: 0.1, digits: 1},
];
const REGISTRATIONS = {
  no_service: "No service", power_save: "Power save", limited: "Limited service",
  limited_regional: "Limited service in this region", lte: "LTE", lte_nr5g: "LTE with NR 5G", nr5g: "NR 5G",
};
// How some events are said; others with their names and all that they tell.
const EVENTS = {
  modem_status: (event) => (event.value === "up" ? "The modem is there" : "The modem is gone"),
  reg_status: (event) => REGISTRATIONS[event.value] || event.value,
  lte_nbr_info: (event) => scanText("LTE", event.cells),
  nr5g_nbr_info: (event) => scanText("NR 5G", event.cells),
  missed: (event) => `${event.count} events were missed`,
};
// The gauges and plots show them.
const MEASUREMENTS = new Set(["lte_rsrp", "nr5g_rsrp", "lte_rsrq", "nr5g_rsrq", "lte_sinr", "nr5g_sinr"]);
const HEAD = new Set(["type", "time", "board", "id", "event", "radio", "location"]);
const HISTORY_MS = 600000;
const EVENTS_SHOWN = 100;
const AGE_TOLD_S = 3;
// What is older than this many intervals looks old, as what is older than two seconds may.
const OLD_INTERVALS = 3;
// Without a record for so long, and for as many intervals, the stream is opened again: a phone that was out of reach
// may never be told that it has ended.
const SILENCE_MS = 20000;
const AGAIN_MS = 2000;

const $ = (id) => document.getElementById(id);
const gauges = {};  // by radio and gauge: its elements and the best so far
const measured = {};  // by radio and gauge: [{x: ms, y: value in its unit}], one a second
const plots = {};
let stream = null;
let again = 0;  // timer of the next attempt
let last = null;  // the newest snapshot
let lastAt = 0;  // when it came
let heardAt = 0;  // when anything came
let drawnAt = -Infinity;  // the plots
let due = false;  // the snapshot is to be drawn
let interval = 1000;

const signed = (text) => String(text).replace("-", "−");
const orDash = (value) => (value === undefined ? "–" : typeof value === "number" ? signed(value) : String(value));
const inUnit = (gauge, value) => Number((value * gauge.scale).toFixed(gauge.digits));
const formatted = (gauge, shown) => signed(shown.toFixed(gauge.digits));

function ageText(seconds) {
  const [length, unit] = [[86400, "d"], [3600, "h"], [60, "min"]].find(([each]) => seconds >= each * 2) || [1, "s"];
  return `${Math.floor(seconds / length)} ${unit}`;
}

function forEachGauge(act) {
  for (const radio of RADIOS) {
    for (const gauge of GAUGES) {
      act(radio, gauge, radio.key + gauge.key);
    }
  }
}

/* The best so far: of the ten minutes and since, or since it was forgotten, also where the page is loaded again */

const forgottenKey = () => "forgotten " + last.board;

function offerBest(gauge, shown, value) {
  if (shown.best === null || value > shown.best) {
    shown.best = value;
    showBest(gauge, shown);
  }
}

function showBest(gauge, shown) {
  shown.bestMark.hidden = shown.best === null;
  shown.soFar.textContent = "best " + (shown.best === null ? "–" : formatted(gauge, shown.best));
  if (shown.best !== null) {
    shown.bestMark.style.left = place(gauge, shown.best);
  }
}

function forgetBest() {
  forEachGauge((radio, gauge, key) => {
    gauges[key].best = null;
    showBest(gauge, gauges[key]);
  });
  if (last !== null) {
    sessionStorage.setItem(forgottenKey(), String(Date.now()));
    takeMeasurements(last);
  }
}

// What was measured up to then does not count; a second more, as the history has no finer times.
function forgottenAgo() {
  const at = last === null ? null : sessionStorage.getItem(forgottenKey());
  return at === null ? Infinity : (Date.now() - Number(at)) / 1000 - 1;
}

/* Serving cells */

function makeGauge(radio, gauge, key, parent) {
  const element = $("gauge").content.firstElementChild.cloneNode(true);
  const find = (name) => element.querySelector("." + name);
  find("name").textContent = gauge.name;
  find("unit").textContent = gauge.unit;
  find("least").textContent = signed(gauge.least);
  find("most").textContent = signed(gauge.most);
  const scale = find("scale");
  scale.setAttribute("aria-label", `${radio.name} ${gauge.name}`);
  scale.setAttribute("aria-valuemin", gauge.least);
  scale.setAttribute("aria-valuemax", gauge.most);
  parent.append(element);
  gauges[key] = {
    number: find("number"), scale, mark: find("mark"), bestMark: find("best"), soFar: find("so-far"), best: null,
  };
  showGauge(gauge, gauges[key], undefined);
}

function makeCells() {
  for (const radio of RADIOS) {
    const cell = $("cell").content.firstElementChild.cloneNode(true);
    cell.classList.add(radio.key);
    cell.id = "cell-" + radio.key;
    cell.querySelector("h2").textContent = radio.name;
    cell.querySelector("h2").id = "title-" + radio.key;
    cell.setAttribute("aria-labelledby", "title-" + radio.key);
    $("cells").append(cell);
  }
  forEachGauge((radio, gauge, key) => {
    makeGauge(radio, gauge, key, $("cell-" + radio.key).querySelector(".measured"));
    measured[key] = [];
  });
}

function place(gauge, shown) {
  const part = (shown - gauge.least) / (gauge.most - gauge.least);
  return `${Math.min(Math.max(part, 0), 1) * 100}%`;
}

// What a screen reader is told of a scale must lie on it, and is nothing where nothing was measured.
function showGauge(gauge, shown, value) {
  const none = value === undefined;
  const text = none ? "–" : formatted(gauge, inUnit(gauge, value));
  const on = none ? gauge.least : Math.min(Math.max(inUnit(gauge, value), gauge.least), gauge.most);
  shown.mark.hidden = none;
  shown.mark.style.left = place(gauge, on);
  shown.number.textContent = text;
  shown.scale.setAttribute("aria-valuenow", on);
  shown.scale.setAttribute("aria-valuetext", none ? "not measured" : `${text} ${gauge.unit}`);
}

function bandsOf(radio, cell) {
  return cell.bands ? cell.bands.map((band) => radio.band + band).join("/") : "–";
}

function showCell(radio, cell) {
  const section = $("cell-" + radio.key);
  const serving = Object.keys(cell).length > 0;
  const cqi = cell.cqi ? cell.cqi.map((carrier) => carrier.join("/")).join(" ") : "–";
  section.querySelector(".who").textContent = serving
    ? `${orDash(cell.plmn)} · ${bandsOf(radio, cell)} · channel ${orDash(cell.channel)} · PCI ${orDash(cell.pci)}` +
      ` · cell ${orDash(cell.cgi)}`
    : "No cell";
  section.querySelector(".more").textContent = `RSRQ ${orDash(cell.rsrq)} dB · CQI ${cqi}`;
  for (const gauge of GAUGES) {
    showGauge(gauge, gauges[radio.key + gauge.key], cell[gauge.key]);
  }
}

/* Plots */

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
}

function makePlot(gauge) {
  const datasets = RADIOS.map((radio) => ({
    label: radio.name, data: [], borderColor: colour(radio.key), borderDash: radio.key === "nr5g" ? [6, 3] : [],
    borderWidth: 2, pointRadius: 0, spanGaps: false, parsing: false,
  }));
  const grid = {color: colour("line")};
  const middle = (gauge.least + gauge.most) / 2;
  plots[gauge.key] = new Chart($("plot-" + gauge.key), {
    type: "line",
    data: {datasets},
    options: {
      animation: false, maintainAspectRatio: false, normalized: true, events: [],
      plugins: {legend: {display: false}, tooltip: {enabled: false}},
      scales: {
        x: {
          type: "linear", grid, min: -HISTORY_MS / 60000, max: 0,
          ticks: {
            color: colour("quiet"), stepSize: 2, maxRotation: 0,
            callback: (minutes) => (minutes === 0 ? "now" : signed(`${minutes} min`)),
          },
        },
        y: {
          grid, suggestedMin: middle - 10, suggestedMax: middle + 10,
          ticks: {color: colour("quiet"), precision: 0, callback: signed},
        },
      },
    },
  });
}

function plotText(gauge) {
  const told = RADIOS.map((radio) => {
    const values = measured[radio.key + gauge.key].map((point) => point.y).filter((value) => value !== null);
    const [least, most] = [Math.min(...values), Math.max(...values)].map((value) => formatted(gauge, value));
    return values.length === 0 ? `${radio.name} not measured` : `${radio.name} from ${least} to ${most} ${gauge.unit}`;
  });
  return `${gauge.name} of the last ten minutes: ${told.join(", ")}`;
}

function drawPlots() {
  const now = performance.now();
  drawnAt = now;
  for (const gauge of GAUGES) {
    RADIOS.forEach((radio, at) => {
      const points = measured[radio.key + gauge.key];
      while (points.length && points[0].x < now - HISTORY_MS) {
        points.shift();
      }
      plots[gauge.key].data.datasets[at].data = points.map((point) => ({x: (point.x - now) / 60000, y: point.y}));
    });
    plots[gauge.key].update("none");
    $("plot-" + gauge.key).setAttribute("aria-label", plotText(gauge));
  }
}

// One point a second; where there is none for a while, the line has a gap.
function remember(key, at, value) {
  const points = measured[key];
  const before = points[points.length - 1];
  if (before && before.y !== null) {
    if (Math.floor(before.x / 1000) === Math.floor(at / 1000)) {
      points.pop();
    } else if (at - before.x > Math.max(5000, 3 * interval)) {
      points.push({x: before.x, y: null});
    }
  }
  points.push({x: at, y: value});
}

async function fillHistory() {
  const answer = await fetch("api/history", {cache: "no-store"});
  const told = await answer.json();
  const now = performance.now();
  const forgotten = forgottenAgo();
  interval = told.every * 1000 || 1000;
  forEachGauge((radio, gauge, key) => {
    measured[key] = [];
    for (const [ago, value] of (told[radio.key] || {})[gauge.key] || []) {
      remember(key, now - ago * 1000, inUnit(gauge, value));
      if (ago < forgotten) {
        offerBest(gauge, gauges[key], inUnit(gauge, value));
      }
    }
  });
  drawPlots();
}

function remakePlots() {
  for (const gauge of GAUGES) {
    plots[gauge.key].destroy();
    makePlot(gauge);
  }
  drawPlots();
}

/* Neighbours */

function neighbourRow(radio, cell) {
  const row = document.createElement("tr");
  const plmns = cell.plmns ? cell.plmns.join(" ") : undefined;
  const texts = [radio.name, cell.channel, cell.pci, cell.rsrp, cell.rsrq, plmns];
  row.append(...texts.map((text) => {
    const field = document.createElement("td");
    field.textContent = orDash(text);
    return field;
  }));
  return row;
}

function showNeighbours(neighbours) {
  const answered = RADIOS.filter((radio) => neighbours[radio.key]);
  const rows = answered.flatMap((radio) => neighbours[radio.key].cells.map((cell) => neighbourRow(radio, cell)));
  const ages = answered.map((radio) => `${radio.name} ${ageText(neighbours[radio.key].age)} ago`);
  $("neighbours-say").textContent = answered.length === 0
    ? "No scan was answered."
    : `${rows.length === 0 ? "None found. " : ""}Scanned: ${ages.join(", ")}`;
  $("neighbours").tBodies[0].replaceChildren(...rows);
  $("neighbours").hidden = rows.length === 0;
}

function scanText(radio, cells) {
  return cells === undefined ? `${radio} scan failed` : `${radio} scan: ${cells} neighbour${cells === 1 ? "" : "s"}`;
}

/* Events */

function eventText(event) {
  const name = event.event || event.type;
  if (EVENTS[name]) {
    return EVENTS[name](event);
  }
  const fields = Object.entries(event).filter(([field]) => !HEAD.has(field));
  const texts = fields.map(([field, value]) => (field === "value" ? orDash(value) : `${field} ${orDash(value)}`));
  return [name, ...texts].join(" ").replaceAll("_", " ");
}

function showEvent(event) {
  if (MEASUREMENTS.has(event.event)) {
    return;
  }
  const line = document.createElement("li");
  const time = document.createElement("time");
  const text = document.createElement("span");
  time.dateTime = event.time;
  time.textContent = new Date(event.time).toLocaleTimeString([], {hourCycle: "h23"});
  text.textContent = eventText(event);
  line.append(time, text);
  $("events").prepend(line);
  while ($("events").children.length > EVENTS_SHOWN) {
    $("events").lastElementChild.remove();
  }
  $("events").hidden = false;
  $("events-none").hidden = true;
}

function clearEvents() {
  $("events").replaceChildren();
  $("events").hidden = true;
  $("events-none").hidden = false;
}

/* How it stands */

const connected = () => stream !== null && stream.readyState === EventSource.OPEN;

// Seconds since the modem answered anything; null: it never did.
function age() {
  return last === null || last.age === undefined ? null : last.age + (performance.now() - lastAt) / 1000;
}

function standing(old) {
  if (!connected()) {
    return last === null ? ["waits", "Connecting"] : ["gone", "No connection"];
  }
  if (last === null) {
    return ["waits", "Waiting"];
  }
  if (last.state === "starting") {
    return ["waits", "Modem starts"];
  }
  return last.up ? [old ? "waits" : "live", old ? "No answer" : "Live"] : ["gone", "Modem gone"];
}

function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

function showState() {
  const seconds = age();
  const old = seconds !== null && seconds > Math.max(AGE_TOLD_S, OLD_INTERVALS * interval / 1000);
  const [kind, text] = standing(old);
  const told = seconds !== null && (seconds >= AGE_TOLD_S || !connected());
  document.body.classList.toggle("old", kind !== "live");
  $("state").className = kind;
  setText($("state-text"), text);
  setText($("state-age"), told ? `${ageText(seconds)} old` : "");
}

/* Snapshots */

function takeMeasurements(snapshot) {
  const now = performance.now();
  forEachGauge((radio, gauge, key) => {
    const value = (snapshot[radio.key] || {})[gauge.key];
    if (value !== undefined) {
      remember(key, now, inUnit(gauge, value));
      offerBest(gauge, gauges[key], inUnit(gauge, value));
    }
  });
}

function takeSnapshot(snapshot) {
  if (last !== null && last.board !== snapshot.board) {
    location.reload();  // another board at the same address: nothing here is of it
    return;
  }
  last = snapshot;
  lastAt = performance.now();
  takeMeasurements(snapshot);
  if (!due) {
    due = true;
    requestAnimationFrame(draw);
  }
}

// However fast snapshots come, each of the screen's frames shows one of them.
function draw() {
  due = false;
  setText($("board"), last.board);
  document.title = last.board;
  setText($("registration"), REGISTRATIONS[last.registration] || "–");
  for (const radio of RADIOS) {
    showCell(radio, last[radio.key] || {});
  }
  showNeighbours(last.neighbours || {});
  showState();
}

/* The stream */

function connect() {
  clearTimeout(again);
  if (stream !== null) {
    stream.close();
  }
  clearEvents();  // the stream begins with the last ones
  heardAt = performance.now();
  stream = new EventSource("api/events?snapshots");
  const follow = (type, take) => stream.addEventListener(type, (message) => {
    heardAt = performance.now();
    take(JSON.parse(message.data));
  });
  stream.addEventListener("error", () => {
    showState();
    // After some answers, 503 among them, a browser does not try again by itself.
    if (stream.readyState === EventSource.CLOSED) {
      clearTimeout(again);
      again = setTimeout(connect, AGAIN_MS);
    }
  });
  let fresh = false;  // opened, and what was measured before was not asked for
  stream.addEventListener("open", () => { fresh = true; });
  follow("snapshot", (snapshot) => {
    takeSnapshot(snapshot);
    if (fresh) {
      fresh = false;
      fillHistory().catch(() => {});
    }
  });
  follow("event", showEvent);
  follow("missed", showEvent);
}

function look() {
  const now = performance.now();
  if (connected() && now - heardAt > Math.max(SILENCE_MS, OLD_INTERVALS * interval)) {
    connect();
  }
  if (now - drawnAt >= 1000 && !document.hidden) {
    drawPlots();
  }
  showState();
}

makeCells();
GAUGES.forEach(makePlot);
$("forget").addEventListener("click", forgetBest);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", remakePlots);
document.addEventListener("visibilitychange", () => document.hidden || connect());
setInterval(look, 500);
connect();
