// The alarm-send command line and the alarms it names, parsed apart from the
// library so the rules can be tested without sending anything.
#ifndef ALARM_SEND_ARGS_H
#define ALARM_SEND_ARGS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace alarmsend {

// Exit codes; each failure also prints one line on stderr.
constexpr int kExitDelivered = 0;
constexpr int kExitRefused = 1;       // the library did not take the alarm (not initialised, not defined)
constexpr int kExitUsage = 2;         // bad arguments or a bad input line
constexpr int kExitQueueFull = 3;     // 1024 alarms were already waiting
constexpr int kExitNotDelivered = 4;  // not delivered within --timeout

struct AlarmRequest {
    bool clear = false;
    std::string alarmId;
    std::vector<std::pair<std::string, std::string>> params;
};

struct SendOptions {
    std::string appId;    // default APPID
    std::string appName;  // default APPNAME
    std::string service;  // current interface: the service name alarms carry
    std::string serviceId;
    std::string instance;  // service instance id
    std::string label;     // announce the instance with this label
    int64_t timeMs = 0;    // 0: when queued
    std::string agent;     // NODEWARD_ENDPOINT
    uint32_t timeoutMs = 5000;
    bool legacy = false;
    std::string definitions;
    bool printStats = false;
    bool fromStdin = false;  // "-": one alarm per line of standard input
    AlarmRequest alarm;      // the one alarm of the command line
    bool help = false;
    bool version = false;
};

// argv after the program name. false with *error (one line) when unusable.
// appId and appName default to the values given (the environment's).
bool ParseSendArgs(const std::vector<std::string>& args, const char* envAppId, const char* envAppName,
                   SendOptions* options, std::string* error);

// "raise|clear ALARM_ID [NAME=VALUE ...]" as words; legacy asks for at least
// one parameter. false with *error.
bool ParseAlarmWords(const std::vector<std::string>& words, bool legacy, AlarmRequest* alarm, std::string* error);

// A line of standard input split at blanks.
std::vector<std::string> SplitWords(const std::string& line);

// The first line of SendUsage(), also printed after a usage error.
constexpr char kSendUsageLine[] = "Usage: alarm-send [OPTIONS] raise|clear ALARM_ID [NAME=VALUE ...]";
std::string SendUsage();

}  // namespace alarmsend

#endif
