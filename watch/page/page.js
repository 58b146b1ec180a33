// SPDX-License-Identifier: Apache-2.0
// The page in an installer's hand: shows what the event stream brings, and says how old it is. Snapshots and events come
// over one stream, which the browser opens again by itself; what was measured before the page was opened is asked for
// once a connection.
"use strict";

const RADIOS = [{key: "lte", name: "LTE"}, {key: "nr5g", name: "NR 5G"}];
// The ends of the scales, in the unit shown, and how a record's number becomes it.
const GAUGES = [
  {key: "rsrp", name: "RSRP", unit: "dBm", least: -130, most: -60, scale: 1, digits: 0},
  {key: "sinr", name: "SINR", unit: "dB", least: -15, most: 35, scale: 0.1, digits: 1},
];
const REGISTRATIONS = {
  no_service: "No service", power_save: "Power save", limited: "Limited service",
  limited_regional: "Limited service in this region", lte: "LTE", lte_nr5g: "LTE with NR 5G", nr5g: "NR 5G",
};
const HISTORY_S = 600;
const EVENTS = 100;
// What is older than this many intervals looks old; two seconds at least.
const OLD_INTERVALS = 3;

const $ = (id) => document.getElementById(id);
const gauges = {};  // by radio and gauge: its elements and the best so far
const history = {};  // by radio and gauge: [{x: ms, y: value}]
const plots = {};
let stream = null;
let last = null;  // the newest snapshot
let lastAt = 0;  // when it came, by this machine's monotonic clock
let interval = 1000;

const sameOrDash = (value) => (value === undefined ? "–" : String(value));
const formatted = (gauge, value) => (value * gauge.scale).toFixed(gauge.digits).replace("-", "−");

/* Serving cells */

function makeGauge(radio, gauge, parent) {
  const element = $("gauge").content.firstElementChild.cloneNode(true);
  const find = (name) => element.querySelector("." + name);
  find("name").textContent = gauge.name;
  find("unit").textContent = gauge.unit;
  find("least").textContent = String(gauge.least).replace("-", "−");
  find("most").textContent = String(gauge.most).replace("-", "−");
  const scale = find("scale");
  scale.setAttribute("aria-label", `${radio.name} ${gauge.name}`);
  scale.setAttribute("aria-valuemin", gauge.least);
  scale.setAttribute("aria-valuemax", gauge.most);
  parent.append(element);
  gauges[radio.key + gauge.key] = {
    element, number: find("number"), scale, mark: find("mark"), bestMark: find("best"), soFar: find("so-far"), best: null,
  };
}

function makeCells() {
  for (const radio of RADIOS) {
    const cell = $("cell").content.firstElementChild.cloneNode(true);
    cell.classList.add(radio.key);
    cell.id = "cell-" + radio.key;
    cell.querySelector("h2").textContent = radio.name;
    $("cells").append(cell);
    for (const gauge of GAUGES) {
      makeGauge(radio, gauge, cell.querySelector(".measured"));
      history[radio.key + gauge.key] = [];
    }
  }
}

function place(gauge, value) {
  const part = (value * gauge.scale - gauge.least) / (gauge.most - gauge.least);
  return `${Math.min(Math.max(part, 0), 1) * 100}%`;
}

function showBest(gauge, shown) {
  shown.bestMark.hidden = shown.best === null;
  shown.soFar.textContent = "best " + (shown.best === null ? "–" : formatted(gauge, shown.best));
  if (shown.best !== null) {
    shown.bestMark.style.left = place(gauge, shown.best);
  }
}

function showGauge(gauge, shown, value) {
  shown.mark.hidden = value === undefined;
  if (value === undefined) {
    shown.number.textContent = "–";
    shown.scale.removeAttribute("aria-valuenow");
    shown.scale.setAttribute("aria-valuetext", "not measured");
    return;
  }
  shown.number.textContent = formatted(gauge, value);
  shown.mark.style.left = place(gauge, value);
  shown.scale.setAttribute("aria-valuenow", (value * gauge.scale).toFixed(gauge.digits));
  shown.scale.setAttribute("aria-valuetext", `${formatted(gauge, value)} ${gauge.unit}`);
  if (shown.best === null || value > shown.best) {
    shown.best = value;
    showBest(gauge, shown);
  }
}

