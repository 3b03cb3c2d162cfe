#include "libIniFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

class Ini : public testing::Test {
  protected:
    Ini() { unlink(kFile); }

    static void Put(const std::string& text) { std::ofstream(kFile, std::ios::binary) << text; }
    static std::string Text() {
        std::ifstream in(kFile, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static std::string Read(const char* section, const char* key) {
        char value[256] = {};
        return read_profile_string(section, key, value, sizeof value, "(none)", kFile) == 1 ? value : "(none)";
    }
    static std::string Write(const std::string& before, const char* section, const char* key, const char* value) {
        Put(before);
        return write_profile_string(section, key, value, kFile) == 1 ? Text() : "(failed)";
    }

    static constexpr char kFile[] = "/tmp/test.cfg";
};

TEST_F(Ini, FindsWhatTheFormatSays) {
    struct {
        const char *text, *section, *key, *value;
    } const cases[] = {
        {"[S]\nkey=value\n", "S", "key", "value"},
        {"[S]\r\nkey=value\r\nk2=v2", "S", "k2", "v2"},
        {"[S]\rkey=value\r", "S", "key", "value"},
        {"[S]\nkey = value\n", "S", "key ", " value"},
        {"[S]\n;key=1\n", "S", "key", "(none)"},
        {"[S]\n#key=1\n", "S", "#key", "1"},
        {"[S]\nkey=a=b\n", "S", "key", "a=b"},
        {"[S]\na=\n", "S", "a", ""},
        {"[S]\n==5\n", "S", "=", "5"},
        {"[S]\nk\nkey=1\n", "S", "key", "1"},
        {"[S]\n\n \t key=1\n", "S", "key", "1"},
        {"[S]\na=1\n key=1\n", "S", "key", "(none)"},
        {" [S]\nkey=1\n", "S", "key", "(none)"},
        {"[S] [T]\nkey=1\n", "S", "key", "1"},
        {"[S]\nkey=1\nkey=2\n", "S", "key", "1"},
        {"[S]\na=1\n[T]\nb=1\n[S]\nkey=2\n", "S", "key", "2"},
        {"[X\n[S]\nkey=1\n", "S", "key", "(none)"},
        // A name in the file that is a prefix of the wanted one answers for it, not the other way round.
        {"[Rec]\nDur=5\n", "RecordCfg", "Duration", "5"},
        {"[RecordCfg]\nDuration=7\n", "Rec", "Duration", "(none)"},
        {"[RecordCfg]\nDuration=8\n", "RecordCfg", "Dur", "(none)"},
    };
    for (const auto& [text, section, key, value] : cases) {
        Put(text);
        EXPECT_EQ(Read(section, key), value) << text;
    }
}

TEST_F(Ini, TheTextEndsAtTheFirst255OrZeroByte) {
    Put("[S]\na=1\n\xFFkey=1\n");
    EXPECT_EQ(Read("S", "key"), "(none)");
    char buf[INI_FILE_MAX];
    int size = -1;
    EXPECT_EQ(load_ini_file(kFile, buf, &size), 1);
    EXPECT_EQ(size, 8);
    EXPECT_STREQ(buf, "[S]\na=1\n");
    EXPECT_EQ(Write(std::string("[S]\na=1\n\0key=1\n", 15), "S", "a", "2"), "[S]\na=2\n");
    EXPECT_EQ(load_ini_file("/tmp/none", buf, &size), 0);
    EXPECT_EQ(size, 0);
}

TEST_F(Ini, CutsValuesAndHandsOutDefaults) {
    Put("[S]\nkey=12345678\nword=abc\nbig=99999999999\nneg=-99999999999\nnum=42x\n");
    char value[5];
    EXPECT_EQ(read_profile_string("S", "key", value, 5, nullptr, kFile), 1);
    EXPECT_STREQ(value, "1234");
    EXPECT_EQ(read_profile_string("S", "none", value, 5, nullptr, kFile), 0);
    EXPECT_STREQ(value, "1234") << "no default";
    EXPECT_EQ(read_profile_string("S", "none", value, 5, "abcdefg", kFile), 0);
    EXPECT_EQ(std::string(value, 5), "abcde") << "a long default is left without a terminator";
    EXPECT_EQ(read_profile_int("S", "num", 7, kFile), 42);
    EXPECT_EQ(read_profile_int("S", "word", 7, kFile), 0);
    EXPECT_EQ(read_profile_int("S", "big", 7, kFile), INT32_MAX);
    EXPECT_EQ(read_profile_int("S", "neg", 7, kFile), INT32_MIN);
    EXPECT_EQ(read_profile_int("S", "num", 7, "/tmp/none"), 7);
}

TEST_F(Ini, WritesAddSectionsAndKeysAndReplaceValues) {
    EXPECT_EQ(write_profile_string("S", "k", "v", kFile), 1);
    EXPECT_EQ(Text(), "[S]\nk=v\n");
    EXPECT_EQ(Write("[A]\nx=100%\n", "S", "k", "v"), "[A]\nx=100%\n\n[S]\nk=v\n");
    EXPECT_EQ(Write("[S]\r\na=1\r\nk=2%d\r\nb=%s", "S", "k", "long value"), "[S]\r\na=1\r\nk=long value\r\nb=%s");
    EXPECT_EQ(Write("[S]\n\n a=1\n", "S", "k", "v"), "[S]\n\n k=v\na=1\n");
    EXPECT_EQ(Write("[S]\na=1\n[T]\n[S]\nb=2\n", "S", "k", "v"), "[S]\na=1\n[T]\n[S]\nk=v\nb=2\n");
    EXPECT_EQ(Write("[S", "S", "k", "v"), "[Sk=v\n");
}

TEST_F(Ini, ANewKeyPassesTheTextAfterItThroughAPrint) {
    struct {
        const char *rest, *printed;
    } const cases[] = {
        {"a=100%%\n", "a=100%\n"},
        {"a=%d\n", "a=5\n"},
        {"a=%5d|%-4lx|\n", "a=   13|d   |\n"},
        {"a=%08.3hhi\n", "a=     011\n"},
        {"a=%lld%zX\n", "a=10A\n"},
        {"a=%c|%-3c|%lc\n", "a=\x0e|\x0e  |\x0e\n"},
        // Everything that would read or write memory, or a second argument, stays as it is.
        {"a=%s%n%p%f%*d\n", "a=%s%n%p%f%*d\n"},
        {"a=5%", "a=5%"},
        {"a=%%%%d%\n", "a=%%d%\n"},
    };
    for (const auto& [rest, printed] : cases) {
        EXPECT_EQ(Write(std::string("[S]\n") + rest, "S", "k", "%d"), std::string("[S]\nk=%d\n") + printed);
    }
}

TEST_F(Ini, AWriteThatDoesNotFitLeavesTheFileAsItWas) {
    const std::string head = "[S]\nk=v\nfill=";
    const std::string full = head + std::string(INI_FILE_MAX - 1 - head.size(), 'x');
    EXPECT_EQ(Write(full, "S", "k", "w").size(), full.size());
    for (const char* key : {"k", "new"}) {
        EXPECT_EQ(Write(full, "S", key, "longer"), "(failed)");
        EXPECT_EQ(Text(), full);
    }
    EXPECT_EQ(Write(full, "T", "k", "v"), "(failed)");
    for (const char* wide : {"%20000d", "%.20000d", "%99999999999999999999d"}) {
        const std::string text = std::string("[S]\na=") + wide;
        EXPECT_EQ(Write(text, "S", "k", "v"), "(failed)");
        EXPECT_EQ(Text(), text);
    }
}

TEST_F(Ini, AWriteThatTheFileSystemRefusesFails) {
    EXPECT_EQ(write_profile_string("S", "k", "v", "/tmp/none/file"), 0);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, RLIM_INFINITY}, any{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    const int result = write_profile_string("S", "k", "v", kFile);  // short texts fail at the close only
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &any), 0);
    EXPECT_EQ(result, 0);
}

TEST_F(Ini, StopsTheProcessOnProgrammingErrorsAndOversizedFiles) {
    char value[8];
    EXPECT_DEATH(read_profile_string("", "k", value, 8, "", kFile),
                 "section != \\(\\(void \\*\\)0\\) && strlen\\(section\\)");
    EXPECT_DEATH(read_profile_string("S", "k", value, 0, "", kFile), "size > 0");
    EXPECT_DEATH(write_profile_string("S", "k", "v", nullptr), "file !=\\(\\(void \\*\\)0\\) &&strlen\\(key\\)");
    Put(std::string(INI_FILE_MAX - 1, 'x'));
    EXPECT_EQ(read_profile_int("S", "k", 3, kFile), 3);
    Put(std::string(INI_FILE_MAX, 'x'));
    EXPECT_DEATH(read_profile_int("S", "k", 3, kFile), "i < 1024\\*16");
}

}  // namespace
