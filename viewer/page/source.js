// The worker that reads the card, as functions that return promises; and what was picked or dropped, as its files.
class CardSource {
  // onunread(what could not be read so far): see ListJson.h
  constructor(onunread) {
    this.onunread = onunread;
    const script = new Blob([byId("worker").textContent], { type: "text/javascript" });
    this.address = URL.createObjectURL(script);
    this.compiled = WebAssembly.compile(Uint8Array.from(atob(byId("wasm").textContent), c => c.charCodeAt(0)));
    this.compiled.catch(() => {}); // told when a card is opened
    this.start();
  }

  start() {
    this.waiting = new Map();
    this.next = 0;
    this.used = false;
    this.worker = new Worker(this.address);
    this.worker.onmessage = ({ data: { id, result, error, unread } }) => {
      const { resolve, reject } = this.waiting.get(id);
      this.waiting.delete(id);
      if (unread) this.onunread(unread);
      if (error === undefined) resolve(result); else reject(new Error(error));
    };
    this.worker.onerror = event => this.giveUp(event.message || "the reader of the card ended");
  }

  giveUp(why) {
    for (const { reject } of this.waiting.values()) reject(new Error(why));
    this.waiting.clear();
  }

  ask(name, argument) {
    return new Promise((resolve, reject) => {
      this.waiting.set(this.next, { resolve, reject });
      this.worker.postMessage({ id: this.next++, name, argument });
    });
  }

  // A fresh worker a card: nothing of the last one is left in its memory, and what was asked of it is refused.
  async open(files) {
    if (this.used) {
      this.worker.onmessage = this.worker.onerror = null; // what is under way answers nothing of the next card
      this.worker.terminate();
      this.giveUp("Another card was opened.");
      this.start();
    }
    this.used = true;
    return this.ask("open", { files, compiled: await this.compiled });
  }
}

// The footage that the tool put into this page, as files for the worker.  The texts leave the page: a Blob needs not stand in
// its memory.
function filesInPage(files) {
  const text = new Blob([...document.querySelectorAll("script.footage")].map(element => {
    const part = new Blob([element.textContent]);
    element.remove();
    return part;
  }));
  let place = 0;
  const placed = ([offset, bytes]) => [offset, bytes, (place += bytes) - bytes];
  return files.map(({ path, size, parts }) => ({ path, size, parts: parts.map(placed), text }));
}

const STORE_FILE = /^(hi\d{6}\.(mp4|pic)|(index|event)\d{3}\.bin|keyframe\.bin)$/i;

// Files picked (or of a dropped folder) as the worker takes them; a single other file is an image of a card.
function cardFiles(files) {
  const own = files.filter(file => STORE_FILE.test(file.name));
  if (own.length > 0) {
    const seen = new Map(own.map(file => [file.name.toLowerCase(), file]));
    return { name: folderName(own[0]), files: [...seen].map(([name, blob]) => ({ path: "/card/" + name, blob })) };
  }
  if (files.length === 0) return null;
  const image = files.reduce((a, b) => b.size > a.size ? b : a);
  return { name: image.name, files: [{ path: "/card", blob: image }] };
}

function folderName(file) {
  const path = (file.webkitRelativePath || "").split("/");
  return path.length > 1 ? path[path.length - 2] : "the card's folder";
}

// Everything in what was dropped, folders one level deep: a card has no deeper ones.
async function droppedFiles(transfer) {
  const entries = [...transfer.items].map(item => item.webkitGetAsEntry && item.webkitGetAsEntry()).filter(Boolean);
  if (entries.length === 0) return [...transfer.files];
  const files = [];
  const take = entry => new Promise((resolve, reject) => entry.file(file => { files.push(file); resolve(); }, reject));
  for (const entry of entries) {
    if (entry.isFile) { await take(entry); continue; }
    const reader = entry.createReader();
    for (let part; (part = await new Promise((resolve, reject) => reader.readEntries(resolve, reject))).length;) {
      for (const inner of part) if (inner.isFile) await take(inner);
    }
  }
  return files;
}
