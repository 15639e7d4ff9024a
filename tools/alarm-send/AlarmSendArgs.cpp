#include "AlarmSendArgs.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <set>

#include "AlarmSdk.h"
#include "rest_endpoint.h"

namespace alarmsend {

namespace {

// What the interfaces hold: longer texts would be cut or refused silently.
constexpr std::size_t kAlarmIdMax = ZEB_ALARM_ID_SIZE - 1;
constexpr std::size_t kParamTextMax = ZEB_ALARM_PARAM_TEXT_SIZE - 1;
constexpr std::size_t kServiceNameMax = 64;
constexpr std::size_t kLabelMax = 256;
constexpr int64_t kFirstMillisecondTime = 1000000000;  // nine digits or fewer are no time in ms

bool AllDigits(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    for (char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
            return false;
        }
    }
    return true;
}

bool ParseNumber(const std::string& text, uint64_t max, uint64_t* value) {
    if (!AllDigits(text) || text.size() > 19) {
        return false;
    }
    errno = 0;
    const unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
    if (errno != 0 || parsed > max) {
        return false;
    }
    *value = parsed;
    return true;
}

bool Fail(std::string* error, const std::string& text) {
    *error = text;
    return false;
}

// The options that take a value, and where it goes.
std::string* TextOption(SendOptions* o, const std::string& name) {
    if (name == "--app-id")
        return &o->appId;
    if (name == "--app-name")
        return &o->appName;
    if (name == "--service")
        return &o->service;
    if (name == "--service-id")
        return &o->serviceId;
    if (name == "--instance")
        return &o->instance;
    if (name == "--label")
        return &o->label;
    if (name == "--agent")
        return &o->agent;
    if (name == "--definitions")
        return &o->definitions;
    return nullptr;
}

// Rules between options, once all are read.
bool CheckCombination(const SendOptions& o, std::string* error) {
    if (o.appId.empty() || o.appName.empty()) {
        return Fail(error, std::string("no application ") +
                               (o.appId.empty() ? "id: set APPID or --app-id" : "name: set APPNAME or --app-name"));
    }
    if (o.service.size() > kServiceNameMax || o.label.size() > kLabelMax) {
        return Fail(error, "--service takes at most 64 characters, --label at most 256");
    }
    if (o.legacy) {
        if (o.definitions.empty()) {
            return Fail(error, "--legacy needs --definitions FILE");
        }
        if (!o.service.empty() || !o.label.empty() || o.timeMs != 0) {
            return Fail(error,
                        "--service, --label and --time belong to the current interface, not --legacy "
                        "(a legacy alarm takes its service from its definition)");
        }
    } else if (!o.definitions.empty()) {
        return Fail(error, "--definitions belongs to --legacy");
    }
    if (!o.label.empty() && o.service.empty()) {
        return Fail(error, "--label needs --service");
    }
    rest_endpoint agent;
    const char* why = o.agent.empty() ? nullptr : restParseEndpoint(o.agent.c_str(), 0, &agent);
    if (why != nullptr) {
        return Fail(error, "--agent " + o.agent + ": " + why);
    }
    return true;
}

}  // namespace

std::vector<std::string> SplitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    for (char c : line) {
        if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            if (!word.empty()) {
                words.push_back(word);
                word.clear();
            }
        } else {
            word += c;
        }
    }
    if (!word.empty()) {
        words.push_back(word);
    }
    return words;
}

bool ParseAlarmWords(const std::vector<std::string>& words, bool legacy, AlarmRequest* alarm, std::string* error) {
    if (words.empty() || (words[0] != "raise" && words[0] != "clear")) {
        return Fail(error, "expected raise or clear, then the alarm id");
    }
    if (words.size() < 2) {
        return Fail(error, words[0] + " needs an alarm id");
    }
    AlarmRequest request;
    request.clear = words[0] == "clear";
    request.alarmId = words[1];
    if (!AllDigits(request.alarmId) || request.alarmId.size() > kAlarmIdMax) {
        return Fail(error, "alarm id '" + request.alarmId + "' is not 1 to 9 decimal digits");
    }
    std::set<std::string> names;
    for (std::size_t i = 2; i < words.size(); ++i) {
        const std::size_t equals = words[i].find('=');
        if (equals == std::string::npos || equals == 0) {
            return Fail(error, "parameter '" + words[i] + "' is not NAME=VALUE");
        }
        std::string name = words[i].substr(0, equals);
        std::string value = words[i].substr(equals + 1);
        if (name.size() > kParamTextMax || value.size() > kParamTextMax) {
            return Fail(error, "parameter " + name.substr(0, 32) + ": names and values take at most 127 characters");
        }
        if (!names.insert(name).second) {
            return Fail(error, "parameter " + name + " is given twice");
        }
        request.params.emplace_back(std::move(name), std::move(value));
    }
    if (legacy && request.params.empty()) {
        return Fail(error, "a legacy alarm carries at least one parameter");
    }
    *alarm = std::move(request);
    return true;
}

