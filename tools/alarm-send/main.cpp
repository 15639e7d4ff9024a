// alarm-send: raises or clears alarms from a shell through the library's
// public C interface, as any service would, then waits for their delivery.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "AlarmSdk.h"
#include "AlarmSdkStats.h"
#include "AlarmSendArgs.h"

using namespace alarmsend;

namespace {

constexpr std::size_t kMaxLineBytes = 4096;

int Fail(int code, const std::string& message) {
    std::cerr << "alarm-send: " << message << "\n";
    return code;
}

alarmsdk_stats Stats(bool legacy) {
    alarmsdk_stats s = {};
    s.size = sizeof(s);
    (void)(legacy ? alarmsdk_get_legacy_stats(&s) : alarmsdk_get_process_stats(&s));
    return s;
}

enum class Outcome { Queued, Refused, QueueFull };

// Hands one alarm to the library. A refusal by the full queue is told apart
// from the others by the counters (the legacy SendAlarm reports neither).
Outcome Send(const SendOptions& options, const AlarmRequest& alarm) {
    const alarmsdk_stats before = Stats(options.legacy);
    if (options.legacy) {
        AlarmObject* object = AllocAlarmObject(alarm.alarmId.c_str(), alarm.clear ? 1 : 0,
                                               static_cast<unsigned int>(alarm.params.size()));
        if (object == nullptr) {
            return Outcome::Refused;
        }
        for (const auto& param : alarm.params) {
            (void)AppendParam(object, param.first.c_str(), param.second.c_str());
        }
        (void)SendAlarm(object);
        FreeAlarmObject(object);
    } else {
        _ZEBAlarm* object = ZEBAllocAlarm(alarm.alarmId.c_str(), alarm.clear ? ZEB_ALARM_CLEAR : ZEB_ALARM_GENERATE);
        if (object == nullptr) {
            return Outcome::Refused;
        }
        for (const auto& param : alarm.params) {
            (void)ZEBAppendAlarmParam(object, param.first.c_str(), param.second.c_str());
        }
        if (options.timeMs != 0) {
            (void)ZEBResetAlarmTime(object, static_cast<long>(options.timeMs));
        }
        (void)ZEBSendAlarm(object);
        (void)ZEBFreeAlarm(object);
    }
    const alarmsdk_stats after = Stats(options.legacy);
    if (after.accepted > before.accepted) {
        return Outcome::Queued;
    }
    return after.refused > before.refused ? Outcome::QueueFull : Outcome::Refused;
}

bool Initialise(const SendOptions& options, std::string* error) {
    setenv("APPID", options.appId.c_str(), 1);
    setenv("APPNAME", options.appName.c_str(), 1);
    if (!options.agent.empty()) {
        setenv("NODEWARD_ENDPOINT", options.agent.c_str(), 1);
    }
    if (options.legacy) {
        // Loading is only logged; an alarm it did not define is refused when sent.
        (void)InitAlarm(options.definitions.c_str(), options.serviceId.c_str(), options.instance.c_str(), 0);
        return true;
    }
    if (ZEBInitAlarmSDK() != 0) {
        *error = "the library did not initialise";
        return false;
    }
    if ((!options.service.empty() || !options.serviceId.empty() || !options.instance.empty()) &&
        ZEBRegisterRsetClearInfo(options.service.c_str(), options.serviceId.c_str(), options.instance.c_str(), 0) !=
            0) {
        *error = "the service identity was refused";
        return false;
    }
    if (!options.label.empty() && ZEBRegisterInfo(options.service.c_str(), options.label.c_str()) != 0) {
        *error = "the announcement was refused (queue full?)";
        return false;
    }
    return true;
}

void PrintStats(bool legacy) {
    const alarmsdk_stats s = Stats(legacy);
    std::printf(
        "accepted=%llu refused=%llu delivered=%llu batches=%llu retried=%llu dropped=%llu waiting=%llu "
        "last_delivery_ms=%lld\n",
        static_cast<unsigned long long>(s.accepted), static_cast<unsigned long long>(s.refused),
        static_cast<unsigned long long>(s.delivered), static_cast<unsigned long long>(s.batches),
        static_cast<unsigned long long>(s.retried), static_cast<unsigned long long>(s.dropped),
        static_cast<unsigned long long>(s.waiting), static_cast<long long>(s.last_delivery_ms));
}

struct Tally {
    unsigned long sent = 0;
    unsigned long refused = 0;
    unsigned long full = 0;
    std::string badLine;  // the first input line that could not be read, with its number
};

void Count(Tally& tally, Outcome outcome) {
    ++tally.sent;
    tally.refused += outcome == Outcome::Refused ? 1 : 0;
    tally.full += outcome == Outcome::QueueFull ? 1 : 0;
}

// One alarm per line until the end or the first bad line.
void SendLines(const SendOptions& options, Tally& tally) {
    std::string line;
    for (unsigned long number = 1; std::getline(std::cin, line); ++number) {
        const std::vector<std::string> words = SplitWords(line);
        if (words.empty() || words[0][0] == '#') {
            continue;
        }
        AlarmRequest alarm;
        std::string error;
        if (line.size() > kMaxLineBytes) {
            error = "longer than 4096 bytes";
        }
        if (!error.empty() || !ParseAlarmWords(words, options.legacy, &alarm, &error)) {
            tally.badLine = "line " + std::to_string(number) + ": " + error;
            return;
        }
        Count(tally, Send(options, alarm));
    }
}

int Run(int argc, char** argv) {
    SendOptions options;
    std::string error;
    if (!ParseSendArgs(std::vector<std::string>(argv + 1, argv + argc), std::getenv("APPID"), std::getenv("APPNAME"),
                       &options, &error)) {
        return Fail(kExitUsage, error + "\n" + kSendUsageLine + "  (alarm-send --help tells more)");
    }
    if (options.help || options.version) {
        std::cout << (options.help ? SendUsage() : std::string("alarm-send (Alarm SDK) ") + alarmsdk_version() + "\n");
        return kExitDelivered;
    }
    if (options.legacy && access(options.definitions.c_str(), R_OK) != 0) {
        return Fail(kExitUsage, "cannot read " + options.definitions);
    }
    // The library's own lines would break "one line on stderr".
    setenv("RUNLOG_FILE", "/dev/null", 0);
    if (!Initialise(options, &error)) {
        return Fail(kExitRefused, error);
    }
    Tally tally;
    if (options.fromStdin) {
        SendLines(options, tally);
    } else {
        Count(tally, Send(options, options.alarm));
    }
    // Whatever was queued is waited for, also after a failure: leaving now would lose it.
    const int flushed =
        options.legacy ? alarmsdk_flush_legacy(options.timeoutMs) : alarmsdk_flush_process(options.timeoutMs);
    if (options.printStats) {
        PrintStats(options.legacy);
    }
    const std::string ofSent = " of " + std::to_string(tally.sent) + " alarms ";
    if (!tally.badLine.empty()) {
        return Fail(kExitUsage, tally.badLine);
    }
    if (tally.refused > 0) {
        return Fail(kExitRefused, std::to_string(tally.refused) + ofSent +
                                      (options.legacy ? "refused: not defined in " + options.definitions +
                                                            ", or other parameters than defined (alarmdef-check " +
                                                            options.definitions + " tells more)"
                                                      : "refused by the library"));
    }
    if (tally.full > 0) {
        return Fail(kExitQueueFull, std::to_string(tally.full) + ofSent + "refused: the queue was full");
    }
    if (flushed != ALARMSDK_FLUSH_DELIVERED) {
        const alarmsdk_stats s = Stats(options.legacy);
        return Fail(kExitNotDelivered, "not delivered within " + std::to_string(options.timeoutMs) + " ms: " +
                                           std::to_string(s.waiting) + " waiting, " + std::to_string(s.dropped) +
                                           " dropped, " + std::to_string(s.retried) + " attempts refused");
    }
    return kExitDelivered;
}

}  // namespace

int main(int argc, char** argv) {
    int code = kExitRefused;
    try {
        code = Run(argc, argv);
    } catch (const std::exception& e) {
        code = Fail(kExitRefused, e.what());
    }
    // The library's send thread may be inside an HTTP request (it retries
    // without end): ending without exit handlers keeps them from tearing
    // down what it still uses.
    std::cout.flush();
    std::fflush(stdout);
    std::_Exit(code);
}
