// Delivery to a real agent on loopback (nodeward-sim's core, in this process,
// counting only): how fast a full queue drains against a naive client that
// posts one alarm per request, what the send thread and the agent spend per
// alarm, and whether storms and bursts are delivered without a refusal.
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "AlmJsonParser.h"
#include "AlmRukInterface.h"
#include "Base64.h"
#include "BenchSmoke.h"
#include "NodewardSim.h"
#include "Pause.h"
#include "runlog_testing.h"

namespace {

constexpr int kDeliveryTimeoutMs = 60000;

// One agent for the whole program, counting only; NODEWARD_ENDPOINT leads to it.
nodeward::Sim* SharedAgent() {
    static nodeward::Sim* agent = [] {
        nodeward::SimOptions options;
        options.endpoint = "127.0.0.1:0";
        options.recordRequests = false;
        auto* sim = new nodeward::Sim(options);  // serves until the process ends
        std::string error;
        if (!sim->start(&error)) {
            delete sim;
            return static_cast<nodeward::Sim*>(nullptr);
        }
        setenv("NODEWARD_ENDPOINT", sim->endpoint().c_str(), 1);
        unsetenv("RUNLOG_FILE");   // as a service runs by default: only error lines, to stderr
        Runlog_SetClock(nullptr);  // taken at the next line, not within the second
        return sim;
    }();
    return agent;
}

std::size_t Accepted(nodeward::Sim* agent) { return agent->counts().acceptedAlarms; }

// A co-process manager with its own queue and send thread.
AlarmManagerEx* StartManager(const char* serviceName) {
    return ZEBInitAlarmSDK4CoProcess("bench-app", serviceName, "10.0.0.1", "127.0.0.1");
}

// The five short parameters of every alarm here, whichever way it is sent.
const char* const kNames[] = {"disk", "usage", "mount", "threshold", "host"};
const char* const kValues[] = {"sda1", "95", "/var/lib", "90", "node-7"};

// A service's alarm through the C interface: five short parameters.
int SendOne(AlarmManagerEx* manager) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("300012", ZEB_ALARM_GENERATE);
    for (int p = 0; p < 5; ++p) {
        ZEBAppendAlarmParam(alarm, kNames[p], kValues[p]);
    }
    const int result = ZEBSendAlarm4CoProcess(manager, alarm);
    ZEBFreeAlarm(alarm);
    return result;
}

double CpuSeconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Parks the capacity manager's send thread whenever it goes idle, until the
// benchmark releases it, and keeps that thread's CPU clock; other threads wait
// as in production. That manager is the first of the program to start, so
// its queue is the first to be waited on.
struct Parking {
    std::mutex mutex;
    std::condition_variable changed;
    alarmsdk::IdleWaitable* parkedQueue = nullptr;
    int parked = 0;
    unsigned long releases = 0;
    clockid_t sendThreadClock{};

    static Parking& Get() {
        static Parking* parking = new Parking();
        return *parking;
    }
    static void Wait(unsigned int seconds, alarmsdk::IdleWaitable& work) {
        Parking& p = Get();
        std::unique_lock<std::mutex> lock(p.mutex);
        if (p.parkedQueue == nullptr) {
            p.parkedQueue = &work;
            pthread_getcpuclockid(pthread_self(), &p.sendThreadClock);
        }
        if (p.parkedQueue != &work) {
            lock.unlock();
            work.waitIdle(std::chrono::seconds(seconds));
            return;
        }
        const unsigned long seen = p.releases;
        ++p.parked;
        p.changed.notify_all();
        p.changed.wait(lock, [&p, seen] { return p.releases != seen; });
        --p.parked;
    }
    bool waitParked() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [this] { return parked > 0; });
    }
    void release() {
        std::lock_guard<std::mutex> lock(mutex);
        ++releases;
        changed.notify_all();
    }
};

// One manager for every repetition, its send thread parked between them.
AlarmManagerEx* CapacityManager() {
    static AlarmManagerEx* manager = [] {
        alarmsdk::SetIdleWaitFunction(&Parking::Wait);
        return StartManager("capacity");
    }();
    return manager;
}

// A full queue (1,024 alarms) released to the agent at once: alarms per
// second, and the send thread's and the agent's CPU per alarm (the agent's is
// the process's CPU less the send thread's and this thread's).
void Capacity(benchmark::State& state) {
    nodeward::Sim* agent = SharedAgent();
    AlarmManagerEx* manager = agent != nullptr ? CapacityManager() : nullptr;
    Parking& parking = Parking::Get();
    if (manager == nullptr || !parking.waitParked()) {
        state.SkipWithError("no agent or no send thread");
        return;
    }
    double sendCpu = 0;
    double agentCpu = 0;
    std::size_t alarms = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (std::size_t i = 0; i < alarmsdk::kQueueCapacity; ++i) {
            SendOne(manager);
        }
        const std::size_t target = Accepted(agent) + manager->queuedAlarmCount();
        const double send0 = CpuSeconds(parking.sendThreadClock);
        const double self0 = CpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        const double process0 = CpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
        state.ResumeTiming();
        parking.release();
        const bool delivered = agent->waitForAcceptedAlarms(target, kDeliveryTimeoutMs);
        state.PauseTiming();
        if (!delivered || !parking.waitParked()) {
            state.SkipWithError("the queue was not delivered");
            break;
        }
        const double send = CpuSeconds(parking.sendThreadClock) - send0;
        sendCpu += send;
        agentCpu +=
            CpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - process0 - send - (CpuSeconds(CLOCK_THREAD_CPUTIME_ID) - self0);
        alarms += alarmsdk::kQueueCapacity;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(alarms));
    if (alarms > 0) {
        state.counters["send_us_per_alarm"] = sendCpu * 1e6 / static_cast<double>(alarms);
        state.counters["agent_us_per_alarm"] = agentCpu * 1e6 / static_cast<double>(alarms);
    }
}
BENCHMARK(Capacity)->Iterations(20)->UseRealTime()->Unit(benchmark::kMillisecond);

