// Times and sizes as the page shows them.  A time is seconds since 1970 UTC.
const DAY = 86400;
const two = n => String(n).padStart(2, "0");
const byId = id => document.getElementById(id);

// The zone that times are shown in: this computer's, UTC, or the one that a page with an overview was made in.
const zone = {
  utc: false,
  table: null, // [[from, seconds east], ...]
  offset(t) {
    if (zone.utc) return 0;
    if (!zone.table) return -60 * new Date(t * 1000).getTimezoneOffset();
    let seconds = zone.table[0][1];
    for (const [from, east] of zone.table) { if (from > t) break; seconds = east; }
    return seconds;
  },
  name() {
    const minutes = zone.offset(Date.now() / 1000) / 60, m = Math.abs(minutes);
    return minutes === 0 ? "UTC" : "UTC" + (minutes < 0 ? "−" : "+") + two(Math.floor(m / 60)) + ":" + two(m % 60);
  },
};

const local = t => t + zone.offset(t);
// Local seconds to time; in the hour that a clock change repeats, one of both.
function fromLocal(l) {
  const t = l - zone.offset(l);
  return l - zone.offset(t);
}
const dayOf = t => Math.floor(local(t) / DAY);
const dayStart = day => fromLocal(day * DAY);
const utcDate = l => new Date(l * 1000);
const dateText = t => utcDate(local(t)).toISOString().slice(0, 10);
const clockText = t => utcDate(local(t)).toISOString().slice(11, 19);
const tenthsText = t => clockText(t) + "." + Math.floor((t - Math.floor(t)) * 10);
const weekdayText = t => utcDate(local(t)).toLocaleDateString("en", { weekday: "long", timeZone: "UTC" });
const isoText = t => new Date(Math.floor(t) * 1000).toISOString().slice(0, 19) + "Z";
const fileTime = t => dateText(t) + "_" + clockText(t).replaceAll(":", "-");

// A time in the page's zone as an input of dates and times has it.  (Of such an input browsers do not ask anybody how it might be
// filled in; of a text they do.)
const inputTime = t => utcDate(local(Math.floor(t))).toISOString().slice(0, 19);
const fromInput = text => fromLocal(Date.parse(text + "Z") / 1000);

function durationText(s) {
  s = Math.round(s);
  if (s < 60) return s + " s";
  if (s < 3600) return Math.floor(s / 60) + " min" + (s % 60 ? " " + two(s % 60) + " s" : "");
  if (s >= 3 * DAY) return Math.round(s / DAY) + " days";
  return Math.floor(s / 3600) + " h" + (s % 3600 >= 60 ? " " + two(Math.floor(s / 60) % 60) + " min" : "");
}

function sizeText(bytes) {
  for (const unit of ["bytes", "KiB", "MiB"]) {
    if (bytes < 1024) return (unit === "bytes" ? bytes : bytes.toFixed(1)) + " " + unit;
    bytes /= 1024;
  }
  return bytes.toFixed(1) + " GiB";
}

const EVENT_KINDS = [["motion", "motion"], ["input", "input"], ["both", "input and motion"], ["smart", "smart event"]];
const kindOf = type => type & 32 ? "smart" : type & 8 || (type & 5) === 5 ? "both" : type & 4 ? "input" : "motion";
const counted = (n, what) => n + " " + what + (n === 1 ? "" : "s");

function make(tag, parent, text, set = {}) {
  const node = document.createElement(tag);
  if (text !== undefined && text !== null) node.textContent = text;
  for (const [name, value] of Object.entries(set)) {
    if (name.includes("-") || name === "role") node.setAttribute(name, value); else node[name] = value;
  }
  if (parent) parent.append(node);
  return node;
}
