// The time line: what was recorded, gaps, events, the chosen span and the present moment, from days down to seconds.
//
// Wheel and pinch zoom, drag moves, drag of the marker scrubs, Shift and drag (or a drag on the scale) chooses a span, a
// click goes there.
const SPAN_LEAST = 4; // s across the line
const TICKS = [1, 2, 5, 10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 14400, 21600, 43200, 86400, 172800, 604800, 2592000];
const RULER = 24, EVENTS = 16, CLICK_SLOP = 5;

class Timeline {
  // handlers: seek(t), scrub(t), hover(t, x) with null for none, select([from, to]), view()
  constructor(canvas, handlers) {
    this.canvas = canvas;
    this.handlers = handlers;
    this.sections = [];
    this.events = [];
    this.held = []; // [from, to) of what can be played, where that is not all
    this.range = [0, DAY];
    this.view = [0, DAY];
    this.now = null;
    this.span = null;
    this.hoverX = null;
    this.pointers = new Map();
    this.asked = false;
    new ResizeObserver(() => this.draw()).observe(canvas);
    canvas.addEventListener("wheel", e => this.wheel(e), { passive: false });
    canvas.addEventListener("pointerdown", e => this.down(e));
    canvas.addEventListener("pointermove", e => this.move(e));
    for (const type of ["pointerup", "pointercancel"]) canvas.addEventListener(type, e => this.up(e));
    canvas.addEventListener("pointerleave", () => this.hover(null));
  }

  // `held`: see ui.js.
  show(list, held) {
    this.sections = list.sections.map(s => ({ start: s.start, end: Math.max(s.end, s.start + 1), audio: s.audio })).sort((a, b) => a.start - b.start);
    this.longest = this.sections.reduce((most, s) => Math.max(most, s.end - s.start), 0);
    this.held = held ? this.sections.flatMap(s => held.map(([from, to]) => [Math.max(from, s.start), Math.min(to + 1, s.end)])).filter(([from, to]) => from < to) : [];
    const margin = Math.max((list.end - list.start) * .02, 5);
    this.range = [list.start - margin, list.end + margin];
    this.look(this.range[0], this.range[1]);
  }

  look(from, to) {
    const span = Math.min(Math.max(to - from, SPAN_LEAST), Math.max(this.range[1] - this.range[0], DAY));
    let begin = from + (to - from - span) / 2;
    begin = Math.min(Math.max(begin, this.range[0] - span * .5), this.range[1] - span * .5);
    this.view = [begin, begin + span];
    this.handlers.view();
    this.draw();
  }

  zoom(factor, t = this.now !== null && this.now > this.view[0] && this.now < this.view[1] ? this.now : (this.view[0] + this.view[1]) / 2) {
    this.look(t - (t - this.view[0]) * factor, t + (this.view[1] - t) * factor);
  }
  shift(part) {
    const by = part * (this.view[1] - this.view[0]);
    this.look(this.view[0] + by, this.view[1] + by);
  }
  // Keeps the present moment in sight while it plays.
  follow(t) {
    this.now = t;
    const span = this.view[1] - this.view[0];
    if (this.pointers.size === 0 && (t < this.view[0] || t > this.view[1])) this.look(t - span * .1, t + span * .9);
    else this.draw();
  }

  x(t) { return (t - this.view[0]) / (this.view[1] - this.view[0]) * this.canvas.clientWidth; }
  time(x) { return this.view[0] + x / this.canvas.clientWidth * (this.view[1] - this.view[0]); }

  // ---- input

