// The page: what is opened, shown and pressed.
//
// A card is there whole, in part (`held`: footage in the page, of some spans), or not at all (`readable` is false: a list and
// pictures).
const source = new CardSource(showUnread);
const given = JSON.parse(byId("given").textContent); // by the tool: a list and pictures, or files to read
let openings = 0, list = null, cardName = "card", thumbs = [], readable = false, held = null;
let span = null, shownKinds = new Set(EVENT_KINDS.map(([kind]) => kind)), saving = null;

const player = new Player(byId("video"), source, { moment: showMoment, state: showState, fault: showFault });
const preview = new Preview(source, byId("tipPicture"));
const scrubPreview = new Preview(source, byId("scrub"));
const line = new Timeline(byId("line"), { seek: goTo, scrub: scrubTo, hover: showTip, select: setSpan, view: showView });

// ---- opening

function notice(text) { byId("notice").textContent = text; byId("notice").hidden = !text; }

async function openFiles(picked) {
  if (!picked) return notice("There is no file of a recording card in what you picked.");
  notice("Reading " + picked.name + " …");
  player.close(); preview.clear(); scrubPreview.clear();
  const opening = ++openings;
  try {
    const opened = await source.open(picked.files);
    if (opening !== openings) return; // another card was picked meanwhile
    readable = true;
    cardName = picked.name;
    thumbs = picked.thumbs || [];
    list = opened.list;
    if (picked.wholeDirectory === false) list.wholeDirectory = false;
    held = picked.held || null;
    if (held && list.sections.every(s => holds(s.start, s.end))) held = null;
    showCard(list);
  } catch (error) {
    if (opening !== openings) return;
    readable = false;
    notice("This is not a recording card that can be read. " + error.message);
  }
}

// Whether what was recorded from second `from` to `to` can be played; where nothing was recorded, there is nothing to miss.
function holds(from, to = from) {
  if (!readable || !held) return readable;
  return list.sections.every(s => {
    const begin = Math.max(Math.floor(from), s.start), end = Math.min(Math.floor(to), s.end);
    return begin > end || held.some(([a, b]) => a <= begin && end <= b);
  });
}

function showCard(found) {
  list = found;
  byId("card").textContent = cardName;
  byId("start").hidden = byId("thumb").hidden = true;
  byId("viewer").hidden = byId("reopen").hidden = false;
  document.body.classList.toggle("overview", !readable);
  document.body.classList.toggle("partial", held !== null);
  span = null;
  showSpan();
  player.show(list);
  line.now = null;
  line.show(list, held);
  showLosses();
  drawFacts(); drawDays(); drawFilter();
  showState();
  byId("moment").textContent = "–";
  if (!list.sections.length) return;
  const newest = list.sections[list.sections.length - 1];
  if (!held) return goTo(Math.max(newest.start, list.end - 10), true);
  const [from, to] = [held[0][0], held[held.length - 1][1]], margin = Math.max((to - from) * .1, 10);
  line.look(from - margin, to + margin);
  goTo(from);
}

byId("openFolder").onclick = () => byId("folder").click();
byId("openFiles").onclick = () => byId("files").click();
byId("reopen").onclick = () => { player.pause(); byId("viewer").hidden = true; byId("start").hidden = false; byId("openFolder").focus(); };
for (const id of ["folder", "files"]) {
  byId(id).onchange = e => { const files = [...e.target.files]; e.target.value = ""; openFiles(cardFiles(files)); };
}
addEventListener("resize", () => showTip(null));
addEventListener("dragover", e => { e.preventDefault(); document.body.classList.add("dragging"); });
addEventListener("dragleave", e => { if (!e.relatedTarget) document.body.classList.remove("dragging"); });
addEventListener("drop", async e => {
  e.preventDefault();
  document.body.classList.remove("dragging");
  openFiles(cardFiles(await droppedFiles(e.dataTransfer)));
});

// ---- moving about

async function goTo(t, about = false) {
  if (!list || !list.sections.length) return;
  byId("scrub").hidden = true;
  scrubPreview.cancel();
  byId("message").hidden = true;
  byId("thumb").hidden = true;
  t = Math.min(Math.max(t, list.start), list.end + .99);
  showMoment(t);
  if (playable(t)) return player.seek(t, about);
  player.close();
  showThumb(t);
}

