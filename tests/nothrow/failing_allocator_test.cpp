// The C entry points under a heap that runs out: this binary replaces the
// global allocation functions so that, on the calling thread only, the n-th
// allocation of a call and every one after it fail. Whatever n is, the call
// must return its failure result with an error line, never throw into C.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "AlarmSdk.h"
#include "PauseRecorder.h"
#include "TestEnv.h"
#include "runlog.h"

namespace {

thread_local long t_allowed = -1;  // allocations left before the heap "runs out"; -1: never
thread_local bool t_refused = false;

void* Allocate(std::size_t size) {
    if (t_allowed == 0) {
        t_refused = true;
        throw std::bad_alloc();
    }
    if (t_allowed > 0) {
        --t_allowed;
    }
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

void* AllocateNoThrow(std::size_t size) noexcept {
    try {
        return Allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return AllocateNoThrow(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return AllocateNoThrow(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace {

// Counts error lines without allocating (it runs inside the failing calls).
std::atomic<int> g_errors{0};
void CountErrors(void*, int level, const char*, int, const char*) {
    if (level == RUNLOG_LEVEL_ERROR) {
        ++g_errors;
    }
}

void NoCallback(char*) {}

AlarmManagerEx* g_coProcess = nullptr;

// The C object comes from malloc, so only the hand-over meets the failing heap.
int SendOne(int (*send)(_ZEBAlarm*)) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("300012", 0);
    ZEBAppendAlarmParam(alarm, "disk-of-the-service", "sda-on-the-node");
    const int result = send(alarm);
    ZEBFreeAlarm(alarm);
    return result;
}

struct Entry {
    const char* name;
    long failure;
    std::function<long()> call;
};

TEST(FailingAllocator, EveryEntryPointFailsCleanlyAtEveryAllocation) {
    testsupport::PauseRecorder pauses;
    // Texts too long for a string's inline buffer, so copying them allocates.
    testsupport::ScopedEnv appId("APPID", "application-0007");
    testsupport::ScopedEnv appName("APPNAME", "orders-application");
    testsupport::ScopedEnv ip("TRANSPORT_SDK_IP", "127.0.0.1");
    const std::string port = std::to_string(testsupport::FreeLoopbackPort());
    testsupport::ScopedEnv sdkPort("TRANSPORT_SDK_PORT", port.c_str());
    Runlog_SetCapture(&CountErrors, nullptr);

    const std::vector<Entry> entries = {
        {"ZEBInitAlarmSDK", -1, [] { return ZEBInitAlarmSDK(); }},
        {"ZEBRegisterRsetClearInfo", -1, [] { return ZEBRegisterRsetClearInfo("orders-service", "service-id-0001", "instance-id-0001", 0); }},
        {"ZEBRegisterInfo", -1, [] { return ZEBRegisterInfo("orders-service", "orders-service-label"); }},
        {"ZEBSendAlarm", -1, [] { return SendOne(&ZEBSendAlarm); }},
        {"ZEBRegisterAlarmCheckCallBackFun", -1, [] { return ZEBRegisterAlarmCheckCallBackFun("orders-service", NoCallback); }},
        {"ZEBInitAlarmSDK4CoProcess", 0,
         [] {
             g_coProcess = ZEBInitAlarmSDK4CoProcess("application-000b", "billing-service", "10.0.0.1", "127.0.0.1");
             return g_coProcess != nullptr ? 1L : 0L;
         }},
        {"ZEBSendAlarm4CoProcess", -1,
         [] { return SendOne([](_ZEBAlarm* a) { return ZEBSendAlarm4CoProcess(g_coProcess, a); }); }},
    };
    for (const Entry& entry : entries) {
        bool succeeded = false;
        for (long n = 0; n < 5000 && !succeeded; ++n) {
            const int errorsBefore = g_errors.load();
            t_refused = false;
            t_allowed = n;
            long result = entry.failure;
            try {
                result = entry.call();
            } catch (...) {
                t_allowed = -1;
                ADD_FAILURE() << entry.name << " let an exception escape at allocation " << n;
                break;
            }
            t_allowed = -1;
            if (!t_refused) {
                succeeded = true;
                EXPECT_NE(entry.failure, result) << entry.name;
                continue;
            }
            EXPECT_EQ(entry.failure, result) << entry.name << " at allocation " << n;
            EXPECT_GT(g_errors.load(), errorsBefore) << entry.name << " failed silently at allocation " << n;
        }
        EXPECT_TRUE(succeeded) << entry.name;
    }
    Runlog_SetCapture(nullptr, nullptr);
}

}  // namespace