// The naive client: the same alarms, one keep-alive POST each (document of
// one alarm, base64, post, read the answer), on this thread.
void NaiveClient(benchmark::State& state) {
    if (SharedAgent() == nullptr) {
        state.SkipWithError("the agent did not start");
        return;
    }
    AlarmEx alarm("300012", ZEB_ALARM_GENERATE);
    for (int p = 0; p < 5; ++p) {
        alarm.appendParameter(kNames[p], kValues[p]);
    }
    alarm.setAppId("bench-app");
    alarm.setServiceName("naive");
    alarm.SetServiceIp("127.0.0.1");
    alarm.setNodeIp("10.0.0.1");
    alarm.ResetAlarmTime(1700000000123L);
    const std::list<AlarmEx*> one{&alarm};
    std::size_t accepted = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < alarmsdk::kQueueCapacity; ++i) {
            char* document = AlmJsonParser::GenRestDataJsonEx(one);
            const std::size_t length = std::strlen(document);
            std::unique_ptr<char[]> encoded(new char[2 * length + 4]());
            zeb_alm_base64_encode(document, static_cast<int>(length), encoded.get(), nullptr);
            cJSON_free(document);
            stru_REST_RESPONSE* response = AlmRukInterface::SendRestRequest(encoded.get(), std::strlen(encoded.get()));
            if (response != nullptr && response->body != nullptr) {
                std::unique_ptr<char[]> answer(new char[std::strlen(response->body) + 1]());
                zeb_alm_base64_decode(response->body, static_cast<int>(std::strlen(response->body)), answer.get(),
                                      nullptr);
                accepted += AlmJsonParser::GetRetCodeEx(answer.get()) == "OK" ? 1 : 0;
            }
            freeRestResponse(&response);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(accepted));
}
BENCHMARK(NaiveClient)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);

struct Outcome {
    double refused = 0;
    double lost = 0;
    double raisedPerSecond = 0;
};

// Raises `total` alarms at `rate` per second (0: back to back) and counts
// what the library refused and what it accepted but never delivered.
void Raise(Outcome& outcome, AlarmManagerEx* manager, long total, long rate) {
    nodeward::Sim* agent = SharedAgent();
    const std::size_t before = Accepted(agent);
    long accepted = 0;
    long refused = 0;
    const auto start = std::chrono::steady_clock::now();
    while (accepted + refused < total) {
        long due = total;
        if (rate > 0) {
            const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            due = std::min(total, static_cast<long>(elapsed * static_cast<double>(rate)) + 1);
        }
        while (accepted + refused < due) {
            (SendOne(manager) == 0 ? accepted : refused) += 1;
        }
        if (rate > 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    const double raising = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    agent->waitForAcceptedAlarms(before + static_cast<std::size_t>(accepted), kDeliveryTimeoutMs);
    const long delivered = static_cast<long>(Accepted(agent) - before);
    outcome.refused += static_cast<double>(refused);
    outcome.lost += static_cast<double>(accepted > delivered ? accepted - delivered : 0);
    outcome.raisedPerSecond = static_cast<double>(total) / raising;
}

// One manager raising `total` alarms at `rate` per iteration, each after
// quietSeconds with nothing to send (untimed).
void RaiseEach(benchmark::State& state, const char* service, long total, long rate, int quietSeconds) {
    AlarmManagerEx* manager = SharedAgent() != nullptr ? StartManager(service) : nullptr;
    if (manager == nullptr) {
        state.SkipWithError("no agent or no manager");
        return;
    }
    Outcome outcome;
    for (auto _ : state) {
        state.PauseTiming();
        std::this_thread::sleep_for(std::chrono::seconds(quietSeconds));
        state.ResumeTiming();
        Raise(outcome, manager, total, rate);
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["refused"] = outcome.refused / runs;
    state.counters["lost"] = outcome.lost / runs;
    state.counters["raised_per_s"] = outcome.raisedPerSecond;
}

// A storm: range(0) alarms per second for range(1) seconds.
void Storm(benchmark::State& state) {
    RaiseEach(state, "storm", state.range(0) * benchsmoke::Scaled(state.range(1), int64_t{1}), state.range(0), 0);
}
BENCHMARK(Storm)->Args({2000, 3})->Args({30000, 10})->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// 2,000 alarms after two quiet seconds (the send thread idle): at range(0)
// per second, or back to back for 0.
void Burst(benchmark::State& state) { RaiseEach(state, "burst", 2000, state.range(0), benchsmoke::Scaled(2, 0)); }
BENCHMARK(Burst)->Arg(30000)->Arg(0)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
