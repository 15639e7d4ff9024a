// The nodeward-sim program run as scripts use it: it stops once enough alarms
// arrived, with every answer out before it stops.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "SimTestHelpers.h"
#include "TestEnv.h"

extern char** environ;

using namespace simtest;

namespace {

// Built beside the tests: <build>/tests/sim_tests and <build>/tools/nodeward-sim/nodeward-sim.
std::string ProgramPath() {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    return (self.parent_path() / ".." / "tools" / "nodeward-sim" / "nodeward-sim").lexically_normal().string();
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Starts the program with stdout and stderr going to files.
pid_t Spawn(const std::vector<std::string>& args, const std::string& out, const std::string& err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    // A cross-built program runs through the same emulator as the tests.
    std::vector<std::string> words;
    const char* emulator = std::getenv("ALARMSDK_TEST_EMULATOR");
    for (std::string rest = emulator != nullptr ? emulator : ""; !rest.empty();) {
        const std::size_t comma = rest.find(',');
        words.push_back(rest.substr(0, comma));
        rest = comma == std::string::npos ? "" : rest.substr(comma + 1);
    }
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (const auto& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Exit status, or -1 when it did not end in time (it is then killed).
int WaitExit(pid_t pid, int timeoutMs) {
    int status = 0;
    const bool ended = testsupport::WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, timeoutMs);
    if (!ended) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SimProgram, ExitsAfterTheRequestedNumberOfAlarms) {
    ASSERT_TRUE(std::filesystem::exists(ProgramPath())) << ProgramPath();
    testsupport::TempDir dir;
    const std::string path = dir.path() + "/agent.sock";
    const pid_t pid = Spawn({ProgramPath(), "--listen", "unix:" + path, "--ready-file", dir.path() + "/ready",
                             "--exit-after-alarms", "2", "--quiet"},
                            dir.path() + "/out", dir.path() + "/err");
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(testsupport::WaitUntil([&] { return std::filesystem::exists(dir.path() + "/ready"); }, 10000));
    const std::string body =
        Encode(CurrentDocument(CurrentAlarm("1", 1) + "," + CurrentAlarm("2", 2)));
    EXPECT_EQ(Post("http://localhost/om/v1/request", body, path).status, 200);
    EXPECT_EQ(WaitExit(pid, 10000), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    const std::string printed = ReadFile(dir.path() + "/out");
    EXPECT_EQ(printed.find("alarm 1 "), std::string::npos) << "--quiet prints no alarm lines";
    EXPECT_NE(printed.find("1 requests, 1 accepted, 2 alarms"), std::string::npos) << printed;
}

}  // namespace
