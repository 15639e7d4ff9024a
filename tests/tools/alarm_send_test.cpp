// alarm-send: its command line rules, and real runs against an agent
// stand-in that accepts, refuses or is not there, one per exit code.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <memory>

#include "AlarmSendArgs.h"
#include "Agent.h"
#include "ProgramRun.h"
#include "TestEnv.h"

using alarmsend::ParseSendArgs;
using alarmsend::SendOptions;

namespace {

TEST(AlarmSendArgs, OptionsAndAnAlarmWithEnvironmentDefaults) {
    SendOptions o;
    std::string error;
    ASSERT_TRUE(ParseSendArgs({"--service", "orders", "--timeout=100", "--time", "1700000000123", "--stats", "clear",
                               "300012", "disk=sda", "note=a=b"}, "env-id", "env-name", &o, &error))
        << error;
    EXPECT_EQ("env-id env-name orders 100 1700000000123 300012",
              testsupport::Words(o.appId, o.appName, o.service, o.timeoutMs, o.timeMs, o.alarm.alarmId));
    EXPECT_TRUE(o.printStats && o.alarm.clear);
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"disk", "sda"}, {"note", "a=b"}}), o.alarm.params);
    ASSERT_TRUE(ParseSendArgs({"--app-id", "a", "--legacy", "--definitions", "d.xml", "-"}, nullptr, "n", &o, &error));
    EXPECT_TRUE(o.fromStdin && o.legacy);
    EXPECT_EQ("a", o.appId);
}

TEST(AlarmSendArgs, EveryBadArgumentIsRefusedWithItsReason) {
    const std::string longValue = "a=" + std::string(128, 'v');
    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{"raise"}, "raise needs an alarm id"}, {{"shout", "1"}, "expected raise or clear"},
        {{}, "expected raise or clear"}, {{"raise", "1234567890"}, "'1234567890' is not 1 to 9 decimal digits"},
        {{"raise", "12a"}, "is not 1 to 9 decimal digits"}, {{"raise", "1", "disk"}, "'disk' is not NAME=VALUE"},
        {{"raise", "1", "=x"}, "'=x' is not NAME=VALUE"}, {{"raise", "1", "a=1", "a=2"}, "parameter a is given twice"},
        {{"raise", "1", longValue}, "at most 127 characters"}, {{"--bogus", "raise", "1"}, "unknown option --bogus"},
        {{"--service"}, "--service needs a value"}, {{"--stats=1", "raise", "1"}, "--stats takes no value"},
        {{"--timeout", "-1", "raise", "1"}, "--timeout takes milliseconds"},
        {{"--time", "999999999", "raise", "1"}, "--time takes milliseconds since the epoch"},
        {{"--legacy", "raise", "1", "a=1"}, "--legacy needs --definitions FILE"},
        {{"--legacy", "--definitions", "d.xml", "raise", "1"}, "a legacy alarm carries at least one parameter"},
        {{"--legacy", "--definitions", "d.xml", "--service", "s", "raise", "1", "a=1"}, "not --legacy"},
        {{"--definitions", "d.xml", "raise", "1"}, "--definitions belongs to --legacy"},
        {{"--label", "l", "raise", "1"}, "--label needs --service"},
        {{"--app-id", "", "raise", "1"}, "no application id: set APPID or --app-id"},
    };
    for (const auto& c : bad) {
        SendOptions o;
        std::string error;
        EXPECT_FALSE(ParseSendArgs(c.first, "id", "name", &o, &error)) << c.second;
        EXPECT_NE(std::string::npos, error.find(c.second)) << error;
    }
}

enum class Agent { Accepting, Refusing, Down };

struct SendRun {
    const char* name;
    std::vector<std::string> args;
    std::string input;  // standard input
    Agent agent;
    int exitCode;
    const char* err;    // part of the one line on stderr ("" when none)
    // What the agent must have received, checked when set.
    std::function<void(const nodeward::Sim&, const testsupport::ProgramResult&)> check = nullptr;
};

void PrintTo(const SendRun& run, std::ostream* out) { *out << run.name; }

std::string SeqLines(int count) {
    std::string lines;
    for (int i = 0; i < count; ++i) {
        lines += "raise 5 seq=" + std::to_string(i) + "\n";
    }
    return lines;
}

const std::string kDefinitions = ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml";

