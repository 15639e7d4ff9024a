// Runs one of the project's programs to its end, the way scripts do: through the emulator named in
// ALARMSDK_TEST_EMULATOR (words separated by commas) when the build is for another architecture; killed on overrun.
#ifndef TEST_PROGRAM_RUN_H
#define TEST_PROGRAM_RUN_H

#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <vector>

#include "TestEnv.h"

namespace testsupport {

struct ProgramResult {
    int exitCode = -1;  // -1: killed, or it could not start
    std::string out;
    std::string err;
};

// tools/<name>, built as <build>/tools/<name>/<name> beside the test executables in <build>/tests, with args (none
// holds a single quote) and stdin from the file in ("": /dev/null), for at most timeoutMs.
inline ProgramResult RunProgram(const std::string& name, const std::vector<std::string>& args, int timeoutMs,
                                const std::string& in = "") {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    const char* emulator = std::getenv("ALARMSDK_TEST_EMULATOR");
    std::string command = "timeout -s KILL " + std::to_string(timeoutMs / 1000.0) + " " + (emulator ? emulator : "");
    std::replace(command.begin(), command.end(), ',', ' ');
    command += " '" + (self.parent_path() / ".." / "tools" / name / name).lexically_normal().string() + "'";
    for (const std::string& arg : args) {
        command += " '" + arg + "'";
    }
    TempDir dir;
    command += " <" + (in.empty() ? "/dev/null" : in) + " >" + dir.path() + "/out 2>" + dir.path() + "/err";
    const int status = std::system(command.c_str());
    const auto read = [&dir](const char* file) {
        std::stringstream content;
        content << std::ifstream(dir.path() + file).rdbuf();
        return content.str();
    };
    return {WIFEXITED(status) && WEXITSTATUS(status) < 124 ? WEXITSTATUS(status) : -1, read("/out"), read("/err")};
}

}  // namespace testsupport

#endif
