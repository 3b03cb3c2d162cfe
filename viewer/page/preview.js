// Single pictures for hovering and scrubbing: key frames, decoded by WebCodecs where the browser has them.
class Preview {
  constructor(source, canvas) {
    this.source = source;
    this.canvas = canvas;
    this.cache = new Map(); // "section:offset" -> ImageBitmap, the latest used last
    this.wanted = null;
    this.busy = false;
    this.cancelled = 0; // times
  }

  clear() {
    for (const picture of this.cache.values()) picture.close();
    this.cache = new Map(); // a picture under way still goes into the old one
    this.cancel();
  }

  // Draws the key frame before `time`; of requests that come while one is under way only the last counts.
  // `shown(true)` when there is a picture.
  ask(section, time, shown) {
    this.wanted = section < 0 || typeof VideoDecoder === "undefined" ? null : { section, time, shown };
    if (!this.wanted) return shown(false);
    if (!this.busy) this.run();
  }
  // Also of what is under way nothing is shown any more.
  cancel() { this.wanted = null; ++this.cancelled; }

  async run() {
    this.busy = true;
    while (this.wanted) {
      const { section, time, shown } = this.wanted, cancelled = this.cancelled;
      this.wanted = null;
      let picture = null;
      try { picture = await this.picture(section, time); } catch { /* a damaged key frame has no preview */ }
      if (cancelled !== this.cancelled) continue;
      if (picture) {
        this.canvas.width = picture.width;
        this.canvas.height = picture.height;
        this.canvas.getContext("2d").drawImage(picture, 0, 0);
      }
      shown(picture !== null);
    }
    this.busy = false;
  }

  async picture(section, time) {
    const { cache } = this, key = await this.source.ask("preview", { section, time });
    if (!key) return null;
    const name = section + ":" + key.offset;
    let picture = cache.get(name);
    if (!picture) {
      picture = await decodeOne(key);
      if (!picture) return null;
      if (cache.size >= 200) {
        const [oldest, old] = cache.entries().next().value;
        old.close();
        cache.delete(oldest);
      }
    }
    cache.delete(name);
    cache.set(name, picture);
    return picture;
  }
}

const PREVIEW_WIDTH = 288;

async function decodeOne(key) {
  const config = { codec: key.codec, description: key.config, codedWidth: key.width, codedHeight: key.height, optimizeForLatency: true };
  if (!(await VideoDecoder.isConfigSupported(config)).supported) return null;
  let frame = null;
  const decoder = new VideoDecoder({ output: f => { if (frame) f.close(); else frame = f; }, error: () => {} });
  try {
    decoder.configure(config);
    decoder.decode(new EncodedVideoChunk({ type: "key", timestamp: 0, data: key.data }));
    await decoder.flush();
    if (!frame) return null;
    return await createImageBitmap(frame, { resizeWidth: PREVIEW_WIDTH, resizeHeight: Math.max(Math.round(PREVIEW_WIDTH * key.height / key.width), 1) });
  } finally {
    if (frame) frame.close();
    if (decoder.state !== "closed") decoder.close();
  }
}
