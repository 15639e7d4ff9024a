// Alarms travel from the C interface to a real agent over loopback: batching, order, the resend rule, what the manager
// adds to every alarm, the delivery counters and flush, reset-clear announcements and co-process managers.
#include <map>

#include "AlmRukInterface.h"
#include "Generations.h"
#include "rest_head_list.h"

using nodeward::FailMode;
using nodeward::ReceivedAlarm;
using sdktest::Generation;
using sdktest::GenerationDriver;
using testsupport::Words;

namespace {

const auto kBoth = ::testing::Values(Generation::Current, Generation::Legacy);

class SharedDelivery : public sdktest::AgentTest, public ::testing::WithParamInterface<Generation> {
protected:
    GenerationDriver driver_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Generations, SharedDelivery, kBoth, ::testing::PrintToStringParamName());

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
    // Each sender's alarms arrive once, in their order.
    std::vector<std::string> seqs(kThreads);
    for (const auto& a : Arrived(kThreads * kPerThread)) {
        const std::string seq = GenerationDriver::SeqOf(a);
        std::string& sender = seqs.at(std::stoi(seq));
        sender += (sender.empty() ? "" : " ") + seq.substr(seq.find(':') + 1);
    }
    EXPECT_EQ(std::vector<std::string>(kThreads, GenerationDriver::Counting(kPerThread)), seqs);
}

// With the production idle wait and a short tick, a lone alarm leaves at the next tick.
TEST_P(SharedDelivery, ALoneAlarmLeavesAtTheNextTick) {
    ASSERT_TRUE(StartAgent());
    pauses_.wakeOnWork(20);
    ASSERT_TRUE(driver_.init() && Idle());
    ASSERT_TRUE(driver_.send(1));
    EXPECT_EQ("0", GenerationDriver::SeqsOf(Arrived(1)));
}

// With a minute-long tick, the alarm queued at a flush is delivered in time only because the flush woke the send
// thread. The flush is then spent: a full batch sent after it still leaves whole, not its first alarm alone.
TEST_P(SharedDelivery, AFlushSendsWhatIsQueuedAtOnceAndLaterAlarmsAreGatheredAsBefore) {
    ASSERT_TRUE(StartAgent());
    pauses_.wakeOnWork(60000);
    ASSERT_TRUE(driver_.init() && Idle());
    const std::size_t idleWaits = pauses_.count(1);
    ASSERT_TRUE(driver_.send(1));
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, driver_.flush(20000));
    // The flush returns before the send thread is back in its idle wait; what is queued before that leaves at once.
    ASSERT_TRUE(Idle(idleWaits + 1));
    ASSERT_TRUE(driver_.send(50));
    Arrived(51);
    const auto requests = agent_->requests();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ("1 50", Words(requests[0].alarms.size(), requests[1].alarms.size()));
}

class SharedDeliveryRetry : public sdktest::AgentTest,
                            public ::testing::WithParamInterface<std::tuple<Generation, FailMode>> {};

// The queue leaves in batches of 50, in order; a batch the agent fails is sent again, the same, after 3 s.
TEST_P(SharedDeliveryRetry, QueuedAlarmsLeaveInBatchesOfFiftyAndAFailedBatchAgainAfterThreeSeconds) {
    GenerationDriver driver(std::get<0>(GetParam()));
    const FailMode failMode = std::get<1>(GetParam());
    ASSERT_TRUE(StartAgent([failMode](nodeward::SimOptions& o) {
        o.failFirst = 2;
        o.failMode = failMode;
    }));
    WhileParked([&] { return driver.init(); }, [&] { ASSERT_TRUE(driver.send(120)); });
    EXPECT_EQ(GenerationDriver::Counting(120), GenerationDriver::SeqsOf(Arrived(120)));
    const auto requests = agent_->requests();
    std::string sent;  // "<alarms> <accepted> <Content-Type>;" per request
    for (const auto& request : requests) {
        sent += Words(request.alarms.size(), request.accepted, request.header("Content-Type")) + ";";
    }
    EXPECT_EQ(
        "50 0 application/json;50 0 application/json;50 1 application/json;50 1 application/json;"
        "20 1 application/json;",
        sent);
    EXPECT_EQ(requests.at(0).body, requests.at(2).body) << "a resend must carry the same batch";
    EXPECT_EQ(2u, pauses_.count(3));
    EXPECT_TRUE(testsupport::WaitUntil(
        [&] { return log_.count(driver.successText(), driver.successLevel(), driver.logSource()) == 3; }, 5000));
    // An answer that is not base64 is reported, then judged like any other failure.
    EXPECT_EQ(failMode == FailMode::Garbage ? 2u : 0u, log_.count("encode response body error", 5, driver.logSource()));
}