  place(e) {
    const box = this.canvas.getBoundingClientRect();
    return { x: e.clientX - box.left, y: e.clientY - box.top };
  }
  wheel(e) {
    e.preventDefault();
    const across = e.shiftKey ? e.deltaY || e.deltaX : e.deltaX;
    if (Math.abs(across) > Math.abs(e.shiftKey ? 0 : e.deltaY)) return this.shift(across / this.canvas.clientWidth);
    this.zoom(Math.exp(Math.min(Math.max(e.deltaY, -200), 200) * .004), this.time(this.place(e).x));
  }
  down(e) {
    if (e.button !== 0) return;
    try { this.canvas.setPointerCapture(e.pointerId); } catch { /* an event that a script made has no pointer to hold */ }
    const { x, y } = this.place(e);
    this.pointers.set(e.pointerId, { x, from: x });
    const near = this.now !== null && Math.abs(x - this.x(this.now)) < 9;
    this.mode = this.pointers.size > 1 ? "pinch" : e.shiftKey || (y < RULER && e.pointerType === "mouse") ? "select" : near ? "scrub" : "click";
    this.grip = { view: [...this.view], time: this.time(x) };
  }
  move(e) {
    const { x } = this.place(e), pointer = this.pointers.get(e.pointerId);
    if (!pointer) return this.hover(x);
    pointer.x = x;
    if (this.mode === "pinch") return this.pinch();
    if (this.mode === "click" && Math.abs(x - pointer.from) > CLICK_SLOP) this.mode = "move";
    if (this.mode === "move") {
      const by = (pointer.from - x) / this.canvas.clientWidth * (this.grip.view[1] - this.grip.view[0]);
      this.look(this.grip.view[0] + by, this.grip.view[1] + by);
    } else if (this.mode === "select" && Math.abs(x - pointer.from) > CLICK_SLOP) {
      this.handlers.select([Math.min(this.grip.time, this.time(x)), Math.max(this.grip.time, this.time(x))]);
    } else if (this.mode === "scrub") {
      this.handlers.scrub(this.time(x));
    }
    if (this.mode !== "move") this.hover(x);
  }
  up(e) {
    const pointer = this.pointers.get(e.pointerId);
    if (!pointer) return;
    this.pointers.delete(e.pointerId);
    const still = Math.abs(pointer.x - pointer.from) <= CLICK_SLOP;
    if (e.type === "pointerup" && (this.mode === "scrub" || (still && (this.mode === "click" || this.mode === "select")))) {
      this.handlers.seek(this.time(pointer.x));
    }
    if (this.mode !== "pinch" || this.pointers.size === 0) this.mode = null;
    if (e.pointerType !== "mouse") this.hover(null);
  }
  pinch() {
    const [a, b] = [...this.pointers.values()];
    if (!b) return;
    const width = this.canvas.clientWidth, span = this.grip.view[1] - this.grip.view[0];
    if (!this.grip.pinch) this.grip = { view: [...this.view], pinch: [a.x, b.x] };
    const [from, to] = this.grip.pinch;
    const scale = Math.max(Math.abs(to - from), 20) / Math.max(Math.abs(b.x - a.x), 20);
    const middle = this.grip.view[0] + (from + to) / 2 / width * span;
    const left = middle - (a.x + b.x) / 2 / width * span * scale;
    this.look(left, left + span * scale);
  }
  hover(x) {
    this.hoverX = x;
    this.handlers.hover(x === null ? null : this.time(x), x);
    this.draw();
  }

  // ---- drawing

  draw() {
    if (this.asked) return;
    this.asked = true;
    requestAnimationFrame(() => { this.asked = false; this.paint(); });
  }

  paint() {
    const { canvas } = this, ratio = devicePixelRatio || 1, width = canvas.clientWidth, height = canvas.clientHeight;
    if (width === 0) return;
    if (canvas.width !== Math.round(width * ratio) || canvas.height !== Math.round(height * ratio)) {
      canvas.width = Math.round(width * ratio);
      canvas.height = Math.round(height * ratio);
    }
    const g = canvas.getContext("2d"), style = getComputedStyle(canvas);
    const colour = name => style.getPropertyValue("--" + name);
    g.setTransform(ratio, 0, 0, ratio, 0, 0);
    g.clearRect(0, 0, width, height);
    const top = RULER + EVENTS, bottom = height - 6;
    g.fillStyle = colour("empty");
    g.fillRect(0, top, width, bottom - top);
    this.paintScale(g, colour, width, bottom);
    this.paintSections(g, colour, top, bottom);
    this.paintEvents(g, colour);
    if (this.span) this.paintSpan(g, colour, height);
    if (this.hoverX !== null) { g.fillStyle = colour("dim"); g.fillRect(this.hoverX - .5, RULER, 1, bottom - RULER); }
    if (this.now !== null) {
      const x = this.x(this.now);
      g.fillStyle = colour("focus");
      g.fillRect(x - 1, RULER - 6, 2, height - RULER + 6);
      g.beginPath(); g.moveTo(x - 6, RULER - 8); g.lineTo(x + 6, RULER - 8); g.lineTo(x, RULER); g.fill();
    }
  }

