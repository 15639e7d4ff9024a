// Delivery counters and flush: the counts add up through a refusing agent, one that is down and a full queue.
#include "AlarmSdkStats.h"
#include "Generations.h"

using sdktest::Generation;

namespace {

alarmsdk_stats HandleStats(AlarmManagerEx* manager) {
    alarmsdk_stats s = {};
    s.size = sizeof(s);
    EXPECT_EQ(0, alarmsdk_get_stats(manager, &s));
    return s;
}

class DeliveryStats : public sdktest::AgentTest, public ::testing::WithParamInterface<Generation> {
protected:
    sdktest::GenerationDriver driver_{GetParam()};
};

TEST_P(DeliveryStats, ARefusingAgentTimesTheFlushOutAndItsRecoveryDeliversWhatWasCounted) {
    ASSERT_TRUE(StartAgent());
    agent_->failNext(1000000, nodeward::FailMode::RetCode);
    // The three leave as one batch.
    WhileParked([this] { return driver_.init(); }, [this] { ASSERT_TRUE(driver_.send(3)); });
    EXPECT_EQ(ALARMSDK_FLUSH_TIMED_OUT, driver_.flush(20));
    ASSERT_TRUE(testsupport::WaitUntil([this] { return driver_.stats().retried >= 2; }, 10000));
    alarmsdk_stats s = driver_.stats();
    EXPECT_EQ("3 0 3 0", testsupport::Words(s.accepted, s.delivered, s.waiting, s.last_delivery_ms));
    agent_->failNext(0, nodeward::FailMode::RetCode);
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, driver_.flush(30000));
    s = driver_.stats();
    EXPECT_EQ(static_cast<uint64_t>(sizeof(alarmsdk_stats)), s.size);
    EXPECT_EQ("3 1 0 0", testsupport::Words(s.delivered, s.batches, s.waiting, s.refused + s.dropped));
    EXPECT_GT(s.last_delivery_ms, 1700000000000LL);
    // Every refused attempt is one retry of the one batch.
    EXPECT_EQ(agent_->requests().size() - 1, s.retried);
    EXPECT_EQ(3u, agent_->acceptedAlarms().size());
}

INSTANTIATE_TEST_SUITE_P(Generations, DeliveryStats, ::testing::Values(Generation::Current, Generation::Legacy),
                         ::testing::PrintToStringParamName());

// With the agent down the bound refuses the rest; once it is up every accepted
// alarm arrives, once and in order, and the counts say so.
TEST(DeliveryStatsHandle, AFullQueueDuringAnOutageIsCountedAndEveryAcceptedAlarmArrivesAfterIt) {
    testsupport::PauseRecorder pauses;
    testsupport::LogCapture log;
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
    EXPECT_EQ(1100 - accepted, log.count("the alarm queue is full, this alarm has been removed !", 5, "../src/AlarmManagerEx"));
    ASSERT_TRUE(log.waitFor("Nodeward pResponse is NULL.", 10000));
    ASSERT_TRUE(testsupport::WaitUntil([manager] { return HandleStats(manager).retried >= 1; }, 10000));
    alarmsdk_stats s = HandleStats(manager);
    EXPECT_EQ(testsupport::Words(accepted, 1100 - accepted, accepted), testsupport::Words(s.accepted, s.refused, s.waiting));
    EXPECT_EQ(ALARMSDK_FLUSH_TIMED_OUT, alarmsdk_flush(manager, 0));

    nodeward::SimOptions options;
    options.endpoint = endpoint;
    nodeward::Sim agent(options);
    ASSERT_TRUE(agent.start(nullptr));
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, alarmsdk_flush(manager, 60000));
    s = HandleStats(manager);
    EXPECT_EQ(testsupport::Words(accepted, 0, agent.requests().size()), testsupport::Words(s.delivered, s.waiting, s.batches));
    EXPECT_EQ(seqs, sdktest::GenerationDriver::SeqsOf(agent.acceptedAlarms()));
}

TEST(DeliveryStatsArguments, BadArgumentsAreRefusedAndAStructFromANewerHeaderKeepsItsTail) {
    testsupport::LogCapture log;
    alarmsdk_stats s = {};
    s.size = ALARMSDK_STATS_MIN_SIZE - 8;
    EXPECT_EQ(-1, alarmsdk_get_process_stats(&s));
    s.size = sizeof(s);
    EXPECT_EQ(-1, alarmsdk_get_stats(nullptr, &s));
    EXPECT_EQ(-1, alarmsdk_get_process_stats(nullptr));
    EXPECT_EQ(-1, alarmsdk_get_legacy_stats(nullptr));
    EXPECT_EQ(-1, alarmsdk_flush(nullptr, 0));
    EXPECT_TRUE(log.contains("In alarmsdk_flush, manager is null!", 5, "../src/AlarmSdkStats"));
    struct {
        alarmsdk_stats stats;
        uint64_t later;
    } newer = {};
    newer.stats.size = sizeof(newer);
    newer.later = 77;
    EXPECT_EQ(0, alarmsdk_get_legacy_stats(&newer.stats));
    EXPECT_EQ(ALARMSDK_STATS_MIN_SIZE, newer.stats.size);
    EXPECT_EQ(77u, newer.later);

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

}  // namespace
