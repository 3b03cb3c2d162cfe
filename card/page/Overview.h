// The card as one page of HTML that needs nothing else: days, sections, gaps, events, pictures.
//
// What the page shows goes into it as one JSON object (timeline/page.html draws it); pictures are bounded in
// number and size, so that a page of a large card stays one that can be sent.  One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "index/CardIndex.h"
#include "text/TimeText.h"

namespace card {

struct TimelineOptions {
    std::string path;             // of the card, for the title and the commands to copy
    size_t thumbnails_max = 240;  // 0: none
    TimeStyle times;
};

// A picture worth keeping: of section `section` (index into CardIndex::Sections()) around `time`.
struct Wanted {
    size_t section = 0;
    uint32_t time = 0;
};

// At most `max`, in order: spread evenly over what was recorded, a few of them where events begin.
std::vector<Wanted> ChoosePictures(const CardIndex& index, size_t max);

using PicturesDone = std::function<void(size_t done, size_t total)>;
std::string MakeTimelinePage(const CardIndex& index, const TimelineOptions& options, const PicturesDone& progress);

}  // namespace card
