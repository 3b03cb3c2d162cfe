// Beside the time line: what the card holds, its days and its events.

function drawFacts() {
  const facts = byId("facts");
  facts.replaceChildren();
  const say = (name, value) => { make("dt", facts, name); make("dd", facts, value); };
  const seconds = list.sections.reduce((sum, s) => sum + s.end - s.start, 0);
  if (list.sections.length) {
    say("Oldest", dateText(list.start) + " " + clockText(list.start));
    say("Newest", dateText(list.end) + " " + clockText(list.end));
  }
  say("Recorded", durationText(seconds));
  say("Size", sizeText(list.bytes));
  say("Record files", list.filesUsed + " of " + list.files + " used");
  if (list.keeps) say("A full card", durationText(list.keeps));
  say("Sections", list.sections.length);
  say("Gaps", list.gaps.length);
  if (held) say("In this page", durationText(heldSeconds()));
  const kinds = new Set(list.sections.map(s => s.video && s.video + " " + s.width + "×" + s.height + ", " + s.rate + " fps" + (s.audio ? ", " + s.audio : "")));
  kinds.delete("");
  [...kinds].slice(0, 4).forEach((kind, i) => say(i ? "" : "Video", kind));
}

function drawDays() {
  const days = new Map();
  const entry = day => { if (!days.has(day)) days.set(day, { parts: [], events: [], seconds: 0 }); return days.get(day); };
  for (const s of line.sections) {
    for (let day = dayOf(s.start); dayStart(day) < s.end; ++day) {
      const part = [Math.max(s.start, dayStart(day)), Math.min(s.end, dayStart(day + 1))];
      entry(day).parts.push(part);
      entry(day).seconds += part[1] - part[0];
    }
  }
  for (const e of list.events) entry(dayOf(e.start)).events.push(e);
  byId("days").replaceChildren();
  for (const day of [...days.keys()].sort((a, b) => b - a)) {
    const { parts, events, seconds } = days.get(day), start = dayStart(day), length = dayStart(day + 1) - start;
    const row = make("button", byId("days"), null, { type: "button", className: "day" });
    row.dataset.day = day;
    make("span", row, dateText(start));
    make("span", row, weekdayText(start).slice(0, 3), { className: "dim weekday", title: weekdayText(start) });
    const bar = make("span", row, null, { className: "bar" });
    let end = -1;
    for (const [from, to] of parts) {
      const left = Math.max((from - start) / length, end), right = Math.max((to - start) / length, left);
      if (right - end < .0008) continue; // less than a pixel
      const part = make("i", bar);
      part.style.left = 100 * left + "%";
      part.style.width = 100 * (right - left) + "%";
      end = right;
    }
    for (const [from, to] of line.held) {
      if (to <= start || from >= start + length) continue;
      const part = make("i", bar, null, { className: "held" });
      part.style.left = Math.max(100 * (from - start) / length, 0) + "%";
      part.style.width = 100 * (Math.min(to, start + length) - Math.max(from, start)) / length + "%";
    }
    for (const e of events.slice(0, 400)) make("u", bar, null, { className: kindOf(e.type) }).style.left = 100 * (e.start - start) / length + "%";
    make("span", row, durationText(seconds), { className: "dim sum" });
    row.onclick = () => { line.look(start, start + length); goTo(parts.length ? parts[0][0] : events[0].start); };
  }
  if (days.size === 0) make("p", byId("days"), "none", { className: "dim" });
}

const EVENTS_SHOWN = 1000;
function drawFilter() {
  byId("filter").replaceChildren();
  for (const [kind, text] of EVENT_KINDS) {
    const count = list.events.filter(e => kindOf(e.type) === kind).length;
    if (!count) continue;
    const button = make("button", byId("filter"), null, { type: "button", "aria-pressed": shownKinds.has(kind) });
    make("span", button, null, { className: "dot " + kind });
    button.append(text + " (" + count + ")");
    button.onclick = () => {
      if (shownKinds.has(kind)) shownKinds.delete(kind); else shownKinds.add(kind);
      button.setAttribute("aria-pressed", shownKinds.has(kind));
      drawEvents();
    };
  }
  drawEvents();
}

function drawEvents() {
  line.events = list.events.filter(e => shownKinds.has(kindOf(e.type)));
  line.draw();
  byId("eventCount").textContent = list.events.length ? line.events.length + " of " + list.events.length : "";
  byId("events").replaceChildren();
  for (const e of line.events.slice(-EVENTS_SHOWN).reverse()) {
    const row = make("button", byId("events"), null, { type: "button", className: "event" });
    make("span", row, null, { className: "dot " + kindOf(e.type) });
    make("span", row, dateText(e.start) + " " + clockText(e.start));
    make("span", row, e.kind, { className: "name" });
    make("span", row, e.open ? "still on" : durationText(e.end - e.start), { className: "dim" });
    row.onclick = () => { setSpan([e.start, Math.max(e.end, e.start)]); goTo(e.start); };
  }
  if (!line.events.length) make("p", byId("events"), list.events.length ? "none of these kinds" : "none on this card", { className: "dim" });
  if (line.events.length > EVENTS_SHOWN) make("p", byId("events"), "The " + EVENTS_SHOWN + " newest; earlier ones are on the time line.", { className: "dim" });
}
