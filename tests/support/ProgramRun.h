// Runs one of the project's programs as a child process, the way scripts do: through the emulator named in
// ALARMSDK_TEST_EMULATOR when the build is for another architecture, with bounded waits.
#ifndef TEST_PROGRAM_RUN_H
#define TEST_PROGRAM_RUN_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <vector>

#include "TestEnv.h"

extern char** environ;

namespace testsupport {

// tools/<name>, built as <build>/tools/<name>/<name> beside the test executables in <build>/tests.
inline std::string ProgramPath(const std::string& name) {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    return (self.parent_path() / ".." / "tools" / name / name).lexically_normal().string();
}

inline std::string ReadFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Starts args with stdout and stderr to the files out and err, stdin from in ("": /dev/null); -1 on failure.
inline pid_t Spawn(const std::vector<std::string>& args, const std::string& out, const std::string& err,
                   const std::string& in = "") {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.empty() ? "/dev/null" : in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    // A cross-built program runs through the same emulator as the tests (words separated by commas).
    std::vector<std::string> words;
    const char* emulator = std::getenv("ALARMSDK_TEST_EMULATOR");
    std::stringstream list(emulator != nullptr ? emulator : "");
    for (std::string word; std::getline(list, word, ',');) {
        words.push_back(word);
    }
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(&word[0]);
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
inline int WaitExit(pid_t pid, int timeoutMs) {
    int status = 0;
    if (!WaitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, timeoutMs)) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct ProgramResult {
    int exitCode = -1;  // -1: could not start, killed, or did not end in time
    std::string out;
    std::string err;
};

inline ProgramResult RunProgram(const std::vector<std::string>& args, int timeoutMs, const std::string& in = "") {
    TempDir dir;
    ProgramResult result;
    const pid_t pid = Spawn(args, dir.path() + "/out", dir.path() + "/err", in);
    result.exitCode = pid > 0 ? WaitExit(pid, timeoutMs) : -1;
    result.out = ReadFile(dir.path() + "/out");
    result.err = ReadFile(dir.path() + "/err");
    return result;
}

}  // namespace testsupport

#endif
