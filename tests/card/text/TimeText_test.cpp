#include "text/TimeText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "text/Error.h"

namespace {

using card::TimeStyle;

class TimeText : public ::testing::Test {
  protected:
    void SetUp() override { InZone("CET-1CEST,M3.5.0,M10.5.0/3"); }
    void TearDown() override { InZone("UTC"); }
    static void InZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

constexpr uint32_t kWinter = 1795244405;  // 2026-11-21 08:00:05 +01:00

TEST_F(TimeText, ShowsTheComputersTimeOrUtc) {
    EXPECT_EQ(TimeStyle{}.Iso(kWinter - 3600 * 24 * 150), "2026-06-24T09:00:05+02:00");
    EXPECT_EQ(TimeStyle{}.DateTime(kWinter), "2026-11-21 08:00:05");
    EXPECT_EQ(TimeStyle{}.Weekday(kWinter), "Saturday");
    EXPECT_EQ(TimeStyle{.utc = true}.Iso(kWinter), "2026-11-21T07:00:05Z");
    EXPECT_EQ(TimeStyle{.utc = true}.Compact(kWinter), "20261121-070005");
    EXPECT_EQ(TimeStyle{.utc = true}.DateTime(UINT32_MAX), "2106-02-07 06:28:15");
}

TEST_F(TimeText, ReadsWhatAnOwnerWrites) {
    const struct {
        const char* text;
        uint32_t seconds;
    } cases[] = {
        {"2026-11-21 08:00:05", kWinter},
        {"2026-11-21T08:00:05", kWinter},
        {"2026-11-21T08:00", kWinter - 5},
        {"2026-11-21 07:00:05Z", kWinter},
        {"08:00:05", kWinter},
        {"08:00", kWinter - 5},
        {"2026-11-21T10:30:05+03:30", kWinter},
        {"07:00:05Z", kWinter},
        {"2026-11-21", kWinter - 8 * 3600 - 5},
        {"2026-11-21T02:00:05-05:00", kWinter},
    };
    for (const auto& c : cases) EXPECT_EQ(TimeStyle{}.Parse(c.text, kWinter), c.seconds) << c.text;
    EXPECT_EQ(TimeStyle{}.Parse("2026-11-21", {}, true), kWinter - 5 + 16 * 3600 - 1);
    EXPECT_EQ(TimeStyle{.utc = true}.Parse("2026-11-21 07:00:05", {}), kWinter);
}

TEST_F(TimeText, RefusesWhatIsNoTime) {
    for (const char* text :
         {"", "yesterday", "25:00", "08:60", "2026-13-01", "2026-02-30", "2026-11-21x", "2026-11-21 8:00",
          "08:00:05:01", "2026-11-21T08:00+1", "1969-12-31", "2106-02-08Z", "12"}) {
        EXPECT_THROW(TimeStyle{}.Parse(text, kWinter), card::CardError) << text;
    }
    EXPECT_THROW(TimeStyle{}.Parse("08:00", {}), card::CardError) << "which day?";
}

TEST(Amounts, AreReadable) {
    EXPECT_EQ(card::Duration(5), "5 s");
    EXPECT_EQ(card::Duration(125), "2 min 05 s");
    EXPECT_EQ(card::Duration(3600 * 30 + 62), "30 h 01 min 02 s");
    EXPECT_EQ(card::Bytes(1023), "1023 bytes");
    EXPECT_EQ(card::Bytes(261095424), "249.0 MiB");
    EXPECT_EQ(card::Bytes((1ull << 30) - 1), "1.0 GiB");
}

}  // namespace
