// What the page asks for, one request after the other.  Worker.
const PIECE_BYTES = 4 << 20;
const MEDIA_START = 10 * CLOCK; // decoding may begin a little in front of what is shown
const CHUNK_SECONDS = 2, CHUNK_BYTES = 6 << 20; // from key frame to key frame, at least and about

let card = null;
let unread = "[]"; // of the card, as told
let session = null; // of playing
let saving = null;

// The samples of a piece, moved by `by` ticks.
function videoSamples(piece, by, keysOnly) {
  const samples = [], data = [];
  let at = 0;
  for (const p of piece.pictures) {
    const begin = at;
    at += p.bytes;
    if (keysOnly && !p.key) continue;
    data.push(piece.video.subarray(begin, at));
    samples.push({ size: p.bytes, at: p.decoded + by, duration: piece.duration, key: p.key, offset: p.shown - p.decoded });
  }
  for (let i = 0; i + 1 < samples.length; ++i) samples[i].duration = Math.max(samples[i + 1].at - samples[i].at, 1);
  return { samples, data: keysOnly ? joinBytes(data) : piece.video };
}

function addSounds(line, piece, by) {
  let at = 0;
  for (const s of piece.sounds) line.add(piece.audio.subarray(at, at += s.bytes), s.at + by);
}

function soundSamples(line) {
  const out = line.take();
  return {
    samples: out.map(s => ({ size: s.data.length, at: s.at, duration: s.duration, key: true, offset: 0 })),
    data: joinBytes(out.map(s => s.data)),
  };
}

const sameSound = (a, b) => a.kind === b.kind && a.rate === b.rate && a.channels === b.channels;
const SILENCE = { kind: "alaw", rate: 8000, channels: 1, object: 0 };

// Key frames in groups that are read and timed together; always the same ones, so that a picture has one time.
function chunksOf(section) {
  const keys = card.keyFrames(section), chunks = [];
  for (let i = 0; i < keys.length;) {
    let last = i;
    while (last + 1 < keys.length && keys[last + 1].offset === keys[last].end && keys[last].end - keys[i].offset < CHUNK_BYTES && keys[last + 1].time - keys[i].time < CHUNK_SECONDS) ++last;
    chunks.push({ time: keys[i].time, begin: keys[i].offset, end: keys[last].end });
    i = last + 1;
  }
  return chunks;
}

// A stretch of the card as fragments, placed behind what this session has had so far.
function playNext({ section, begin, end, keysOnly, muted }) {
  const video = [], sound = [], pictures = [];
  card.feedStretch(PLAY_FEED, section, begin, end);
  const startsAt = session.cursor;
  let by = 0, videoType = null;
  for (let piece; (piece = card.next(PLAY_FEED, PIECE_BYTES));) {
    if (piece.pictures.length === 0) continue;
    if (piece.first) {
      by = session.cursor - Math.min(...piece.pictures.map(p => p.shown));
      const name = piece.codec + ":" + piece.config.join();
      if (name !== session.config) video.push(initSegment(videoTrack(piece)));
      session.config = name;
      videoType = 'video/mp4; codecs="' + piece.codec + '"';
    }
    const { samples, data } = videoSamples(piece, by, keysOnly);
    let shownEnd = session.cursor;
    for (const p of piece.pictures) {
      shownEnd = Math.max(shownEnd, p.shown + by + piece.duration);
      if (!keysOnly || p.key) pictures.push([(p.shown + by) / CLOCK, p.real / CLOCK, p.key]);
    }
    if (keysOnly && samples.length) samples[samples.length - 1].duration = shownEnd - samples[samples.length - 1].at;
    session.cursor = shownEnd;
    if (samples.length) video.push(fragment({ id: VIDEO_ID }, samples, data, ++session.number));
    if (muted) continue;
    const format = piece.sound.kind !== "none" ? piece.sound : session.line ? session.line.format : SILENCE;
    if (!session.line || !sameSound(session.line.format, format)) {
      session.line = new SoundLine(format, true);
      session.line.position = session.line.samplesAt(startsAt);
      sound.push(initSegment(soundTrack(format)));
    }
    addSounds(session.line, piece, by);
    session.line.fill(session.cursor);
    const heard = soundSamples(session.line);
    if (heard.samples.length) sound.push(fragment({ id: SOUND_ID }, heard.samples, heard.data, ++session.number));
  }
  pictures.sort((a, b) => a[0] - b[0]);
  return {
    videoType, video: joinBytes(video), soundType: session.line ? soundType(session.line.format) : null, sound: joinBytes(sound),
    start: startsAt / CLOCK, end: session.cursor / CLOCK, pictures,
  };
}

