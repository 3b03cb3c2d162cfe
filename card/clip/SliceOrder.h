// Picture order counts out of slice headers (ITU-T H.264, 8.2.1; ITU-T H.265, 8.3.1).
//
// A stream that resets its count by a memory operation in the midst of a sequence is not followed there.
#pragma once

#include "clip/PictureOrder.h"

namespace card {

// For the pictures of one stretch.
ReadOrder SliceOrder(VideoCodec codec);

}  // namespace card
