// Real time from frame numbers and whole seconds: what no player may show as too fast, too slow or backwards.
#include "clip/FrameClock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace card {
namespace {

constexpr uint32_t kStart = 1772352000;

// What the recorder notes of pictures that happened at `moments` (s after the start).
std::vector<FrameMark> Noted(const std::vector<double>& moments) {
    std::vector<FrameMark> marks;
    for (size_t i = 0; i < moments.size(); ++i) {
        marks.push_back({i + 1, kStart + static_cast<uint32_t>(std::floor(moments[i]))});
    }
    return marks;
}

std::vector<double> Even(double rate, double seconds, double begin = 0) {
    std::vector<double> moments;
    for (int i = 0; i < std::lround(seconds * rate); ++i) moments.push_back(begin + i / rate);
    return moments;
}

std::vector<double> Joined(std::vector<double> first, const std::vector<double>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

double WorstError(const FrameTimes& times, const std::vector<double>& moments) {
    double worst = 0;
    for (size_t i = 0; i < moments.size(); ++i) {
        const double at = static_cast<double>(times.at[i] - Ticks{kStart} * kTicksPerSecond) / kTicksPerSecond;
        worst = std::max(worst, std::abs(at - moments[i]));
    }
    return worst;
}

bool Rises(const FrameTimes& times) {
    return std::adjacent_find(times.at.begin(), times.at.end(), std::greater_equal<>()) == times.at.end();
}

TEST(FrameClock, EvenRunsAreExactAtEveryRate) {
    for (const uint32_t rate : {1u, 5u, 12u, 15u, 20u, 25u, 30u, 60u}) {
        const std::vector<double> moments = Even(rate, 90);
        const FrameTimes times = TimeFrames(Noted(moments), rate);
        EXPECT_LT(WorstError(times, moments), 1e-4) << rate;
        EXPECT_EQ(times.steady_rate, rate);
        EXPECT_EQ(times.frame_duration, kTicksPerSecond / rate);
    }
}

TEST(FrameClock, FollowsWhatReallyHappened) {
    const struct {
        const char* name;
        uint32_t stated;
        std::vector<double> moments;
        double within;  // s
    } kCases[] = {
        {"begun within a second", 15, Even(15, 20, 0.7), 1.0 / 15},
        {"12, not 25", 25, Even(12, 600), 1},
        {"24.6, not 25", 25, Even(24.6, 600), 1},
        {"14.985, not 30", 30, Even(14.985, 600), 1},
        {"no rate stated", 0, Even(15, 600), 1},
        {"30, not 15", 15, Even(30, 600), 1},
        {"a stall", 25, Joined(Even(25, 20), Even(25, 20, 31)), 0.1},
        {"half the rate at night", 25, Joined(Even(25, 60), Even(12, 60, 60)), 1.5},
    };
    for (const auto& c : kCases) {
        const FrameTimes times = TimeFrames(Noted(c.moments), c.stated);
        EXPECT_LT(WorstError(times, c.moments), c.within) << c.name;
        EXPECT_TRUE(Rises(times)) << c.name;
    }
}

TEST(FrameClock, NeverRunsBackwards) {
    // The clock was set back by 40 s.
    const FrameTimes times = TimeFrames(Noted(Joined(Even(25, 30, 40), Even(25, 30, 30))), 25);
    EXPECT_TRUE(Rises(times));
    EXPECT_NEAR(static_cast<double>(times.at.back() - times.at.front()) / kTicksPerSecond, 60, 1.5);
}

TEST(FrameClock, AnyMarksGiveRisingTimes) {
    std::mt19937 random(20261121);
    for (int round = 0; round < 200; ++round) {
        std::vector<FrameMark> marks;
        uint64_t index = 0;
        for (uint32_t count = random() % 60; count > 0; --count) {
            index += 1 + (random() % 10 == 0 ? random() % 1000000 : 0);
            marks.push_back({index, random() % 3 == 0 ? static_cast<uint32_t>(random()) : kStart});
        }
        const FrameTimes times = TimeFrames(marks, random() % 256);
        EXPECT_EQ(times.at.size(), marks.size());
        EXPECT_TRUE(Rises(times)) << "round " << round;
    }
}

}  // namespace
}  // namespace card