function bandsOf(radio, item) {
  return item.bands ? item.bands.map((band) => (radio.key === "lte" ? "B" : "n") + band).join("/") : "–";
}

function showCell(radio, item) {
  const cell = $("cell-" + radio.key);
  const shown = Object.keys(item).length > 0;
  cell.querySelector(".who").textContent = shown
    ? `${sameOrDash(item.plmn)} · ${bandsOf(radio, item)} · channel ${sameOrDash(item.channel)} · PCI ${sameOrDash(item.pci)}` +
      ` · cell ${sameOrDash(item.cgi)}`
    : "not serving";
  cell.querySelector(".more").textContent = shown
    ? `RSRQ ${sameOrDash(item.rsrq)} dB · CQI ${item.cqi ? item.cqi.map((carrier) => carrier.join("/")).join(" ") : "–"}` +
      ` · RRC ${sameOrDash(item.rrc)}`
    : "";
  for (const gauge of GAUGES) {
    showGauge(gauge, gauges[radio.key + gauge.key], item[gauge.key]);
  }
}

/* Plots */

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
}

function makePlot(gauge) {
  const datasets = RADIOS.map((radio) => ({
    label: radio.name, data: history[radio.key + gauge.key], borderColor: colour(radio.key), backgroundColor: colour(radio.key),
    borderDash: radio.key === "nr5g" ? [6, 3] : [], borderWidth: 2, pointRadius: 0, spanGaps: false, parsing: false,
  }));
  const grid = {color: colour("line")};
  plots[gauge.key] = new Chart($("plot-" + gauge.key), {
    type: "line",
    data: {datasets},
    options: {
      animation: false, maintainAspectRatio: false, normalized: true, events: [],
      plugins: {legend: {display: false}, tooltip: {enabled: false}},
      scales: {
        x: {type: "linear", grid, ticks: {color: colour("quiet"), stepSize: 120000, maxRotation: 0,
            callback: (value) => { const ago = Math.round((value - plots[gauge.key].now) / 60000); return ago === 0 ? "now" : `${ago} min`; }}},
        y: {grid, suggestedMin: gauge.least / 2 + gauge.most / 2 - 10, suggestedMax: gauge.least / 2 + gauge.most / 2 + 10,
            ticks: {color: colour("quiet")}},
      },
    },
  });
}

function drawPlots(now) {
  for (const gauge of GAUGES) {
    const plot = plots[gauge.key];
    plot.now = now;
    plot.options.scales.x.min = now - HISTORY_S * 1000;
    plot.options.scales.x.max = now;
    for (const radio of RADIOS) {
      const points = history[radio.key + gauge.key];
      while (points.length && points[0].x < now - HISTORY_S * 1000) {
        points.shift();
      }
    }
    plot.update("none");
  }
}

// A gap between two measurements is drawn as one.
function remember(radio, gauge, at, value) {
  const points = history[radio.key + gauge.key];
  const before = points[points.length - 1];
  if (before && at - before.x > Math.max(5000, 3 * interval) && before.y !== null) {
    points.push({x: before.x + 1, y: null});
  }
  points.push({x: at, y: value * gauge.scale});
}

async function fillHistory() {
  const answer = await fetch("api/history", {cache: "no-store"});
  const told = await answer.json();
  const end = Date.parse(told.time);
  interval = told.every * 1000;
  for (const radio of RADIOS) {
    for (const gauge of GAUGES) {
      history[radio.key + gauge.key].length = 0;
      for (const [ago, value] of (told[radio.key] || {})[gauge.key] || []) {
        remember(radio, gauge, end - ago * 1000, value);
      }
    }
  }
  drawPlots(end);
}

function remakePlots() {
  for (const gauge of GAUGES) {
    plots[gauge.key].destroy();
    makePlot(gauge);
  }
}

/* Neighbours */

