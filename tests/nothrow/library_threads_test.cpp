// Every library thread under a failing heap: in round n the n-th allocation of each fails once, until no thread reaches
// n. After each round every flush ends delivered or dropped and an answered check reaches its callback or is logged;
// at the end the counters add up. Leaks are the sanitizer build's to find.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <iostream>

#include "Agent.h"
#include "AlarmSdk.h"
#include "AlarmSdkStats.h"
#include "FailingHeap.h"
#include "PauseRecorder.h"
#include "RestCall.h"
#include "Senders.h"
#include "SimDocument.h"
#include "TestEnv.h"
#include "runlog_testing.h"

namespace {

std::atomic<long> g_checks{0}, g_checkFailures{0};  // counted without allocating
void OnCheck(char*) { g_checks.fetch_add(1); }
void CountCheckFailures(void*, int level, const char*, int, const char* text) {
    if (level == RUNLOG_LEVEL_ERROR && std::strstr(text, "ProcessAlarmCheckToUsersThreadFun") != nullptr) {
        g_checkFailures.fetch_add(1);
    }
}

alarmsdk_stats Stats(int (*get)(alarmsdk_stats*)) {
    alarmsdk_stats s = {};
    s.size = sizeof(s);
    EXPECT_EQ(0, get(&s));
    return s;
}

TEST(LibraryThreads, EachFailsItsNthAllocationInTurnAndTheLibraryCarriesOn) {
    testsupport::PauseRecorder pauses;
    pauses.wakeOnWork(5);
    const testsupport::LoopbackTransport transport;
    auto agent = testsupport::StartedAgent([](nodeward::SimOptions& o) { o.recordRequests = false; });
    testsupport::ScopedEnv appId("APPID", "application-0007"), appName("APPNAME", "orders-application"),
        endpoint("NODEWARD_ENDPOINT", agent->endpoint().c_str());
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    AlarmManagerEx* handle = ZEBInitAlarmSDK4CoProcess("billing-application", "billing", "10.0.0.1", "");
    ASSERT_NE(nullptr, handle);
    ASSERT_EQ(1, InitAlarm(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml", "storage-svc", "storage-svc-0", 0));
    ASSERT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OnCheck));
    const std::string checkUrl =
        "http://127.0.0.1:" + transport.portText + "/orders/application-0007/alarmCheck/callBack";
    const std::string check = nodeward::EncodeBase64(
        "{\"callBackInfo\":{\"serviceName\":\"orders\"},\"callBackAlarms\":[{\"alarmId\":\"300012\"}]}");
    Runlog_SetCapture(&CountCheckFailures, nullptr);

    long rounds = 0, refusals = 0;
    for (long n = 0;; ++n, ++rounds) {
        failingheap::FailEachLibraryThreadAt(n);
        const std::string seq = std::to_string(n);
        ASSERT_EQ(0, SendCurrent(nullptr, seq.c_str()));
        ASSERT_EQ(0, SendCurrent(handle, seq.c_str()));
        ASSERT_EQ(1, SendLegacy(seq.c_str()));
        const long before = g_checks.load() + g_checkFailures.load();
        const int status = testsupport::RestCall(checkUrl, check).status;  // 200, or 500 / no answer when it failed
        for (const int flushed :
             {alarmsdk_flush_process(30000), alarmsdk_flush(handle, 30000), alarmsdk_flush_legacy(30000)}) {
            ASSERT_TRUE(flushed == ALARMSDK_FLUSH_DELIVERED || flushed == ALARMSDK_FLUSH_DROPPED)
                << "round " << n << ": " << flushed;
        }
        if (status == 200) {
            ASSERT_TRUE(
                testsupport::WaitUntil([before] { return g_checks.load() + g_checkFailures.load() > before; }, 30000))
                << "round " << n << ": an answered check neither delivered nor reported";
        }
        const long refused = failingheap::LibraryRefusals();
        refusals += refused;
        if (refused == 0) {
            break;  // no library thread made n allocations: every one of theirs has failed once
        }
    }
    failingheap::FailEachLibraryThreadAt(-1);
    Runlog_SetCapture(nullptr, nullptr);
    // Every thread met the failing heap, and afterwards each manager still delivers.
    std::cout << "rounds " << rounds << ", failed allocations " << refusals << "; by thread:";
    for (const char* name : {"alarmsdk-send", "alarmsdk-legacy", "alarmsdk-check", "alarmsdk-http"}) {
        EXPECT_GT(failingheap::RefusalsOf(name), 0) << name;
        std::cout << " " << name << " " << failingheap::RefusalsOf(name);
    }
    std::cout << "\n";
    ASSERT_EQ(0, SendCurrent(nullptr, "last"));
    ASSERT_EQ(1, SendLegacy("1"));
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, alarmsdk_flush_process(30000));
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, alarmsdk_flush_legacy(30000));
    for (const auto& s : {Stats(alarmsdk_get_process_stats), Stats(alarmsdk_get_legacy_stats)}) {
        EXPECT_EQ(s.accepted, s.delivered + s.dropped);
        EXPECT_EQ(0u, s.waiting);
    }
}

}  // namespace
