#include "runlog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "LogCapture.h"
#include "TestEnv.h"

namespace {

using testsupport::LogCapture;
using testsupport::ScopedEnv;
using testsupport::TempDir;

std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    const std::string text = all.str();
    EXPECT_TRUE(text.empty() || text.back() == '\n') << "last line not terminated";
    std::vector<std::string> lines;
    std::string line;
    std::istringstream split(text);
    while (std::getline(split, line)) {
        lines.push_back(line);
    }
    return lines;
}

// Checks "<UTC time with ms> " at the start of a line, close to now, and
// returns the rest of the line after it. (No std::regex: g++ 12 warns inside
// it under the sanitizers.)
std::string AfterTimestamp(const std::string& line) {
    static const char kShape[] = "dddd-dd-ddTdd:dd:dd.dddZ ";
    constexpr std::size_t kLength = sizeof kShape - 1;
    bool shaped = line.size() >= kLength;
    for (std::size_t i = 0; shaped && i < kLength; ++i) {
        shaped = kShape[i] == 'd' ? line[i] >= '0' && line[i] <= '9' : line[i] == kShape[i];
    }
    if (!shaped) {
        ADD_FAILURE() << "no timestamp: " << line;
        return line;
    }
    std::tm t{};
    t.tm_year = std::stoi(line.substr(0, 4)) - 1900;
    t.tm_mon = std::stoi(line.substr(5, 2)) - 1;
    t.tm_mday = std::stoi(line.substr(8, 2));
    t.tm_hour = std::stoi(line.substr(11, 2));
    t.tm_min = std::stoi(line.substr(14, 2));
    t.tm_sec = std::stoi(line.substr(17, 2));
    EXPECT_LE(std::labs(static_cast<long>(timegm(&t) - std::time(nullptr))), 5L) << "not UTC now: " << line;
    return line.substr(kLength);
}

// Runs body with stderr sent to a file and returns what was written there.
template <typename Body>
std::vector<std::string> CaptureStderr(const std::string& path, Body body) {
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    EXPECT_GE(fd, 0);
    dup2(fd, STDERR_FILENO);
    close(fd);
    body();
    dup2(saved, STDERR_FILENO);
    close(saved);
    return ReadLines(path);
}

TEST(RunlogOutput, FileGetsEveryLevelAppendedInLineForm) {
    TempDir dir;
    const std::string path = dir.path() + "/run.log";
    {
        std::ofstream(path) << "earlier line\n";
    }
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

    const auto lines = ReadLines(path);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "earlier line");
    EXPECT_EQ(AfterTimestamp(lines[1]), "2 ../src/AlarmManagerEx:120 send 3 alarms to agent");
    EXPECT_EQ(AfterTimestamp(lines[2]), "5 ../src/AlarmImpl:7 In ZEBSendAlarm, pAlarm is null!");
    EXPECT_EQ(AfterTimestamp(lines[3]), "0 ../src/Base64:1 lowest level too");
    EXPECT_EQ(AfterTimestamp(lines[4]), "2 ../src/AlmJsonParser:9 two lines");

    // A removed (rotated) file is created again once the run-log looks at the
    // name again, which it does once a second rather than on every line.
    ASSERT_EQ(std::remove(path.c_str()), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/Base64", 2, "after rotation");
    const auto rotated = ReadLines(path);
    ASSERT_EQ(rotated.size(), 1u);
    EXPECT_EQ(AfterTimestamp(rotated[0]), "2 ../src/Base64:2 after rotation");
}

TEST(RunlogOutput, WithoutFileOnlyErrorsReachStderr) {
    TempDir dir;
    const std::string errPath = dir.path() + "/stderr.txt";
    for (const char* value : {static_cast<const char*>(nullptr), ""}) {
        SCOPED_TRACE(value == nullptr ? "unset" : "empty");
        ScopedEnv file("RUNLOG_FILE", value);
        const auto lines = CaptureStderr(errPath, [] {
            Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/A", 1, "info %d", 1);
            Runlog_TextAdapt(4, "../src/A", 2, "below error");
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/A", 3, "error %d", 5);
            Runlog_TextAdapt(6, "../src/A", 4, "above error");
        });
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(AfterTimestamp(lines[0]), "5 ../src/A:3 error 5");
        EXPECT_EQ(AfterTimestamp(lines[1]), "6 ../src/A:4 above error");
    }
}

