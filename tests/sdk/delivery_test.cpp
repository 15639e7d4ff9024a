// Alarms travel from the C interface to a real agent over loopback: batching,
// order, completeness of each document, and the resend rule.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "AlarmFixtures.h"
#include "AlarmManagerEx.h"
#include "Generations.h"
#include "LogCapture.h"
#include "PauseRecorder.h"
#include "SdkTestSupport.h"

using nodeward::FailMode;
using sdktest::Generation;
using nodeward::ReceivedAlarm;
using nodeward::SimOptions;

namespace {


class Delivery : public ::testing::Test {
protected:
    testsupport::PauseRecorder pauses_;
    testsupport::LogCapture log_;
    sdktest::SingletonEnv env_;
};

// The send cycle is shared by both generations; these cases run on each.
class SharedDelivery : public Delivery, public ::testing::WithParamInterface<Generation> {
protected:
    sdktest::GenerationDriver driver_{GetParam()};
};

TEST_P(SharedDelivery, QueuedAlarmsLeaveInBatchesOfFiftyInQueueOrderWithCompleteDocuments) {
    auto agent = sdktest::StartAgent();
    ASSERT_TRUE(agent);
    // Park the send thread in its idle pause while the alarms are queued.
    pauses_.hold();
    ASSERT_TRUE(driver_.init());
    ASSERT_TRUE(testsupport::WaitUntil([this] { return pauses_.count(1) > 0; }, 5000));
    for (int i = 0; i < 120; ++i) {
        ASSERT_TRUE(driver_.send(std::to_string(i)));
    }
    pauses_.release();
    ASSERT_TRUE(agent->waitForAcceptedAlarms(120, 20000));

    auto requests = agent->requests();
    ASSERT_EQ(3u, requests.size());
    EXPECT_EQ(50u, requests[0].alarms.size());
    EXPECT_EQ(50u, requests[1].alarms.size());
    EXPECT_EQ(20u, requests[2].alarms.size());
    auto alarms = agent->acceptedAlarms();
    ASSERT_EQ(120u, alarms.size());
    for (int i = 0; i < 120; ++i) {
        EXPECT_EQ(std::to_string(i), sdktest::GenerationDriver::SeqOf(alarms[i])) << "queue order lost at " << i;
        EXPECT_EQ(GetParam() == Generation::Legacy, alarms[i].legacy);
    }
    EXPECT_TRUE(testsupport::WaitUntil(
        [this] { return log_.count(driver_.successText(), driver_.successLevel(), driver_.logSource()) == 3; },
        5000));
}

TEST_P(SharedDelivery, SeveralThreadsSendingAtOnceLoseNothingBelowTheBound) {
    auto agent = sdktest::StartAgent();
    ASSERT_TRUE(agent);
    ASSERT_TRUE(driver_.init());
    constexpr int kThreads = 4;
    constexpr int kPerThread = 200;
    std::atomic<int> failures{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([this, t, &failures] {
            for (int i = 0; i < kPerThread; ++i) {
                if (!driver_.send(std::to_string(t) + ":" + std::to_string(i))) {
                    ++failures;
                }
            }
        });
    }
    for (auto& s : senders) {
        s.join();
    }
    EXPECT_EQ(0, failures.load());
    ASSERT_TRUE(agent->waitForAcceptedAlarms(kThreads * kPerThread, 30000));
    auto alarms = agent->acceptedAlarms();
    ASSERT_EQ(static_cast<std::size_t>(kThreads * kPerThread), alarms.size());
    // Each sender's alarms keep their order, and none arrives twice.
    std::vector<int> next(kThreads, 0);
    std::set<std::string> seen;
    for (const auto& a : alarms) {
        std::string seq = sdktest::GenerationDriver::SeqOf(a);
        ASSERT_TRUE(seen.insert(seq).second) << "duplicate " << seq;
        int t = std::stoi(seq.substr(0, seq.find(':')));
        int i = std::stoi(seq.substr(seq.find(':') + 1));
        EXPECT_EQ(next[t], i);
        next[t] = i + 1;
    }
}

// The idle wait on the production queue, its tick stretched or shrunk: with a
// minute-long tick only a full batch can end it within the test; with a short
// one a lone alarm leaves at the next tick.
class IdleWake : public Delivery, public ::testing::WithParamInterface<std::tuple<Generation, long, int>> {
protected:
    sdktest::GenerationDriver driver_{std::get<0>(GetParam())};
};

TEST_P(IdleWake, TheIdleWaitEndsAtAFullBatchOrAtTheNextTick) {
    const int alarms = std::get<2>(GetParam());
    auto agent = sdktest::StartAgent();
    ASSERT_TRUE(agent);
    pauses_.wakeOnWork(std::get<1>(GetParam()));
    ASSERT_TRUE(driver_.init());
    ASSERT_TRUE(testsupport::WaitUntil([this] { return pauses_.count(1) > 0; }, 5000));
    for (int i = 0; i < alarms; ++i) {
        ASSERT_TRUE(driver_.send(std::to_string(i)));
    }
    ASSERT_TRUE(agent->waitForAcceptedAlarms(alarms, 20000));
    const auto requests = agent->requests();
    ASSERT_EQ(1u, requests.size()) << "the batch left before it was complete";
    EXPECT_EQ(static_cast<std::size_t>(alarms), requests[0].alarms.size());
}

INSTANTIATE_TEST_SUITE_P(Ticks, IdleWake,
                         ::testing::Combine(::testing::Values(Generation::Current, Generation::Legacy),
                                            ::testing::Values(60000L), ::testing::Values(50)));
INSTANTIATE_TEST_SUITE_P(Trickle, IdleWake,
                         ::testing::Combine(::testing::Values(Generation::Current, Generation::Legacy),
                                            ::testing::Values(20L), ::testing::Values(1)));

class SharedDeliveryRetry : public Delivery, public ::testing::WithParamInterface<std::tuple<Generation, FailMode>> {
protected:
    sdktest::GenerationDriver driver_{std::get<0>(GetParam())};
};

TEST_P(SharedDeliveryRetry, AFailingAgentGetsTheSameBatchAgainAfterThreeSeconds) {
    SimOptions options;
    options.failFirst = 2;
    options.failMode = std::get<1>(GetParam());
    auto agent = sdktest::StartAgent(options);
    ASSERT_TRUE(agent);
    pauses_.hold();
    ASSERT_TRUE(driver_.init());
    ASSERT_TRUE(testsupport::WaitUntil([this] { return pauses_.count(1) > 0; }, 5000));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(driver_.send(std::to_string(i)));
    }
    pauses_.release();
    ASSERT_TRUE(agent->waitForAcceptedAlarms(5, 20000));

