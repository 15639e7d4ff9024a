// How long alarm-send takes to deliver one alarm to an agent stand-in on
// loopback (queue, flush, exit), against the same program's own start-up and
// exit (--version) in the same run: twenty of each, interleaved so that the
// machine's noise falls on both alike. The slowest run is what a script
// waits for; slowest_excess_ms is the slowest delivery beyond the slowest
// start-up. A program of its own, so that no other benchmark competes.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "NodewardSim.h"

extern char** environ;

namespace {

constexpr int kRuns = 20;

// Runs the program to its end, output discarded; its wall time in ms, or -1
// when it did not end with status 0.
double RunMillis(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (spawned != 0 || waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? took.count() : -1;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// range(0): 1 for the legacy interface.
void AlarmSendFlush(benchmark::State& state) {
    nodeward::SimOptions options;
    options.endpoint = "127.0.0.1:0";
    nodeward::Sim agent(options);
    std::string error;
    if (!agent.start(&error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    setenv("APPID", "app-7", 1);
    setenv("APPNAME", "orders-app", 1);
    unsetenv("RUNLOG_FILE");
    std::vector<std::string> send = {ALARM_SEND_PROGRAM, "--agent", agent.endpoint(), "--timeout", "10000"};
    if (state.range(0) != 0) {
        send.insert(send.end(), {"--legacy", "--definitions", ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml", "clear",
                                 "300002", "interface=eth1", "reason=1"});
    } else {
        send.insert(send.end(), {"raise", "300012", "disk=sda", "usage=95"});
    }
    const std::vector<std::string> version = {ALARM_SEND_PROGRAM, "--version"};
    std::vector<double> sends;
    std::vector<double> versions;
    for (auto _ : state) {
        for (int run = 0; run < kRuns; ++run) {
            const double sent = RunMillis(send);
            const double started = RunMillis(version);
            if (sent < 0 || started < 0) {
                state.SkipWithError("alarm-send failed");
                return;
            }
            sends.push_back(sent);
            versions.push_back(started);
        }
    }
    if (agent.acceptedAlarms().size() != sends.size()) {
        state.SkipWithError("the agent did not receive every alarm");
        return;
    }
    const double slowestSend = *std::max_element(sends.begin(), sends.end());
    const double slowestVersion = *std::max_element(versions.begin(), versions.end());
    state.counters["slowest_send_ms"] = slowestSend;
    state.counters["slowest_version_ms"] = slowestVersion;
    state.counters["slowest_excess_ms"] = slowestSend - slowestVersion;
    state.counters["median_send_ms"] = Median(sends);
    state.counters["median_version_ms"] = Median(versions);
}
BENCHMARK(AlarmSendFlush)->ArgName("legacy")->Arg(0)->Arg(1)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
