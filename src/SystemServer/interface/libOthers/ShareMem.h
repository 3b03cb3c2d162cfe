// What the attachment of the configuration and the transfer segment have in common.
#pragma once

#include <cstddef>

// Gets the segment of `key` as ShareMemInit does; id or a negative value.
int OpenSegment(int key);

// Size of a segment in bytes; 0 when it cannot be told.
size_t SegmentSize(int id);
