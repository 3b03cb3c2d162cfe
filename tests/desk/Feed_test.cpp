// What goes in comes out: real files through the desk camera, judged by FFmpeg's command-line tools.
#include "Support.h"

using namespace desk;
using namespace desk_test;

namespace {

constexpr int kSeconds = 4;

// Makes a file of `kSeconds` at 25 pictures a second, with B-pictures where the codec has them.
std::string MakeFile(const std::string& name, const std::string& codecs) {
    const std::string path = "/tmp/desk_test_" + name;
    Shell("ffmpeg -v error -y -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine=frequency=300 -t " +
          std::to_string(kSeconds) + " " + codecs + " " + path);
    return path;
}

std::string Md5(const std::string& path) {
    return Shell("ffmpeg -v error -noautorotate -i " + path + " -map v -f md5 -");
}

// Feeds the file to its end; the streams lie in "/tmp/desk_test.0" and ".1" then.
void Feed(const std::string& input, const std::string& settings = Running::Small()) {
    DeskCameraOptions options;
    options.feed = {input, false, 20.0};
    options.dumps = {"/tmp/desk_test.0", "/tmp/desk_test.1"};
    Running camera(options, settings);
    camera.Join();
}

size_t Sounds() {
    const auto lines = ReadJournal(Running::kJournal);
    return static_cast<size_t>(
        std::ranges::count_if(lines, [](const Line& line) { return line.stream == 0 && !line.video; }));
}

TEST(Feed, H264AndH265PassThroughUnchanged) {
    for (const auto& [name, codecs] :
         {std::pair{"h264.mp4", "-c:v libx264 -g 30 -bf 3 -c:a aac"},
          std::pair{"h265.mkv", "-c:v libx265 -x265-params log-level=error:keyint=30 -c:a libmp3lame"},
          std::pair{"h264.ts", "-c:v libx264 -g 30 -x264-params aud=1 -c:a mp2"},
          std::pair{"silent.mp4", "-an -c:v libx264 -g 30"}}) {
        const std::string path = MakeFile(name, codecs);
        Feed(path);
        const std::string expected = Md5(path);
        EXPECT_EQ(Md5("/tmp/desk_test.0"), expected) << name;
        EXPECT_EQ(Md5("/tmp/desk_test.1"), expected) << name;
        const auto video = Running::Video(0);
        EXPECT_EQ(video.size(), kSeconds * 25U) << name;
        EXPECT_TRUE(video.front().key);
        EXPECT_GE(std::ranges::count_if(video, &Line::key), 4) << "every 30 frames";
        EXPECT_NEAR(static_cast<double>(Sounds()), kSeconds * 25, 5) << name;
    }
}

TEST(Feed, ATurnThatOnlyTheContainerKnowsGoesIntoTheStream) {
    const auto rotation = [](const std::string& of, const std::string& path) {
        return Shell("ffprobe -v error -read_intervals %+#1 -select_streams v -show_entries " + of +
                     "=rotation -of default=nk=1:nw=1 " + path);
    };
    for (const std::string codec : {"libx264", "libx265 -x265-params log-level=error"}) {
        const std::string upright = MakeFile("upright.mp4", "-t 1 -an -g 30 -c:v " + codec);
        for (const std::string turn : {"90", "180", "270"}) {
            const std::string turned = "/tmp/desk_test_turned.mp4";
            Shell("ffmpeg -v error -y -i " + upright + " -c copy -metadata:s:v:0 rotate=" + turn + " " + turned);
            const std::string asked = rotation("stream_side_data", turned);
            ASSERT_NE(asked, "");
            Feed(turned);
            EXPECT_EQ(rotation("frame_side_data", "/tmp/desk_test.0"), asked) << codec << " " << turn;
            EXPECT_EQ(Md5("/tmp/desk_test.0"), Md5(turned));
        }
    }
}

TEST(Feed, OtherCodecsAreEncodedAsTheSettingsSay) {
    const std::string path = MakeFile("mpeg4.avi", "-c:v mpeg4 -q:v 2 -c:a mp3");
    for (const std::string type : {"0", "1"}) {
        Feed(path, "stream_config[0].width = 160\nstream_config[0].height = 96\nlan_config.nEncodingType1 = " + type);
        EXPECT_EQ(Shell("ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames "
                        "-of csv=p=0 /tmp/desk_test.0"),
                  type == "0" ? "h264,160,96,100\n" : "hevc,160,96,100\n");
        // Each record is one whole access unit: no start code but a key frame's parameter sets stands in front of it.
        EXPECT_EQ(Running::Video(0).size(), 100U);
    }
}

TEST(Feed, ALoopGoesOnWithoutAJump) {
    DeskCameraOptions options;
    options.feed = {MakeFile("loop.mp4", "-t 1 -c:v libx264 -g 25 -c:a aac"), true, 10.0};
    Running camera(options);
    Running::WaitForVideo(0, 110);
    const auto video = Running::Video(0);
    for (size_t i = 0; i + 1 < 110; ++i) EXPECT_EQ(video[i].key, i % 25 == 0) << i;
}

TEST(Feed, SaysWhatIsWrongWithAnInput) {
    DeskCameraOptions options;
    options.feed.input = "/tmp/desk_test.nothing";
    EXPECT_THROW(DeskCamera camera(options), std::runtime_error);
    WriteText(options.feed.input, "no video at all");
    EXPECT_THROW(DeskCamera camera(options), std::runtime_error);
}

TEST(AccessUnit, TakesAnyFormAndAlwaysLooksTheSame) {
    const Bytes sps = {0x67, 1, 2, 3}, pps = {0x68, 4}, idr = {0x65, 7, 0, 0, 3, 1}, slice = {0x41, 9, 8};
    const auto unit = [](const std::vector<Bytes>& nals) {
        Bytes bytes;
        for (const Bytes& nal : nals) {
            bytes.insert(bytes.end(), {0, 0, 0, 1});
            bytes.insert(bytes.end(), nal.begin(), nal.end());
        }
        return bytes;
    };
    // Length-prefixed, parameter sets in the container's record.
    const Bytes record = {1, 0x64, 0, 31, 0xFF, 0xE1, 0, 4, 0x67, 1, 2, 3, 1, 0, 2, 0x68, 4};
    AccessUnitMaker lengths(VideoCodec::kH264, record);
    const AccessUnit key = lengths.Make(Bytes{0, 0, 0, 2, 0x09, 0xF0, 0, 0, 0, 6, 0x65, 7, 0, 0, 3, 1});
    EXPECT_TRUE(key.key);
    EXPECT_EQ(key.bytes, unit({sps, pps, idr})) << "without its delimiter, with its parameter sets";
    const AccessUnit plain = lengths.Make(Bytes{0, 0, 0, 3, 0x41, 9, 8});
    EXPECT_FALSE(plain.key);
    EXPECT_EQ(plain.bytes, unit({slice}));
    EXPECT_EQ(lengths.Make(Bytes{0, 0, 0, 3, 0x41, 9, 8, 0, 0, 0, 200, 1}).bytes, unit({slice}))
        << "a length that overruns";

    // With short start codes and trailing zeros, parameter sets in the stream and remembered from there.
    AccessUnitMaker codes(VideoCodec::kH264, {});
    EXPECT_EQ(codes.Make(Bytes{0, 0, 1, 0x67, 1, 2, 3, 0, 0, 1, 0x68, 4, 0, 0, 0, 1, 0x65, 7, 0, 0, 3, 1, 0}).bytes,
              unit({sps, pps, idr}));
    EXPECT_EQ(codes.Make(Bytes{0, 0, 1, 0x65, 7, 0, 0, 3, 1}).bytes, unit({sps, pps, idr}));
    EXPECT_TRUE(codes.Make(Bytes{}).bytes.empty());
}

}  // namespace
