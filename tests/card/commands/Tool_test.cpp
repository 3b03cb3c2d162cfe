// The program as its users meet it: what it prints, how it ends, what it leaves alone.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "fixture/CardFixture.h"
#include "fixture/Folder.h"

namespace {

using namespace fixture;
using ::testing::_;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace fs = std::filesystem;

// 2026-03-01 23:59:00 UTC, over midnight.
const Card kNight{
    .files = 2,
    .start = 1772409540,
    .sections = {{.seconds = 30}, {.seconds = 40, .pause = 10, .rate = 12}, {.seconds = 2, .pause = 3600}},
    .events = {{.after = 45, .seconds = 12, .type = 1}, {.after = 55, .seconds = 0, .type = 40}},
};

TEST(Tool, ListsSectionsByDayWithGaps) {
    const Place place;
    kNight.RecordFolder(place);
    const Outcome list = Tool({"list", place});
    EXPECT_THAT(list, Ends(0, "",
                           ::testing::ContainsRegex(
                               "^2026-03-01 Sunday\n"
                               "  23:59:00 - 23:59:29   29 s                0:1   +[0-9.]+ [KM]iB  H.264 "
                               "320x240 25 fps, G.711 A-law, 30 key frames\n"
                               "  23:59:29 - 23:59:40   11 s              -- nothing recorded --\n"
                               "  23:59:40 - 00:00:19\\+  39 s                0:2   +[0-9.]+ [KM]iB  H.264 "
                               "320x240 12 fps, G.711 A-law, 40 key frames\n"
                               "\n"
                               "2026-03-02 Monday   \\(nothing recorded for 1 h 00 min 01 s before\\)\n"
                               "  01:00:20 - 01:00:21   1 s                 0:3   +[0-9.]+ [KM]iB  H.264 "
                               "320x240 25 fps, G.711 A-law, 2 key frames\n"
                               "\n"
                               "3 sections, 1 min 09 s, [0-9.]+ MiB; 2 gaps\n$")));
    const Outcome keys = Tool({"list", "--key-frames", place});
    EXPECT_THAT(keys.out, AllOf(HasSubstr("\n      23:59:00  at 0, "), HasSubstr("\n      01:00:21  at ")));
    const Outcome json = Tool({"list", "--json", place});
    EXPECT_THAT(
        json.out,
        AllOf(StartsWith("{\"start\":1772409540,\"end\":1772413221,\"bytes\":"),
              HasSubstr("\"sections\":[{\"file\":0,\"section\":1,\"start\":1772409540,\"end\":1772409569,"),
              HasSubstr("\"video\":\"H.264\",\"width\":320,\"height\":240,\"rate\":12,\"audio\":\"G.711 A-law\","
                        "\"keyFrames\":40,\"pictures\":480}"),
              HasSubstr("\"gaps\":[{\"start\":1772409569,\"end\":1772409580},{"),
              HasSubstr("\"events\":[{\"number\":1,\"start\":1772409585,\"end\":1772409597,\"open\":false,"
                        "\"type\":1,\"kind\":\"motion\",\"file\":0},{\"number\":2,"),
              EndsWith("}],\"lost\":[],\"unread\":[],\"wholeDirectory\":true}\n")));
}

TEST(Tool, ListsEventsAndTellsTheCardAtAGlance) {
    const Place place;
    kNight.RecordFolder(place);
    EXPECT_EQ(Tool({"events", place}).out,
              "    1  2026-03-01 23:59:45  12 s              motion              file 0\n"
              "    2  2026-03-01 23:59:55  still open        input and motion, smart event  file 0\n");
    EXPECT_THAT(Tool({"info", place}).out,
                AllOf(HasSubstr("Record files    2 of 256 MiB, 1 in use, recording goes on in number 0\n"),
                      HasSubstr("in 3 sections, 2 events\n"), HasSubstr("Oldest moment   2026-03-01 23:59:00\n"),
                      HasSubstr("Newest moment   2026-03-02 01:00:21\n"), HasSubstr(" Mbit/s at present\nKeeps ")));
}

TEST(Tool, SaysSoWhenNothingIsRecordedOrEntriesAreDamaged) {
    const Place blank;
    Card{}.RecordFolder(blank);
    EXPECT_EQ(Tool({"list", blank}).out, "Nothing is recorded on " + blank.Path() + " yet.\n");
    EXPECT_EQ(Tool({"events", blank}).status, 0);
    EXPECT_THAT(Tool({"info", blank}).out, HasSubstr("Oldest moment   nothing recorded yet\n"));

    const Place damaged;
    kNight.RecordFolder(damaged).Corrupt("index000.bin", 131072 + 64, "junk");
    EXPECT_THAT(Tool({"list", damaged}),
                Ends(0, HasSubstr("1 damaged entries of the index are left out; \"recordcard check\"")));
}

TEST(Tool, EndsWithTheStatusThatScriptsExpect) {
    const Place place;
    std::ofstream(place.Path()) << std::string(1 << 20, 'x');
    EXPECT_THAT(Tool({"--help"}).out, AllOf(HasSubstr("format"), HasSubstr("info"), HasSubstr("list"),
                                            HasSubstr("events"), HasSubstr("mount"), HasSubstr("Exit status")));
    EXPECT_EQ(Tool({"--help"}).status, 0);
    EXPECT_EQ(Tool({}).status, 2);
    EXPECT_EQ(Tool({"list"}).status, 2);
    EXPECT_EQ(Tool({"lost", place}).status, 2);
    EXPECT_EQ(Tool({"check", "/nowhere"}).status, 3);
    EXPECT_THAT(Tool({"list", place}), Ends(3, HasSubstr("holds no FAT32 volume")));
    EXPECT_THAT(Tool({"list", "/tmp"}), Ends(3, HasSubstr("has no index000.bin")));
}

TEST(Tool, CountsWhatCanBeSeenAndSaysWhereNothingIs) {
    const Place place;
    Card{.files = 2,
         .start = 1772409540,
         .sections = {{.seconds = 3, .wait = 10}, {.seconds = 5, .pause = 100, .wait = 20}},
         .events = {{.after = 1, .seconds = 1}, {.after = 104, .seconds = 1}}}
        .RecordFolder(place);
    const Outcome list = Tool({"list", place});
    EXPECT_THAT(list.out, AllOf(HasSubstr("23:58:50 - 23:59:00   10 s              -- asked for, no picture yet --"),
                                HasSubstr("23:59:00 - 23:59:02   2 s "), HasSubstr("2 sections, 6 s")));
    const auto json = nlohmann::json::parse(Tool({"list", "--json", place}).out);
    EXPECT_EQ(json.at("sections").at(1).at("start"), 1772409643);
    EXPECT_EQ(json.at("sections").at(1).at("asked"), 1772409623);
    EXPECT_EQ(nlohmann::json::parse(Tool({"info", "--json", place}).out).at("newest"), 1772409647);
    EXPECT_EQ(nlohmann::json::parse(Tool({"events", "--json", place}).out).at("events").size(), 2u);
    const Place folder;
    fs::create_directories(folder.Path());
    const std::string clip = folder.Path() + "/clip.mp4";
    EXPECT_THAT(Tool({"export", place, clip, "--from", "23:59:10", "--to", "23:59:20"}),
                Ends(4, HasSubstr("Nothing was recorded then")));
    EXPECT_EQ(Tool({"export", place, clip, "--from", "23:58:51", "--to", "23:58:55"}).status, 4);
    EXPECT_TRUE(fs::is_empty(folder.Path()));
    EXPECT_EQ(Tool({"export", place, clip, "--event", "all"}).status, 0);
    EXPECT_TRUE(fs::exists(folder.Path() + "/clip-event1.mp4") && fs::exists(folder.Path() + "/clip-event2.mp4"));
}

TEST(Tool, NamesCardsOfOtherFormats) {
    const struct {
        const char* name;
        size_t offset;
        std::string mark;
    } kCases[] = {
        {"exFAT", 3, "EXFAT   "}, {"FAT16", 54, "FAT16   "}, {"never formatted", 0, ""}, {"ext4", 1080, "\x53\xEF"}};
    for (const auto& other : kCases) {
        const Place image;
        std::ofstream(image.Path()) << std::string(2 << 20, '\0');
        std::fstream file(image.Path());
        file.seekp(static_cast<std::streamoff>(other.offset));
        file << other.mark;
        file.close();
        EXPECT_THAT(Tool({"list", image}), Ends(3, AllOf(HasSubstr(other.name), HasSubstr("recordcard format"))));
    }
}

TEST(Tool, KnowsItself) {
    EXPECT_THAT(Tool({"--version"}).out, ::testing::StartsWith("recordcard "));
    EXPECT_THAT(Tool({"manual"}).out, AllOf(HasSubstr(".SS export"), HasSubstr("\\-\\-to\\-stdout")));
    EXPECT_THAT(Tool({"completion"}).out, HasSubstr("complete -o filenames -F _recordcard recordcard"));
}

// Whatever way leads to the card, nothing is written onto it but by a repair in place.
TEST(Tool, NeverWritesOntoTheCardItReads) {
    const Place image;
    const Recording recording = kNight.RecordImage(image);
    recording.Corrupt(RECORD_INDEX_NAME, 24, "\7");  // so that there is something to repair
    const Place folder;
    kNight.RecordFolder(folder).Corrupt(RECORD_INDEX_NAME, 24, "\7");
    const Place links;
    fs::create_directories(links.Path());
    const std::string hard = links.Path() + "/hard.html";
    const std::string symbolic = links.Path() + "/symbolic.mp4";
    const std::string below = links.Path() + "/below";
    const std::string bound = links.Path() + "/bound";
    const std::string mounted = links.Path() + "/mounted";
    fs::create_hard_link(image.Path(), hard);
    fs::create_symlink(image.Path(), symbolic);
    fs::create_directories(folder.Path() + "/deep/er");
    fs::create_symlink(folder.Path() + "/deep", below);
    fs::create_directories(bound);
    fs::create_directories(mounted);
    ASSERT_EQ(mount(folder.Path().c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(Tool({"mount", image, mounted}).status, 0);
    const std::vector<std::string> kCases[] = {
        {"timeline", image, image, "--force"},
        {"timeline", image, hard, "--force"},
        {"timeline", folder, folder.Path() + "/page.html"},
        {"timeline", image, mounted + "/page.html"},
        {"export", image, symbolic, "--all", "--force"},
        {"export", folder, folder.Path() + "/deep/er/all.mp4", "--all"},
        {"export", folder, below + "/er/all.mp4", "--all"},
        {"export", folder, bound + "/deep/all.mp4", "--all"},
        {"repair", "--out", folder.Path() + "/deep/copy", folder},
        {"repair", "--out", bound + "/copy", folder},
        {"repair", "--out", image, image},
        {"repair", "--out", mounted + "/copy.img", image},
    };
    const auto changed = fs::last_write_time(image.Path());
    for (const std::vector<std::string>& arguments : kCases) {
        EXPECT_THAT(Tool(arguments), Ends(2, HasSubstr("the card itself"))) << ::testing::PrintToString(arguments);
    }
    EXPECT_EQ(fs::last_write_time(image.Path()), changed);
    EXPECT_TRUE(fs::is_empty(folder.Path() + "/deep/er"));
    EXPECT_EQ(umount(bound.c_str()), 0);
    EXPECT_EQ(umount(mounted.c_str()), 0);
}

TEST(Format, MakesAnImageOfTheSizeAskedFor) {
    const Place place;
    EXPECT_THAT(Tool({"format", "--size", "2304M", "--video-percent", "60", place}),
                Ends(0, _, HasSubstr("2.2 GiB, 3 record files, 2 picture files of 256 MiB each.")));
    EXPECT_EQ(fs::file_size(place.Path()), 2304ull << 20);
    EXPECT_THAT(Tool({"list", place}).out, HasSubstr("Nothing is recorded"));
}

TEST(Format, TouchesNothingThatItMayNot) {
    const Place place;
    std::ofstream(place.Path()) << "precious";
    const Outcome unasked = Tool({"format", "--size", "2G", place});  // nobody answers the question
    EXPECT_EQ(unasked.status, 2);
    EXPECT_THAT(unasked.out, HasSubstr("This erases everything on " + place.Path()));
    EXPECT_EQ(ReadAll(place), "precious");
    EXPECT_EQ(Tool({"format", "--yes", place}).status, 3) << "eight bytes are no card";
    EXPECT_EQ(Tool({"format", "--yes", "--size", "1G", place}).status, 3) << "no room for a record file";
    for (const char* size : {"", "0", "big", "2T", "-1", "2GG"}) {
        EXPECT_EQ(Tool({"format", "--yes", "--size", size, place}).status, 2) << size;
    }
    EXPECT_EQ(Tool({"format", "--yes", "--video-percent", "0", place}).status, 2);
    EXPECT_EQ(Tool({"format", "--yes", "--video-percent", "101", place}).status, 2);
    EXPECT_EQ(ReadAll(place), "precious");

    const Place missing;
    EXPECT_EQ(Tool({"format", "--yes", missing}).status, 3);
    EXPECT_EQ(Tool({"format", "--yes", "--size", "1G", missing}).status, 3);
    EXPECT_FALSE(fs::exists(missing.Path())) << "a refused format created its file";
}

// An image mounted for as long as it lives.
class Mounted {
  public:
    Mounted(const std::string& image, const std::string& folder, const std::vector<std::string>& options = {})
        : folder_(folder) {
        fs::create_directories(folder);
        std::vector<std::string> command = {"mount", image, folder};
        command.insert(command.end(), options.begin(), options.end());
        EXPECT_THAT(Tool(command), Ends(0));
    }
    ~Mounted() { EXPECT_EQ(umount(folder_.c_str()), 0); }

  private:
    std::string folder_;
};

TEST(Mount, ShowsTheImageUnderTheNameAskedForAndToOneWriterOnly) {
    const Place place;
    const Place folder;
    kNight.RecordImage(place);  // written through a mount that is gone by now
    const Mounted mounted(place, folder, {"--fsname", "/dev/mmcblk0p1"});
    EXPECT_EQ(Tool({"list", folder}).out, Tool({"list", place}).out);
    EXPECT_THAT(RunProgram({"grep", folder, "/proc/self/mounts"}).out, HasSubstr("/dev/mmcblk0p1 "));
    EXPECT_THAT(Tool({"mount", place, folder}), Ends(3, HasSubstr("is being written by another program")));
}

TEST(Mount, LetsNobodyChangeTheLayoutOfTheCard) {
    const Place place;
    const Place folder;
    Card{.files = 1}.RecordImage(place);
    const Mounted mounted(place, folder);
    const std::string file = folder.Path() + "/hi000000.mp4";
    const auto failure = [](int result) { return result >= 0 ? 0 : errno; };
    EXPECT_EQ(failure(open((folder.Path() + "/new").c_str(), O_RDWR | O_CREAT, 0666)), EPERM);
    EXPECT_EQ(failure(open(file.c_str(), O_RDWR | O_TRUNC)), EPERM);
    EXPECT_EQ(failure(unlink(file.c_str())), EPERM);
    EXPECT_EQ(failure(rename(file.c_str(), (folder.Path() + "/b").c_str())), EPERM);
    EXPECT_EQ(failure(mkdir((folder.Path() + "/d").c_str(), 0777)), EPERM);
    EXPECT_EQ(failure(truncate(file.c_str(), 5)), EPERM);
    EXPECT_EQ(failure(truncate(file.c_str(), 256 << 20)), 0);
    EXPECT_EQ(fs::file_size(file), 256u << 20);

    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_GE(fd, 0) << "an existing file opens as the recorder opens it";
    char bytes[8] = "sixteen";
    EXPECT_EQ(pwrite(fd, bytes, 8, (256 << 20) - 8), 8);
    EXPECT_EQ(pwrite(fd, bytes, 8, 256 << 20), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(pread(fd, bytes, 8, (256 << 20) - 4), 4);
    EXPECT_EQ(fsync(fd), 0);
    EXPECT_EQ(close(fd), 0);

    const Place elsewhere;
    const Mounted read_only(place, elsewhere, {"--read-only"});
    EXPECT_EQ(failure(open((elsewhere.Path() + "/index000.bin").c_str(), O_RDWR | O_CLOEXEC)), EROFS);
}

}  // namespace
