// The C entry points under a heap that runs out (FailingHeap.h): on the calling thread, the n-th allocation of a call
// and every later one fail. For every n the call must return its failure result with an error line, never throw into C.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "AlarmBuildAlarmConfInfo.h"
#include "AlarmConfig.h"
#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "AlarmSdkStats.h"
#include "FailingHeap.h"
#include "PauseRecorder.h"
#include "Senders.h"
#include "TestEnv.h"
#include "runlog_testing.h"

using failingheap::t_allowed;
using failingheap::t_refused;

namespace {

std::atomic<int> g_errors{0};  // counted without allocating: it runs inside the failing calls
void CountErrors(void*, int level, const char*, int, const char*) { g_errors += level == RUNLOG_LEVEL_ERROR; }
void NoCallback(char*) {}

AlarmManagerEx* g_handle = nullptr;  // a co-process handle made before the heap fails
const char* const kDefinitions = ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml";

TEST(FailingAllocator, EveryEntryPointFailsCleanlyAtEveryAllocation) {
    testsupport::PauseRecorder pauses;
    const testsupport::LoopbackTransport transport;
    // Texts too long for a string's inline buffer, so copying them allocates.
    testsupport::ScopedEnv appId("APPID", "application-0007"), appName("APPNAME", "orders-application"),
        nodeId("NODE_ID", "node-of-the-orders-service");
    Runlog_SetCapture(&CountErrors, nullptr);

    // The legacy calls report success for accepted arguments whatever happens
    // inside; under a failing heap they must still neither throw nor stay silent.
    const struct {
        long failure;             // the failure result
        bool resultTellsFailure;  // false: the call's result does not depend on what failed inside
        long (*call)();
    } entries[] = {
        // clang-format off
        {-1, true, [] { return long{ZEBInitAlarmSDK()}; }},
        {-1, true, [] { return long{ZEBRegisterInfo("orders-service", "orders-service-label")}; }},
        {-1, true, [] { return long{SendCurrent(nullptr)}; }},
        {-1, true, [] { return long{ZEBRegisterAlarmCheckCallBackFun("orders-service", NoCallback)}; }},
        {0, true, [] { return long{ZEBInitAlarmSDK4CoProcess("application-000b", "billing-service", "n", "") !=
                                   nullptr}; }},
        {-1, true, [] { return long{ZEBRegisterRsetClearInfo("orders-service", "orders-service-id", "orders-instance",
                                                              0)}; }},
        {-1, true, [] { return long{ZEBRegisterRsetClearInfo4CoProcess(g_handle, "billing-service",
                                                                      "billing-service-id", "billing-instance", 1)}; }},
        {-1, true, [] { return long{ZEBRegisterInfo4CoProcess(g_handle, "billing-service-label")}; }},
        {-1, true, [] { return long{SendCurrent(g_handle)}; }},
        {-1, true, [] { return long{ZEBRegisterAlarmCheckCallBackFun4CoProcess(g_handle, NoCallback)}; }},
        {-1, true, [] { return long{ZEBRegisterRsetClear(g_handle)}; }},
        {-1, false, [] { return long{alarmsdk_flush_process(0) + alarmsdk_flush(g_handle, 0) +
                                     alarmsdk_flush_legacy(0)}; }},
        {0, false, [] { return long{InitAlarm(kDefinitions, "storage-svc", "storage-svc-0", 1)}; }},
        {0, false, [] { return long{SendLegacy()}; }},
        // clang-format on
    };
    g_handle = ZEBInitAlarmSDK4CoProcess("application-000c", "billing-service", "10.0.0.1", "");
    ASSERT_NE(nullptr, g_handle);
    for (std::size_t e = 0; e < std::size(entries); ++e) {
        const long failure = entries[e].failure;
        bool succeeded = false;
        for (long n = 0; n < 5000 && !succeeded; ++n) {
            const int errorsBefore = g_errors.load();
            long result = failure;
            t_refused = false;
            t_allowed = n;
            try {
                result = entries[e].call();
            } catch (...) {
                t_allowed = -1;
                FAIL() << "entry " << e << " let an exception escape at allocation " << n;
            }
            t_allowed = -1;
            succeeded = !t_refused;
            if (entries[e].resultTellsFailure) {
                EXPECT_EQ(succeeded, result != failure) << "entry " << e << " at allocation " << n;
            }
            EXPECT_TRUE(succeeded || g_errors.load() > errorsBefore) << "entry " << e << " silent at " << n;
        }
        EXPECT_TRUE(succeeded) << "entry " << e;
    }
    Runlog_SetCapture(nullptr, nullptr);
}

// An answer that cannot even be decoded for lack of memory gives its batch up: settled with its items left to the
// caller (the send loop drops and frees them), not sent again.
TEST(FailingAllocator, ABatchWhoseAnswerCannotBeReadIsGivenUp) {
    testsupport::PauseRecorder pauses;
    auto* answer = static_cast<stru_REST_RESPONSE*>(std::calloc(1, sizeof(stru_REST_RESPONSE)));
    answer->status = 200;
    answer->body = strdup("eyJyZXRDb2RlIjoiT0sifQ==");  // {"retCode":"OK"}
    answer->bodyLen = std::strlen(answer->body);
    std::list<AlarmEx*> batch{new AlarmEx("1", ZEB_ALARM_GENERATE)};
    t_allowed = 0;
    const int settled = processRestResponse(batch, answer);
    t_allowed = -1;
    EXPECT_EQ("1 1 0", testsupport::Words(settled, batch.size(), pauses.count(3)));
    deleteAlarms(batch);
}

// A load that runs out of memory anywhere leaves the next load able to succeed. Every allocation of the first 64, then
// ever wider steps (about 200 loads for the example file's nine hundred allocations).
TEST(FailingAllocator, ADefinitionLoadThatRanOutOfMemoryIsRetriedByTheNext) {
    std::string path = kDefinitions;
    ALM_SetConfFilePath(&path[0]);
    bool complete = false;
    long n = 0;
    for (; !complete; n += 1 + n / 64) {
        ALM_FreeConfInfo();
        t_refused = false;
        t_allowed = n;
        ALM_ConfInit();
        t_allowed = -1;
        complete = !t_refused;
        stAlarmItems* definition = nullptr;
        (void)ALM_GetAlarmConfigInfo(300001, &definition);  // loads again when the first did not
        ASSERT_NE(nullptr, definition) << "no load after failing allocation " << n;
    }
    EXPECT_GT(n, 100);
}

}  // namespace