  paintScale(g, colour, width, bottom) {
    const span = this.view[1] - this.view[0];
    const step = TICKS.find(s => s / span * width >= (s >= DAY ? 92 : s < 60 ? 74 : 58)) || TICKS[TICKS.length - 1];
    g.font = "11.5px system-ui, sans-serif";
    g.textBaseline = "middle";
    g.textAlign = "center";
    for (let l = Math.ceil(local(this.view[0]) / step) * step; l <= local(this.view[1]); l += step) {
      const t = fromLocal(l), x = this.x(t), midnight = l % DAY === 0;
      g.fillStyle = colour(midnight ? "dim" : "line");
      g.fillRect(x, RULER - 4, 1, bottom - RULER + 4);
      g.fillStyle = colour(midnight ? "text" : "dim");
      const text = midnight ? dateText(t) : step < 60 ? clockText(t) : clockText(t).slice(0, 5);
      const half = g.measureText(text).width / 2;
      if (midnight) g.fillText(text, Math.min(Math.max(x, half), width - half), 9);
      else if (x > half && x < width - half) g.fillText(text, x, 9);
    }
  }

  // Those that may reach into the view, as a range of indexes.
  visible() {
    const first = (t, list) => {
      let low = 0, high = list.length;
      while (low < high) { const middle = low + high >> 1; if (list[middle].start < t) low = middle + 1; else high = middle; }
      return low;
    };
    return [first(this.view[0] - this.longest, this.sections), first(this.view[1], this.sections)];
  }

  paintSections(g, colour, top, bottom) {
    const [from, to] = this.visible(), width = this.canvas.clientWidth;
    const recorded = colour(this.held.length ? "away" : "record");
    g.fillStyle = recorded;
    let painted = -1;
    for (let i = from; i < to; ++i) {
      const s = this.sections[i], left = Math.max(this.x(s.start), painted, -2);
      const right = Math.min(Math.max(this.x(s.end), this.x(s.start) + 1.5), width + 2);
      if (right <= left) continue;
      g.fillRect(left, top, right - left, bottom - top);
      painted = right;
      if (right - left > 6) { g.fillStyle = colour("seam"); g.fillRect(left, top, 1, bottom - top); g.fillStyle = recorded; }
    }
    g.fillStyle = colour("record");
    for (const [from, to] of this.held) {
      const left = Math.max(this.x(from), -2), right = Math.min(Math.max(this.x(to), this.x(from) + 1.5), width + 2);
      if (right > left) g.fillRect(left, top, right - left, bottom - top);
    }
  }

  paintEvents(g, colour) {
    for (const e of this.events) {
      const left = this.x(e.start), right = Math.max(this.x(e.end), left + 4);
      if (right < 0 || left > this.canvas.clientWidth) continue;
      g.fillStyle = colour(kindOf(e.type));
      g.beginPath();
      g.roundRect(left, RULER + 3, right - left, EVENTS - 6, 3);
      g.fill();
    }
  }

  paintSpan(g, colour, height) {
    const [left, right] = this.span.map(t => this.x(t));
    g.fillStyle = colour("span");
    g.fillRect(left, RULER, Math.max(right - left, 1), height - RULER);
    g.fillStyle = colour("focus");
    g.fillRect(left - 1, RULER, 2, height - RULER);
    g.fillRect(right - 1, RULER, 2, height - RULER);
  }
}