// The end of what there is: the sound in waiting.
function playEnd() {
  if (!session.line) return { sound: new Uint8Array() };
  session.line.flush(1);
  const heard = soundSamples(session.line);
  return { sound: heard.samples.length ? fragment({ id: SOUND_ID }, heard.samples, heard.data, ++session.number) : new Uint8Array() };
}

// The key frame at or before `time` in a section, for a decoder.
function preview({ section, time }) {
  const keys = card.keyFrames(section);
  const key = keys.findLast(k => k.time <= time) || keys[0];
  if (!key) return null;
  card.feedStretch(PREVIEW_FEED, section, key.offset, key.end);
  const piece = card.next(PREVIEW_FEED, 1);
  if (!piece || !piece.first || piece.pictures.length === 0) return null;
  return { codec: piece.codec, config: piece.config, width: piece.width, height: piece.height, time: key.time, offset: key.offset,
    data: piece.video.slice(0, piece.pictures[0].bytes) };
}

// ---- saving: a file a part

function saveStart({ from, to }) {
  saving = { stretches: card.feedTimes(SAVE_FEED, from, to), file: null, line: null, files: [], pictures: 0 };
  return { stretches: saving.stretches };
}

function finishFile() {
  if (!saving.file) return;
  if (saving.line) {
    saving.line.flush(1);
    addHeard();
  }
  saving.files.push({ blob: saving.file.finish(), start: saving.start / CLOCK, pictures: saving.pictures, sound: saving.line ? saving.line.format.kind : "none" });
  saving.file = saving.line = null;
}

function addHeard() {
  const heard = soundSamples(saving.line);
  saving.file.add(saving.file.sound, heard.samples, heard.data);
}

function saveNext() {
  const piece = card.next(SAVE_FEED, PIECE_BYTES);
  if (!piece) {
    finishFile();
    const files = saving.files;
    saving = null;
    return { files };
  }
  if (piece.first) {
    finishFile();
    saving.start = piece.pictures[0].real;
    saving.file = new Mp4File(videoTrack(piece), saving.start);
    saving.pictures = 0;
  }
  const { samples, data } = videoSamples(piece, 0, false);
  saving.pictures += samples.length;
  saving.file.add(saving.file.video, samples, data);
  if (piece.sounds.length) {
    if (!saving.line) {
      saving.line = new SoundLine(piece.sound, false);
      saving.file.sound = new FileTrack(soundTrack(piece.sound));
    }
    addSounds(saving.line, piece, 0);
    addHeard();
  }
  return { done: piece.done, all: piece.all };
}

// ----

const requests = {
  async open({ files, compiled }) {
    card = await Card.open(files, compiled);
    unread = JSON.stringify(card.list.unread);
    return { list: card.list, bytesRead: card.source.bytesRead };
  },
  chunks: ({ section }) => chunksOf(section),
  playStart() {
    session = { cursor: Math.max(MEDIA_START, session ? session.cursor + CLOCK : 0), config: null, line: null, number: 0 };
    return session.cursor / CLOCK;
  },
  playNext, playEnd, preview, saveStart, saveNext,
  saveCancel() { saving = null; },
  statistics: () => ({ memory: card.module.HEAPU8.length, bytesRead: card.source.bytesRead }),
};

// What could not be read, if that is more than was told.
function moreUnread() {
  const known = unread;
  if (card) unread = JSON.stringify(card.unread());
  return unread === known ? undefined : JSON.parse(unread);
}

onmessage = async ({ data: { id, name, argument } }) => {
  try {
    const result = await requests[name](argument);
    postMessage({ id, result, unread: moreUnread() });
  } catch (error) {
    postMessage({ id, error: String(error.message || error), unread: moreUnread() });
  }
};
