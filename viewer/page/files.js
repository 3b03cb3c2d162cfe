// The bytes of what was picked: files of this computer, or of the server that the page came from.  Worker.
//
// Reads blocks of 1 MiB and keeps the last sixteen: the card's code reads headers of some bytes.
const BLOCK = 1 << 20;
const BLOCKS_KEPT = 16;

class CardFiles {
  // files: [{path, blob}] or [{path, url, size}]
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
    const request = new XMLHttpRequest();
    request.open("GET", file.url, false);
    request.setRequestHeader("Range", "bytes=" + begin + "-" + (end - 1));
    request.responseType = "arraybuffer";
    request.send();
    if (request.status !== 206) throw new Error("status " + request.status);
    return new Uint8Array(request.response);
  }
}
