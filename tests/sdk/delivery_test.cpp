// Alarms travel from the C interface to a real agent over loopback: batching,
// order, the resend rule, and what the manager adds to every alarm.
#include <set>
#include <tuple>

#include "Generations.h"

using nodeward::FailMode;
using nodeward::ReceivedAlarm;
using sdktest::Generation;
using sdktest::GenerationDriver;

namespace {

// The send cycle is shared by both generations; these cases run on each.
class SharedDelivery : public sdktest::AgentTest, public ::testing::WithParamInterface<Generation> {
protected:
    GenerationDriver driver_{GetParam()};
};

TEST_P(SharedDelivery, QueuedAlarmsLeaveInBatchesOfFiftyInQueueOrder) {
    ASSERT_TRUE(StartAgent());
    WhileParked([this] { return driver_.init(); }, [this] { ASSERT_TRUE(driver_.send(120)); });
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(120, 20000));
    std::vector<std::size_t> sizes;
    for (const auto& request : agent_->requests()) {
        sizes.push_back(request.alarms.size());
        EXPECT_EQ("application/json", request.header("Content-Type"));
        EXPECT_EQ(std::to_string(request.body.size()), request.header("Content-Length"));
    }
    EXPECT_EQ((std::vector<std::size_t>{50, 50, 20}), sizes);
    EXPECT_EQ(GenerationDriver::Counting(120), GenerationDriver::SeqsOf(agent_->acceptedAlarms()));
    EXPECT_TRUE(testsupport::WaitUntil(
        [this] { return log_.count(driver_.successText(), driver_.successLevel(), driver_.logSource()) == 3; }, 5000));
}

TEST_P(SharedDelivery, SeveralThreadsSendingAtOnceLoseNothingBelowTheBound) {
    ASSERT_TRUE(StartAgent());
    ASSERT_TRUE(driver_.init());
    constexpr int kThreads = 4, kPerThread = 200;
    std::atomic<int> failures{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([this, t, &failures] {
            for (int i = 0; i < kPerThread; ++i) {
                failures += driver_.send(std::to_string(t) + ":" + std::to_string(i)) ? 0 : 1;
            }
        });
    }
    for (auto& s : senders) {
        s.join();
    }
    EXPECT_EQ(0, failures.load());
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(kThreads * kPerThread, 30000));
    // Each sender's alarms keep their order, and none arrives twice.
    std::vector<int> next(kThreads, 0);
    std::set<std::string> seen;
    for (const auto& a : agent_->acceptedAlarms()) {
        const std::string seq = GenerationDriver::SeqOf(a);
        ASSERT_TRUE(seen.insert(seq).second) << "duplicate " << seq;
        EXPECT_EQ(next[std::stoi(seq)]++, std::stoi(seq.substr(seq.find(':') + 1)));
    }
}

// The idle wait on the production queue, its tick stretched or shrunk: with a minute-long tick only a full batch can
// end it within the test; with a short one a lone alarm leaves at the next tick.
class IdleWake : public sdktest::AgentTest, public ::testing::WithParamInterface<std::tuple<Generation, long, int>> {};

TEST_P(IdleWake, TheIdleWaitEndsAtAFullBatchOrAtTheNextTick) {
    const auto [generation, tick, alarms] = GetParam();
    GenerationDriver driver(generation);
    ASSERT_TRUE(StartAgent());
    pauses_.wakeOnWork(tick);
    ASSERT_TRUE(driver.init());
    ASSERT_TRUE(testsupport::WaitUntil([this] { return pauses_.count(1) > 0; }, 5000));
    ASSERT_TRUE(driver.send(alarms));
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(alarms, 20000));
    const auto requests = agent_->requests();
    ASSERT_EQ(1u, requests.size()) << "the batch left before it was complete";
    EXPECT_EQ(static_cast<std::size_t>(alarms), requests[0].alarms.size());
}

const auto kBoth = ::testing::Values(Generation::Current, Generation::Legacy);
INSTANTIATE_TEST_SUITE_P(Ticks, IdleWake, ::testing::Combine(kBoth, ::testing::Values(60000L), ::testing::Values(50)));
INSTANTIATE_TEST_SUITE_P(Trickle, IdleWake, ::testing::Combine(kBoth, ::testing::Values(20L), ::testing::Values(1)));

class SharedDeliveryRetry : public sdktest::AgentTest,
                            public ::testing::WithParamInterface<std::tuple<Generation, FailMode>> {};

