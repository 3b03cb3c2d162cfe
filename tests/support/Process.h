// What the test's process holds: threads and descriptors, which the code under test must give back.
#pragma once

#include <filesystem>
#include <iterator>
#include <thread>

namespace support {

inline long EntriesOf(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}
inline long Threads() {
    return EntriesOf("/proc/self/task");
}
inline long Descriptors() {
    return EntriesOf("/proc/self/fd");
}

// Of a test that has started none.  A sanitizer's own begins with the first thread; one that is just leaving may
// still be counted, so that Threads() is no measure.
inline long ThreadsAtRest() {
    static const long count = [] {
        long with_one_more = 0;
        std::thread([&] { with_one_more = Threads(); }).join();
        return with_one_more - 1;
    }();
    return count;
}

}  // namespace support
