// The sound of a clip on its way into an MP4, on the clock of its own samples.  Worker.
//
// Browsers play no G.711 in an MP4, so it becomes FLAC, which loses nothing: its frames hold the samples as they are.
// AAC is taken over.  Where sound and picture have drifted apart by a quarter of a second, silence is put in or sound
// is left out.
const FLAC_BLOCK = 1024; // samples of a frame
const AAC_SAMPLES = 1024;
const CLOCK = 90000; // of pictures, Hz
const SILENT_AAC = Uint8Array.of(0x00, 0xc8, 0x00, 0x80, 0x23, 0x80); // one frame, AAC LC, one channel

// ITU-T G.711, to 16 bits.
const G711 = { alaw: new Int16Array(256), ulaw: new Int16Array(256) };
for (let code = 0; code < 256; ++code) {
  const u = ~code & 0xff;
  const magnitude = (((u & 15) << 3) + 132 << (u >> 4 & 7)) - 132;
  G711.ulaw[code] = u & 128 ? -magnitude : magnitude;
  const a = code ^ 0x55, step = a >> 4 & 7, base = (a & 15) << 4;
  const value = step === 0 ? base + 8 : base + 264 << step - 1;
  G711.alaw[code] = a & 128 ? value : -value;
}

function crcTable(bits, polynomial) {
  const top = 1 << bits - 1, mask = 2 * top - 1;
  return Uint16Array.from({ length: 256 }, (_, byte) => {
    let crc = byte << bits - 8;
    for (let i = 0; i < 8; ++i) crc = (crc & top ? crc << 1 ^ polynomial : crc << 1) & mask;
    return crc;
  });
}
const CRC8 = crcTable(8, 0x07), CRC16 = crcTable(16, 0x8005);

// A FLAC frame of samples as they are (RFC 9639): one channel, 16 bits; one value where all are the same.
function flacFrame(number, samples) {
  const same = samples.every(sample => sample === samples[0]);
  const coded = number < 0x80 ? [number]
    : number < 0x800 ? [0xc0 | number >> 6, 0x80 | number & 63]
      : number < 0x10000 ? [0xe0 | number >> 12, 0x80 | number >> 6 & 63, 0x80 | number & 63]
        : [0xf0 | number >> 18, 0x80 | number >> 12 & 63, 0x80 | number >> 6 & 63, 0x80 | number & 63];
  const size = samples.length - 1;
  const head = [0xff, 0xf8, 0x70, 0x08, ...coded, size >> 8, size & 255];
  head.push(head.reduce((crc, byte) => CRC8[crc ^ byte], 0), same ? 0x00 : 0x02);
  const count = same ? 1 : samples.length;
  const frame = new Uint8Array(head.length + 2 * count + 2);
  frame.set(head);
  const view = new DataView(frame.buffer);
  for (let i = 0; i < count; ++i) view.setInt16(head.length + 2 * i, samples[i]);
  let crc = 0;
  for (let i = 0; i < frame.length - 2; ++i) crc = CRC16[crc >> 8 ^ frame[i]] ^ crc << 8 & 0xffff;
  view.setUint16(frame.length - 2, crc);
  return frame;
}

// Of "fLaC" and "dfLa": block size twice, unknown frame sizes, rate, one channel, 16 bits, unknown length and sum.
function flacStreamInfo(rate) {
  const info = new Uint8Array(34);
  info.set([FLAC_BLOCK >> 8, FLAC_BLOCK & 255, FLAC_BLOCK >> 8, FLAC_BLOCK & 255]);
  info.set([rate >> 12, rate >> 4 & 255, (rate & 15) << 4, 15 << 4], 10);
  return info;
}

class SoundLine {
  // format: of card.js.  `whole`: no hole may stay, players stop in them.
  constructor(format, whole) {
    this.format = format;
    this.aac = format.kind === "aac";
    this.whole = whole && (!this.aac || format.channels === 1);
    this.position = 0; // samples put out
    this.waiting = []; // of G.711, not yet in a frame
    this.started = false;
    this.frames = 0;
    this.out = []; // {data, at, duration}, in samples
  }

  reached() { return this.position + this.waiting.length; }
  samplesAt(ticks) { return Math.round(Math.max(ticks, 0) * this.format.rate / CLOCK); }

  // One payload that belongs beside what is shown at `ticks`.
  add(payload, ticks) {
    const wanted = this.samplesAt(ticks), drift = this.format.rate / 4;
    if (wanted < this.reached() - drift) return;
    if (!this.started || wanted > this.reached() + drift) this.silence(wanted);
    this.started = true;
    if (this.aac) return this.put(payload, AAC_SAMPLES);
    const table = G711[this.format.kind];
    for (const code of payload) this.waiting.push(table[code]);
    this.flush(FLAC_BLOCK);
  }

  // Silence up to `ticks`, where nothing came.
  fill(ticks) {
    const wanted = this.samplesAt(ticks);
    if (wanted > this.reached() + this.format.rate / 4) this.silence(wanted);
    this.started = true;
  }

  silence(wanted) {
    if (this.aac) {
      while (this.whole && this.position + AAC_SAMPLES <= wanted) this.put(SILENT_AAC, AAC_SAMPLES);
      if (!this.whole) this.position = Math.max(this.position, wanted);
      return;
    }
    for (let missing = wanted - this.reached(); missing > 0; missing -= FLAC_BLOCK) {
      for (let i = Math.min(missing, FLAC_BLOCK); i > 0; --i) this.waiting.push(0);
      this.flush(FLAC_BLOCK);
    }
  }

  flush(least) {
    while (this.waiting.length >= least && this.waiting.length > 0) {
      const samples = this.waiting.splice(0, FLAC_BLOCK);
      this.put(flacFrame(this.frames++, samples), samples.length);
    }
  }

  put(data, duration) {
    this.out.push({ data, at: this.position, duration });
    this.position += duration;
  }

  take() { return this.out.splice(0); }
}
