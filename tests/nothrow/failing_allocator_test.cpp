// The C entry points under a heap that runs out: this program replaces the global allocation functions so that, on the
// calling thread only, the n-th allocation of a call and every later one fail. For every n the call must return its
// failure result with an error line, never throw into C.
#include <gtest/gtest.h>

#include <new>

#include "AlarmSdk.h"
#include "TestEnv.h"
#include "runlog_testing.h"
#include "PauseRecorder.h"

namespace {
thread_local long t_allowed = -1;  // allocations left before the heap "runs out"; -1: never
thread_local bool t_refused = false;

void* Allocate(std::size_t size, bool nothrow) {
    const bool refuse = t_allowed == 0;
    t_refused = t_refused || refuse;
    t_allowed -= t_allowed > 0 ? 1 : 0;
    void* p = refuse ? nullptr : std::malloc(size == 0 ? 1 : size);
    return p != nullptr || nothrow ? p : throw std::bad_alloc();
}
}  // namespace

// Every form, so that sanitizer runtimes never pair their allocator with ours.
void* operator new(std::size_t size) { return Allocate(size, false); }
void* operator new[](std::size_t size) { return Allocate(size, false); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, true); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace {

std::atomic<int> g_errors{0};  // counted without allocating: it runs inside the failing calls
void CountErrors(void*, int level, const char*, int, const char*) { g_errors += level == RUNLOG_LEVEL_ERROR; }
void NoCallback(char*) {}

// The C objects come from malloc, so only the hand-over meets the failing heap.
long SendOne() {
    _ZEBAlarm* alarm = ZEBAllocAlarm("300012", 0);
    ZEBAppendAlarmParam(alarm, "disk-of-the-service", "sda-on-the-node");
    const int result = ZEBSendAlarm(alarm);
    ZEBFreeAlarm(alarm);
    return result;
}
long SendLegacyOne() {
    AlarmObject* alarm = AllocAlarmObject("300001", 0, 2);
    AppendParam(alarm, "diskName", "sda-on-the-node");
    AppendParam(alarm, "usage", "95");
    const int result = SendAlarm(alarm);
    FreeAlarmObject(alarm);
    return result;
}

TEST(FailingAllocator, EveryEntryPointFailsCleanlyAtEveryAllocation) {
    testsupport::PauseRecorder pauses;
    const testsupport::LoopbackTransport transport;
    // Texts too long for a string's inline buffer, so copying them allocates.
    testsupport::ScopedEnv appId("APPID", "application-0007"), appName("APPNAME", "orders-application");
    Runlog_SetCapture(&CountErrors, nullptr);

    // The legacy calls report success for accepted arguments whatever happens
    // inside; under a failing heap they must still neither throw nor stay silent.
    const struct {
        long failure;             // the failure result
        long (*call)();
        bool resultTellsFailure;  // false: the call's result does not depend on what failed inside
    } entries[] = {
        {-1, [] { return long{ZEBInitAlarmSDK()}; }, true},
        {-1, [] { return long{ZEBRegisterInfo("orders-service", "orders-service-label")}; }, true}, {-1, SendOne, true},
        {-1, [] { return long{ZEBRegisterAlarmCheckCallBackFun("orders-service", NoCallback)}; }, true},
        {0, [] { return long{ZEBInitAlarmSDK4CoProcess("application-000b", "billing-service", "n", "") != nullptr}; },
         true},
        {0, [] { return long{InitAlarm(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml", "storage-svc", "storage-svc-0", 1)}; }, false},
        {0, SendLegacyOne, false},
    };
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

}  // namespace
