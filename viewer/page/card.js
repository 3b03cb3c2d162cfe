// The card's own C++ (WebAssembly), called from here and nowhere else.  Worker.
const SOUND_KINDS = ["none", "aac", "alaw", "ulaw"];
const PLAY_FEED = 0, SAVE_FEED = 1, PREVIEW_FEED = 2;

class Card {
  // files: see CardFiles.  One file that is no record file is an image of a whole card.
  static async open(files, compiled) {
    const folder = files.some(file => file.path.startsWith("/card/"));
    const source = new CardFiles(files);
    const instantiateWasm = (imports, done) => {
      WebAssembly.instantiate(compiled, imports).then(instance => done(instance, compiled));
      return {};
    };
    const module = await CardModule({ instantiateWasm, files: source });
    // The code looks for files by their names; empty ones are enough for that.
    if (folder) module.FS.mkdir("/card");
    for (const file of files) module.FS.writeFile(file.path, "");
    const card = new Card(module, source);
    card.list = JSON.parse(card.text(card.call("ViewerOpen", "/card")));
    return card;
  }

  constructor(module, source) {
    this.module = module;
    this.source = source;
    this.keys = new Map();
  }

  text(address) { return this.module.UTF8ToString(address); }
  numbers(address, count) { return new Float64Array(this.module.HEAPU8.buffer, address, count); }
  bytes(address, count) { return this.module.HEAPU8.slice(address, address + count); }

  call(name, ...args) {
    let text = 0;
    if (typeof args[0] === "string") {
      const length = this.module.lengthBytesUTF8(args[0]) + 1;
      text = this.module._malloc(length);
      this.module.stringToUTF8(args[0], text, length);
      args[0] = text;
    }
    const result = this.module["_" + name](...args);
    if (text) this.module._free(text);
    const failed = name === "ViewerFeedStretch" || name === "ViewerFeedTimes" ? result < 0 : result === 0;
    if (failed) throw new Error(this.text(this.module._ViewerError()));
    return result;
  }

  // [{time, offset, end}] of those whose bytes can be had; they end with the next one, the last with the section.
  keyFrames(section) {
    if (!this.keys.has(section)) {
      const at = this.call("ViewerKeyFrames", section);
      const count = this.numbers(at, 1)[0];
      const values = this.numbers(at + 8, 2 * count + 1);
      const keys = [];
      for (let i = 0; i < count; ++i) keys.push({ time: values[2 * i], offset: values[2 * i + 1], end: values[2 * i + 3] });
      keys[count - 1].end = values[2 * count];
      const path = "/card/hi" + String(this.list.sections[section].file).padStart(6, "0") + ".mp4";
      if (this.keys.size > 64) this.keys.clear();
      this.keys.set(section, keys.filter(key => this.source.holds(path, key.offset, key.end)));
    }
    return this.keys.get(section);
  }

  // What could not be read so far: see ListJson.h.
  unread() { return JSON.parse(this.text(this.call("ViewerUnread"))); }

  feedStretch(feed, section, begin, end) { this.call("ViewerFeedStretch", feed, section, begin, end); }
  feedTimes(feed, from, to) { return this.call("ViewerFeedTimes", feed, from, to); }

  // The next samples of a feed, copied out of the module's memory; null: there are no more.
  next(feed, limit) {
    const v = this.numbers(this.call("ViewerFeedNext", feed, limit), 23);
    if (v[0] === 0) return null;
    const samples = this.numbers(v[9], 5 * v[10] + 2 * v[13]);
    const pictures = [], sounds = [];
    for (let i = 0; i < v[10]; ++i) {
      const [bytes, key, decoded, shown, real] = samples.subarray(5 * i, 5 * i + 5);
      pictures.push({ bytes, key: key === 1, decoded, shown, real });
    }
    for (let i = 0; i < v[13]; ++i) sounds.push({ bytes: samples[5 * v[10] + 2 * i], at: samples[5 * v[10] + 2 * i + 1] });
    return {
      part: v[1], first: v[2] === 1, codec: this.text(v[3]), width: v[4], height: v[5], config: this.bytes(v[6], v[7]),
      duration: v[8], pictures, video: this.bytes(v[11], v[12]), sounds, audio: this.bytes(v[14], v[15]),
      sound: { kind: SOUND_KINDS[v[16]], rate: v[17], channels: v[18], object: v[19] },
      done: v[20], all: v[21], damaged: v[22],
    };
  }
}