INSTANTIATE_TEST_SUITE_P(Modes, SharedDeliveryRetry,
                         ::testing::Combine(kBoth, ::testing::Values(FailMode::RetCode, FailMode::Empty,
                                                                     FailMode::Garbage, FailMode::Close)));

using Delivery = sdktest::AgentTest;

// The agent started and the singleton initialised.
class Started : public sdktest::AgentTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(StartAgent());
        ASSERT_EQ(0, ZEBInitAlarmSDK());
    }
};

TEST_F(Started, CurrentAlarmsCarryTheCallersDataAndTheManagersIdentity) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("42", ZEB_ALARM_CLEAR);
    const int results[] = {ZEBSetAlarmServiceName(alarm, "caller-name"),
                           ZEBAppendAlarmParam(alarm, "disk", "sda"),
                           ZEBSendAlarm(alarm),
                           ZEBResetAlarmTime(alarm, 1700000000123L),
                           ZEBSendAlarm(alarm),
                           ZEBFreeAlarm(alarm)};
    ASSERT_EQ(std::vector<int>(6, 0), std::vector<int>(std::begin(results), std::end(results)));
    const auto alarms = Arrived(2);
    ASSERT_EQ(2u, alarms.size());
    for (const ReceivedAlarm& a : alarms) {
        // The manager's name (none yet) replaces the caller's.
        EXPECT_EQ("42 2 app-7 0 sda ",
                  Words(a.alarmId, a.alarmType, a.appId, a.rsetClear, sdktest::Param(a, "disk"), a.serviceName));
    }
    EXPECT_GT(alarms[0].occurTime, 1700000000123LL);  // stamped in milliseconds
    EXPECT_EQ(1700000000123LL, alarms[1].occurTime);  // the caller's time is kept
}

// The stand-in's client frames the body itself; a node's client may trust the header instead.
TEST(PushRequest, ContentLengthIsTheBodysLength) {
    for (const std::string& body : {std::string(), std::string("eyJ9"), std::string(70000, 'A')}) {
        stru_REST_REQUEST* request = AlmRukInterface::BuildPushRequest(body.c_str(), body.size());
        ASSERT_NE(nullptr, request);
        EXPECT_STREQ(std::to_string(body.size()).c_str(), zeb_restHeadContentFind(request->header, "Content-Length"));
        EXPECT_EQ(body.size(), request->bodyLen);
        AlmRukInterface::FreeRestRequest(request);
    }
}

// The node variables, and the alarm's "nodeIp", "AlarmSourceLocation" and "AlarmSource" they give (nullptr: absent).
struct LocationCase {
    const char *name, *nodeId, *hostingServerIp, *serverIp, *podName, *nodeIp, *sourceLocation, *source;
};
// clang-format off
const LocationCase kLocations[] = {
    {"NodeIdIsTheNodeAddress", "node-9", nullptr, nullptr, nullptr, "node-9", nullptr, nullptr},
    {"HostingServerIpWins", "node-9", "10.0.0.1", "10.0.0.9", "pod-3", "10.0.0.1", "10.0.0.1", "pod-3"},
    {"ServerIpStandsIn", nullptr, nullptr, "10.0.0.9", nullptr, "10.0.0.9", "10.0.0.9", nullptr},
    {"OneCharacterHostingServerIpIsIgnored", "node-9", "x", nullptr, nullptr, "node-9", nullptr, nullptr},
    {"OneCharacterHostingServerIpLeavesServerIp", nullptr, "x", "10.0.0.9", nullptr, "10.0.0.9", "10.0.0.9", nullptr},
};
// clang-format on

class Location : public Started, public ::testing::WithParamInterface<LocationCase> {
    const sdktest::NodeEnv env_{GetParam().nodeId, GetParam().hostingServerIp, GetParam().serverIp, GetParam().podName};
};

TEST_P(Location, ComesFromTheEnvironment) {
    const LocationCase& c = GetParam();
    ASSERT_EQ(0, sdktest::SendSeq("5", "1"));
    const ReceivedAlarm a = OnlyAlarm();
    const auto text = [](const char* value) { return std::string(value != nullptr ? value : "<absent>"); };
    EXPECT_EQ(Words(c.nodeIp, text(c.sourceLocation), text(c.source)),
              Words(a.nodeIp, sdktest::Param(a, "AlarmSourceLocation"), sdktest::Param(a, "AlarmSource")));
}

