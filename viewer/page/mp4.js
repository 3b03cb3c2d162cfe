// MP4 (ISO/IEC 14496-12): fragments for playing, whole files for saving.  Worker.
//
// A track is {id, kind: "video" | "sound", clock, entry, width, height}; a sample {size, at, duration, key, offset},
// `at` its time of decoding and `offset` from there to the time of showing.  A track's clock is what its times count in.
const VIDEO_ID = 1, SOUND_ID = 2;

function joinBytes(parts) {
  const all = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  let at = 0;
  for (const part of parts) { all.set(part, at); at += part.length; }
  return all;
}

// Of any number of values; negative ones stand modulo 2^32, as the format wants it.
function u32Column(values) {
  const bytes = new Uint8Array(4 * values.length), view = new DataView(bytes.buffer);
  values.forEach((value, i) => view.setUint32(4 * i, value));
  return bytes;
}
function u64Column(values) {
  const bytes = new Uint8Array(8 * values.length), view = new DataView(bytes.buffer);
  values.forEach((value, i) => view.setBigInt64(8 * i, BigInt(Math.round(value))));
  return bytes;
}
const u32s = (...values) => u32Column(values);
const u64s = (...values) => u64Column(values);
const u16s = (...values) => Uint8Array.from(values.flatMap(value => [value >> 8 & 255, value & 255]));
const ascii = text => Uint8Array.from(text, c => c.charCodeAt(0));
const zeros = count => new Uint8Array(count);

function box(type, ...parts) {
  const content = parts.map(part => part instanceof Uint8Array ? part : Uint8Array.from(part));
  const size = 8 + content.reduce((sum, part) => sum + part.length, 0);
  return joinBytes([u32s(size), ascii(type), ...content]);
}
const fullBox = (type, version, flags, ...parts) => box(type, u32s(version << 24 | flags), ...parts);

const UNITY = u32s(0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000);

// ---- sample entries

function videoTrack(piece) {
  const hevc = piece.codec.startsWith("hvc1");
  const entry = box(hevc ? "hvc1" : "avc1", zeros(6), u16s(1), zeros(16), u16s(piece.width, piece.height),
    u32s(0x480000, 0x480000, 0), u16s(1), zeros(32), u16s(24, 0xffff), box(hevc ? "hvcC" : "avcC", piece.config));
  return { id: VIDEO_ID, kind: "video", clock: CLOCK, entry, width: piece.width, height: piece.height };
}

// An elementary stream descriptor (ISO/IEC 14496-1) around two bytes of AudioSpecificConfig.
function aacDescriptor(sound) {
  const rates = [96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350];
  const index = Math.max(rates.indexOf(sound.rate), 0);
  const config = [sound.object << 3 | index >> 1, (index & 1) << 7 | sound.channels << 3];
  const decoder = [0x40, 0x15, 0, 0, 0, ...zeros(8), 5, config.length, ...config];
  return [3, 3 + 2 + decoder.length + 3, 0, 0, 0, 4, decoder.length, ...decoder, 6, 1, 2];
}

function soundTrack(sound) {
  const aac = sound.kind === "aac";
  const description = aac ? fullBox("esds", 0, 0, aacDescriptor(sound))
    : fullBox("dfLa", 0, 0, [0x80, 0, 0, 34], flacStreamInfo(sound.rate));
  const entry = box(aac ? "mp4a" : "fLaC", zeros(6), u16s(1), zeros(8), u16s(aac ? sound.channels : 1, 16), zeros(4),
    u16s(sound.rate, 0), description);
  return { id: SOUND_ID, kind: "sound", clock: sound.rate, entry, width: 0, height: 0 };
}
const soundType = sound => 'audio/mp4; codecs="' + (sound.kind === "aac" ? "mp4a.40." + sound.object : "flac") + '"';

// ---- the head

const seconds1904 = seconds1970 => seconds1970 + 2082844800;

