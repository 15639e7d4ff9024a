// The nodeward-sim program run as scripts use it: it stops once enough alarms
// arrived, with every answer out before it stops.
#include <gtest/gtest.h>

#include <filesystem>

#include "ProgramRun.h"
#include "SimTestHelpers.h"
#include "TestEnv.h"

using namespace simtest;

namespace {

TEST(SimProgram, ExitsAfterTheRequestedNumberOfAlarms) {
    const std::string program = testsupport::ProgramPath("nodeward-sim");
    ASSERT_TRUE(std::filesystem::exists(program)) << program;
    testsupport::TempDir dir;
    const std::string path = dir.path() + "/agent.sock";
    const pid_t pid = testsupport::Spawn({program, "--listen", "unix:" + path, "--ready-file", dir.path() + "/ready",
                                          "--exit-after-alarms", "2", "--quiet"},
                                         dir.path() + "/out", dir.path() + "/err");
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(testsupport::WaitUntil([&] { return std::filesystem::exists(dir.path() + "/ready"); }, 10000));
    const std::string body = Encode(CurrentDocument(CurrentAlarm("1", 1) + "," + CurrentAlarm("2", 2)));
    EXPECT_EQ(Post("http://localhost/om/v1/request", body, path).status, 200);
    EXPECT_EQ(testsupport::WaitExit(pid, 10000), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
    const std::string printed = testsupport::ReadFile(dir.path() + "/out");
    EXPECT_EQ(printed.find("alarm 1 "), std::string::npos) << "--quiet prints no alarm lines";
    EXPECT_NE(printed.find("1 requests, 1 accepted, 2 alarms"), std::string::npos) << printed;
}

}  // namespace