std::string NameOf(const ::testing::TestParamInfo<LocationCase>& info) { return info.param.name; }
INSTANTIATE_TEST_SUITE_P(Cases, Location, ::testing::ValuesIn(kLocations), NameOf);

// What a never started manager queues for a bare alarm with this source: "<AlarmSource>|<service id> <instance id>".
std::string Queued(AlarmManagerEx& manager, const char* source) {
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    alarm.setAlarmSource(source);
    EXPECT_EQ(0, manager.sendAlarm(&alarm));
    std::list<AlarmEx*> batch;
    manager.getSendAlarmDatas(batch);
    EXPECT_EQ(1u, batch.size());
    AlarmEx* queued = batch.front();
    const std::string text =
        queued->getParamMap()["AlarmSource"] + "|" + queued->getServiceId() + " " + queued->getServiceInsId();
    deleteAlarms(batch);
    return text;
}

// The alarm source: the record's own, else the manager's, else PODNAME. Service ids need the service IP and name.
TEST(ManagerAdds, SourceFromRecordManagerOrPodNameAndServiceIdsOnlyWithIpAndName) {
    const struct {
        const char *record, *manager, *podName, *expected;
    } sources[] = {
        {"rec", "mgr", "pod", "rec"}, {"", "mgr", "pod", "mgr"}, {"", "", "pod", "pod"}, {"", "", nullptr, ""}};
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

// Delivery counters and flush: the counts add up through a refusing agent, one that is down and a full queue.
alarmsdk_stats HandleStats(AlarmManagerEx* manager) {
    alarmsdk_stats s = {};
    s.size = sizeof(s);
    EXPECT_EQ(0, alarmsdk_get_stats(manager, &s));
    return s;
}

TEST_P(SharedDelivery, ARefusingAgentTimesTheFlushOutAndItsRecoveryDeliversWhatWasCounted) {
    ASSERT_TRUE(StartAgent());
    agent_->failNext(1000000, nodeward::FailMode::RetCode);
    WhileParked([this] { return driver_.init(); }, [this] { ASSERT_TRUE(driver_.send(3)); });  // one batch
    EXPECT_EQ(ALARMSDK_FLUSH_TIMED_OUT, driver_.flush(20));
    ASSERT_TRUE(testsupport::WaitUntil([this] { return driver_.stats().retried >= 2; }, 10000));
    alarmsdk_stats s = driver_.stats();
    EXPECT_EQ("3 0 3 0", Words(s.accepted, s.delivered, s.waiting, s.last_delivery_ms));
    agent_->failNext(0, nodeward::FailMode::RetCode);
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, driver_.flush(30000));
    s = driver_.stats();
    EXPECT_EQ(static_cast<uint64_t>(sizeof(alarmsdk_stats)), s.size);
    EXPECT_EQ("3 1 0 0", Words(s.delivered, s.batches, s.waiting, s.refused + s.dropped));
    EXPECT_GT(s.last_delivery_ms, 1700000000000LL);
    // Every refused attempt is one retry of the one batch.
    EXPECT_EQ(Words(agent_->requests().size() - 1, 3), Words(s.retried, agent_->acceptedAlarms().size()));
}

// With the agent down the bound refuses the rest; once it is up every accepted alarm arrives once, in order.
TEST_F(Delivery, AFullQueueDuringAnOutageIsCountedAndEveryAcceptedAlarmArrivesAfterIt) {
    const std::string endpoint = "127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort());
    testsupport::ScopedEnv target("NODEWARD_ENDPOINT", endpoint.c_str());
    AlarmManagerEx* manager = ZEBInitAlarmSDK4CoProcess("app-7", "orders", "10.0.0.1", "127.0.0.1");
    ASSERT_NE(nullptr, manager);
    std::string seqs;  // of the accepted alarms
    std::size_t accepted = 0;
    for (int i = 0; i < 1100; ++i) {
        if (sdktest::SendVia(manager, "5", std::to_string(i)) == 0) {
            seqs += (accepted++ > 0 ? " " : "") + std::to_string(i);
        }
    }
    // The queue holds 1024; the send thread may hold one batch of 50 besides.
    EXPECT_GE(accepted, 1024u);
    EXPECT_LE(accepted, 1024u + 50u);
    EXPECT_EQ(1100 - accepted,
              log_.count("the alarm queue is full, this alarm has been removed !", 5, "../src/AlarmManagerEx"));
    ASSERT_TRUE(log_.waitFor("Nodeward pResponse is NULL.", 10000));
    ASSERT_TRUE(testsupport::WaitUntil([manager] { return HandleStats(manager).retried >= 1; }, 10000));
    alarmsdk_stats s = HandleStats(manager);
    EXPECT_EQ(Words(accepted, 1100 - accepted, accepted), Words(s.accepted, s.refused, s.waiting));
    EXPECT_EQ(ALARMSDK_FLUSH_TIMED_OUT, alarmsdk_flush(manager, 0));

    const auto agent = testsupport::StartedAgent(nullptr, endpoint);
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, alarmsdk_flush(manager, 60000));
    s = HandleStats(manager);
    EXPECT_EQ(Words(accepted, 0, agent->requests().size()), Words(s.delivered, s.waiting, s.batches));
    EXPECT_EQ(seqs, GenerationDriver::SeqsOf(agent->acceptedAlarms()));
}

