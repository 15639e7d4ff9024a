// The soak's service (soak_driver SECONDS LEDGER DEFINITIONS): raises and clears alarms from several threads through
// both generations and two co-process handles, takes alarm checks, now and then forks a child that raises its own.
// Its ledger (one fact a line, for scripts/soak_check.py) names each stream's alarms, the refused ones, the checks, and
// sampled resident memory and open descriptors. Every alarm carries "<stream>:<n>" (one thread's alarms through one
// manager in one process, from 0): parameter "seq" in the current generation, the location one in the legacy one.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AlarmSdk.h"
#include "AlarmSdkStats.h"

namespace {

std::mutex g_ledgerMutex;
FILE* g_ledger = nullptr;
std::atomic<long> g_checks{0};

// One ledger line: the words separated by spaces.
template <typename... Words> void Note(const Words&... words) {
    std::ostringstream out;
    ((out << words << ' '), ...);
    std::string line = out.str();
    line.pop_back();
    std::lock_guard<std::mutex> lock(g_ledgerMutex);
    std::fprintf(g_ledger, "%s\n", line.c_str());
    std::fflush(g_ledger);
}

void OnCheck(char*) { g_checks.fetch_add(1); }

// One thread's alarms through one manager: returns the next number.
struct Stream {
    std::string name;
    AlarmManagerEx* handle;  // null: the process-wide manager
    bool legacy;
    long next = 0;

    void raiseOne() {
        const std::string tag = name + ":" + std::to_string(next);
        int accepted = 0;
        if (legacy) {
            AlarmObject* alarm = AllocAlarmObject("300001", static_cast<int>(next % 2), 2);
            AppendParam(alarm, "diskName", tag.c_str());
            AppendParam(alarm, "usage", "50");
            // 1 means handed over; a refusal is only in the log, so the legacy queue is kept below its bound.
            accepted = SendAlarm(alarm) == 1;
            FreeAlarmObject(alarm);
        } else {
            _ZEBAlarm* alarm = ZEBAllocAlarm("300012", static_cast<int>(next % 2));
            ZEBAppendAlarmParam(alarm, "seq", tag.c_str());
            accepted = (handle != nullptr ? ZEBSendAlarm4CoProcess(handle, alarm) : ZEBSendAlarm(alarm)) == 0;
            ZEBFreeAlarm(alarm);
        }
        if (!accepted) {
            Note("refused", tag);
        }
        ++next;
    }
    void close() const { Note("stream", name, next); }
};

long ResidentKb() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int OpenDescriptors() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(begin(fds), end(fds))) - 1;  // less the listing's own
}

// A child's life: a few alarms through every manager it inherited, each in a stream of its own, then out.
void ChildRaises(AlarmManagerEx* handle, int round) {
    const std::string pid = std::to_string(getpid());
    std::vector<Stream> streams{{"child" + pid + "-proc", nullptr, false},
                                {"child" + pid + "-co", handle, false},
                                {"child" + pid + "-legacy", nullptr, true}};
    for (int i = 0; i < 20; ++i) {
        for (Stream& s : streams) {
            s.raiseOne();
        }
    }
    const int flushed[] = {alarmsdk_flush_process(120000), alarmsdk_flush(handle, 120000),
                           alarmsdk_flush_legacy(120000)};
    for (const Stream& s : streams) {
        s.close();
    }
    Note("child", pid, "round", round, "flush", flushed[0], flushed[1], flushed[2]);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: soak_driver SECONDS LEDGER DEFINITIONS\n");
        return 2;
    }
    const auto seconds = std::chrono::seconds(std::atol(argv[1]));
    g_ledger = std::fopen(argv[2], "a");
    if (g_ledger == nullptr || ZEBInitAlarmSDK() != 0 || InitAlarm(argv[3], "soak-svc", "soak-svc-0", 1) != 1 ||
        ZEBRegisterInfo("soak-svc", "soak-label") != 0 || ZEBRegisterAlarmCheckCallBackFun("soak-svc", &OnCheck) != 0) {
        std::fprintf(stderr, "soak_driver: cannot start\n");
        return 1;
    }
    AlarmManagerEx* handles[] = {ZEBInitAlarmSDK4CoProcess("soak-co-a", "soak-co-a", "127.0.0.1", "127.0.0.1"),
                                 ZEBInitAlarmSDK4CoProcess("soak-co-b", "soak-co-b", "127.0.0.1", "127.0.0.1")};
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + seconds;
    std::atomic<bool> stop{false};
    // Two threads per manager; the legacy ones stay below its bound, whose refusals are not reported to the caller.
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        for (int m = 0; m < 4; ++m) {
            threads.emplace_back([&stop, &handles, t, m] {
                const char* kinds[] = {"proc", "co-a", "co-b", "legacy"};
                AlarmManagerEx* managers[] = {nullptr, handles[0], handles[1], nullptr};
                Stream s{std::string("p-") + kinds[m] + "-t" + std::to_string(t), managers[m], m == 3};
                while (!stop.load()) {
                    s.raiseOne();
                    std::this_thread::sleep_for(std::chrono::milliseconds(m == 3 ? 200 : 100));
                }
                s.close();
            });
        }
    }
    int round = 0;
    auto nextFork = start + std::chrono::seconds(15);
    auto nextSample = start;
    while (std::chrono::steady_clock::now() < end) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= nextSample) {
            const long elapsed = std::chrono::duration_cast<std::chrono::seconds>(now - start).count();
            Note("sample", elapsed, ResidentKb(), OpenDescriptors());
            nextSample += std::chrono::seconds(5);
        }
        if (now >= nextFork) {
            nextFork += std::chrono::seconds(30);
            // The ledger's lock is held across the fork, so the child never inherits it taken.
            g_ledgerMutex.lock();
            const pid_t child = fork();
            g_ledgerMutex.unlock();
            if (child == 0) {
                ChildRaises(handles[0], round);
                std::fflush(nullptr);
                _exit(0);
            }
            if (child > 0) {
                int status = 0;
                waitpid(child, &status, 0);
                Note("reaped", child, status);
            }
            ++round;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    stop.store(true);
    for (std::thread& t : threads) {
        t.join();
    }
    const int flushed[] = {alarmsdk_flush_process(120000), alarmsdk_flush(handles[0], 120000),
                           alarmsdk_flush(handles[1], 120000), alarmsdk_flush_legacy(120000)};
    alarmsdk_stats s = {};
    s.size = sizeof(s);
    alarmsdk_get_process_stats(&s);
    Note("checks", g_checks.load());
    Note("done flush", flushed[0], flushed[1], flushed[2], flushed[3], "accepted", s.accepted, "delivered", s.delivered,
         "retried", s.retried, "dropped", s.dropped);
    return 0;
}
