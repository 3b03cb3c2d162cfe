// What the owner takes away: the chosen span as .mp4, the command of the card tool for it, a picture as PNG.
function download(blob, name) {
  const link = make("a", document.body, "", { href: URL.createObjectURL(blob), download: name });
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(link.href), 600000);
}

// Both seconds are taken whole, as the tool does.
async function saveClip(source, [from, to], progress) {
  const { stretches } = await source.ask("saveStart", { from: Math.floor(from), to: Math.floor(to) });
  if (stretches === 0) throw new Error("Nothing was recorded then.");
  for (;;) {
    const step = await source.ask("saveNext");
    if (step.files) return step.files;
    if (progress(step.done / step.all) === false) {
      await source.ask("saveCancel");
      return null;
    }
  }
}

// For a shell, quoted where it needs to be.
const shellWord = word => /^[\w./:@%+-]+$/.test(word) ? word : "'" + word.replaceAll("'", "'\\''") + "'";
function exportCommand(card, [from, to]) {
  return "recordcard export " + shellWord(card) + " --from " + isoText(from) + " --to " + isoText(to) + " " + shellWord("clip_" + fileTime(from) + ".mp4");
}

function pictureOf(video) {
  const canvas = make("canvas", null, null, { width: video.videoWidth, height: video.videoHeight });
  canvas.getContext("2d").drawImage(video, 0, 0);
  return new Promise(resolve => canvas.toBlob(resolve, "image/png"));
}