// At `t`, or where recording went on after it.
function playable(t) {
  const section = list.sections[player.sectionAt(t)];
  return holds(section ? Math.max(t, section.start) : t);
}
const heldSeconds = () => line.held.reduce((sum, [from, to]) => sum + to - from, 0);

function scrubTo(t) {
  player.pause();
  line.follow(t);
  scrubPreview.ask(playable(t) ? player.sectionAt(t) : -1, t, shown => { byId("scrub").hidden = !shown; });
  byId("moment").textContent = dateText(t) + " " + tenthsText(t);
}

const now = () => line.now === null ? list.start : line.now;
function goEvent(later) {
  const events = line.events, t = now();
  const event = later ? events.find(e => e.start > t + .5) : events.findLast(e => e.start < t - 1.5);
  if (event) goTo(event.start);
}
function goSection(later) {
  const t = now(), starts = line.sections.map(s => s.start);
  const start = later ? starts.find(s => s > t + .5) : starts.findLast(s => s < t - 1.5);
  if (start !== undefined) goTo(start);
}
function step(by) {
  if (readable) return player.step(by);
  const t = now(), thumb = by > 0 ? thumbs.find(x => x.time > t) : thumbs.findLast(x => x.time < t);
  if (thumb) goTo(thumb.time);
}
function togglePlay() {
  if (!readable) return;
  if (!playable(now())) { // on to the next footage that is there
    goTo((held.find(([from]) => from > now()) || held[0])[0]).then(() => player.play());
  } else if (player.paused) { if (player.video.ended) goTo(list.start); player.play(); } else player.pause();
}
function changeRate(by) {
  const rate = byId("rate");
  rate.selectedIndex = Math.min(Math.max(rate.selectedIndex + by, 0), rate.options.length - 1);
  player.setRate(+rate.value);
}

function showMoment(t) {
  byId("moment").textContent = dateText(t) + " " + tenthsText(t);
  if (document.activeElement !== byId("when")) byId("when").value = inputTime(t);
  line.follow(t);
  const section = list.sections.findIndex(s => t >= s.start && t < s.end + 1);
  byId("line").setAttribute("aria-valuemin", Math.floor(list.start));
  byId("line").setAttribute("aria-valuemax", Math.ceil(list.end));
  byId("line").setAttribute("aria-valuenow", Math.floor(t));
  byId("line").setAttribute("aria-valuetext", dateText(t) + " " + clockText(t) + (section < 0 ? ", " + emptyText(t) : ""));
  const day = String(dayOf(t));
  for (const row of byId("days").children) {
    const current = row.dataset.day === day;
    if (current !== (row.getAttribute("aria-current") === "true")) row.setAttribute("aria-current", current);
  }
}

function showState() {
  const playing = !player.paused && !player.video.ended;
  byId("play").querySelector("path").setAttribute("d", playing ? "M6 4h4v16H6zM14 4h4v16h-4z" : "M7 4v16l13-8z");
  byId("play").setAttribute("aria-label", playing ? "Pause" : "Play");
  byId("mute").textContent = player.rate > MUTED_ABOVE ? "No sound at this speed" : player.video.muted ? "Sound off" : "Sound on";
  byId("mute").setAttribute("aria-pressed", player.video.muted);
  for (const id of ["play", "png", "save"]) byId(id).disabled = !readable || (id === "save" && !span);
}
function showFault(text) { byId("message").textContent = text; byId("message").hidden = false; }

function showView() {
  const [from, to] = line.view;
  byId("range").textContent = dateText(from) === dateText(to) ? dateText(from) + " " + clockText(from) + " – " + clockText(to)
    : to - from > 3 * DAY ? dateText(from) + " – " + dateText(to) : dateText(from) + " " + clockText(from).slice(0, 5) + " – " + dateText(to) + " " + clockText(to).slice(0, 5);
}

// ---- previews

