// Plays the card through Media Source Extensions: one stream of fragments over sections and files, gaps left out.
//
// The media's own clock only counts what was put into it; every picture in it is remembered with the moment at which it
// was recorded.  A seek to what is not there throws the media away and begins again behind it.
const AHEAD_SECONDS = 6, KEEP_BEHIND = 20; // s of media
const ENDLESS = 1e8; // s; no place may lie behind what counts as the media's end, or a seek stops in front of it
const SAVED_STILL = "What you choose can still be saved as a file, and played elsewhere.";
const KEYS_ONLY_FROM = 8, MUTED_ABOVE = 2; // speeds
const SKIPS_MAX = 10, SKIPS_APART = 3000; // ms; of key frames that the decoder fails at or after, in a row

class Unplayable extends Error {
  constructor(type) {
    super("This browser does not decode " + (type.includes("hvc1") ? "H.265" : "this kind of recording") + ". " + SAVED_STILL);
  }
}

class Player {
  // handlers: moment(t), state(), fault(text)
  constructor(video, source, handlers) {
    this.video = video;
    this.source = source;
    this.handlers = handlers;
    this.rate = 1;
    this.session = 0;
    this.pictures = []; // [media, real, key], in media's order
    this.moment = null;
    this.ended = false;
    this.loading = false;
    this.skips = this.skippedAt = 0;
    this.playing = false; // asked for; a video that fails counts as paused
    video.addEventListener("play", () => { this.playing = true; });
    video.addEventListener("pause", () => { this.playing = false; });
    for (const type of ["play", "pause", "waiting", "playing", "ratechange"]) video.addEventListener(type, () => this.handlers.state());
    video.addEventListener("error", () => { if (this.media) this.skip(); });
    video.addEventListener("ended", () => { this.handlers.state(); if (this.afterwards) this.handlers.fault(this.afterwards); });
    video.addEventListener("timeupdate", () => this.tell());
    video.addEventListener("seeked", () => this.tell());
    const frame = () => { if (!video.paused) this.tell(); requestAnimationFrame(frame); };
    requestAnimationFrame(frame);
  }

  show(list) {
    this.close();
    this.sections = list.sections;
  }

  close() {
    ++this.session;
    this.media = null;
    this.buffers = null;
    this.pictures = [];
    this.moment = null;
    this.loading = this.playing = false;
    this.video.removeAttribute("src");
    this.video.load();
  }

  fault(text) {
    this.media = null;
    this.loading = false;
    ++this.session;
    this.handlers.fault(text);
  }

  // ---- the moment

  indexAt(media) {
    let low = 0, high = this.pictures.length;
    while (low < high) { const middle = low + high >> 1; if (this.pictures[middle][0] <= media) low = middle + 1; else high = middle; }
    return low - 1;
  }

  tell() {
    const i = this.indexAt(this.video.currentTime + 1e-4);
    if (i < 0 || this.loading) return;
    const [media, real] = this.pictures[i];
    const moment = real + (this.video.paused ? 0 : Math.min(this.video.currentTime - media, 1));
    if (moment !== this.moment) { this.moment = moment; this.handlers.moment(moment); }
  }

  // The section that holds `t`, else the next one that was recorded later; -1: there is none.
  sectionAt(t) {
    const within = this.sections.findIndex(s => t >= s.start && t < Math.max(s.end, s.start) + 1);
    if (within >= 0) return within;
    let best = -1;
    this.sections.forEach((s, i) => { if (s.start > t && (best < 0 || s.start < this.sections[best].start)) best = i; });
    return best;
  }

  // ---- seeking

  // Goes to the picture that was on at `t`, or the next one recorded; `about`: a key frame near to it will do.
  async seek(t, about = false) {
    if (typeof MediaSource === "undefined") return this.fault("This browser cannot play recordings (it has no Media Source Extensions). " + SAVED_STILL);
    this.ended = false;
    const i = this.pictures.findLastIndex(([, real]) => real <= t + 1e-3);
    const next = this.pictures[i + 1];
    if (i >= 0 && this.media && ((next && next[1] > t) || (!next && t - this.pictures[i][1] < .05)) && this.holds(this.pictures[i][0])) {
      this.target(this.pictures[i][0]);
      return this.tell();
    }
    const session = ++this.session;
    this.loading = true;
    this.afterwards = "";
    try {
      const place = await this.findPlace(t);
      if (session !== this.session || !place) return;
      await this.begin(session, place, t, about);
    } catch (error) {
      if (session === this.session) { this.close(); this.handlers.fault(error.message); }
    } finally {
      if (session === this.session) { this.loading = false; this.tell(); }
    }
  }