TEST(DeliveryStatsArguments, BadArgumentsAreRefusedAndAStructFromANewerHeaderKeepsItsTail) {
    testsupport::LogCapture log;
    alarmsdk_stats small = {}, s = {};
    small.size = ALARMSDK_STATS_MIN_SIZE - 8;
    s.size = sizeof(s);
    const int refused[] = {alarmsdk_get_process_stats(&small), alarmsdk_get_stats(nullptr, &s),
                           alarmsdk_get_process_stats(nullptr), alarmsdk_get_legacy_stats(nullptr),
                           alarmsdk_flush(nullptr, 0)};
    EXPECT_EQ(std::vector<int>(5, -1), std::vector<int>(std::begin(refused), std::end(refused)));
    EXPECT_TRUE(log.contains("In alarmsdk_flush, manager is null!", 5, "../src/AlarmSdkStats"));
    struct {
        alarmsdk_stats stats;
        uint64_t later;
    } newer = {};
    newer.stats.size = sizeof(newer);
    newer.later = 77;
    EXPECT_EQ(0, alarmsdk_get_legacy_stats(&newer.stats));
    EXPECT_EQ(Words(ALARMSDK_STATS_MIN_SIZE, 77), Words(newer.stats.size, newer.later));

    // Nothing drains a manager that was never initialised: its flush only succeeds while nothing is queued.
    AlarmManagerEx idle(0);
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, alarmsdk_flush(&idle, 0));
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    ASSERT_EQ(0, idle.sendAlarm(&alarm));
    EXPECT_EQ(ALARMSDK_FLUSH_TIMED_OUT, alarmsdk_flush(&idle, 10));
    EXPECT_EQ(1u, HandleStats(&idle).waiting);
    std::list<AlarmEx*> batch;
    idle.getSendAlarmDatas(batch);
    deleteAlarms(batch);
}

// Reset-clear announcements, seen from the agent; the service is served on the transport address.
class ResetClear : public Started {
protected:
    // "<alarm id> <rsetClear> <service id> <instance id>;" of each alarm once count arrived.
    std::string Arrivals(std::size_t count) {
        std::string arrived;
        for (const ReceivedAlarm& a : Arrived(count)) {
            arrived += Words(a.alarmId, a.rsetClear, a.serviceId, a.serviceInstId) + ";";
        }
        return arrived;
    }
    testsupport::ScopedEnv sdkIp_{"TRANSPORT_SDK_IP", "127.0.0.1"}, sdkPort_{"TRANSPORT_SDK_PORT", "8123"};
};

TEST_F(ResetClear, OneAnnouncementPerManagerAndEveryLaterAlarmCarriesTheMarker) {
    ASSERT_EQ(0, ZEBRegisterInfo("orders", "orders-label"));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::processRsetAction", 2));
    // Later calls store the new name and label but announce nothing.
    EXPECT_EQ(0, ZEBRegisterInfo("orders2", "label2"));
    EXPECT_EQ(0, ZEBRegisterRsetClear(AlarmManagerEx::getInstance()));
    EXPECT_EQ(2u, log_.count("AlarmManagerEx::RegisterRsetClear Repeat process", 5));
    ASSERT_EQ(0, sdktest::SendSeq("300012", "1"));
    const auto alarms = Arrived(2);
    ASSERT_EQ(2u, alarms.size());
    const ReceivedAlarm& first = alarms[0];
    EXPECT_EQ("0 orders 127.0.0.1 8123 app-7 orders-label", Words(first.alarmId, first.serviceName, first.serviceIp,
                                                                  first.servicePort, first.appId, first.serviceLabel));
    EXPECT_EQ("1 orders2 label2", Words(alarms[1].rsetClear, alarms[1].serviceName, alarms[1].serviceLabel));
}