TEST(RunlogOutput, UnwritableFileStillShowsErrorsOnStderr) {
    TempDir dir;
    const std::string badPath = dir.path() + "/missing-dir/run.log";
    ScopedEnv file("RUNLOG_FILE", badPath.c_str());
    const auto lines = CaptureStderr(dir.path() + "/stderr.txt", [] {
        Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/A", 1, "dropped");
        Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/A", 2, "kept");
    });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(AfterTimestamp(lines[0]), "5 ../src/A:2 kept");
}

struct FormatCase {
    const char* name;
    const char* format;
    const char* expected;
};

void PrintTo(const FormatCase& c, std::ostream* os) { *os << '"' << c.format << '"'; }

// Every format is logged with one extra string argument, "ARG", which only a
// valid %s may take.
class RunlogFormat : public ::testing::TestWithParam<FormatCase> {};

TEST_P(RunlogFormat, UnknownConversionsPrintLiterally) {
    LogCapture capture;
    ScopedEnv file("RUNLOG_FILE", nullptr);
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/F", 1, GetParam().format, "ARG");
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RunlogFormat,
    ::testing::Values(
        FormatCase{"AppIdLengthText", "In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN ",
                   "In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN "},
        FormatCase{"ValidString", "In %s, pAlarm is null!", "In ARG, pAlarm is null!"},
        // The argument goes to the next valid conversion.
        FormatCase{"BareComma", "%,%s", "%,ARG"},
        FormatCase{"FlagsWidthPrecision", "%-08.3,|%s", "%-08.3,|ARG"},
        FormatCase{"LengthWithoutConversion", "%l,|%s", "%l,|ARG"},
        FormatCase{"DoubleLength", "%hh!|%s", "%hh!|ARG"},
        FormatCase{"WriteBackRefused", "%n|%s", "%n|ARG"},
        FormatCase{"LibraryExtension", "%m|%s", "%m|ARG"},
        FormatCase{"Positional", "%1$s", "%1$s"},
        FormatCase{"PercentWithWidth", "%5%|%s", "%5%|ARG"},  // only "%%" is a percent sign
        FormatCase{"EscapedPercent", "50%% of %s", "50% of ARG"},
        FormatCase{"PercentAtEnd", "100%", "100%"},
        FormatCase{"PercentAfterString", "%s%", "ARG%"},
        FormatCase{"DotAtEnd", "%.", "%."}),
    [](const ::testing::TestParamInfo<FormatCase>& info) { return std::string(info.param.name); });

TEST(RunlogFormatArgs, ValidConversionsKeepArgumentsInStep) {
    LogCapture capture;
    // Not a literal: the compiler rightly rejects "%," in one.
    const char* format = "%ud|%*d|%.*s|%lld|%zu|%hhx|%5.2f|%c|%*,|%s|%p";
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/F", 1, format, 7u, 4, 3, 3, "abcdef", -9LL, static_cast<size_t>(12),
                     0x1ff, 3.14159, 'q', "end", static_cast<void*>(nullptr));
    const char* star = "%*,%d";
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/F", 2, star, 42);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "7d|   3|abc|-9|12|ff| 3.14|q|%*,|end|(nil)");
    EXPECT_EQ(lines[1].text, "%*,42");
}

TEST(RunlogCapture, SeesEveryMessageExactlyUntilRemoved) {
    ScopedEnv file("RUNLOG_FILE", nullptr);
    {
        LogCapture capture;
        Runlog_TextAdapt(0, "../src/AlarmManager", 77, "level %d kept for the hook", 0);
        Runlog_TextAdapt(RUNLOG_LEVEL_INFO, nullptr, 5, "no source");
        const char* noFormat = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"  // a missing format is the point
        Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/X", 6, noFormat);
#pragma GCC diagnostic pop
        Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/X", 7, "%s", "line\nbreak");
        const auto lines = capture.lines();
        ASSERT_EQ(lines.size(), 4u);
        EXPECT_EQ(lines[0].level, 0);
        EXPECT_EQ(lines[0].source, "../src/AlarmManager");
        EXPECT_EQ(lines[0].line, 77);
        EXPECT_EQ(lines[0].text, "level 0 kept for the hook");
        EXPECT_EQ(lines[1].source, "(null)");
        EXPECT_EQ(lines[2].text, "(null)");
        EXPECT_EQ(lines[3].text, "line\nbreak") << "the hook gets the text as formatted";
    }
    // Removed: logging goes on without calling into the destroyed capture.
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/X", 8, "after removal");
}

