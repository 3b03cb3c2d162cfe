// A shared segment in this process's memory.
#pragma once

#include <cstddef>

struct Attachment {
    std::byte* address = nullptr;  // null: none
    size_t size = 0;
};

// Without an address when it fails (errno says why).
Attachment AttachSegment(int id, int flags);

void DetachSegment(Attachment& segment);