    auto requests = agent->requests();
    ASSERT_EQ(3u, requests.size());
    EXPECT_FALSE(requests[0].accepted);
    EXPECT_FALSE(requests[1].accepted);
    EXPECT_TRUE(requests[2].accepted);
    EXPECT_EQ(requests[0].body, requests[2].body) << "a resend must carry the same batch";
    EXPECT_EQ(2u, pauses_.count(3));
    auto alarms = agent->acceptedAlarms();
    ASSERT_EQ(5u, alarms.size());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(std::to_string(i), sdktest::GenerationDriver::SeqOf(alarms[i]));
    }
}

INSTANTIATE_TEST_SUITE_P(Generations, SharedDelivery, ::testing::Values(Generation::Current, Generation::Legacy),
                         ::testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Modes, SharedDeliveryRetry,
                         ::testing::Combine(::testing::Values(Generation::Current, Generation::Legacy),
                                            ::testing::Values(FailMode::RetCode, FailMode::Empty, FailMode::Garbage,
                                                              FailMode::Close)));

TEST_F(Delivery, CurrentDocumentsCarryEveryKeyAndParametersInNameOrder) {
    auto agent = sdktest::StartAgent();
    ASSERT_TRUE(agent);
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(0, sdktest::SendCAlarm([](_ZEBAlarm* a) { return ZEBSendAlarm(a); }, "300012", i % 2,
                                         {{"seq", std::to_string(i)}, {"zeta", "z"}, {"alpha", "a"}, {"Mid", "m"}}));
    }
    ASSERT_TRUE(agent->waitForAcceptedAlarms(2, 20000));
    auto alarms = agent->acceptedAlarms();
    for (int i = 0; i < 2; ++i) {
        const ReceivedAlarm& a = alarms[i];
        EXPECT_EQ(sdktest::kAllAlarmKeys, a.keys);
        EXPECT_EQ("300012", a.alarmId);
        EXPECT_EQ(i % 2 == 0 ? 1 : 2, a.alarmType);  // generate 1, clear 2 on the wire
        EXPECT_EQ("app-7", a.appId);
        EXPECT_GT(a.occurTime, 1700000000000LL);     // stamped in milliseconds
        // Names in byte order: upper case sorts before lower case.
        std::vector<std::string> names;
        for (const auto& p : a.parameters) {
            names.push_back(p.first);
        }
        EXPECT_EQ((std::vector<std::string>{"Mid", "alpha", "seq", "zeta"}), names);
    }
    const std::string json = agent->requests().at(0).json;
    EXPECT_TRUE(json.find("\"business\":{\"name\":\"PushAlarm\"},\"payload\":{\"alarmList\":[") == 1) << json;
    EXPECT_NE(std::string::npos, json.find("]},\"Receiver\":\"SendAlarm\"}"));
}

