// The nodeward-sim program: command line, and one real run as scripts use it.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "ProgramRun.h"
#include "SimProgram.h"
#include "SimTestHelpers.h"
#include "TestEnv.h"

using namespace simtest;
using testsupport::ReadFile;
using testsupport::Spawn;
using testsupport::WaitExit;

namespace {

std::string ProgramPath() { return testsupport::ProgramPath("nodeward-sim"); }

TEST(SimProgram, HelpExitsZeroAndNamesEveryOption) {
    ASSERT_TRUE(std::filesystem::exists(ProgramPath())) << "build the nodeward-sim target: " << ProgramPath();
    testsupport::TempDir dir;
    const pid_t pid = Spawn({ProgramPath(), "--help"}, dir.path() + "/out", dir.path() + "/err");
    ASSERT_GT(pid, 0);
    EXPECT_EQ(WaitExit(pid, 10000), 0);
    const std::string help = ReadFile(dir.path() + "/out");
    for (const char* option : {"--listen", "NODEWARD_ENDPOINT", "--fail-first", "--fail-ratio", "--seed",
                               "--fail-mode", "retcode", "empty", "garbage", "close", "--status", "--delay-ms",
                               "--jsonl", "--quiet", "--ready-file", "--exit-after-alarms", "--exit-after-seconds",
                               "--callback", "--help", "/sim/callback", "SIGTERM"}) {
        EXPECT_NE(help.find(option), std::string::npos) << option;
    }
}

TEST(SimProgram, ArgumentsAndTheirErrors) {
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", "unix:/tmp/from-env.sock");
    nodeward::ProgramOptions options;
    std::string error;
    const char* defaults[] = {"nodeward-sim"};
    ASSERT_TRUE(nodeward::ParseProgramArgs(1, defaults, &options, &error)) << error;
    EXPECT_EQ(options.sim.endpoint, "unix:/tmp/from-env.sock");
    EXPECT_TRUE(options.sim.printAlarms);

    const char* full[] = {"nodeward-sim", "--listen", "127.0.0.1:0", "--fail-first=3", "--fail-ratio", "0.25",
                          "--seed", "9", "--fail-mode", "close", "--status", "503", "--delay-ms", "10", "--quiet",
                          "--callback", "orders={\"a\":1}", "--exit-after-alarms", "2"};
    ASSERT_TRUE(nodeward::ParseProgramArgs(19, full, &options, &error)) << error;
    EXPECT_EQ(options.sim.endpoint, "127.0.0.1:0");
    EXPECT_EQ(options.sim.failFirst, 3);
    EXPECT_DOUBLE_EQ(options.sim.failRatio, 0.25);
    EXPECT_EQ(options.sim.seed, 9u);
    EXPECT_EQ(options.sim.failMode, nodeward::FailMode::Close);
    EXPECT_EQ(options.sim.status, 503);
    EXPECT_EQ(options.sim.delayMs, 10);
    EXPECT_FALSE(options.sim.printAlarms);
    ASSERT_EQ(options.sim.callBackOnFirstAlarm.size(), 1u);
    EXPECT_EQ(options.sim.callBackOnFirstAlarm[0].first, "orders");
    EXPECT_EQ(options.sim.callBackOnFirstAlarm[0].second, "{\"a\":1}");
    EXPECT_EQ(options.exitAfterAlarms, 2);

    const std::vector<std::vector<const char*>> bad = {
        {"nodeward-sim", "--bogus"},          {"nodeward-sim", "--listen"},
        {"nodeward-sim", "--listen", "x"},    {"nodeward-sim", "--fail-ratio", "1.5"},
        {"nodeward-sim", "--fail-mode=slow"}, {"nodeward-sim", "--status", "20x"},
        {"nodeward-sim", "--callback", "=[]"}, {"nodeward-sim", "--fail-first", "-1"},
    };
    for (const auto& args : bad) {
        error.clear();
        EXPECT_FALSE(nodeward::ParseProgramArgs(static_cast<int>(args.size()), args.data(), &options, &error))
            << args[1];
        EXPECT_FALSE(error.empty());
    }
}

TEST(SimProgram, CountOnlyKeepsNoRecords) {
    nodeward::ProgramOptions options;
    std::string error;
    const char* args[] = {"nodeward-sim", "--count-only"};
    ASSERT_TRUE(nodeward::ParseProgramArgs(2, args, &options, &error)) << error;
    EXPECT_FALSE(options.sim.recordRequests);
    EXPECT_NE(nodeward::ProgramUsage().find("--count-only"), std::string::npos);
}

TEST(SimProgram, RunsUntilSigtermAndPrintsAlarmsAndASummary) {
    ASSERT_TRUE(std::filesystem::exists(ProgramPath())) << ProgramPath();
    testsupport::TempDir dir;
    const std::string ready = dir.path() + "/ready";
    const std::string out = dir.path() + "/out";
    const pid_t pid = Spawn({ProgramPath(), "--listen", "127.0.0.1:0", "--ready-file", ready, "--fail-first", "1"},
                            out, dir.path() + "/err");
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(testsupport::WaitUntil([&] { return std::filesystem::exists(ready); }, 10000));
    std::string endpoint = ReadFile(ready);
    ASSERT_FALSE(endpoint.empty());
    endpoint.pop_back();  // the line break

    const std::string body = Encode(CurrentDocument(CurrentAlarm("300012", 1)));
    EXPECT_EQ(Decode(Post("http://" + endpoint + "/om/v1/request", body).body), "{\"retCode\":1}");
    EXPECT_EQ(Decode(Post("http://" + endpoint + "/om/v1/request", body).body), "{\"retCode\":0}");
    ASSERT_EQ(kill(pid, SIGTERM), 0);
    EXPECT_EQ(WaitExit(pid, 10000), 0);

    const std::string printed = ReadFile(out);
    EXPECT_NE(printed.find("listening on " + endpoint), std::string::npos) << printed;
    EXPECT_NE(printed.find("request 1 answered with failure (retcode)"), std::string::npos) << printed;
    EXPECT_NE(printed.find("alarm 300012 generate service=orders"), std::string::npos) << printed;
    EXPECT_NE(printed.find("stopped: 2 requests, 1 accepted, 1 alarms"), std::string::npos) << printed;
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
