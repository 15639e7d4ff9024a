// Every program of tools/ answers like its GNU neighbours: --version and --help on stdout with exit 0, a bad option
// with its reason and the usage line on stderr and exit 2. The list is the build's, so a new program is covered.
#include <gtest/gtest.h>

#include <sstream>

#include "AlarmSdkVersion.h"
#include "ProgramRun.h"

namespace {

TEST(ProgramConventions, VersionHelpAndBadOptionAnswerAsInGnuPrograms) {
    struct Run {
        const char* arg;
        int exitCode;
        std::string out, err;  // how stdout starts, what stderr holds; "@" stands for the program
    };
    const Run runs[] = {
        {"--version", 0, "@ (Alarm SDK) " ALARMSDK_VERSION "\n", ""},
        {"--help", 0, "Usage: @ ", ""},
        {"--no-such-option", 2, "", "@: unknown option --no-such-option\nUsage: @ "},
    };
    const auto named = [](std::string text, const std::string& program) {
        for (std::size_t at; (at = text.find('@')) != std::string::npos;) {
            text.replace(at, 1, program);
        }
        return text;
    };
    std::istringstream list(ALARMSDK_PROGRAM_NAMES);
    int programs = 0;
    for (std::string program; std::getline(list, program, ','); ++programs) {
        for (const Run& run : runs) {
            SCOPED_TRACE(program + " " + run.arg);
            const testsupport::ProgramResult result = testsupport::RunProgram(program, {run.arg}, 60000);
            EXPECT_EQ(run.exitCode, result.exitCode);
            EXPECT_EQ(0u, result.out.find(named(run.out, program))) << result.out;
            EXPECT_EQ(run.out.empty(), result.out.empty()) << result.out;
            EXPECT_EQ(0u, result.err.find(named(run.err, program))) << result.err;
            EXPECT_EQ(run.err.empty(), result.err.empty()) << result.err;
        }
    }
    EXPECT_LE(3, programs);
}

}  // namespace