// tables: the boxes of the sample table behind "stsd"; durations in the file's clock and the track's.
function trackBox(track, tables, created, duration, edits) {
  const video = track.kind === "video";
  return box("trak",
    fullBox("tkhd", 1, 3, u64s(created, created), u32s(track.id, 0), u64s(duration), zeros(8), u16s(0, 0, video ? 0 : 0x100, 0),
      UNITY, u32s(track.width << 16, track.height << 16)),
    edits,
    box("mdia",
      fullBox("mdhd", 1, 0, u64s(created, created), u32s(track.clock), u64s(Math.round(duration * track.clock / CLOCK)), u16s(0x55c4, 0)),
      fullBox("hdlr", 0, 0, u32s(0), ascii(video ? "vide" : "soun"), zeros(12), ascii((video ? "Pictures" : "Sound") + "\0")),
      box("minf",
        video ? fullBox("vmhd", 0, 1, zeros(8)) : fullBox("smhd", 0, 0, zeros(4)),
        box("dinf", fullBox("dref", 0, 0, u32s(1), fullBox("url ", 0, 1))),
        box("stbl", fullBox("stsd", 0, 0, u32s(1), track.entry), ...tables))));
}

function movieHead(created, duration) {
  return fullBox("mvhd", 1, 0, u64s(created, created), u32s(CLOCK), u64s(duration), u32s(0x10000), u16s(0x100), zeros(10), UNITY,
    zeros(24), u32s(SOUND_ID + 1));
}

// ---- fragments

function initSegment(track) {
  const none = [fullBox("stts", 0, 0, u32s(0)), fullBox("stsc", 0, 0, u32s(0)), fullBox("stsz", 0, 0, u32s(0, 0)), fullBox("stco", 0, 0, u32s(0))];
  return joinBytes([box("ftyp", ascii("iso5"), u32s(0), ascii("iso5iso6mp41")),
    box("moov", movieHead(0, 0), trackBox(track, none, 0, 0, []),
      box("mvex", fullBox("trex", 0, 0, u32s(track.id, 1, 0, 0, 0))))]);
}

const SAMPLE_IS_KEY = 0x02000000, SAMPLE_IS_NO_KEY = 0x01010000;

function fragment(track, samples, data, number) {
  const rows = new Int32Array(4 * samples.length);
  samples.forEach((s, i) => rows.set([s.duration, s.size, s.key ? SAMPLE_IS_KEY : SAMPLE_IS_NO_KEY, s.offset], 4 * i));
  const head = place => box("moof", fullBox("mfhd", 0, 0, u32s(number)),
    box("traf", fullBox("tfhd", 0, 0x20000, u32s(track.id)), fullBox("tfdt", 1, 0, u64s(samples[0].at)),
      fullBox("trun", 1, 0xf01, u32s(samples.length, place), u32Column(rows))));
  return joinBytes([head(head(0).length + 8), u32s(data.length + 8), ascii("mdat"), data]);
}

// ---- whole files

// Grows by one; keeps four bytes a value.
class Column {
  constructor() { this.values = new Float64Array(1024); this.length = 0; }
  push(value) {
    if (this.length === this.values.length) {
      const grown = new Float64Array(2 * this.length);
      grown.set(this.values);
      this.values = grown;
    }
    this.values[this.length++] = value;
  }
  view() { return this.values.subarray(0, this.length); }
}

class FileTrack {
  constructor(track) {
    this.track = track;
    this.at = new Column(); this.size = new Column(); this.offset = new Column(); this.key = new Column();
    this.chunks = []; // {place in the file, samples}
    this.end = 0; // of the last sample
    this.shownEnd = 0; // later than that where decoding runs ahead
  }

  add(place, samples) {
    this.chunks.push({ place, count: samples.length });
    for (const s of samples) {
      this.at.push(s.at); this.size.push(s.size); this.offset.push(s.offset);
      if (s.key) this.key.push(this.at.length);
      this.end = s.at + s.duration;
      this.shownEnd = Math.max(this.shownEnd, this.end, this.end + s.offset);
    }
  }