function showTip(t, x) {
  const tip = byId("tip");
  if (t === null || !list) { preview.cancel(); tip.hidden = true; return; }
  const section = list.sections.findIndex(s => t >= s.start && t < s.end + 1);
  const event = line.events.find(e => t >= e.start && t <= Math.max(e.end, e.start + 1));
  byId("tipTime").textContent = clockText(t) + (section < 0 ? " – " + emptyText(t) : event ? " – " + event.kind : held && !holds(t) ? " – not in this page" : "");
  tip.hidden = false;
  tip.style.left = Math.min(Math.max(x - 98, 0), Math.max(byId("line").clientWidth - 196, 0)) + "px";
  const thumb = holds(t) ? null : thumbAt(t);
  byId("tipThumb").hidden = !thumb;
  if (thumb) byId("tipThumb").src = thumb.address;
  preview.ask(holds(t) ? section : -1, t, shown => { byId("tipPicture").hidden = !shown; });
}

// Of those that the tool put in: the picture nearest to `t` in what was recorded then.
function thumbAt(t) {
  const section = list.sections.findIndex(s => t >= s.start && t < s.end + 1);
  let best = null;
  for (const thumb of thumbs) if (thumb.section === section && (!best || Math.abs(thumb.time - t) < Math.abs(best.time - t))) best = thumb;
  return best;
}

function showThumb(t) {
  const best = thumbAt(t), recorded = list.sections.some(s => t >= s.start && t < s.end + 1);
  byId("thumb").hidden = !best;
  if (best) { byId("thumb").src = best.address; byId("thumb").alt = "Picture of " + clockText(best.time); }
  showFault((best ? "Picture of " + clockText(best.time) : recorded ? "No picture of this is kept here" : "Nothing was recorded then") +
    (!held ? ". This page is an overview; open the card in it to play." : recorded ? ". The footage of it is not in this page." : "."));
}

// ---- span and saving

function setSpan(wanted) {
  span = wanted && wanted[1] >= wanted[0] ? wanted : null;
  showSpan();
}
function setSpanEnd(which) {
  const t = now();
  if (which === 0) setSpan([t, span && span[1] > t ? span[1] : t + 10]); else setSpan([span && span[0] < t ? span[0] : t - 10, t]);
}
function showSpan() {
  line.span = span;
  line.draw();
  byId("clearSpan").hidden = byId("commandRow").hidden = !span;
  byId("spanText").textContent = !span ? "Choose a span: set start and end, or drag on the scale"
    : dateText(span[0]) + " " + clockText(span[0]) + " – " + clockText(span[1]) + " (" + durationText(Math.floor(span[1]) - Math.floor(span[0]) + 1) + ")";
  if (span) byId("command").textContent = exportCommand(cardName, span);
  byId("saveNote").hidden = true;
  showState();
}

async function save() {
  if (saving) { saving.stop = true; return; }
  if (!span || !readable) return;
  const note = byId("saveNote"), button = byId("save");
  note.hidden = false;
  if (!holds(...span)) { note.textContent = "Not all of this is in this page. The command saves it from the card."; return; }
  const own = saving = { stop: false };
  try {
    const files = await saveClip(source, span, part => {
      button.textContent = "Stop (" + Math.round(100 * part) + " %)";
      return !own.stop;
    });
    if (!files) note.textContent = "Stopped; nothing was saved.";
    else if (!files.length) note.textContent = "Nothing in this span can be saved: it has no whole picture.";
    else {
      files.forEach((file, i) => download(file.blob, "clip_" + fileTime(file.start) + (i ? "-" + (i + 1) : "") + ".mp4"));
      note.textContent = "Saved " + counted(files.length, "file") + ": " + files.map(f => counted(f.pictures, "picture") + ", " + sizeText(f.blob.size)).join("; ") +
        ". It begins with the key frame before the start." + (files.some(f => f.sound.endsWith("law")) ? " Its sound is FLAC (lossless), which browsers and most players know; the command below makes AAC, for those that do not." : "");
    }
  } catch (error) {
    note.textContent = error.message;
  }
  saving = null;
  button.textContent = "Save clip";
}

async function savePicture() {
  if (!player.video.videoWidth || player.moment === null) return showFault("There is no picture to save.");
  download(await pictureOf(player.video), "picture_" + fileTime(player.moment) + ".png");
}

