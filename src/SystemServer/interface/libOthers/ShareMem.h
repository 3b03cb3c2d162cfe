// What the attachment of the configuration and the transfer segment have in common.
#pragma once

#include <cstddef>

// Gets the segment of `key` as ShareMemInit does; id or a negative value.
int OpenSegment(int key);

// The same without the line that says so.
int GetSegment(int key);

// Whether the segment that ShareMemInit keeps is the one that `key` has now.
bool KeptSegmentIsOf(int key);

// Size of a segment in bytes; 0 when it cannot be told.
size_t SegmentSize(int id);
