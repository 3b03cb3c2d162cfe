// The order in which pictures are shown, where a stream has them in another one (B-frames).
//
// Reads the numbers that the slice headers carry; of a stretch it keeps one number a picture.  Pictures are
// shown at the times at which they were recorded, dealt out anew among those of a coded video sequence; a
// stream without B-frames keeps every time as it is.  Holds no state between stretches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "clip/Clip.h"
#include "stream/NalUnits.h"

namespace card {

struct PictureNumber {
    uint32_t sequence = 0;   // coded video sequence, rising: what follows is shown later
    int32_t order = 0;       // among the pictures of its sequence
    bool decodable = false;  // a leading picture that needs nothing from in front of its key frame
};

// Leading pictures after the first key frame that refer to what stands in front of it; nothing can show them.
size_t LostLeading(std::span<const PictureNumber> numbers, std::vector<bool>& lost);

struct ShownOrder {
    std::vector<size_t> place;  // of each picture among those shown
    size_t delay = 0;           // pictures by which decoding has to run ahead; 0: both orders are the same
};
// A sequence that no decoder could hold, as where a key frame was lost, keeps its order of decoding.
ShownOrder OrderPictures(std::span<const PictureNumber> numbers);

// Reads the picture order count from a picture's first bytes, which hold its first slice header; nothing when it
// cannot be read.  Gets the pictures of one stretch in the order of decoding, as each count builds on those before.
using ReadOrder = std::function<std::optional<int32_t>(ByteView unit)>;

// Sets `decoded` and `shown` of every picture listed, and takes out leading pictures that cannot be decoded.
void TimePictures(ClipReader& reader, VideoCodec codec, ClipStretch& stretch, const ReadOrder& read_order,
                  const BytesDone& done);

}  // namespace card
