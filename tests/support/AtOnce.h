// Several threads that do the same at the same time.
#pragma once

#include <thread>
#include <vector>

namespace support {

// Calls `work` with 0 to `count` - 1, each on a thread of its own; returns when all have ended.
template <class Work>
void AtOnce(int count, Work work) {
    std::vector<std::jthread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back(work, number);
    }
}

}  // namespace support
