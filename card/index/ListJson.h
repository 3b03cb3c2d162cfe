// What is on a card, as JSON for other programs: `recordcard list --json`, and what the page in a browser shows.
//
//   {"start": 1772352000, "end": 1772352060, "bytes": 1234, "files": 8, "filesUsed": 2, "keeps": 86400,
//    "damaged": 0,
//    "sections": [{"file": 0, "section": 1, "start": .., "end": .., "bytes": .., "video": "H.264", "width": 1920,
//                  "height": 1080, "rate": 25, "audio": "G.711 A-law", "keyFrames": 30, "pictures": 750}, ...],
//    "gaps": [{"start": .., "end": ..}, ...],
//    "events": [{"number": 1, "start": .., "end": .., "open": false, "type": 1, "kind": "motion", "file": 0}, ...],
//    "lost": [{"name": "hi000001.mp4", "missing": true, "sections": 2, "start": .., "end": .., "bytes": ..}, ...],
//    "unread": [{"name": "hi000000.mp4", "at": 1228800, "bytes": 4096, "unsearched": 0}, ...], "wholeDirectory": true}
//
// Times are seconds since 1970-01-01 UTC; sections stand in the order in which they were recorded.  "video" and "audio"
// are empty where there is none; "keeps" is what a full card holds at this rate (0: unknown), "damaged" counts entries
// of the index that are left out, and "lost" names the files that are missing or cannot be read, with what their heads
// speak of.  "unread" names files of which some bytes could not be read so far, the first of them at byte "at"; of
// those "unsearched" were given up as a whole.  Files that stand in an unreadable place of the directory count as
// missing.
#pragma once

#include <string>
#include <vector>

#include "index/CardIndex.h"

namespace card {

std::string ListJson(const CardIndex& index);
std::string UnreadJson(const std::vector<UnreadPart>& unread);  // what stands at "unread"

// "H.264", "H.265", "video 7"; empty: the section has no key frame.
std::string VideoName(const RecordInfoHead_S& head);
// "AAC", "G.711 u-law", ...; empty: no sound.
std::string AudioName(const RecordInfoHead_S& head);
// Entries of the index that are left out of lists.
size_t DamagedEntries(const CardIndex& index);

}  // namespace card
