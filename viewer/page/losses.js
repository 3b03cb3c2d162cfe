// What of the card cannot be shown, in words.

// What there is instead of a picture where no section is: nothing, or a file that is not there.
const lostText = lost => lost.name + (lost.missing ? " is missing" : " cannot be read");
function emptyText(t) {
  const lost = list.lost.find(l => l.sections && t >= l.start && t <= l.end);
  return lost ? lostText(lost) : "nothing recorded";
}

// What is not there, and what part of the card the page has.
function showLosses() {
  const told = [], whole = !list.lost.length && !list.unread.length && list.wholeDirectory;
  if (!list.sections.length) told.push(whole ? "Nothing is recorded on this card yet." : "Nothing of what is recorded on this card can be shown.");
  else if (list.damaged) told.push(counted(list.damaged, "damaged entry").replace("entrys", "entries") + " of the card's index left out.");
  if (!list.wholeDirectory) told.push("Not all of the card's directory can be read: files that it names there are not found.");
  for (const lost of list.lost) told.push(lostText(lost) + ": " + (lost.sections ? counted(lost.sections, "section") + " from " + dateText(lost.start) + " " +
    clockText(lost.start) + " to " + dateText(lost.end) + " " + clockText(lost.end) + " cannot be shown." : "the events are not shown."));
  for (const part of list.unread) told.push(unreadText(part));
  if (held) told.push("This page plays " + durationText(heldSeconds()) + " of what was recorded: what is bright on the time line. Of the rest it has the list and pictures.");
  notice(told.join(" "));
}

function unreadText({ name, bytes, unsearched }) {
  const lost = /^hi/i.test(name) ? "pictures there are left out or damaged" : /^event/i.test(name) ? "events that stand there are left out"
    : "recordings that it names there are left out";
  return sizeText(bytes) + " of " + name + " cannot be read: " + lost + "." +
    (unsearched ? " Reading failed for so long that " + sizeText(unsearched) + " of it were given up; recordcard export tries longer." : "");
}

// Found while the card is open.
function showUnread(unread) {
  if (!list) return;
  list.unread = unread;
  showLosses();
}