const SendRun kRuns[] = {
    {"Delivered", {"--service", "orders", "--stats", "raise", "300012", "disk=sda", "usage=95"}, "", Agent::Accepting,
     0, "", [](const nodeward::Sim& agent, const testsupport::ProgramResult& result) {
         ASSERT_EQ(1u, agent.acceptedAlarms().size());
         const nodeward::ReceivedAlarm a = agent.acceptedAlarms()[0];
         std::map<std::string, std::string> params(a.parameters.begin(), a.parameters.end());
         EXPECT_EQ("300012 1 app-7 orders sda 95",
                   testsupport::Words(a.alarmId, a.alarmType, a.appId, a.serviceName, params["disk"], params["usage"]));
         EXPECT_EQ(0u, result.out.find("accepted=1 refused=0 delivered=1 batches=1 retried=0 dropped=0 waiting=0 "
                                       "last_delivery_ms=1")) << result.out;
     }},
    {"LegacyDelivered", {"--legacy", "--definitions", kDefinitions, "clear", "300001", "diskName=sda", "usage=95"}, "",
     Agent::Accepting, 0, "", [](const nodeward::Sim& agent, const testsupport::ProgramResult&) {
         ASSERT_EQ(1u, agent.acceptedAlarms().size());
         const nodeward::ReceivedAlarm a = agent.acceptedAlarms()[0];
         EXPECT_TRUE(a.legacy);
         EXPECT_EQ("2 EN:Disk=sda##ZH:磁盘=sda##", testsupport::Words(a.alarmType, a.location));
     }},
    {"BadArguments", {"raise"}, "", Agent::Accepting, 2, "alarm-send: raise needs an alarm id (alarm-send --help"},
    {"BadInputLineAfterAGoodOne", {"-"}, "raise 5 a=1\n\n# note\nbogus 5\n", Agent::Accepting, 2,
     "alarm-send: line 4: expected raise or clear", [](const nodeward::Sim& agent, const testsupport::ProgramResult&) {
         EXPECT_EQ(1u, agent.acceptedAlarms().size()) << "what was sent before is still delivered";
     }},
    {"DefinitionsUnreadable", {"--legacy", "--definitions", "/nonexistent/a.xml", "raise", "1", "a=1"}, "",
     Agent::Accepting, 2, "alarm-send: cannot read /nonexistent/a.xml"},
    {"NotDefined", {"--legacy", "--definitions", kDefinitions, "raise", "999", "a=1"}, "", Agent::Accepting, 1,
     "alarm-send: 1 of 1 alarms refused: not defined in"},
    {"QueueFull", {"--timeout", "0", "-"}, SeqLines(1100), Agent::Down, 3, "alarms refused: the queue was full"},
    {"NotDeliveredInTime", {"--timeout", "300", "raise", "5"}, "", Agent::Refusing, 4,
     "alarm-send: not delivered within 300 ms: 1 waiting, 0 dropped"},
};

class AlarmSendProgram : public ::testing::TestWithParam<SendRun> {
protected:
    testsupport::ScopedEnv appId_{"APPID", "app-7"}, appName_{"APPNAME", "orders-app"}, log_{"RUNLOG_FILE", nullptr};
    testsupport::TempDir dir_;
};

TEST_P(AlarmSendProgram, ExitsWithItsCodeAndOneLine) {
    const SendRun& run = GetParam();
    const auto agent = testsupport::StartedAgent();
    agent->failNext(run.agent == Agent::Refusing ? 1000000 : 0, nodeward::FailMode::RetCode);
    const std::string nobody = "127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort());
    testsupport::ScopedEnv endpoint("NODEWARD_ENDPOINT",
                                    run.agent == Agent::Down ? nobody.c_str() : agent->endpoint().c_str());
    const std::string input = dir_.path() + "/input";
    std::ofstream(input) << run.input;
    std::vector<std::string> args = {testsupport::ProgramPath("alarm-send")};
    args.insert(args.end(), run.args.begin(), run.args.end());
    const testsupport::ProgramResult result = testsupport::RunProgram(args, 60000, input);
    EXPECT_EQ(run.exitCode, result.exitCode) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(run.err)) << result.err;
    EXPECT_EQ(std::string(run.err).empty() ? 0 : 1, std::count(result.err.begin(), result.err.end(), '\n'))
        << result.err;
    if (run.check) {
        run.check(*agent, result);
    }
}

INSTANTIATE_TEST_SUITE_P(Runs, AlarmSendProgram, ::testing::ValuesIn(kRuns),
                         [](const ::testing::TestParamInfo<SendRun>& info) { return info.param.name; });

}  // namespace
