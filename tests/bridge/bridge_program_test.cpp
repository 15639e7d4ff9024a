// The program's command line as scripts and the unit file use it.
#include <gtest/gtest.h>

#include "ProgramRun.h"

namespace {

TEST(BridgeProgram, CommandLineAnswersAndRefusals) {
    struct Row {
        std::vector<std::string> args;
        int exitCode;
        std::string expected;  // the start of stdout, or a piece of stderr when the exit code is not 0
    };
    const Row rows[] = {
        {{"--help"}, 0, "Usage: alarm-bridge --listen ENDPOINT --state PATH --alertmanager URL"},
        {{"--listen", "127.0.0.1:0"}, 2, "at least one --alertmanager URL is needed"},
        {{"--alertmanager", "127.0.0.1:9093"}, 2, "wants an http:// or https:// URL"},
        {{"--alertmanager", "http://127.0.0.1:9", "--resend", "0"}, 2, "--resend wants whole seconds (1 to 86400)"},
        {{"--alertmanager", "http://127.0.0.1:9", "--check-interval", "x"}, 2, "--check-interval wants whole seconds"},
        {{"--alertmanager", "http://127.0.0.1:9", "--listen", "nowhere"}, 2, "--listen \"nowhere\": no port"},
        {{"--status", "--state", "/nonexistent/state.db"}, 1, "cannot read /nonexistent/state.db"},
    };
    for (const Row& row : rows) {
        const auto run = testsupport::RunProgram("alarm-bridge", row.args, 10000);
        EXPECT_EQ(run.exitCode, row.exitCode) << row.args[0] << "\n" << run.err;
        if (row.exitCode == 0) {
            EXPECT_EQ(run.out.compare(0, row.expected.size(), row.expected), 0) << run.out;
        } else {
            EXPECT_NE(run.err.find(row.expected), std::string::npos) << run.err;
        }
    }
}

}  // namespace
