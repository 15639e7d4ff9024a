// The run-log (line form, UTC stamps, where lines go, literal formats, logging while the process exits) and the bounded
// string functions the library builds its fixed fields with.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <vector>

#include "bounded_string.h"
#include "runlog.h"
#include "runlog_testing.h"

#include "LogCapture.h"

namespace {

using testsupport::LogCapture;
using testsupport::ScopedEnv;
using testsupport::TempDir;

// Checks "<UTC time with ms> " at the start of a line, close to now, and returns the rest of the line after it.
std::string AfterTimestamp(const std::string& line) {
    std::tm t{};
    const char* rest = strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S.", &t);
    const bool shaped = rest != nullptr && line.size() >= 25 && rest == line.c_str() + 20 && std::isdigit(rest[0]) &&
                        std::isdigit(rest[1]) && std::isdigit(rest[2]) && std::string(rest + 3, 2) == "Z ";
    EXPECT_TRUE(shaped) << "no timestamp: " << line;
    EXPECT_LE(std::labs(static_cast<long>(timegm(&t) - std::time(nullptr))), 5L) << "not UTC now: " << line;
    return shaped ? line.substr(25) : line;
}
// The file's lines from the from-th on, each after its timestamp, separated by "|".
std::string Untimed(const std::string& path, std::size_t from = 0) {
    std::ifstream in(path, std::ios::binary);
    std::string text;
    std::size_t i = 0;
    for (std::string line; std::getline(in, line); ++i) {
        text += i < from ? "" : (i > from ? "|" : "") + AfterTimestamp(line);
    }
    return text;
}

template <typename Body> std::string CaptureStderr(const std::string& path, Body body) {
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO), fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    EXPECT_GE(fd, 0);
    dup2(fd, STDERR_FILENO);
    close(fd);
    body();
    dup2(saved, STDERR_FILENO);
    close(saved);
    return Untimed(path);
}

// The run-log's clock in this process, moved by hand.
std::atomic<long long> g_clockMillis{1000};
long long TestClock() { return g_clockMillis.load(); }

TEST(RunlogOutput, FileGetsEveryLevelAppendedInLineForm) {
    Runlog_SetClock(&TestClock);
    TempDir dir;
    const std::string path = dir.path() + "/run.log";
    std::ofstream(path) << "earlier line\n";
    ScopedEnv file("RUNLOG_FILE", path.c_str());
    // Local time far from UTC: the stamp must still be UTC.
    ScopedEnv tz("TZ", "XYZ-9");
    tzset();

    errno = EINTR;
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/AlarmManagerEx", 120, "send %d alarms to %s", 3, "agent");
    EXPECT_EQ(errno, EINTR) << "logging changed the caller's errno";
    Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/AlarmImpl", 7, "In %s, pAlarm is null!", "ZEBSendAlarm");
    Runlog_TextAdapt(0, "../src/Base64", 1, "%s", "lowest level too");
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/AlmJsonParser", 9, "%s", "two\nlines");

    EXPECT_EQ(
        "2 ../src/AlarmManagerEx:120 send 3 alarms to agent|5 ../src/AlarmImpl:7 In ZEBSendAlarm, pAlarm is null!|"
        "0 ../src/Base64:1 lowest level too|2 ../src/AlmJsonParser:9 two lines",
        Untimed(path, 1));  // appended after "earlier line"

    // A removed (rotated) file is created again once the run-log looks at the
    // name again, which it does once a second rather than on every line.
    ASSERT_EQ(std::remove(path.c_str()), 0);
    g_clockMillis += 999;
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/Base64", 2, "into the removed file");
    EXPECT_FALSE(std::ifstream(path).good()) << "looked at the name before the second was up";
    g_clockMillis += 1;
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/Base64", 2, "after rotation");
    EXPECT_EQ("2 ../src/Base64:2 after rotation", Untimed(path));

    // Another RUNLOG_FILE is taken within the second, when the variable is looked up again.
    const std::string other = dir.path() + "/other.log";
    ScopedEnv moved("RUNLOG_FILE", other.c_str());
    g_clockMillis += 999;
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/Base64", 3, "still the old file");
    g_clockMillis += 1;
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/Base64", 4, "the new file");
    EXPECT_EQ("2 ../src/Base64:2 after rotation|2 ../src/Base64:3 still the old file", Untimed(path));
    EXPECT_EQ("2 ../src/Base64:4 the new file", Untimed(other));
    Runlog_SetClock(nullptr);
}