TEST_F(Delivery, ManagerIdentityReplacesTheCallersServiceNameAndKeepsACallerTime) {
    testsupport::ScopedEnv pod("PODNAME", "pod-3");
    testsupport::ScopedEnv node("HOSTING_SERVER_IP", "10.0.0.1");
    auto agent = sdktest::StartAgent();
    ASSERT_TRUE(agent);
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    _ZEBAlarm* alarm = ZEBAllocAlarm("42", ZEB_ALARM_CLEAR);
    ASSERT_NE(nullptr, alarm);
    ASSERT_EQ(0, ZEBSetAlarmServiceName(alarm, "caller-name"));
    ASSERT_EQ(0, ZEBResetAlarmTime(alarm, 1700000000123L));
    ASSERT_EQ(0, ZEBSendAlarm(alarm));
    ASSERT_EQ(0, ZEBFreeAlarm(alarm));
    ASSERT_TRUE(agent->waitForAcceptedAlarms(1, 10000));

    ReceivedAlarm a = agent->acceptedAlarms().at(0);
    EXPECT_EQ("", a.serviceName);  // the manager has no service name yet
    EXPECT_EQ(1700000000123LL, a.occurTime);
    EXPECT_EQ(2, a.alarmType);
    EXPECT_EQ(0, a.rsetClear);
    EXPECT_EQ("pod-3", sdktest::Param(a, "AlarmSource"));
    EXPECT_EQ("10.0.0.1", sdktest::Param(a, "AlarmSourceLocation"));
    EXPECT_NE(std::string::npos, a.json.find("\"nodeIp\":\"10.0.0.1\""));
}

TEST_F(Delivery, ANon200StatusWithAnOkBodyCountsAsAccepted) {
    SimOptions options;
    options.status = 500;
    auto agent = sdktest::StartAgent(options);
    ASSERT_TRUE(agent);
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    ASSERT_EQ(0, sdktest::SendSingleton("9", "0"));
    ASSERT_TRUE(agent->waitForAcceptedAlarms(1, 10000));
    ASSERT_TRUE(log_.waitFor("send alarms success!", 5000));
    EXPECT_EQ(1u, agent->requests().size());
    EXPECT_EQ(0u, pauses_.count(3));
    EXPECT_TRUE(log_.contains("Nodeward response retCode is 500 ", 5));
}

