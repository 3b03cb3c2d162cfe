// The page of a card, as a browser without a network shows it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fixture/CardFixture.h"
#include "fixture/Place.h"
#include "index/CardIndex.h"
#include "timeline/TimelinePage.h"

namespace {

namespace fs = std::filesystem;
using fixture::Card;
using fixture::Outcome;
using fixture::Recording;
using fixture::RunProgram;
using fixture::Tool;

std::string ReadAll(const std::string& path) {
    std::string bytes(fs::file_size(path), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

// Only what the page shows.
std::string WithoutScripts(std::string dom) {
    for (size_t at = dom.find("<script"); at != std::string::npos; at = dom.find("<script", at)) {
        dom.erase(at, dom.find("</script>", at) - at);
    }
    return dom;
}

class Timeline : public testing::Test {
  protected:
    Timeline() { fs::create_directory(folder_.Path()); }

    std::string Path(const std::string& name) const { return folder_.Path() + "/" + name; }

    // The page, as it stands when the browser has run its script and `more`.
    std::string Shown(const std::string& page, const std::string& more = "") {
        std::string path = page;
        if (!more.empty()) {
            path = Path("more.html");
            std::ofstream(path) << ReadAll(page) << "<script>" << more << "</script>";
        }
        const Outcome run =
            RunProgram({"chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                        "--disable-background-networking", "--disable-component-update", "--disable-sync",
                        "--user-data-dir=" + Path("browser"), "--dump-dom", "file://" + path});
        EXPECT_EQ(run.status, 0) << "this test needs chromium: " << run.err;
        return WithoutScripts(run.out);
    }

    std::string Made(const Recording& card, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"timeline", card.path, Path("page.html"), "--force"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Outcome run = Tool(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        return Path("page.html");
    }

    fixture::Place folder_;
};

// Two days; on the second a short and a long gap, and events of two kinds.
Card Busy() {
    return {.sections = {{.seconds = 20},
                         {.seconds = 20, .pause = 86400, .video = CODE_VIDEO_H265},
                         {.seconds = 10, .pause = 1},
                         {.seconds = 10, .pause = 600}},
            .events = {{.after = 86430, .seconds = 4, .type = 1}, {.after = 86435, .seconds = 3, .type = 32}}};
}

TEST_F(Timeline, ABrowserShowsDaysSectionsGapsEventsAndPictures) {
    const std::string page = Made(Busy().RecordFolder(Path("card")));
    const std::string shown = Shown(page);
    EXPECT_NE(shown.find("2026-03-01 <span class=\"dim\">Sunday"), std::string::npos);
    EXPECT_NE(shown.find("2026-03-02 <span class=\"dim\">Monday"), std::string::npos);
    EXPECT_NE(shown.find("Monday, 2026-03-02"), std::string::npos) << "the newest day is chosen";
    for (const char* section : {"<td>0:2</td>", "<td>0:3</td>", "<td>0:4</td>"})
        EXPECT_EQ(Count(shown, section), 1u) << section;
    EXPECT_EQ(Count(shown, "nothing recorded"), 1u) << "a pause of two seconds is no gap";
    EXPECT_NE(shown.find("10 min 01 s"), std::string::npos);
    EXPECT_NE(shown.find("smart event"), std::string::npos);
    EXPECT_NE(shown.find("H.265 320x240, 25 fps"), std::string::npos);
    EXPECT_GE(Count(shown, "<img src=\"data:image/jpeg;base64,/9j/"), 5u);
    EXPECT_NE(shown.find("recordcard export"), std::string::npos);
}

TEST_F(Timeline, FollowsTheKeyboard) {
    const std::string page = Made(Busy().RecordFolder(Path("card")));
    const auto after = [&](const std::string& keys) {
        const std::string shown = Shown(
            page, "for (const key of [" + keys + "]) document.dispatchEvent(new KeyboardEvent('keydown', {key}));");
        const size_t begin = shown.find('>', shown.find("id=\"moment\"")) + 1;
        return shown.substr(begin, shown.find('<', begin) - begin);
    };
    EXPECT_EQ(after("'ArrowRight'"), "2026-03-02 08:00:41");
    EXPECT_EQ(after("'ArrowDown'"), "2026-03-01 08:00:00");
    EXPECT_EQ(after("'e', 'e'"), "2026-03-02 08:00:35");
    EXPECT_EQ(after("'ArrowDown', 'ArrowUp', 'ArrowRight', 'ArrowRight', 'ArrowLeft'"), "2026-03-02 08:00:41");
}

TEST_F(Timeline, NeedsNothingElseAndLetsNoNameBecomeMarkup) {
    const Recording card = Card{.sections = {{.seconds = 3}}}.RecordFolder(Path("a <script>alert(1)<b> 'card'"));
    const std::string page = Made(card);
    const std::string text = ReadAll(page);
    for (const char* outside : {"http:", "https:", "url(", "@import", "<link", "<iframe", "src=\"/"}) {
        EXPECT_EQ(text.find(outside), std::string::npos) << outside;
    }
    EXPECT_NE(text.find("default-src 'none'"), std::string::npos);
    EXPECT_EQ(text.find("<script>alert"), std::string::npos);
    EXPECT_NE(Shown(page).find("a &lt;script&gt;alert(1)&lt;b&gt; 'card'"), std::string::npos);
}

TEST_F(Timeline, ShowsTheZoneItWasMadeInWhateverTheBrowserThinks) {
    const Recording card = Card{.sections = {{.seconds = 3}}}.RecordFolder(Path("card"));
    const std::string page = Path("page.html");
    ASSERT_EQ(RunProgram({"env", "TZ=America/New_York", RECORDCARD, "timeline", card.path, page}).status, 0);
    const std::string shown = Shown(page);
    EXPECT_NE(shown.find("2026-03-01 03:00:00"), std::string::npos);
    EXPECT_NE(shown.find("UTC-05:00"), std::string::npos);
}

TEST_F(Timeline, PicturesAreBoundedAndSpread) {
    const Recording recording = Busy().RecordFolder(Path("card"));
    const card::Volume volume = card::Volume::Open(recording.path);
    const card::CardIndex index(volume);
    for (const size_t max : {size_t{0}, size_t{1}, size_t{4}, size_t{7}, size_t{1000}}) {
        const std::vector<card::Wanted> wanted = card::ChoosePictures(index, max);
        EXPECT_LE(wanted.size(), max);
        EXPECT_TRUE(max < 4 || wanted.front().section == 0) << max;
    }
    EXPECT_EQ(card::ChoosePictures(index, 1000).back().section, 3u);
    EXPECT_EQ(Count(ReadAll(Made(recording, {"--thumbnails", "3"})), "\"jpeg\""), 3u);
    EXPECT_EQ(Count(ReadAll(Made(recording, {"--thumbnails", "0"})), "\"jpeg\""), 0u);
}

TEST_F(Timeline, AnEmptyCardAndADamagedPicture) {
    const Recording empty = Card{}.RecordFolder(Path("empty"));
    EXPECT_NE(Shown(Made(empty)).find("Nothing is recorded on this card yet."), std::string::npos);

    const Recording card = Card{.sections = {{.seconds = 12}}}.RecordFolder(Path("card"));
    const fixture::WrittenFrame& first = *card.KeptVideo().front();
    card.Corrupt("hi000000.mp4", first.offset, std::string(first.size, '\x5A'));
    EXPECT_EQ(Count(ReadAll(Made(card)), "\"jpeg\""), 2u) << "the other pictures are there";

    std::ofstream(Path("mine.html")) << "mine";
    EXPECT_EQ(Tool({"timeline", card.path, Path("mine.html")}).status, 2);
    EXPECT_EQ(ReadAll(Path("mine.html")), "mine");
}

}  // namespace