TEST(RunlogOutput, WithoutAUsableFileOnlyErrorsReachStderr) {
    Runlog_SetClock(&TestClock);
    TempDir dir;
    const std::string unwritable = dir.path() + "/missing-dir/run.log";
    for (const char* value : {static_cast<const char*>(nullptr), "", unwritable.c_str()}) {
        SCOPED_TRACE(value == nullptr ? "unset" : value);
        ScopedEnv file("RUNLOG_FILE", value);
        g_clockMillis += 1000;  // so the run-log looks the variable up again
        const std::string lines = CaptureStderr(dir.path() + "/stderr.txt", [] {
            Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/A", 1, "info %d", 1);
            Runlog_TextAdapt(4, "../src/A", 2, "below error");
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/A", 3, "error %d", 5);
            Runlog_TextAdapt(6, "../src/A", 4, "above error");
        });
        EXPECT_EQ("5 ../src/A:3 error 5|6 ../src/A:4 above error", lines);
    }
    Runlog_SetClock(nullptr);
}

// Every format is logged with one extra string argument, "ARG", which only a
// valid %s may take: the library's malformed "In %," texts print as they are.
TEST(RunlogFormat, UnknownConversionsPrintLiterally) {
    LogCapture capture;
    const std::pair<const char*, const char*> rows[] = {
        {"In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN ",
         "In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN "},
        {"In %s, pAlarm is null!", "In ARG, pAlarm is null!"},
        {"%,%s", "%,ARG"},  // the argument goes to the next valid conversion
        {"%n|%s", "%n|ARG"},
        {"50%% of %s", "50% of ARG"},
        {"100%", "100%"},
    };
    for (const auto& [format, expected] : rows) {
        capture.clear();
        Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/F", 1, format, "ARG");
        EXPECT_EQ(std::string(expected) + "\n", capture.texts()) << format;
    }
}