  // Runs of equal values: [count, value, ...]
  static runs(count, value) {
    const runs = [];
    for (let i = 0; i < count; ++i) {
      const v = value(i), last = runs.length - 1;
      if (last > 0 && runs[last] === v) ++runs[last - 1]; else runs.push(1, v);
    }
    return runs;
  }

  tables() {
    const at = this.at.view(), offset = this.offset.view(), count = at.length;
    const durations = FileTrack.runs(count, i => Math.max((i + 1 < count ? at[i + 1] : this.end) - at[i], 0));
    const offsets = FileTrack.runs(count, i => offset[i]);
    const inChunk = [];
    this.chunks.forEach((chunk, i) => {
      if (i === 0 || chunk.count !== this.chunks[i - 1].count) inChunk.push(i + 1, chunk.count, 1);
    });
    const tables = [fullBox("stts", 0, 0, u32s(durations.length / 2), u32Column(durations))];
    if (offsets.length > 2 || offsets[1] !== 0) tables.push(fullBox("ctts", 1, 0, u32s(offsets.length / 2), u32Column(offsets)));
    if (this.track.kind === "video") tables.push(fullBox("stss", 0, 0, u32s(this.key.length), u32Column(this.key.view())));
    tables.push(fullBox("stsc", 0, 0, u32s(inChunk.length / 3), u32Column(inChunk)),
      fullBox("stsz", 0, 0, u32s(0, count), u32Column(this.size.view())),
      fullBox("co64", 0, 0, u32s(this.chunks.length), u64Column(this.chunks.map(chunk => chunk.place))));
    return tables;
  }

  // In the file's clock.
  inFile(value) { return Math.round(value * CLOCK / this.track.clock); }

  // Time 0 of the file may lie behind the first sample's decoding (B-frames), or in front of it: an edit says so.
  box(created) {
    const first = this.at.values[0], length = this.inFile(this.shownEnd);
    const edits = first > 0 ? [u64s(this.inFile(first), -1), u32s(0x10000)] : [];
    edits.push(u64s(length - this.inFile(Math.max(first, 0)), Math.max(-first, 0)), u32s(0x10000));
    const list = fullBox("elst", 1, 0, u32s(edits.length / 2), ...edits);
    return trackBox(this.track, this.tables(), created, length, box("edts", list));
  }
}

// A file that is written front to back: its samples as they come, its head last.
class Mp4File {
  constructor(video, start) {
    this.created = seconds1904(Math.floor(start / CLOCK));
    this.video = new FileTrack(video);
    this.sound = null;
    this.blobs = [];
    this.waiting = [];
    this.bytesWaiting = 0;
    this.head = box("ftyp", ascii("isom"), u32s(0x200), ascii("isomiso2mp41"));
    this.place = this.head.length + 16;
  }

  add(track, samples, data) {
    if (samples.length === 0) return;
    track.add(this.place, samples);
    this.waiting.push(data);
    this.place += data.length;
    this.bytesWaiting += data.length;
    if (this.bytesWaiting > 16 << 20) this.store();
  }

  // What a Blob holds the browser may put onto its disk.
  store() {
    this.blobs.push(new Blob(this.waiting));
    this.waiting = [];
    this.bytesWaiting = 0;
  }

  finish() {
    this.store();
    const tracks = [this.video, ...(this.sound && this.sound.at.length ? [this.sound] : [])];
    const length = Math.max(...tracks.map(track => track.inFile(track.shownEnd)));
    const moov = box("moov", movieHead(this.created, length), ...tracks.map(track => track.box(this.created)));
    const data = joinBytes([u32s(1), ascii("mdat"), u64s(this.place - this.head.length)]);
    return new Blob([this.head, data, ...this.blobs, moov], { type: "video/mp4" });
  }
}
