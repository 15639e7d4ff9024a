// What a service pays per alarm on its own thread: ZEBAllocAlarm, five
// ZEBAppendAlarmParam, ZEBSendAlarm and ZEBFreeAlarm, against a floor doing
// the same allocations and copies and one push under a mutex. Heap
// allocations are counted on the calling thread, in a program of its own since
// the count replaces malloc.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>
#include <string>

#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "BenchSmoke.h"
#include "bounded_string.h"
#include "runlog_testing.h"

// Counts the calling thread's allocations: every heap allocation of the
// program goes through malloc, calloc or realloc (operator new included).
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
namespace {
thread_local unsigned long t_allocations = 0;
}
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
void* malloc(std::size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* block, std::size_t size) {
    ++t_allocations;
    return __libc_realloc(block, size);
}
void free(void* block) { __libc_free(block); }
}
#define COUNTING_ALLOCATIONS 1
#else
namespace {
unsigned long t_allocations = 0;
}
#endif

namespace {

// Realistic parameters: names and values short enough for a string's own
// buffer, as most alarm parameters are (longer texts cost one allocation each
// wherever they are copied).
const char* const kNames[] = {"disk", "usage", "mount", "threshold", "host"};
const char* const kShortValues[] = {"sda1", "95", "/var/lib", "90", "node-7"};
const char* const kLongValues[] = {"a value of some length", "a value of some length", "a value of some length",
                                   "a value of some length", "a value of some length"};

// Reports allocations per alarm beside the time.
class AllocationMeter {
public:
    explicit AllocationMeter(benchmark::State& state) : state_(state), start_(t_allocations) {}
    ~AllocationMeter() {
#ifdef COUNTING_ALLOCATIONS
        state_.counters["allocs_per_alarm"] =
            static_cast<double>(t_allocations - start_ - paused_) / static_cast<double>(state_.iterations());
#endif
    }
    // Allocations made while timing is paused are not the caller's.
    template <typename Fn> void untimed(Fn fn) {
        state_.PauseTiming();
        const unsigned long before = t_allocations;
        fn();
        paused_ += t_allocations - before;
        state_.ResumeTiming();
    }

private:
    benchmark::State& state_;
    unsigned long start_;
    unsigned long paused_ = 0;
};

// A manager with a realistic identity and no send thread: nothing competes
// for its queue, which is emptied (untimed) whenever it fills up.
AlarmManagerEx* QuietManager() {
    static AlarmManagerEx* manager = [] {
        auto* m = new AlarmManagerEx(0);  // lives as long as the process, like a handle
        m->setAppId("app-7");
        m->setServiceName("orders");
        m->setNodeIp("10.0.0.1");
        m->setServiceIp("10.0.0.5");
        m->setServiceLabel("orders-label");
        return m;
    }();
    return manager;
}

void DrainIfFull(AlarmManagerEx* manager, AllocationMeter& meter) {
    if (manager->queuedAlarmCount() < alarmsdk::kQueueCapacity) {
        return;
    }
    meter.untimed([manager] {
        while (manager->queuedAlarmCount() > 0) {
            std::list<AlarmEx*> batch;
            manager->getSendAlarmDatas(batch);
            deleteAlarms(batch);
        }
    });
}

// RUNLOG_FILE set to a scratch file for one benchmark (range 1), unset
// otherwise. The run-log looks the variable up once a second; setting its
// clock makes it look at the next line, so each benchmark logs as it says.
class RunlogFile {
public:
    explicit RunlogFile(bool set) : path_(set ? "/tmp/alarmsdk-bench-runlog.log" : "") {
        if (set) {
            setenv("RUNLOG_FILE", path_.c_str(), 1);
        } else {
            unsetenv("RUNLOG_FILE");
        }
        Runlog_SetClock(nullptr);
    }
    ~RunlogFile() {
        unsetenv("RUNLOG_FILE");
        Runlog_SetClock(nullptr);
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
    }

private:
    std::string path_;
};

// The floor: the C object and its five nodes with their bounded copies (the
// same strncpy_s calls the C functions make), one record holding the copies,
// one push under a mutex, and the C object freed. With a log descriptor, also
// the six lines a caller's alarm logs written to it, one write each: what the
// run-log cannot do without. Registered before the path so that it runs on an
// allocator the path has not shaped: after the path's thousands of records
// the floor's own time moves by a fifth from one process to the next, while
// the path's does not.
class Floor {
public:
    explicit Floor(bool logWrites)
        : fd_(logWrites ? open(kLogPath, O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0644) : -1) {}
    ~Floor() {
        drain();
        if (fd_ >= 0) {
            close(fd_);
            unlink(kLogPath);
        }
    }
    bool full() const { return queue_.size() >= alarmsdk::kQueueCapacity; }
    void drain() {
        for (char* record : queue_) {
            std::free(record);
        }
        queue_.clear();
    }
    void sendOne() {
        auto* alarm = static_cast<_ZEBAlarm*>(std::malloc(sizeof(_ZEBAlarm)));
        std::memset(alarm, 0, sizeof(_ZEBAlarm));
        (void)strncpy_s(alarm->alarmId, sizeof(alarm->alarmId), "300012", sizeof(alarm->alarmId));
        _ZEBAlarmParam** tail = &alarm->paramList;
        for (int p = 0; p < 5; ++p) {
            auto* node = static_cast<_ZEBAlarmParam*>(std::calloc(1, sizeof(_ZEBAlarmParam)));
            (void)strncpy_s(node->paramName, sizeof(node->paramName), kNames[p], sizeof(node->paramName) - 1);
            (void)strncpy_s(node->paramValue, sizeof(node->paramValue), kShortValues[p], sizeof(node->paramValue) - 1);
            *tail = node;
            tail = &node->next;
        }
        if (fd_ >= 0) {
            for (int l = 0; l < 6; ++l) {
                benchmark::DoNotOptimize(write(fd_, kLine, sizeof(kLine) - 1));
            }
        }
        char* record = static_cast<char*>(std::malloc(sizeof(AlarmEx)));
        char* at = record;
        for (const _ZEBAlarmParam* node = alarm->paramList; node != nullptr; node = node->next) {
            at = std::strcpy(at, node->paramName) + std::strlen(node->paramName) + 1;
            at = std::strcpy(at, node->paramValue) + std::strlen(node->paramValue) + 1;
        }
        {
            std::lock_guard<std::mutex> lock(mutex_);
            queue_.push_back(record);
        }
        for (_ZEBAlarmParam* node = alarm->paramList; node != nullptr;) {
            _ZEBAlarmParam* next = node->next;
            std::free(node);
            node = next;
        }
        std::free(alarm);
    }

private:
    static constexpr const char* kLogPath = "/tmp/alarmsdk-bench-floor.log";
    static constexpr char kLine[] =
        "2026-01-02T03:04:05.678Z 2 ../src/AlarmImpl:190 the len of alarm memory is 264d, len of "
        "ZEBAlarmParam is 22d, len of AlarmParam is 256d\n";
    const int fd_;
    std::mutex mutex_;
    std::deque<char*> queue_;
};

void CallerFloor(benchmark::State& state) {
    RunlogFile runlog(false);
    Floor floor(state.range(0) != 0);
    AllocationMeter meter(state);
    for (auto _ : state) {
        if (floor.full()) {
            meter.untimed([&floor] { floor.drain(); });
        }
        floor.sendOne();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(CallerFloor)->ArgName("log_writes")->Arg(0)->Arg(1)->MinTime(benchsmoke::Scaled(0.5, 0.01));

// One alarm as a service sends it: what the caller path costs.
void SendOne(AlarmManagerEx* manager, const char* const* values) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("300012", ZEB_ALARM_GENERATE);
    for (int p = 0; p < 5; ++p) {
        ZEBAppendAlarmParam(alarm, kNames[p], values[p]);
    }
    benchmark::DoNotOptimize(ZEBSendAlarm4CoProcess(manager, alarm));
    ZEBFreeAlarm(alarm);
}

void CallerPath(benchmark::State& state, const char* const* values) {
    RunlogFile runlog(state.range(0) != 0);
    AlarmManagerEx* manager = QuietManager();
    AllocationMeter meter(state);
    for (auto _ : state) {
        DrainIfFull(manager, meter);
        SendOne(manager, values);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(CallerPath, short_texts, kShortValues)
    ->ArgName("runlog_file")
    ->Arg(0)
    ->Arg(1)
    ->MinTime(benchsmoke::Scaled(0.5, 0.01));
BENCHMARK_CAPTURE(CallerPath, long_values, kLongValues)
    ->ArgName("runlog_file")
    ->Arg(0)
    ->MinTime(benchsmoke::Scaled(0.5, 0.01));

// The run-log's share of the caller path with RUNLOG_FILE unset: the six
// lines an alarm of five parameters logs, each dropped after a look at the
// run-log's clock (the variable itself is looked up once a second).
void RunlogDrops(benchmark::State& state) {
    RunlogFile runlog(false);
    for (auto _ : state) {
        for (int line = 0; line < 6; ++line) {
            Runlog_TextAdapt(RUNLOG_LEVEL_INFO, "../src/AlarmImpl", 190,
                             "the len of alarm memory is %ud, len of ZEBAlarmParam is %ud, len of AlarmParam is %ud",
                             264u, 22u, 256u);
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RunlogDrops)->MinTime(benchsmoke::Scaled(0.5, 0.01));

}  // namespace

BENCHMARK_MAIN();