// The libraries' threads keep logging while the process exits; nothing the run-log needs may be destroyed under them.
TEST(RunlogLifetime, LoggingWhileTheProcessExits) {
    TempDir dir;
    const std::string path = dir.path() + "/run.log";
    ScopedEnv file("RUNLOG_FILE", path.c_str());
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        static std::atomic<int> logged{0};
        for (int t = 0; t < 2; ++t) {
            std::thread([] {
                for (int i = 0; i < 2000000; ++i) {
                    Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/E", i, "still running %d", i);
                    logged.fetch_add(1);
                }
            }).detach();
        }
        for (int i = 0; i < 5000 && logged.load() < 200; ++i) {
            usleep(1000);
        }
        std::exit(logged.load() >= 200 ? 0 : 3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "child died by signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// Destinations start with `initial` and are filled with this after it; one byte past destMax must keep it.
constexpr char kFill = 'Z';

// Exactly these characters and no terminator, on the heap: reading one byte too far is a sanitizer finding.
std::shared_ptr<char> Unterminated(const std::string& text) {
    std::shared_ptr<char> p(new char[text.size()], std::default_delete<char[]>());
    std::memcpy(p.get(), text.data(), text.size());
    return p;
}

enum Op { Cpy, Cat, Fmt };  // Fmt formats "id=%d:%s" of 42 and the source, and succeeds with the text's length

TEST(BoundedString, FitsOrFailsByTheRules) {
    const std::string big(100 * 1024 - 1, 'q');  // base64 bodies exceed 32 KiB
    const auto abcdefgh = Unterminated("ABCDEFGH"), wxyz = Unterminated("WXYZ");
    const struct {
        Op op;
        std::size_t destMax;
        const char* initial;
        const char* src;
        std::size_t count;
        bool ok;
        std::string result;  // the destination's text afterwards
    } rows[] = {
        // clang-format off
        {Cpy, 8, "", "abc", 3, true, "abc"},
        {Cpy, 8, "", "abcdef", 4, true, "abcd"},  // the count cuts
        {Cpy, 4, "", "abcdef", 3, true, "abc"},
        {Cpy, 4, "", "abc", SIZE_MAX, true, "abc"},
        {Cpy, 4, "x", "abcd", 4, false, ""},  // fills the destination: fails, never cut
        {Cpy, 4, "x", "abcdefgh", 100, false, ""},
        {Cpy, 4, "x", nullptr, 2, false, ""},
        {Cpy, 16, "", abcdefgh.get(), 8, true, "ABCDEFGH"},
        {Cpy, 8, "x", abcdefgh.get(), 100, false, ""},
        {Cpy, big.size() + 1, "", big.c_str(), big.size(), true, big},
        {Cat, 8, "ab", "cd", 10, true, "abcd"},
        {Cat, 8, "ab", "cdef", 2, true, "abcd"},
        {Cat, 8, "abc", "defg", 4, true, "abcdefg"},
        {Cat, 8, "abc", "defgh", 5, false, ""},
        {Cat, 8, "abc", "defgh", 4, true, "abcdefg"},
        {Cat, 4, "abc", "d", 5, false, ""},
        {Cat, 8, "ab", nullptr, 5, false, ""},
        {Cat, 16, "ab", wxyz.get(), 4, true, "abWXYZ"},
        {Cat, 4, "ab", wxyz.get(), 100, false, ""},
        {Cat, big.size() + 1, "", big.c_str(), big.size(), true, big},
        {Fmt, 10, "", "abc", 100, true, "id=42:abc"},
        {Fmt, 16, "", "abc", 5, false, "id=42"},  // a formatted text that does not fit is cut, and the cut reported
        {Fmt, 6, "", "abc", 100, false, "id=42"},
        {Fmt, big.size() + 7, "", big.c_str(), big.size() + 6, true, "id=42:" + big},
        // clang-format on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testsupport::Words(row.op, row.destMax, row.initial, row.count, row.result.substr(0, 10)));
        std::vector<char> dest(row.destMax + 1, kFill);
        std::memcpy(dest.data(), row.initial, std::strlen(row.initial) + 1);
        char* d = dest.data();
        const int rc = row.op == Cpy   ? strncpy_s(d, row.destMax, row.src, row.count)
                       : row.op == Cat ? strncat_s(d, row.destMax, row.src, row.count)
                                       : snprintf_s(d, row.destMax, row.count, "id=%d:%s", 42, row.src);
        EXPECT_EQ(row.ok, rc == (row.op == Fmt ? static_cast<int>(row.result.size()) : 0)) << rc;
        EXPECT_EQ(row.result, std::string(d));
        EXPECT_EQ(kFill, dest[row.destMax]) << "wrote past destMax";
    }
    char dest[4] = {'a', 0, kFill, kFill};
    for (int rc :
         {strncpy_s(nullptr, 8, "abc", 3), strncat_s(nullptr, 8, "abc", 3), strncpy_s(dest, 0, "abc", 3),
          strncat_s(dest, 0, "abc", 3), snprintf_s(nullptr, 8, 7, "%s", "x"), snprintf_s(dest, 0, 7, "%s", "x")}) {
        EXPECT_NE(0, rc);
    }
    EXPECT_EQ('a', dest[0]) << "a destination without room is not touched";
}

TEST(BoundedString, MemoryCopiesAndFills) {
    const char src[6] = {'a', 'b', 0, 'c', 'd', 'e'};
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(0, memcpy_s(dest, sizeof dest, src, sizeof src));
    EXPECT_EQ(std::string(src, 6) + "ZZ", std::string(dest, 8)) << "copies bytes, not a string";
    EXPECT_NE(0, memcpy_s(dest, 6, "0123456789", 7));  // too long: destMax bytes zeroed, no more
    EXPECT_EQ(std::string(6, '\0') + "ZZ", std::string(dest, 8));
    EXPECT_NE(0, memcpy_s(dest, sizeof dest, nullptr, 2));
    EXPECT_EQ(std::string(8, '\0'), std::string(dest, 8));
    char overlap[] = "abcdefgh";
    EXPECT_EQ(0, memcpy_s(overlap + 2, sizeof overlap - 2, overlap, 6));
    EXPECT_STREQ("ababcdef", overlap);

    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(0, memset_s(dest, 6, 'a', 4));
    EXPECT_NE(0, memset_s(dest + 4, 2, 'b', 3));  // too many: destMax bytes set, no more
    EXPECT_EQ("aaaabbZZ", std::string(dest, 8));
    EXPECT_NE(0, memset_s(nullptr, 6, 0, 1));
}

}  // namespace
