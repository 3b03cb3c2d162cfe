// The bytes of what was picked: files of this computer, of the server that the page came from, or in the page.  Worker.
//
// Reads blocks of 1 MiB and keeps the last sixteen: the card's code reads headers of some bytes.  Of a block that cannot be
// read as a whole, only those pages are read that are asked for: a card fails by pages.
const BLOCK = 1 << 20, PAGE = 4096;
const BLOCKS_KEPT = 16;
const FAILING_MAX = 20000; // ms that blocks may cost that cannot be read; then none is read as a whole any more

class CardFiles {
  // files: [{path, blob}], [{path, url, size}] (without a size: it is there and cannot be opened) or, in the page,
  // [{path, size, parts: [[offset, bytes, place]], text}]: `text` is a Blob of Base64, in which a part begins at byte `place`
  // of what it stands for; what lies in no part counts as zeros.
  constructor(files) {
    this.files = files;
    this.byPath = new Map(files.map((file, i) => [file.path, i]));
    this.blocks = new Map(); // "file:block" -> {bytes, missing: the pages that were not read, or null}, the latest used last
    this.broken = new Set(); // those that cannot be read as a whole
    this.failing = 0; // ms they have cost
    this.bytesRead = 0;
  }

  open(path) { return this.byPath.has(path) && this.size(this.byPath.get(path)) !== undefined ? this.byPath.get(path) : -1; }

  size(handle) {
    const file = this.files[handle];
    return file.blob ? file.blob.size : file.size;
  }

  // Whether all of [begin, end) can be had.
  holds(path, begin, end) {
    const file = this.files[this.byPath.get(path)];
    return !file || !file.parts || file.parts.some(([offset, bytes]) => offset <= begin && end <= offset + bytes);
  }

  // Returns the number of bytes read, less only at the end; -1: not all of it can be read.
  read(handle, offset, into) {
    const end = Math.min(offset + into.length, this.size(handle));
    let at = offset;
    try {
      while (at < end) {
        const number = Math.floor(at / BLOCK);
        const from = at - number * BLOCK, to = Math.min(from + end - at, BLOCK);
        const part = this.block(handle, number, from, to).subarray(from, to);
        if (part.length === 0) break;
        into.set(part, at - offset);
        at += part.length;
      }
    } catch (error) {
      return -1; // NotReadableError: a bad page, taken out, changed, or the server is gone
    }
    return Math.max(at - offset, 0);
  }

  // Whether a byte that was read can still be had from where it came from.
  readsAgain(handle, offset) {
    const begin = offset - offset % PAGE;
    try {
      this.fetch(handle, begin, Math.min(begin + PAGE, this.size(handle)), "no-cache");
      return true;
    } catch (error) {
      return false; // what could be read can be read no more: that is the answer
    }
  }

  // The bytes of a block, of which [from, to) are wanted; throws when these cannot be read.
  block(handle, number, from, to) {
    const key = handle + ":" + number;
    let block = this.blocks.get(key);
    if (block) {
      this.blocks.delete(key);
    } else {
      block = this.fetchBlock(handle, number, key);
      if (this.blocks.size >= BLOCKS_KEPT) this.blocks.delete(this.blocks.keys().next().value);
    }
    this.blocks.set(key, block);
    if (block.missing) this.fetchPages(handle, number, block, from, to);
    return block.bytes;
  }

  fetchBlock(handle, number, key) {
    const begin = number * BLOCK, end = Math.min(begin + BLOCK, this.size(handle)), begun = performance.now();
    if (this.failing < FAILING_MAX && !this.broken.has(key)) {
      try {
        return { bytes: this.fetch(handle, begin, end), missing: null };
      } catch (error) {
        this.broken.add(key); // some of its pages may be readable
        this.failing += performance.now() - begun;
      }
    }
    return { bytes: new Uint8Array(end - begin), missing: new Array(Math.ceil((end - begin) / PAGE)).fill(true) };
  }

  // Those of the pages of [from, to) that are missing, neighbours at once.
  fetchPages(handle, number, block, from, to) {
    const { bytes, missing } = block;
    for (let page = Math.floor(from / PAGE); page * PAGE < Math.min(to, bytes.length); ++page) {
      if (!missing[page]) continue;
      let last = page;
      while ((last + 1) * PAGE < to && missing[last + 1]) ++last;
      const begin = page * PAGE, end = Math.min((last + 1) * PAGE, bytes.length);
      bytes.set(this.fetch(handle, number * BLOCK + begin, number * BLOCK + end), begin);
      missing.fill(false, page, last + 1);
      page = last;
    }
  }

  // Throws when not all of [begin, end) can be read.
  fetch(handle, begin, end, caching) {
    const bytes = this.fetchFrom(this.files[handle], begin, end, caching);
    if (bytes.length !== end - begin) throw new Error("the file is shorter now");
    this.bytesRead += bytes.length;
    return bytes;
  }

  fetchFrom(file, begin, end, caching) {
    if (file.blob) return new Uint8Array(new FileReaderSync().readAsArrayBuffer(file.blob.slice(begin, end)));
    if (file.parts) return this.compose(file, begin, end);
    const request = new XMLHttpRequest();
    request.open("GET", file.url, false);
    request.setRequestHeader("Range", "bytes=" + begin + "-" + (end - 1));
    if (caching) request.setRequestHeader("Cache-Control", caching); // recordcard view, too, goes past what the system keeps
    request.responseType = "arraybuffer";
    request.send();
    if (request.status !== 206) throw new Error("status " + request.status);
    return new Uint8Array(request.response);
  }

  compose(file, begin, end) {
    const bytes = new Uint8Array(end - begin);
    for (const [offset, length, place] of file.parts) {
      const from = Math.max(begin, offset), to = Math.min(end, offset + length);
      if (from < to) bytes.set(this.decode(file.text, place + from - offset, place + to - offset), from - begin);
    }
    return bytes;
  }

  // Four digits are three bytes.
  decode(text, begin, end) {
    const first = Math.floor(begin / 3);
    const decoded = atob(new FileReaderSync().readAsText(text.slice(4 * first, 4 * Math.ceil(end / 3))));
    const bytes = new Uint8Array(end - begin);
    for (let i = 0, at = begin - 3 * first; i < bytes.length; ++i, ++at) bytes[i] = decoded.charCodeAt(at);
    return bytes;
  }
}