TEST_P(SharedDeliveryRetry, AFailingAgentGetsTheSameBatchAgainAfterThreeSeconds) {
    GenerationDriver driver(std::get<0>(GetParam()));
    nodeward::SimOptions options;
    options.failFirst = 2;
    options.failMode = std::get<1>(GetParam());
    ASSERT_TRUE(StartAgent(options));
    WhileParked([&] { return driver.init(); }, [&] { ASSERT_TRUE(driver.send(5)); });
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(5, 20000));
    const auto requests = agent_->requests();
    ASSERT_EQ(3u, requests.size());
    EXPECT_FALSE(requests[0].accepted || requests[1].accepted);
    EXPECT_EQ(requests[0].body, requests[2].body) << "a resend must carry the same batch";
    EXPECT_EQ(2u, pauses_.count(3));
    EXPECT_EQ(GenerationDriver::Counting(5), GenerationDriver::SeqsOf(agent_->acceptedAlarms()));
    // An answer that is not base64 is reported, then judged like any other failure.
    EXPECT_EQ(std::get<1>(GetParam()) == FailMode::Garbage ? 2u : 0u,
              log_.count("encode response body error", 5, driver.logSource()));
}

INSTANTIATE_TEST_SUITE_P(Generations, SharedDelivery, kBoth, ::testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Modes, SharedDeliveryRetry,
                         ::testing::Combine(kBoth, ::testing::Values(FailMode::RetCode, FailMode::Empty,
                                                                     FailMode::Garbage, FailMode::Close)));

using Delivery = sdktest::AgentTest;

// The document's keys and envelope: push_json_test.
TEST_F(Delivery, CurrentAlarmsCarryTheCallersDataAndTheManagersIdentity) {
    ASSERT_TRUE(StartAgent());
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    _ZEBAlarm* alarm = ZEBAllocAlarm("42", ZEB_ALARM_CLEAR);
    ASSERT_EQ(0, ZEBSetAlarmServiceName(alarm, "caller-name"));
    ASSERT_EQ(0, ZEBAppendAlarmParam(alarm, "disk", "sda"));
    ASSERT_EQ(0, ZEBSendAlarm(alarm));
    ASSERT_EQ(0, ZEBResetAlarmTime(alarm, 1700000000123L));
    ASSERT_EQ(0, ZEBSendAlarm(alarm));
    ASSERT_EQ(0, ZEBFreeAlarm(alarm));
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(2, 20000));
    const auto alarms = agent_->acceptedAlarms();
    for (const ReceivedAlarm& a : alarms) {
        EXPECT_EQ("42 2 app-7 0 sda", testsupport::Words(a.alarmId, a.alarmType, a.appId, a.rsetClear, sdktest::Param(a, "disk")));
        EXPECT_EQ("", a.serviceName) << "the manager's name (none yet) replaces the caller's";
    }
    EXPECT_GT(alarms[0].occurTime, 1700000000123LL);  // stamped in milliseconds
    EXPECT_EQ(1700000000123LL, alarms[1].occurTime);  // the caller's time is kept
}

// Where the node address and the alarm-source parameters come from: the variables, and what the
// alarm's "nodeIp", "AlarmSourceLocation" and "AlarmSource" parameter then are.
struct LocationCase {
    const char *name, *nodeId, *hostingServerIp, *serverIp, *podName, *nodeIp, *sourceLocation, *source;
};

class Location : public sdktest::AgentTest, public ::testing::WithParamInterface<LocationCase> {};

TEST_P(Location, ComesFromTheEnvironment) {
    const LocationCase& c = GetParam();
    const sdktest::NodeEnv env(c.nodeId, c.hostingServerIp, c.serverIp, c.podName);
    ASSERT_TRUE(StartAgent());
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    ASSERT_EQ(0, sdktest::SendSingleton("5", "1"));
    const ReceivedAlarm a = OnlyAlarm();
    EXPECT_NE(std::string::npos, a.json.find(std::string("\"nodeIp\":\"") + c.nodeIp + "\"")) << a.json;
    EXPECT_EQ(c.sourceLocation, sdktest::Param(a, "AlarmSourceLocation"));
    EXPECT_EQ(c.source, sdktest::Param(a, "AlarmSource"));
}

