// Encoding costs on the send thread: base64 both ways and the push document
// for a full batch (50 alarms of 5 parameters each).
#include <benchmark/benchmark.h>

#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AlarmEx.h"
#include "AlmJsonParser.h"
#include "Base64.h"
#include "BenchSmoke.h"
#include "SimDocument.h"

namespace {

constexpr int kBatchSize = 50;
constexpr int kParamsPerAlarm = 5;

std::vector<char> RandomBytes(std::size_t size) {
    std::mt19937 rng(7u);
    std::uniform_int_distribution<int> dist(0, 255);
    std::vector<char> bytes(size);
    for (char& b : bytes) {
        b = static_cast<char>(dist(rng));
    }
    return bytes;
}

std::size_t EncodedSize(std::size_t plain) { return (plain + 2) / 3 * 4; }

// The timed loop of every encoding benchmark: throughput beside memcpy of the
// same bytes, the floor of any codec.
void EncodeRepeatedly(benchmark::State& state, std::vector<char>& plain) {
    std::vector<char> out(EncodedSize(plain.size()) + 1, 0);
    for (auto _ : state) {
        unsigned int outlen = 0;
        benchmark::DoNotOptimize(
            zeb_alm_base64_encode(plain.data(), static_cast<int>(plain.size()), out.data(), &outlen));
        benchmark::ClobberMemory();
    }
}

void BM_Memcpy(benchmark::State& state) {
    std::vector<char> plain = RandomBytes(static_cast<std::size_t>(state.range(0)));
    std::vector<char> out(plain.size());
    for (auto _ : state) {
        std::memcpy(out.data(), plain.data(), plain.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Memcpy)->Arg(64 * 1024)->MinTime(benchsmoke::Scaled(0.3, 0.01));

void Base64Encode(benchmark::State& state) {
    std::vector<char> plain = RandomBytes(static_cast<std::size_t>(state.range(0)));
    EncodeRepeatedly(state, plain);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Base64Encode)->Arg(1024)->Arg(64 * 1024)->MinTime(benchsmoke::Scaled(0.3, 0.01));

// Throughput in plain bytes produced, comparable with the encoder's.
void Base64Decode(benchmark::State& state) {
    std::vector<char> plain = RandomBytes(static_cast<std::size_t>(state.range(0)));
    std::vector<char> text(EncodedSize(plain.size()) + 1, 0);
    unsigned int textLen = 0;
    zeb_alm_base64_encode(plain.data(), static_cast<int>(plain.size()), text.data(), &textLen);
    std::vector<char> out(plain.size() + 3);
    for (auto _ : state) {
        int outlen = 0;
        benchmark::DoNotOptimize(zeb_alm_base64_decode(text.data(), static_cast<int>(textLen), out.data(), &outlen));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Base64Decode)->Arg(1024)->Arg(64 * 1024)->MinTime(benchsmoke::Scaled(0.3, 0.01));

// A full batch with realistic identity fields, as the manager queues it.
class Batch {
public:
    Batch() {
        for (int i = 0; i < kBatchSize; ++i) {
            std::unique_ptr<AlarmEx> alarm(
                new AlarmEx(std::to_string(300000 + i).c_str(), i % 2 == 0 ? ZEB_ALARM_GENERATE : ZEB_ALARM_CLEAR));
            for (int p = 0; p < kParamsPerAlarm; ++p) {
                alarm->appendParameter(("param_name_" + std::to_string(p)).c_str(),
                                       ("value of parameter " + std::to_string(p * 1000 + i)).c_str());
            }
            alarm->setServiceName("order-service");
            alarm->setServiceId("svc-4f1c2a");
            alarm->setServiceInsId("inst-4f1c2a-0007");
            alarm->setRsetClear(1);
            alarm->setAppId("app-commerce-0001");
            alarm->setAppName("commerce");
            alarm->setNodeIp("192.168.100.21");
            alarm->setAlarmSource("order-service-7d9f");
            alarm->SetServiceIp("10.244.3.17");
            alarm->setServicePort(8443);
            alarm->ResetAlarmTime(1700000000123L + i);
            alarm->setServiceLabel("order-service-label");
            list_.push_back(alarm.get());
            owned_.push_back(std::move(alarm));
        }
    }
    const std::list<AlarmEx*>& list() const { return list_; }

private:
    std::vector<std::unique_ptr<AlarmEx>> owned_;
    std::list<AlarmEx*> list_;
};

// The current document for a full batch; in bytes per second, beside
// Memcpy, the floor of writing any text.
void PushDocument(benchmark::State& state) {
    const Batch batch;
    std::size_t bytes = 0;
    for (auto _ : state) {
        char* text = AlmJsonParser::GenRestDataJsonEx(batch.list());
        if (text == nullptr) {
            state.SkipWithError("document not built");
            break;
        }
        benchmark::DoNotOptimize(text);
        bytes = std::char_traits<char>::length(text);
        cJSON_free(text);
    }
    state.SetItemsProcessed(state.iterations() * kBatchSize);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
    state.counters["doc_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(PushDocument)->MinTime(benchsmoke::Scaled(0.5, 0.01));

void BM_Base64OfBatchDocument(benchmark::State& state) {
    const Batch batch;
    char* text = AlmJsonParser::GenRestDataJsonEx(batch.list());
    if (text == nullptr) {
        state.SkipWithError("document not built");
        return;
    }
    const std::string document(text);
    cJSON_free(text);
    std::vector<char> plain(document.begin(), document.end());
    EncodeRepeatedly(state, plain);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(plain.size()));
    state.counters["doc_bytes"] = static_cast<double>(plain.size());
}
BENCHMARK(BM_Base64OfBatchDocument)->MinTime(benchsmoke::Scaled(0.5, 0.01));

// The agent stand-in's reading of a full batch's body: counting only (what
// the capacity benchmark's agent does), and recording every alarm in full.
void AgentReading(benchmark::State& state) {
    const Batch batch;
    char* text = AlmJsonParser::GenRestDataJsonEx(batch.list());
    const std::string body = nodeward::EncodeBase64(text);
    cJSON_free(text);
    nodeward::PushReading reading;
    reading.compact = false;
    reading.fullAlarms = state.range(0) != 0;
    for (auto _ : state) {
        const nodeward::PushDocument doc = nodeward::ReadPushBody(body, reading);
        if (doc.alarmCount != kBatchSize) {
            state.SkipWithError("document not read");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatchSize);
}
BENCHMARK(AgentReading)->ArgName("full")->Arg(0)->Arg(1)->MinTime(benchsmoke::Scaled(0.3, 0.01));

}  // namespace

BENCHMARK_MAIN();
