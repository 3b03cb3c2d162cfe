// large_card IMAGE GIB CARD_GIB: a new, sparse card image of CARD_GIB, with GIB of it recorded: 1080p25 H.264 at 4
// Mbit/s with sound, in one go.  Runs inside desk/in-camera; bench/card measures the card tool with it.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "fixture/CardFixture.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: large_card IMAGE GIB CARD_GIB\n");
        return 2;
    }
    constexpr uint32_t kFrameBytes = 20000;                                // 4 Mbit/s
    constexpr uint32_t kSecondBytes = 25 * (kFrameBytes + 40 + 320 + 14);  // and a packet of sound beside each picture
    const uint64_t bytes = std::strtoull(argv[2], nullptr, 10) << 30;
    const uint32_t files = static_cast<uint32_t>(std::strtoull(argv[3], nullptr, 10) * 4 - 4);
    const fixture::SectionPlan plan{.seconds = static_cast<uint32_t>(bytes / kSecondBytes),
                                    .width = 1920,
                                    .height = 1080,
                                    .key_interval = 50,
                                    .frame_bytes = kFrameBytes};
    try {
        const auto card = fixture::Card{.files = files, .sections = {plan}, .keep_units = false}.RecordImage(argv[1]);
        std::printf("%s: %u files, %zu sections, %zu frames\n", argv[1], files, card.sections.size(),
                    card.frames.size());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "large_card: %s\n", error.what());
        return 1;
    }
}