  // A decoder ends at a damaged picture: goes on at the next key frame with another.
  async skip() {
    const { error, currentTime } = this.video, { playing } = this, moment = performance.now();
    this.skips = moment - this.skippedAt < SKIPS_APART ? this.skips + 1 : 1;
    this.skippedAt = moment;
    const next = this.pictures.find(([media, , key]) => key && media > currentTime + .002), last = this.pictures[this.pictures.length - 1];
    const t = next ? next[1] : last ? last[1] + 1 : Infinity;
    if (this.skips > SKIPS_MAX || this.sectionAt(t) < 0)
      return this.fault("This browser could not decode the recording" + (error && error.message ? " (" + error.message + ")" : "") + ".");
    this.close();
    await this.seek(t, !next);
    if (playing && this.media) this.play();
  }

  holds(media) {
    const ranges = this.video.buffered;
    for (let i = 0; i < ranges.length; ++i) if (ranges.start(i) <= media + .001 && ranges.end(i) > media + .001) return true;
    return false;
  }
  target(media) { this.video.currentTime = media + .001; }

  async findPlace(t) {
    const section = this.sectionAt(t);
    if (section < 0) return null;
    const chunks = await this.source.ask("chunks", { section });
    if (chunks.length === 0) return null; // its footage is not there
    return { section, chunk: Math.max(chunks.findLastIndex(c => c.time <= t), 0), chunks };
  }

  async begin(session, place, t, about) {
    if (!await this.openMedia(session)) return;
    let got = await this.loadFirst(session, place);
    // A key frame's time is a whole second: what was on then may stand in front of it.
    while (!about && got && got.pictures.length && got.pictures[0][1] > t + 1e-3 && place.chunk > 0 && t >= this.sections[place.section].start) {
      --place.chunk;
      got = await this.loadFirst(session, place);
    }
    if (session !== this.session) return;
    while (got && !got.pictures.length) {
      if (!await this.advance(place)) return this.handlers.fault("Nothing there can be shown: the recording is damaged.");
      got = await this.load(session, place);
    }
    if (!got || !await this.append(session, got)) return;
    if (this.media.duration !== ENDLESS) this.media.duration = ENDLESS;
    const i = about ? 0 : Math.max(got.pictures.findLastIndex(([, real]) => real <= t + 1e-3), 0);
    this.target(got.pictures[i][0]);
    await Promise.race([new Promise(shown => this.video.addEventListener("seeked", shown, { once: true })), sleep(250)]);
    this.pump(session, place); // the picture first
  }

  async openMedia(session) {
    if (this.media && this.media.readyState !== "closed") {
      for (const buffer of Object.values(this.buffers)) {
        await idle(buffer);
        if (session !== this.session) return false;
        if (this.media.readyState === "open") buffer.abort();
        buffer.remove(0, Infinity);
        await idle(buffer);
      }
      this.pictures = [];
      return session === this.session;
    }
    this.media = new MediaSource();
    this.buffers = {};
    this.pictures = [];
    const media = this.media, opened = new Promise(resolve => media.addEventListener("sourceopen", resolve, { once: true }));
    const address = URL.createObjectURL(media);
    this.video.src = address;
    await opened;
    URL.revokeObjectURL(address);
    this.video.playbackRate = this.rate;
    return session === this.session;
  }

  get keysOnly() { return this.rate >= KEYS_ONLY_FROM; }

  load(session, place) {
    if (session !== this.session) return null;
    const { begin, end } = place.chunks[place.chunk];
    return this.source.ask("playNext", { section: place.section, begin, end, keysOnly: this.keysOnly });
  }

  // As the beginning of new media, which its head introduces.
  async loadFirst(session, place) {
    if (session !== this.session) return null;
    await this.source.ask("playStart");
    return this.load(session, place);
  }

  // Goes on to the next chunk, over the end of a section; false at the end of the card.
  async advance(place) {
    for (++place.chunk; place.chunk >= place.chunks.length; place.chunk = 0) {
      if (++place.section >= this.sections.length) return false;
      place.chunks = await this.source.ask("chunks", { section: place.section });
    }
    return true;
  }

  // ---- what comes after

