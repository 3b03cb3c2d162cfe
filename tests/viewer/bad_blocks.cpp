// Makes a stretch of a file unreadable until standard input ends.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "fixture/BadBlocks.h"

using fixture::BadBlocks;

int main(int count, char** arguments) {
    if (count != 5) {
        std::fprintf(stderr, "usage: bad_blocks FILE BEGIN END reads-on|gone\n");
        return 2;
    }
    const bool gone = std::string_view(arguments[4]) == "gone";
    const BadBlocks bad(arguments[1], std::strtoull(arguments[2], nullptr, 10),
                        std::strtoull(arguments[3], nullptr, 10),
                        gone ? BadBlocks::Then::IsGone : BadBlocks::Then::ReadsOn);
    std::puts("so it is");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
