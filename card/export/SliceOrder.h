// Picture order counts, as FFmpeg's parser reads them.
#pragma once

#include "clip/PictureOrder.h"

namespace card {

// For the pictures of one stretch.  Throws CardError when FFmpeg lacks the parser.
ReadOrder SliceOrder(VideoCodec codec);

}  // namespace card