TEST_F(Delivery, WithTheAgentDownTheBoundRefusesTheRestAndEveryAcceptedAlarmArrivesOnceInOrder) {
    const int port = testsupport::FreeLoopbackPort();
    const std::string endpoint = "127.0.0.1:" + std::to_string(port);
    testsupport::ScopedEnv target("NODEWARD_ENDPOINT", endpoint.c_str());
    ASSERT_EQ(0, ZEBInitAlarmSDK());

    std::vector<int> accepted;
    int refused = 0;
    for (int i = 0; i < 1100; ++i) {
        if (sdktest::SendSingleton("5", std::to_string(i)) == 0) {
            accepted.push_back(i);
        } else {
            ++refused;
        }
    }
    // The queue holds 1024; the send thread may hold one batch of 50 besides.
    EXPECT_GE(accepted.size(), 1024u);
    EXPECT_LE(accepted.size(), 1024u + 50u);
    EXPECT_EQ(1100, static_cast<int>(accepted.size()) + refused);
    EXPECT_EQ(static_cast<std::size_t>(refused),
              log_.count("the alarm queue is full, this alarm has been removed !", 5, "../src/AlarmManagerEx"));
    ASSERT_TRUE(log_.waitFor("Nodeward pResponse is NULL.", 10000));

    SimOptions options;
    options.endpoint = endpoint;
    nodeward::Sim agent(options);
    std::string error;
    ASSERT_TRUE(agent.start(&error)) << error;
    ASSERT_TRUE(agent.waitForAcceptedAlarms(accepted.size(), 60000));
    auto alarms = agent.acceptedAlarms();
    ASSERT_EQ(accepted.size(), alarms.size());
    for (std::size_t i = 0; i < alarms.size(); ++i) {
        ASSERT_EQ(std::to_string(accepted[i]), sdktest::Param(alarms[i], "seq")) << "at " << i;
    }
}

TEST_F(Delivery, InitialisationNeedsAppIdAndAppNameAndRunsAgainAfterAFailure) {
    testsupport::ScopedEnv noAppId("APPID", nullptr);
    EXPECT_EQ(-1, ZEBInitAlarmSDK());
    EXPECT_TRUE(log_.contains("APPID is NULL", 5));
    EXPECT_EQ(-1, ZEBInitAlarmSDK());
    EXPECT_EQ(2u, log_.count("TransportSdkInit success in AlarmSdk", 2));
    {
        testsupport::ScopedEnv appId("APPID", "a1");
        testsupport::ScopedEnv noAppName("APPNAME", nullptr);
        EXPECT_EQ(-1, ZEBInitAlarmSDK());
        EXPECT_TRUE(log_.contains("APPNAME EV is NULL", 5));
        EXPECT_TRUE(log_.contains("Get AppId a1", 2));
    }
    testsupport::ScopedEnv appId("APPID", "a1");
    EXPECT_EQ(0, ZEBInitAlarmSDK());
    EXPECT_EQ(1u, log_.count("create send alarm thread success!", 2));
    // Once initialised, a further call changes nothing.
    EXPECT_EQ(0, ZEBInitAlarmSDK());
    EXPECT_EQ(1u, log_.count("create send alarm thread success!", 2));
}

TEST_F(Delivery, AFullQueueRefusesTheNewestAlarmAndKeepsTheFirst1024) {
    AlarmManagerEx manager(0);  // never initialised: nothing drains its queue
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(0, manager.sendAlarm(&alarm));
    }
    EXPECT_EQ(-1, manager.sendAlarm(&alarm));
    EXPECT_EQ(-1, manager.sendAlarm(nullptr));
    EXPECT_EQ(1024u, manager.queuedAlarmCount());
    std::list<AlarmEx*> batch;
    manager.getSendAlarmDatas(batch);
    EXPECT_EQ(50u, batch.size());
    EXPECT_EQ(974u, manager.queuedAlarmCount());
    deleteAlarms(batch);
    EXPECT_TRUE(batch.empty());
    // The rest of the queue is left as the process would leave it.
    while (manager.queuedAlarmCount() > 0) {
        manager.getSendAlarmDatas(batch);
        deleteAlarms(batch);
    }
}

}  // namespace
