// What a service pays per alarm, and how fast the send thread empties a burst
// to a real agent on loopback.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <list>
#include <string>
#include <thread>

#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "NodewardSim.h"
#include "Pause.h"

namespace {

void ShortIdlePoll(unsigned int seconds) { std::this_thread::sleep_for(std::chrono::milliseconds(seconds)); }

// A burst of 1000 alarms from queue to an agent that accepts everything: the
// send thread's encoding, base64, HTTP round trips and the agent's decoding.
// The idle poll is shortened so the measurement is the pipeline, not the poll.
void BM_DeliverBurst(benchmark::State& state) {
    alarmsdk::PauseFunction previous = alarmsdk::SetPauseFunction(&ShortIdlePoll);
    nodeward::SimOptions options;
    options.endpoint = "127.0.0.1:0";
    nodeward::Sim agent(options);
    std::string error;
    if (!agent.start(&error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    setenv("NODEWARD_ENDPOINT", agent.endpoint().c_str(), 1);
    AlarmManagerEx* manager = ZEBInitAlarmSDK4CoProcess("bench-app", "bench", "10.0.0.1", "127.0.0.1");
    AlarmEx alarm("300012", ZEB_ALARM_GENERATE);
    for (int p = 0; p < 5; ++p) {
        alarm.appendParameter(("param" + std::to_string(p)).c_str(), "a value of some length");
    }
    constexpr std::size_t kBurst = 1000;
    std::size_t delivered = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < kBurst; ++i) {
            manager->sendAlarm(&alarm);
        }
        delivered += kBurst;
        if (!agent.waitForAcceptedAlarms(delivered, 60000)) {
            state.SkipWithError("the burst was not delivered within 60 s");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(delivered));
    agent.stop();
    alarmsdk::SetPauseFunction(previous);
}
BENCHMARK(BM_DeliverBurst)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();

}  // namespace