TEST(RunlogCapture, NeverCalledAfterRemovalReturns) {
    static std::atomic<bool> removed{false};
    static std::atomic<int> lateCalls{0};
    static std::atomic<int> calls{0};
    auto hook = [](void*, int, const char*, int, const char*) {
        calls.fetch_add(1);
        if (removed.load()) {
            lateCalls.fetch_add(1);
        }
    };
    ScopedEnv file("RUNLOG_FILE", nullptr);
    std::atomic<bool> stop{false};
    std::vector<std::thread> loggers;
    for (int t = 0; t < 3; ++t) {
        loggers.emplace_back([&stop] {
            for (int i = 0; i < 200000 && !stop.load(); ++i) {
                Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/T", i, "tick %d", i);
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        removed = false;
        Runlog_SetCapture(hook, nullptr);
        std::this_thread::yield();
        Runlog_SetCapture(nullptr, nullptr);
        removed = true;
        std::this_thread::yield();
    }
    stop = true;
    for (auto& t : loggers) {
        t.join();
    }
    EXPECT_EQ(lateCalls.load(), 0);
}

TEST(RunlogLimits, LongMessagesAreCutWholeCharacters) {
    TempDir dir;
    const std::string path = dir.path() + "/run.log";
    ScopedEnv file("RUNLOG_FILE", path.c_str());
    LogCapture capture;
    // 'a' then two-byte characters: a cut at an even length splits one.
    std::string text = "a";
    for (int i = 0; i < 50000; ++i) {
        text += "\xC3\xA9";
    }
    Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/L", 1, "%s", text.c_str());
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    const std::string& got = lines[0].text;
    EXPECT_GE(got.size(), 4096u);
    EXPECT_LT(got.size(), text.size());
    EXPECT_EQ(text.compare(0, got.size(), got), 0) << "not a prefix of the message";
    EXPECT_EQ((got.size() - 1) % 2, 0u) << "cut inside a character";

    const auto written = ReadLines(path);
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(AfterTimestamp(written[0]), "5 ../src/L:1 " + got);
}

// Lines of several threads in several processes, each padded to a different
// length, must all arrive whole.
TEST(RunlogConcurrency, ThreadsAndProcessesNeverInterleaveLines) {
    constexpr int kProcesses = 3;  // this one and two children
    constexpr int kThreads = 3;
    constexpr int kLines = 300;
    TempDir dir;
    const std::string path = dir.path() + "/run.log";
    ScopedEnv file("RUNLOG_FILE", path.c_str());

    auto expectedLine = [](int process, int t, int i) {
        return "2 ../src/C:" + std::to_string(i) + " p" + std::to_string(process) + " t" + std::to_string(t) + " n" +
               std::to_string(i) + " " + std::string(100 + 150 * t + 40 * process, static_cast<char>('a' + t));
    };
    auto logAll = [](int process) {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([process, t] {
                const std::string pad(100 + 150 * t + 40 * process, static_cast<char>('a' + t));
                for (int i = 0; i < kLines; ++i) {
                    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/C", i, "p%d t%d n%d %s", process, t, i, pad.c_str());
                }
            });
        }
        for (auto& th : threads) {
            th.join();
        }
    };

    std::vector<pid_t> children;
    for (int p = 1; p < kProcesses; ++p) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            logAll(p);
            _exit(0);
        }
        children.push_back(pid);
    }
    logAll(0);
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    std::set<std::string> seen;
    const auto lines = ReadLines(path);
    ASSERT_EQ(lines.size(), static_cast<size_t>(kProcesses * kThreads * kLines));
    for (const std::string& line : lines) {
        const std::string rest = AfterTimestamp(line);
        int process = -1;
        int t = -1;
        int i = -1;
        ASSERT_EQ(std::sscanf(rest.c_str(), "2 ../src/C:%*d p%d t%d n%d ", &process, &t, &i), 3) << rest;
        ASSERT_TRUE(process >= 0 && process < kProcesses && t >= 0 && t < kThreads) << rest;
        EXPECT_EQ(rest, expectedLine(process, t, i));
        seen.insert(rest);
    }
    EXPECT_EQ(seen.size(), lines.size()) << "some line arrived twice";
}

// The libraries' threads keep logging while the process exits; nothing the
// run-log needs may be destroyed under them.
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

}  // namespace