function showNeighbours(neighbours) {
  const rows = [];
  for (const radio of RADIOS) {
    for (const cell of ((neighbours || {})[radio.key] || {}).cells || []) {
      const row = document.createElement("tr");
      const texts = [radio.name, cell.channel, cell.pci, cell.rsrp, cell.rsrq, (cell.plmns || []).join(" ") || undefined];
      row.append(...texts.map((text) => {
        const field = document.createElement("td");
        field.textContent = sameOrDash(text);
        return field;
      }));
      rows.push(row);
    }
  }
  $("neighbours").tBodies[0].replaceChildren(...rows);
  $("neighbours").hidden = rows.length === 0;
  $("neighbours-none").hidden = rows.length !== 0;
}

/* Events */

const HEAD = new Set(["type", "time", "board", "id", "event", "radio", "location"]);

function showEvent(event) {
  const line = document.createElement("li");
  const time = document.createElement("time");
  const text = document.createElement("span");
  time.dateTime = event.time;
  time.textContent = new Date(event.time).toLocaleTimeString([], {hour12: false});
  const fields = Object.entries(event).filter(([name]) => !HEAD.has(name));
  text.textContent = event.type === "missed"
    ? `${event.count} events were missed`
    : [event.event.replaceAll("_", " "), ...fields.map(([name, value]) => (name === "value" ? value : `${name} ${value}`))].join(" ");
  line.append(time, text);
  $("events").prepend(line);
  $("events-none").hidden = true;
  while ($("events").children.length > EVENTS) {
    $("events").lastElementChild.remove();
  }
}

/* How it stands */

function setState(kind, text) {
  const state = $("state");
  if (state.textContent !== text) {
    state.className = kind;
    state.textContent = text;
  }
}

function ageInSeconds() {
  return (last.age || 0) + (performance.now() - lastAt) / 1000;
}

function showState() {
  const connected = stream !== null && stream.readyState === EventSource.OPEN;
  const seconds = last === null ? null : ageInSeconds();
  const old = seconds !== null && seconds > Math.max(2, OLD_INTERVALS * interval / 1000);
  document.body.classList.toggle("old", !connected || old);
  if (!connected) {
    setState("gone", last === null ? "Connecting" : `No connection, ${Math.floor(seconds)} s old`);
  } else if (last === null) {
    setState("waits", "Waiting");
  } else if (last.state === "starting") {
    setState("waits", "Modem starts");
  } else if (!last.up) {
    setState("gone", "Modem gone");
  } else if (old) {
    setState("waits", `${Math.floor(seconds)} s old`);
  } else {
    setState("live", "Live");
  }
}

function showSnapshot(snapshot) {
  last = snapshot;
  lastAt = performance.now();
  const now = Date.parse(snapshot.time);
  document.title = snapshot.board;
  $("board").textContent = snapshot.board;
  $("registration").textContent = REGISTRATIONS[snapshot.registration] || (snapshot.up ? "" : "–");
  for (const radio of RADIOS) {
    const item = snapshot[radio.key] || {};
    showCell(radio, item);
    for (const gauge of GAUGES) {
      if (item[gauge.key] !== undefined) {
        remember(radio, gauge, now, item[gauge.key]);
      }
    }
  }
  showNeighbours(snapshot.neighbours);
  drawPlots(now);
  showState();
}

/* The stream */

function connect() {
  stream = new EventSource("api/events?snapshots");
  stream.addEventListener("open", () => { fillHistory().catch(() => {}); showState(); });
  stream.addEventListener("error", () => {
    showState();
    // After some answers, 503 among them, a browser does not try again by itself.
    if (stream.readyState === EventSource.CLOSED) {
      setTimeout(connect, 2000);
    }
  });
  stream.addEventListener("snapshot", (message) => showSnapshot(JSON.parse(message.data)));
  stream.addEventListener("event", (message) => showEvent(JSON.parse(message.data)));
  stream.addEventListener("missed", (message) => showEvent(JSON.parse(message.data)));
}

function forgetBest() {
  for (const radio of RADIOS) {
    for (const gauge of GAUGES) {
      const shown = gauges[radio.key + gauge.key];
      const value = last === null ? undefined : (last[radio.key] || {})[gauge.key];
      shown.best = value === undefined ? null : value;
      showBest(gauge, shown);
    }
  }
}

makeCells();
GAUGES.forEach(makePlot);
$("forget").addEventListener("click", forgetBest);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", remakePlots);
setInterval(showState, 500);
connect();
