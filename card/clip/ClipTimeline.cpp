#include "clip/ClipTimeline.h"

namespace card {

bool ClipTimeline::Enter(Ticks at) {
    if (!end_) {
        StartFile(at);
        return false;
    }
    const Ticks gap = Place(at) - *end_;
    const bool left_out = gap > kGapMax;
    if (left_out || gap < kSeamMax) removed_ += gap;
    return left_out;
}

void ClipTimeline::Shown(Ticks at, Ticks duration) {
    end_ = Place(at) + duration;
}

}  // namespace card