TEST_F(ResetClear, RegisteringBeforeANameIsKnownSpendsTheAnnouncement) {
    EXPECT_EQ(0, ZEBRegisterRsetClear(AlarmManagerEx::getInstance()) + ZEBRegisterInfo("orders", "label"));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::RegisterRsetClear Repeat process", 5));
    ASSERT_EQ(0, sdktest::SendSeq("1", "x"));
    EXPECT_EQ("1 1  ;", Arrivals(1));
}

TEST_F(ResetClear, ServiceInfoWithMarkerOneRegistersAndIdentifiesLaterAlarms) {
    EXPECT_EQ(0, ZEBRegisterRsetClearInfo("orders", "svc-1", "inst-1", 1));
    ASSERT_EQ(0, sdktest::SendSeq("2", "x"));
    EXPECT_EQ("0 -1  ;2 1 svc-1 inst-1;", Arrivals(2));
}

// Only 1 registers; other markers are stored as given, and the co-process texts may then stay empty.
TEST_F(ResetClear, AMarkerOtherThanOneIsStoredWithoutRegistering) {
    EXPECT_EQ(0, ZEBRegisterRsetClearInfo("orders", "svc-1", "inst-1", 2));
    AlarmManagerEx* handle = ZEBInitAlarmSDK4CoProcess("app-c", "svc-c", "10.3.0.1", "10.3.0.5");
    EXPECT_EQ(0, ZEBRegisterRsetClearInfo4CoProcess(handle, "", "", "", 2));
    ASSERT_EQ(0, sdktest::SendSeq("3", "x"));
    EXPECT_EQ("3 2 svc-1 inst-1;", Arrivals(1));
    EXPECT_FALSE(log_.contains("AlarmManagerEx::processRsetAction", 2));
}

// Without a service address (none given, no transport address) there is nothing to announce.
TEST_F(Delivery, TheAnnouncementNeedsAServiceAddress) {
    ASSERT_TRUE(StartAgent());
    AlarmManagerEx* handle = ZEBInitAlarmSDK4CoProcess("app-d", "svc-d", "10.4.0.1", "");
    ASSERT_EQ(0, ZEBRegisterInfo4CoProcess(handle, "label-d"));
    ASSERT_EQ(0, sdktest::SendVia(handle, "4", "x"));
    const ReceivedAlarm alarm = OnlyAlarm();
    EXPECT_EQ("4 1", Words(alarm.alarmId, alarm.rsetClear));
}

// Run without and with a transport address: the address the service is served on replaces the one each co-process gave.
class CoProcess : public sdktest::AgentTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(CoProcess, HandlesKeepTheirAlarmsApart) {
    testsupport::ScopedEnv sdkIp("TRANSPORT_SDK_IP", GetParam());
    ASSERT_TRUE(StartAgent());
    AlarmManagerEx* first = ZEBInitAlarmSDK4CoProcess("app-a", "svc-a", "10.1.0.1", "10.1.0.5");
    AlarmManagerEx* second = ZEBInitAlarmSDK4CoProcess("app-b", "svc-b", "10.2.0.1", "10.2.0.5");
    EXPECT_EQ(0, ZEBRegisterInfo4CoProcess(first, "label-a"));
    constexpr int kEach = 60;
    for (int i = 0; i < kEach; ++i) {
        ASSERT_EQ(0, sdktest::SendVia(first, "77", std::to_string(i)));
        ASSERT_EQ(0, sdktest::SendVia(second, "77", std::to_string(i)));
    }
    Arrived(2 * kEach + 1);  // and app-a's announcement
    // Per co-process: its alarms in order, each "service ip rsetClear seq".
    std::map<std::string, std::string> seen, expected;
    const std::string ip = GetParam() != nullptr ? GetParam() : "";
    for (int i = 0; i < kEach; ++i) {
        expected["app-a"] += " svc-a " + (ip.empty() ? "10.1.0.5" : ip) + " 1 " + std::to_string(i);
        expected["app-b"] += " svc-b " + (ip.empty() ? "10.2.0.5" : ip) + " 0 " + std::to_string(i);
    }
    for (const auto& request : agent_->requests()) {
        for (const ReceivedAlarm& a : request.alarms) {
            ASSERT_EQ(request.alarms.front().appId, a.appId) << "one batch mixes two co-processes";
            if (a.alarmId != "0") {
                seen[a.appId] += " " + Words(a.serviceName, a.serviceIp, a.rsetClear, sdktest::Param(a, "seq"));
            }
        }
    }
    EXPECT_EQ(expected, seen);
}

INSTANTIATE_TEST_SUITE_P(TransportAddress, CoProcess, ::testing::Values(nullptr, "127.0.0.1"));

}  // namespace
