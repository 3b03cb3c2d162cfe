// The page of a card that is not there.  What a browser makes of it: tests/viewer.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"
#include "index/CardIndex.h"
#include "page/Overview.h"

namespace {

using namespace fixture;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

class Timeline : public Folder {
  protected:
    std::string Made(const Recording& card, std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"timeline", card.path, Path("page.html"), "--force"});
        EXPECT_THAT(Tool(more), Ends(0));
        return Path("page.html");
    }
};

size_t Pictures(const std::string& page) {
    const std::regex picture("\"jpeg\"");
    const std::string text = ReadAll(page);
    return static_cast<size_t>(std::distance(std::sregex_iterator(text.begin(), text.end(), picture), {}));
}

TEST_F(Timeline, PicturesAreBoundedAndSpread) {
    const Recording recording = Card{.sections = {{.seconds = 20},
                                                  {.seconds = 20, .pause = 86400, .video = CODE_VIDEO_H265},
                                                  {.seconds = 10, .pause = 1},
                                                  {.seconds = 10, .pause = 600}}}
                                    .RecordFolder(Path("card"));
    const card::Volume volume = card::Volume::Open(recording.path);
    const card::CardIndex index(volume);
    for (const size_t max : {size_t{0}, size_t{1}, size_t{4}, size_t{7}, size_t{1000}}) {
        const std::vector<card::Wanted> wanted = card::ChoosePictures(index, max);
        EXPECT_LE(wanted.size(), max);
        EXPECT_TRUE(max < 4 || wanted.front().section == 0) << max;
    }
    EXPECT_EQ(card::ChoosePictures(index, 1000).back().section, 3u);
    EXPECT_EQ(Pictures(Made(recording, {"--thumbnails", "3"})), 3u);
    EXPECT_EQ(Pictures(Made(recording, {"--thumbnails", "0"})), 0u);
}

TEST_F(Timeline, LeavesOutADamagedPictureAndOverwritesNothing) {
    const Recording card = Card{.sections = {{.seconds = 12}}}.RecordFolder(Path("card"));
    const WrittenFrame& first = *card.KeptVideo().front();
    card.Corrupt("hi000000.mp4", first.offset, std::string(first.size, '\x5A'));
    EXPECT_EQ(Pictures(Made(card)), 2u) << "the other pictures are there";

    std::ofstream(Path("mine.html")) << "mine";
    EXPECT_EQ(Tool({"timeline", card.path, Path("mine.html")}).status, 2);
    EXPECT_EQ(ReadAll(Path("mine.html")), "mine");
}

TEST_F(Timeline, FootageInThePageIsBoundedAndRefusalsLeaveNothing) {
    const Recording recording = Card{.sections = {{.seconds = 20, .frame_bytes = 10000}}}.RecordFolder(Path("card"));
    const auto make = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"timeline", recording.path, Path("page.html"), "--utc"});
        return Tool(more);
    };
    EXPECT_THAT(make({"--clips", "--clips-max", "4"}),
                Ends(2, HasSubstr(" MiB of footage then, and the page is to hold 4.0 MiB")));
    EXPECT_EQ(make({"--clips", "--from", "2026-04-01"}).status, 4);
    EXPECT_EQ(make({"--clips", "--event", "7"}).status, 2);
    EXPECT_EQ(make({"--from", "08:00"}).status, 2) << "says nothing without --clips";
    EXPECT_EQ(std::distance(fs::directory_iterator(Path()), {}), 1) << "nothing is left over";
    EXPECT_EQ(make({"--clips", "--clips-max", "4", "--from", "08:00:05", "--to", "08:00:10"}).status, 0);
    EXPECT_LT(fs::file_size(Path("page.html")), 4u << 20);
}

}  // namespace