bool ParseSendArgs(const std::vector<std::string>& args, const char* envAppId, const char* envAppName,
                   SendOptions* options, std::string* error) {
    SendOptions o;
    o.appId = envAppId != nullptr ? envAppId : "";
    o.appName = envAppName != nullptr ? envAppName : "";
    // Options may stand anywhere, as in GNU programs; "--" ends them.
    std::vector<std::string> words;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string name = args[i];
        if (optionsEnded || name == "-" || name[0] != '-') {
            words.push_back(name);
            continue;
        }
        if (name == "--") {
            optionsEnded = true;
            continue;
        }
        std::string value;
        const std::size_t equals = name.find('=');
        const bool inlineValue = equals != std::string::npos;
        if (inlineValue) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
        }
        const bool flag = name == "--help" || name == "--version" || name == "--legacy" || name == "--stats";
        if (flag) {
            if (inlineValue) {
                return Fail(error, name + " takes no value");
            }
            o.help = o.help || name == "--help";
            o.version = o.version || name == "--version";
            o.legacy = o.legacy || name == "--legacy";
            o.printStats = o.printStats || name == "--stats";
            continue;
        }
        if (name.compare(0, 2, "--") != 0 ||
            (TextOption(&o, name) == nullptr && name != "--time" && name != "--timeout")) {
            return Fail(error, "unknown option " + name);
        }
        if (!inlineValue) {
            if (i + 1 >= args.size()) {
                return Fail(error, name + " needs a value");
            }
            value = args[++i];
        }
        uint64_t number = 0;
        if (std::string* text = TextOption(&o, name)) {
            *text = value;
        } else if (name == "--time") {
            if (!ParseNumber(value, INT64_MAX, &number) || number < kFirstMillisecondTime) {
                return Fail(error, "--time takes milliseconds since the epoch (10 digits or more)");
            }
            o.timeMs = static_cast<int64_t>(number);
        } else if (!ParseNumber(value, UINT32_MAX, &number)) {
            return Fail(error, "--timeout takes milliseconds (0 to 4294967295)");
        } else {
            o.timeoutMs = static_cast<uint32_t>(number);
        }
    }
    if (o.help || o.version) {
        *options = o;
        return true;
    }
    if (words.size() == 1 && words[0] == "-") {
        o.fromStdin = true;
    } else if (!ParseAlarmWords(words, o.legacy, &o.alarm, error)) {
        return false;
    }
    if (!CheckCombination(o, error)) {
        return false;
    }
    *options = o;
    return true;
}

std::string SendUsage() {
    return std::string(kSendUsageLine) + R"(
       alarm-send [OPTIONS] -
Raises or clears an alarm through the Alarm SDK, like a service would, and
waits until the node's agent has accepted it. With "-", every line of standard
input is one alarm in the same words ("raise 300012 disk=sda usage=95"; values
without blanks; empty lines and lines starting with # are skipped). Options
may also follow the words; "--" ends the options.

Options:
  --app-id ID          application id (default: $APPID)
  --app-name NAME      application name (default: $APPNAME)
  --service NAME       service name the alarms carry (at most 64 characters)
  --service-id ID      service id (legacy: stamped into every definition)
  --instance ID        service instance id (likewise)
  --label LABEL        announce this service instance with LABEL first
                       (reset-clear registration; needs --service)
  --time MS            occurrence time in ms since the epoch (default: now)
  --agent ENDPOINT     the agent: HOST:PORT or unix:PATH
                       (default: $NODEWARD_ENDPOINT, else 127.0.0.1:7888)
  --timeout MS         how long to wait for delivery (default 5000; 0 only
                       looks: alarms still queued at exit are lost)
  --legacy             use the legacy interface (InitAlarm, SendAlarm): the
                       alarm must be defined, with exactly its parameters
  --definitions FILE   the legacy XML alarm definition file (language files
                       beside it in zh_CN/ and en_US/)
  --stats              print the delivery counters on stdout afterwards
  --help               this text
  --version            the program's and the library's version

Limits: alarm id 1 to 9 digits; parameter names and values at most 127
characters. The library's log goes to $RUNLOG_FILE when set, else nowhere.

Exit status:
  0  delivered: the agent accepted every alarm
  1  refused by the library (not initialised; legacy: alarm not defined or
     its parameters differ from the definition)
  2  bad arguments or a bad input line
  3  queue full: 1024 alarms were already waiting
  4  not delivered within --timeout (the agent is down or refuses)
Every failure prints one line on stderr; bad arguments add the usage line.
)";
}

}  // namespace alarmsend