  async pump(session, place) {
    try {
      for (;;) {
        while (session === this.session && !this.hungry()) await sleep(60);
        if (session !== this.session) return;
        if (!await this.advance(place)) break;
        const got = await this.load(session, place);
        if (!got || !await this.append(session, got)) return;
        await this.forget(session);
      }
      const { sound } = await this.source.ask("playEnd");
      if (session !== this.session || !this.media) return;
      if (sound.length) await this.appendTo("sound", this.buffers.sound.type, sound, session);
      await this.finish(session);
    } catch (error) {
      if (session !== this.session) return;
      if (!(error instanceof Unplayable)) return this.handlers.fault(error.message);
      this.afterwards = error.message; // what is here plays to its end
      await this.finish(session);
    }
  }

  hungry() {
    const end = this.pictures.length ? this.pictures[this.pictures.length - 1][0] : 0;
    return end - this.video.currentTime < AHEAD_SECONDS * Math.max(this.rate, 1);
  }

  async append(session, got) {
    if (session !== this.session) return false;
    if (got.videoType && !MediaSource.isTypeSupported(got.videoType)) throw new Unplayable(got.videoType);
    for (const [kind, type, data] of [["video", got.videoType, got.video], ["sound", got.soundType, got.sound]]) {
      if (!type || data.length === 0) continue;
      try {
        await this.appendTo(kind, type, data, session);
      } catch (error) {
        if (error.name !== "NotSupportedError") throw error;
        throw new Unplayable(type); // it had said yes
      }
      if (session !== this.session) return false;
    }
    for (const picture of got.pictures) this.pictures.push(picture);
    return true;
  }

  async appendTo(kind, type, data, session) {
    let buffer = this.buffers[kind];
    if (!buffer) {
      // All buffers have to be there before the first data.
      for (const [k, t] of [["video", type], ["sound", 'audio/mp4; codecs="flac"']]) {
        this.buffers[k] = this.media.addSourceBuffer(k === kind ? type : t);
        this.buffers[k].type = k === kind ? type : t;
      }
      buffer = this.buffers[kind];
    }
    await idle(buffer);
    if (session !== this.session || !this.media) return;
    if (buffer.type !== type) { buffer.changeType(type); buffer.type = type; }
    buffer.appendBuffer(data);
    await idle(buffer);
  }

  async forget(session) {
    const end = this.video.currentTime - KEEP_BEHIND;
    if (this.pictures.length === 0 || this.pictures[0][0] > end - KEEP_BEHIND) return;
    for (const buffer of Object.values(this.buffers)) {
      await idle(buffer);
      if (session !== this.session) return;
      buffer.remove(0, end);
      await idle(buffer);
    }
    this.pictures.splice(0, Math.max(this.pictures.findIndex(([media]) => media >= end), 0));
  }

  async finish(session) {
    const { media, buffers } = this;
    if (session !== this.session || !media) return;
    for (const buffer of Object.values(buffers)) await idle(buffer);
    if (session !== this.session || media.readyState !== "open") return; // meanwhile
    media.endOfStream();
    this.ended = true;
  }

  // ---- what the owner does

  get paused() { return this.video.paused; }
  play() { return this.video.play().catch(() => {}); }
  pause() { this.video.pause(); }

  async setRate(rate) {
    const anew = (rate >= KEYS_ONLY_FROM) !== this.keysOnly;
    this.rate = rate;
    this.video.playbackRate = this.video.defaultPlaybackRate = rate;
    this.video.muted = rate > MUTED_ABOVE || this.silent === true;
    if (anew && this.moment !== null) {
      this.pictures = []; // so that nothing of it counts as there
      await this.seek(this.moment);
    }
    this.handlers.state();
  }

  // One picture on or back.
  async step(by) {
    this.pause();
    const i = this.indexAt(this.video.currentTime + 1e-4);
    const wanted = this.pictures[i + by];
    if (wanted && this.holds(wanted[0])) { this.target(wanted[0]); return; }
    if (by < 0 && i >= 0) {
      const before = this.pictures[i][1];
      const section = this.sectionAt(before - .02);
      const there = section >= 0 && this.sections[section].start <= before - .02 ? before - .02 : this.endBefore(before);
      if (there !== null) await this.seek(there);
    }
  }

  // When the section before `t` ended.
  endBefore(t) {
    let best = null;
    for (const s of this.sections) if (s.end < t && (best === null || s.end > best)) best = s.end;
    return best === null ? null : best + .99;
  }
}

const sleep = ms => new Promise(resolve => setTimeout(resolve, ms));
const idle = buffer => buffer.updating ? new Promise(resolve => buffer.addEventListener("updateend", resolve, { once: true })) : Promise.resolve();
