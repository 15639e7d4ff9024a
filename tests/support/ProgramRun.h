// Runs one of the project's programs as a child process, the way scripts do:
// through the emulator named in ALARMSDK_TEST_EMULATOR when the build is for
// another architecture, with bounded waits.
#ifndef TEST_PROGRAM_RUN_H
#define TEST_PROGRAM_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace testsupport {

// tools/<name>, built as <build>/tools/<name>/<name> beside the test executables in <build>/tests.
std::string ProgramPath(const std::string& name);
std::string ReadFile(const std::string& path);
// Starts args with stdout and stderr to the files out and err, stdin from in ("": /dev/null); -1 on failure.
pid_t Spawn(const std::vector<std::string>& args, const std::string& out, const std::string& err,
            const std::string& in = "");
// Exit status, or -1 when it did not end in time (it is then killed).
int WaitExit(pid_t pid, int timeoutMs);

struct ProgramResult {
    int exitCode = -1;  // -1: could not start, killed, or did not end in time
    std::string out;
    std::string err;
};
// Runs args to the end (at most timeoutMs) with stdin from the file in.
ProgramResult RunProgram(const std::vector<std::string>& args, int timeoutMs, const std::string& in = "");

}  // namespace testsupport

#endif
