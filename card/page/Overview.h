// What a page holds of a card that is not there: its list, pictures, and the zone its times are shown in.
//
// Pictures are bounded in number and size, so that the page of a large card stays one that can be sent.  One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "index/CardIndex.h"
#include "page/Footage.h"
#include "text/TimeText.h"

namespace card {

struct OverviewOptions {
    std::string path;             // of the card, for its name and the commands to copy
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

// For ViewerPage():
//   {"name": path, "zone": [[from, seconds east of UTC], ...], "list": as of ListJson.h,
//    "thumbs": [{"section": .., "time": .., "jpeg": base64}, ...]}, and with `footage` what AddFootage says.
std::string OverviewJson(const CardIndex& index, const OverviewOptions& options, const Footage* footage,
                         const PicturesDone& progress);

}  // namespace card
