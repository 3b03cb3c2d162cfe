// The bytes of what was picked: files of this computer, of the server that the page came from, or in the page.  Worker.
//
// Reads blocks of 1 MiB and keeps the last sixteen: the card's code reads headers of some bytes.
const BLOCK = 1 << 20;
const BLOCKS_KEPT = 16;

class CardFiles {
  // files: [{path, blob}], [{path, url, size}] or, in the page, [{path, size, parts: [[offset, bytes, place]], text}]: `text` is
  // a Blob of Base64, in which a part begins at byte `place` of what it stands for; what lies in no part counts as zeros.
  constructor(files) {
    this.files = files;
    this.byPath = new Map(files.map((file, i) => [file.path, i]));
    this.blocks = new Map(); // "file:block" -> bytes, the latest used last
    this.bytesRead = 0;
  }

  open(path) { return this.byPath.has(path) ? this.byPath.get(path) : -1; }

  size(handle) {
    const file = this.files[handle];
    return file.blob ? file.blob.size : file.size;
  }

  // Whether all of [begin, end) can be had.
  holds(path, begin, end) {
    const file = this.files[this.byPath.get(path)];
    return !file || !file.parts || file.parts.some(([offset, bytes]) => offset <= begin && end <= offset + bytes);
  }

  // Returns the number of bytes read, less only at the end; -1: the file cannot be read (any more).
  read(handle, offset, into) {
    const end = Math.min(offset + into.length, this.size(handle));
    let at = offset;
    try {
      while (at < end) {
        const number = Math.floor(at / BLOCK);
        const block = this.block(handle, number);
        const from = at - number * BLOCK;
        const part = block.subarray(from, Math.min(from + end - at, block.length));
        if (part.length === 0) break;
        into.set(part, at - offset);
        at += part.length;
      }
    } catch (error) {
      return -1; // NotReadableError: taken out, changed, or the server is gone
    }
    return Math.max(at - offset, 0);
  }

  block(handle, number) {
    const key = handle + ":" + number;
    let bytes = this.blocks.get(key);
    if (bytes) {
      this.blocks.delete(key);
    } else {
      bytes = this.fetch(this.files[handle], number * BLOCK, Math.min((number + 1) * BLOCK, this.size(handle)));
      this.bytesRead += bytes.length;
      if (this.blocks.size >= BLOCKS_KEPT) this.blocks.delete(this.blocks.keys().next().value);
    }
    this.blocks.set(key, bytes);
    return bytes;
  }

  fetch(file, begin, end) {
    if (file.blob) return new Uint8Array(new FileReaderSync().readAsArrayBuffer(file.blob.slice(begin, end)));
    if (file.parts) return this.compose(file, begin, end);
    const request = new XMLHttpRequest();
    request.open("GET", file.url, false);
    request.setRequestHeader("Range", "bytes=" + begin + "-" + (end - 1));
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