function copyCommand() {
  const text = byId("command").textContent, select = () => getSelection().selectAllChildren(byId("command"));
  const done = () => { byId("copy").textContent = "Copied"; setTimeout(() => { byId("copy").textContent = "Copy"; }, 1500); };
  if (navigator.clipboard) navigator.clipboard.writeText(text).then(done, select); else select();
}

// ---- buttons and keys

function toggleTheme() {
  const root = document.documentElement;
  const dark = root.dataset.theme ? root.dataset.theme === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
  root.dataset.theme = dark ? "light" : "dark";
  line.draw();
}
matchMedia("(prefers-color-scheme: dark)").onchange = () => line.draw();
function toggleMute() {
  player.silent = !player.video.muted;
  player.video.muted = player.silent || player.rate > MUTED_ABOVE;
  showState();
}
function showZone() {
  byId("zone").replaceChildren(make("span", null, "Times: ", { className: "wide" }), zone.name());
  if (!list) return;
  drawFacts(); drawDays(); drawEvents(); showView(); showSpan();
  if (line.now !== null) showMoment(line.now);
}
const showAll = () => line.look(line.range[0], line.range[1]);

const actions = {
  play: togglePlay, stepBack: () => step(-1), stepOn: () => step(1), eventBack: () => goEvent(false), eventOn: () => goEvent(true),
  png: savePicture, mute: toggleMute, all: showAll, left: () => line.shift(-.5), right: () => line.shift(.5), zoomIn: () => line.zoom(.5),
  zoomOut: () => line.zoom(2), setFrom: () => setSpanEnd(0), setTo: () => setSpanEnd(1), clearSpan: () => setSpan(null), save, copy: copyCommand,
  theme: toggleTheme, zone: () => { zone.utc = !zone.utc; showZone(); },
};
for (const [id, action] of Object.entries(actions)) byId(id).onclick = action;
byId("rate").onchange = () => player.setRate(+byId("rate").value);
byId("goto").onsubmit = e => {
  e.preventDefault();
  goTo(fromInput(byId("when").value));
};

const keys = {
  " ": togglePlay, k: togglePlay, ArrowLeft: () => goTo(now() - 5), ArrowRight: () => goTo(now() + 5), ",": actions.stepBack, ".": actions.stepOn,
  e: actions.eventOn, E: actions.eventBack, "[": () => goSection(false), "]": () => goSection(true), z: actions.zoomOut, Z: actions.zoomIn, 0: showAll,
  "+": () => changeRate(1), "=": () => changeRate(1), "-": () => changeRate(-1), i: actions.setFrom, o: actions.setTo, s: save, p: savePicture, m: toggleMute,
  t: toggleTheme, T: toggleTheme, Home: () => goTo(list.start), End: () => goTo(list.end), Escape: () => setSpan(null),
};
addEventListener("keydown", e => {
  const typing = ["INPUT", "SELECT"].includes(e.target.tagName), pressing = e.target.tagName === "BUTTON" && (e.key === " " || e.key === "Enter");
  const action = keys[e.key];
  if (!action || typing || pressing || e.ctrlKey || e.metaKey || e.altKey || (!list && action !== toggleTheme)) return;
  e.preventDefault();
  action();
});

// ---- what the tool put in

if (given && given.zone) zone.table = given.zone;
showZone();
if (given && given.files && !given.held) {
  const files = given.files.map(file => ({ path: file.path, url: new URL(file.url, location.href).href, size: file.size }));
  openFiles({ name: given.name, files, wholeDirectory: given.wholeDirectory });
} else if (given && given.list) {
  showGiven();
}

// An overview; with footage, a card that is there in part, unless this browser cannot read it.
async function showGiven() {
  const pictures = given.thumbs.map(x => ({ ...x, address: "data:image/jpeg;base64," + x.jpeg })).sort((a, b) => a.time - b.time);
  if (given.held) {
    await openFiles({ name: given.name, files: filesInPage(given.files), held: given.held, thumbs: pictures });
    if (readable) return;
  }
  cardName = given.name;
  thumbs = pictures;
  showCard(given.list);
}