INSTANTIATE_TEST_SUITE_P(Cases, Location,
    ::testing::Values(
        LocationCase{"NodeIdIsTheNodeAddress", "node-9", nullptr, nullptr, nullptr, "node-9", "<absent>", "<absent>"},
        LocationCase{"HostingServerIpWins", "node-9", "10.0.0.1", "10.0.0.9", "pod-3", "10.0.0.1", "10.0.0.1", "pod-3"},
        LocationCase{"ServerIpStandsIn", nullptr, nullptr, "10.0.0.9", nullptr, "10.0.0.9", "10.0.0.9", "<absent>"},
        LocationCase{"OneCharacterHostingServerIpIsIgnored", "node-9", "x", nullptr, nullptr, "node-9", "<absent>", "<absent>"},
        LocationCase{"OneCharacterHostingServerIpLeavesServerIp", nullptr, "x", "10.0.0.9", nullptr, "10.0.0.9", "10.0.0.9",
                     "<absent>"}),
    [](const ::testing::TestParamInfo<LocationCase>& info) { return std::string(info.param.name); });

// What a manager that was never started queues for a bare alarm with this
// source (its queue is read here): "<AlarmSource parameter>|<service id> <instance id>".
std::string Queued(AlarmManagerEx& manager, const char* source) {
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    alarm.setAlarmSource(source);
    EXPECT_EQ(0, manager.sendAlarm(&alarm));
    std::list<AlarmEx*> batch;
    manager.getSendAlarmDatas(batch);
    EXPECT_EQ(1u, batch.size());
    const std::string queued = batch.front()->getParamMap()["AlarmSource"] + "|" + batch.front()->getServiceId() + " " +
                               batch.front()->getServiceInsId();
    deleteAlarms(batch);
    return queued;
}

// The alarm source: the record's own, else the manager's, else PODNAME.
// Service id and instance id go out only once the service IP and name are known.
TEST(ManagerAdds, SourceFromRecordManagerOrPodNameAndServiceIdsOnlyWithIpAndName) {
    const struct {
        const char *record, *manager, *podName, *expected;
    } sources[] = {{"rec", "mgr", "pod", "rec"}, {"", "mgr", "pod", "mgr"}, {"", "", "pod", "pod"}, {"", "", nullptr, ""}};
    for (const auto& c : sources) {
        testsupport::ScopedEnv pod("PODNAME", c.podName);
        AlarmManagerEx manager(0);
        manager.setAlarmSource(c.manager);
        EXPECT_EQ(std::string(c.expected) + "| ", Queued(manager, c.record));
    }
    const struct {
        const char *serviceIp, *name, *expected;
    } identities[] = {{"127.0.0.1", "orders", "|svc-1 inst-1"}, {"", "orders", "| "}, {"127.0.0.1", "", "| "}};
    for (const auto& c : identities) {
        AlarmManagerEx manager(0);
        manager.setServiceIp(c.serviceIp);
        ASSERT_EQ(0, manager.addServiceInfo(c.name, "svc-1", "inst-1", 0));
        EXPECT_EQ(c.expected, Queued(manager, "")) << c.serviceIp << "/" << c.name;
    }
}

TEST_F(Delivery, ANon200StatusWithAnOkBodyCountsAsAccepted) {
    nodeward::SimOptions options;
    options.status = 500;
    ASSERT_TRUE(StartAgent(options));
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    ASSERT_EQ(0, sdktest::SendSingleton("9", "0"));
    ASSERT_TRUE(log_.waitFor("send alarms success!", 10000));
    EXPECT_EQ(1u, agent_->requests().size());
    EXPECT_EQ(0u, pauses_.count(3));
    EXPECT_TRUE(log_.contains("Nodeward response retCode is 500 ", 5));
}

TEST_F(Delivery, InitialisationNeedsAppIdAndAppNameAndRunsAgainAfterAFailure) {
    testsupport::ScopedEnv noAppId("APPID", nullptr);
    EXPECT_EQ(-1, ZEBInitAlarmSDK());
    EXPECT_TRUE(log_.contains("APPID is NULL", 5));
    EXPECT_EQ(-1, ZEBInitAlarmSDK());
    EXPECT_EQ(2u, log_.count("TransportSdkInit success in AlarmSdk", 2));
    {
        testsupport::ScopedEnv appId("APPID", "a1"), noAppName("APPNAME", nullptr);
        EXPECT_EQ(-1, ZEBInitAlarmSDK());
        EXPECT_TRUE(log_.contains("APPNAME EV is NULL", 5));
        EXPECT_TRUE(log_.contains("Get AppId a1", 2));
    }
    testsupport::ScopedEnv appId("APPID", "a1");
    EXPECT_EQ(0, ZEBInitAlarmSDK());
    EXPECT_EQ(0, ZEBInitAlarmSDK());  // once initialised, a further call changes nothing
    EXPECT_EQ(1u, log_.count("create send alarm thread success!", 2));
}

}  // namespace
