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

TEST(FrameClock, FindsTheFractionOfASecondInWhichARunBegan) {
    const std::vector<double> moments = Even(15, 20, 0.7);
    EXPECT_LT(WorstError(TimeFrames(Noted(moments), 15), moments), 1.0 / 15);
}

TEST(FrameClock, MeasuresWhereTheStatedRateIsWrong) {
    for (const auto& [stated, real] : {std::pair{25u, 12.0}, {25u, 24.6}, {30u, 14.985}, {0u, 15.0}, {15u, 30.0}}) {
        const std::vector<double> moments = Even(real, 600);
        const FrameTimes times = TimeFrames(Noted(moments), stated);
        EXPECT_LT(WorstError(times, moments), 1.0) << stated << " " << real;
        EXPECT_TRUE(Rises(times));
    }
}

TEST(FrameClock, KeepsAHoleWhereTheStreamStalled) {
    std::vector<double> moments = Even(25, 20);
    for (const double moment : Even(25, 20, 31)) moments.push_back(moment);
    const FrameTimes times = TimeFrames(Noted(moments), 25);
    EXPECT_LT(WorstError(times, moments), 0.1);
    EXPECT_TRUE(Rises(times));
}

TEST(FrameClock, FollowsACameraThatHalvesItsRateAtNight) {
    std::vector<double> moments = Even(25, 60);
    for (const double moment : Even(12, 60, 60)) moments.push_back(moment);
    const FrameTimes times = TimeFrames(Noted(moments), 25);
    EXPECT_LT(WorstError(times, moments), 1.5);
    EXPECT_TRUE(Rises(times));
}

TEST(FrameClock, NeverRunsBackwards) {
    std::vector<double> moments = Even(25, 30, 40);
    for (const double moment : Even(25, 30, 30)) moments.push_back(moment);  // the clock was set back by 40 s
    const FrameTimes times = TimeFrames(Noted(moments), 25);
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
