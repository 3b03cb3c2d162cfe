#include "Rhythm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

namespace {

constexpr int kPicture = 0, kSound = 7;
constexpr int64_t kMs = 1000;
constexpr int64_t kWake = 70;     // us that a sleep lasts longer than asked
constexpr int64_t kTaking = 100;  // us that a client takes for a frame

struct Record {
    int64_t at;
    int kind;
};
using Stream = std::vector<Record>;
using Jitter = std::function<double()>;  // ms

std::mt19937 g_random(249);

const Jitter kExact = [] { return 0.0; };

Jitter Late(double mean) {
    return [=] { return std::exponential_distribution<>(1 / mean)(g_random); };
}
Jitter Normal(double deviation) {
    return [=] { return std::normal_distribution<>(0, deviation)(g_random); };
}
Jitter Uniform(double width) {
    return [=] { return std::uniform_real_distribution<>(-width, width)(g_random); };
}

// Two minutes of records every `interval` ms, the first after `offset`.
Stream Beat(double interval, const Jitter& jitter, int kind = kPicture, double offset = 0) {
    Stream stream;
    double last = 0;
    for (double at = 1000 + offset; at < 121000; at += interval) {
        last = std::max(last, at + jitter());
        stream.push_back({static_cast<int64_t>(last * kMs), kind});
    }
    return stream;
}
Stream operator+(Stream a, const Stream& b) {
    a.insert(a.end(), b.begin(), b.end());
    std::stable_sort(a.begin(), a.end(), [](const Record& x, const Record& y) { return x.at < y.at; });
    return a;
}
Stream Then(Stream a, const Stream& b, double gap) {  // `gap`: ms from a's last record to b's first
    const int64_t shift = a.back().at + static_cast<int64_t>(gap * kMs) - b.front().at;
    for (const Record& record : b) a.push_back({record.at + shift, record.kind});
    return a;
}
struct Reading {
    double looks_a_second;
    int64_t worst;  // us from a record's coming to its being found
    int64_t median;
    int late;  // records found more than 10 ms later than a look every 2 ms would have
};

Reading Read(const Stream& stream) {
    Rhythm rhythm;
    std::vector<int64_t> delays;
    int looks = 0;
    int64_t now = stream.front().at - 5 * kMs;
    for (size_t next = 0; next < stream.size(); ++looks) {
        for (; next < stream.size() && stream[next].at <= now; ++next) {
            delays.push_back(now - stream[next].at);
            rhythm.Found(stream[next].kind, now);
            now += kTaking;
        }
        const int64_t sleep = rhythm.NothingAt(now);
        EXPECT_GE(sleep, Rhythm::kShortest);
        EXPECT_LE(sleep, Rhythm::kLongest);
        now += sleep / kMs * kMs + kWake;
    }
    std::sort(delays.begin(), delays.end());
    const auto is_late = [](int64_t delay) { return delay > Rhythm::kShortest + kWake + 10 * kMs; };
    return {looks * 1e6 / static_cast<double>(stream.back().at - stream.front().at), delays.back(),
            delays[delays.size() / 2], static_cast<int>(std::count_if(delays.begin(), delays.end(), is_late))};
}

// What nobody could have foreseen waits for the end of a sleep, but only three times: the first of them may fall to a
// record that was taken on trust.
TEST(Rhythm, LooksSeldomAndInTime) {
    Stream sound_for_5_s = Beat(25, kExact, kSound, 7), five_kinds;
    sound_for_5_s.resize(200);
    for (int kind = 0; kind < 5; ++kind) five_kinds = five_kinds + Beat(200, kExact, kind, 40 * kind);
    struct Case {
        const char* name;
        Stream stream;
        double looks;  // a second, at most
        double worst;  // ms, at most
        int late = 3;  // at most
    };
    const Case cases[] = {
        {"pictures alone", Beat(40, kExact), 42, 2.3},
        {"with sound in step", Beat(40, kExact) + Beat(40, kExact, kSound, 0.3), 48, 2.3},
        {"with sound out of step", Beat(40, kExact) + Beat(40, kExact, kSound, 13), 76, 2.3},
        {"with AAC of 8 kHz", Beat(40, kExact) + Beat(1024 / 8.0, kExact, kSound, 5), 60, 3.6},
        {"with sound that ceases", Beat(40, kExact) + sound_for_5_s, 60, 11},
        {"with a single sound", Beat(40, kExact) + Stream{{10005 * kMs, kSound}}, 60, 40, 1},
        {"more kinds than beats", five_kinds, 490, 2.3},
        {"a loaded camera", Beat(40, Late(2)), 75, 6.5},
        {"much jitter", Beat(40, Normal(3)), 490, 10.5},
        {"no beat", Beat(40, Uniform(20)), 490, 9},
        {"1 a second", Beat(1000, Late(0.3)), 160, 2.3},
        {"29.97 a second", Beat(1001 / 30.0, Late(0.3)), 50, 3.5},
        {"60 a second", Beat(1000 / 60.0, Late(0.3)), 95, 3.5},
        {"half the rate from now on", Then(Beat(40, kExact), Beat(80, kExact), 80), 42, 2.3},
        {"twice the rate from now on", Then(Beat(80, kExact), Beat(40, kExact), 40), 42, 9},
        {"a little faster from now on", Then(Beat(40, kExact), Beat(1000 / 30.0, kExact), 1000 / 30.0), 46, 14},
        {"shifted", Then(Beat(40, kExact), Beat(40, kExact), 15), 42, 40},
    };
    for (const Case& c : cases) {
        const Reading reading = Read(c.stream);
        EXPECT_LE(reading.looks_a_second, c.looks) << c.name;
        EXPECT_LE(reading.worst, c.worst * kMs) << c.name;
        EXPECT_LE(reading.median, 1.8 * kMs) << c.name;
        EXPECT_LE(reading.late, c.late) << c.name;
    }
}

// A client that takes long finds records waiting: they say nothing about the next one, which may be due at once.
TEST(Rhythm, RecordsThatLieWaitingPutNothingOff) {
    const int64_t interval = 40 * kMs;
    Rhythm rhythm;
    int64_t due = 1000 * kMs;
    for (int i = 0; i < 100; ++i, due += interval) {
        rhythm.NothingAt(due - kMs);
        rhythm.Found(kPicture, due + kMs);
    }
    const int64_t now = due + 4 * interval + 35 * kMs;  // the fifth is there, the sixth comes in 5 ms
    for (int i = 0; i < 5; ++i) rhythm.Found(kPicture, now);
    EXPECT_LE(rhythm.NothingAt(now), 7 * kMs);
}

}  // namespace
