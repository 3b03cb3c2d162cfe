// Pictures that are shown in another order than they are decoded in: the rules for their numbers.
#include <gtest/gtest.h>

#include "clip/PictureOrder.h"

namespace {

using card::OrderPictures;
using card::PictureNumber;
using card::ShownOrder;

// Its key frame lost, a sequence counts from low numbers again in the midst of another.
TEST(PictureOrder, ASequenceThatNoDecoderHoldsStaysAsItIs) {
    std::vector<PictureNumber> numbers;
    for (int32_t i = 0; i < 50; ++i) numbers.push_back({1, i % 25, false});
    const ShownOrder order = OrderPictures(numbers);
    EXPECT_EQ(order.place[25], 25u);
    EXPECT_EQ(order.delay, 0u);
}

TEST(Orientation, IsReadFromTheStream) {
    // A quarter turn, after a message of another kind; with both flips and a three to be left out.
    const std::vector<uint8_t> h264 = {0, 0, 1, 0x06, 0x05, 1, 0xAA, 0x2F, 3, 0x08, 0x00, 0x10, 0x80};
    const auto quarter = card::OrientationOf(card::VideoCodec::H264, h264);
    ASSERT_TRUE(quarter);
    EXPECT_EQ(quarter->anticlockwise, 90);
    const std::vector<uint8_t> h265 = {0, 0, 1, 0x4E, 0x01, 0x2F, 4, 0x70, 0x00, 0x00, 0x03, 0x01, 0x80};
    const auto half = card::OrientationOf(card::VideoCodec::H265, h265);
    ASSERT_TRUE(half);
    EXPECT_EQ(half->anticlockwise, 180);
    EXPECT_TRUE(half->flip_horizontally && half->flip_vertically);
    EXPECT_FALSE(card::OrientationOf(card::VideoCodec::H264, h265));
}

}  // namespace
