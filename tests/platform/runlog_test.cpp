// The run-log: line form and UTC stamps, where lines go, literal formats, and logging while the process exits.
#include "runlog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cctype>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <vector>

#include "LogCapture.h"

namespace {

using testsupport::LogCapture;
using testsupport::ScopedEnv;
using testsupport::TempDir;

std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Checks "<UTC time with ms> " at the start of a line, close to now, and returns the rest of the line after it.
std::string AfterTimestamp(const std::string& line) {
    std::tm t{};
    const char* rest = strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S.", &t);
    const bool shaped = rest != nullptr && line.size() >= 25 && rest == line.c_str() + 20 &&
                        std::isdigit(rest[0]) && std::isdigit(rest[1]) && std::isdigit(rest[2]) &&
                        std::string(rest + 3, 2) == "Z ";
    EXPECT_TRUE(shaped) << "no timestamp: " << line;
    EXPECT_LE(std::labs(static_cast<long>(timegm(&t) - std::time(nullptr))), 5L) << "not UTC now: " << line;
    return shaped ? line.substr(25) : line;
}
// The lines from the from-th on, each after its timestamp, separated by "|".
std::string Untimed(const std::vector<std::string>& lines, std::size_t from = 0) {
    std::string text;
    for (std::size_t i = from; i < lines.size(); ++i) {
        text += (i > from ? "|" : "") + AfterTimestamp(lines[i]);
    }
    return text;
}

// Runs body with stderr sent to a file and returns what was written there.
template <typename Body> std::vector<std::string> CaptureStderr(const std::string& path, Body body) {
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

    const auto lines = ReadLines(path);
    EXPECT_EQ("earlier line", lines.at(0));
    EXPECT_EQ("2 ../src/AlarmManagerEx:120 send 3 alarms to agent|5 ../src/AlarmImpl:7 In ZEBSendAlarm, pAlarm is null!|"
              "0 ../src/Base64:1 lowest level too|2 ../src/AlmJsonParser:9 two lines", Untimed(lines, 1));

    // A removed (rotated) file is created again once the run-log looks at the
    // name again, which it does once a second rather than on every line.
    ASSERT_EQ(std::remove(path.c_str()), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/Base64", 2, "after rotation");
    EXPECT_EQ("2 ../src/Base64:2 after rotation", Untimed(ReadLines(path)));
}

// Without a usable file only errors reach stderr, so they are never lost.
TEST(RunlogOutput, WithoutAUsableFileOnlyErrorsReachStderr) {
    TempDir dir;
    const std::string unwritable = dir.path() + "/missing-dir/run.log";
    for (const char* value : {static_cast<const char*>(nullptr), "", unwritable.c_str()}) {
        SCOPED_TRACE(value == nullptr ? "unset" : value);
        ScopedEnv file("RUNLOG_FILE", value);
        const auto lines = CaptureStderr(dir.path() + "/stderr.txt", [] {
            Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/A", 1, "info %d", 1);
            Runlog_TextAdapt(4, "../src/A", 2, "below error");
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "../src/A", 3, "error %d", 5);
            Runlog_TextAdapt(6, "../src/A", 4, "above error");
        });
        EXPECT_EQ("5 ../src/A:3 error 5|6 ../src/A:4 above error", Untimed(lines));
    }
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
        {"%n|%s", "%n|ARG"}, {"50%% of %s", "50% of ARG"}, {"100%", "100%"},
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

}  // namespace
