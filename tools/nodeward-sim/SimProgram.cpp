#include "SimProgram.h"

#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "AgentEndpoint.h"
#include "rest_endpoint.h"

namespace nodeward {

namespace {

constexpr char kUsageLine[] = "Usage: nodeward-sim [OPTIONS]";

bool ParseLong(const std::string& text, long low, long high, long* out) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value < low || value > high) {
        return false;
    }
    *out = value;
    return true;
}

bool ParseRatio(const std::string& text, double* out) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !(value >= 0.0 && value <= 1.0)) {
        return false;
    }
    *out = value;
    return true;
}

bool ParseMode(const std::string& text, FailMode* out) {
    for (FailMode mode : {FailMode::RetCode, FailMode::Empty, FailMode::Garbage, FailMode::Close}) {
        if (text == FailModeName(mode)) {
            *out = mode;
            return true;
        }
    }
    return false;
}

// Written under another name and renamed, so a script polling for the file
// never reads it half-written.
bool WriteReadyFile(const std::string& path, const std::string& endpoint) {
    const std::string temporary = path + ".tmp";
    FILE* file = std::fopen(temporary.c_str(), "w");
    if (file == nullptr) {
        return false;
    }
    const bool written = std::fprintf(file, "%s\n", endpoint.c_str()) > 0;
    if (std::fclose(file) != 0 || !written) {
        return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace

std::string ProgramUsage() {
    return std::string(kUsageLine) +
           "\n"
           "A stand-in for the node agent: serves POST /om/v1/request, prints every alarm\n"
           "it receives, answers like the agent or fails on request, and can call a\n"
           "service back with an alarm check.\n"
           "\n"
           "  --listen ENDPOINT       HOST:PORT (port 0: any free port) or unix:PATH;\n"
           "                          default $NODEWARD_ENDPOINT, else 127.0.0.1:7888\n"
           "  --fail-first N          fail the first N well-formed requests\n"
           "  --fail-ratio R          then fail this fraction (0..1) of requests\n"
           "  --seed S                seed for --fail-ratio (default 1): same seed, same failures\n"
           "  --fail-mode MODE        how to fail: retcode (200, retCode 1 / returncode Failed),\n"
           "                          empty (200, empty body), garbage (200, body not base64),\n"
           "                          close (drop the connection); default retcode\n"
           "  --status CODE           HTTP status of the answers that are not failures (default 200)\n"
           "  --delay-ms MS           wait this long before answering each request\n"
           "  --jsonl FILE            append every decoded document to FILE, one JSON per line\n"
           "  --quiet                 print no alarm, failure or callback lines\n"
           "  --count-only            keep no record of requests, only count them (load tests)\n"
           "  --ready-file FILE       write the bound endpoint to FILE once listening\n"
           "  --exit-after-alarms N   stop after N alarms were accepted\n"
           "  --exit-after-seconds S  stop after S seconds\n"
           "  --callback SERVICE=JSON after the first alarm from SERVICE, call it back once\n"
           "                          with JSON as \"callBackAlarms\" (repeatable)\n"
           "  --help                  this text\n"
           "  --version               the program's version\n"
           "\n"
           "Control: POST /sim/callback?service=NAME with the callBackAlarms JSON as body\n"
           "makes the sim post an alarm check to NAME (address learnt from its alarms) and\n"
           "answer with the service's status and answer body.\n"
           "Runs until SIGINT or SIGTERM, then prints a summary line.\n";
}

bool ParseProgramArgs(int argc, const char* const* argv, ProgramOptions* options, std::string* error) {
    ProgramOptions parsed;
    const char* fromEnv = std::getenv(REST_AGENT_ENDPOINT_ENV);
    parsed.sim.endpoint = fromEnv != nullptr && *fromEnv != '\0' ? fromEnv : REST_DEFAULT_AGENT_ENDPOINT;
    parsed.sim.printAlarms = true;
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        std::string value;
        bool hasValue = false;
        const std::size_t equals = name.find('=');
        if (name.compare(0, 2, "--") == 0 && equals != std::string::npos) {
            value = name.substr(equals + 1);
            name = name.substr(0, equals);
            hasValue = true;
        }
        if (name == "--help" || name == "-h" || name == "--version") {
            parsed.help = parsed.help || name != "--version";
            parsed.version = parsed.version || name == "--version";
            continue;
        }
        if (name == "--quiet") {
            parsed.sim.printAlarms = false;
            continue;
        }
        if (name == "--count-only") {
            parsed.sim.recordRequests = false;
            continue;
        }
        static const char* const kWithValue[] = {
            "--listen",   "--fail-first", "--fail-ratio", "--seed",     "--fail-mode",         "--status",
            "--delay-ms", "--jsonl",      "--ready-file", "--callback", "--exit-after-alarms", "--exit-after-seconds"};
        bool known = false;
        for (const char* option : kWithValue) {
            known = known || name == option;
        }
        if (!known) {
            *error = "unknown option " + name;
            return false;
        }
        if (!hasValue) {
            if (i + 1 >= argc) {
                *error = name + " needs a value";
                return false;
            }
            value = argv[++i];
        }
        long number = 0;
        bool ok = true;
        if (name == "--listen") {
            rest_endpoint endpoint;
            if (const char* why = restParseEndpoint(value.c_str(), REST_ENDPOINT_LISTEN, &endpoint)) {
                *error = "bad value for --listen: \"" + value + "\": " + why;
                return false;
            }
            parsed.sim.endpoint = value;
        } else if (name == "--fail-first") {
            ok = ParseLong(value, 0, 1000000000, &number);
            parsed.sim.failFirst = static_cast<int>(number);
        } else if (name == "--fail-ratio") {
            ok = ParseRatio(value, &parsed.sim.failRatio);
        } else if (name == "--seed") {
            ok = ParseLong(value, 0, 4294967295L, &number);
            parsed.sim.seed = static_cast<unsigned int>(number);
        } else if (name == "--fail-mode") {
            ok = ParseMode(value, &parsed.sim.failMode);
        } else if (name == "--status") {
            ok = ParseLong(value, 100, 599, &number);
            parsed.sim.status = static_cast<int>(number);
        } else if (name == "--delay-ms") {
            ok = ParseLong(value, 0, 3600000, &number);
            parsed.sim.delayMs = static_cast<int>(number);
        } else if (name == "--jsonl") {
            parsed.sim.jsonlPath = value;
            ok = !value.empty();
        } else if (name == "--ready-file") {
            parsed.readyFile = value;
            ok = !value.empty();
        } else if (name == "--exit-after-alarms") {
            ok = ParseLong(value, 1, 1000000000, &parsed.exitAfterAlarms);
        } else if (name == "--exit-after-seconds") {
            ok = ParseLong(value, 1, 100000000, &parsed.exitAfterSeconds);
        } else if (name == "--callback") {
            const std::size_t split = value.find('=');
            ok = split != std::string::npos && split > 0;
            if (ok) {
                parsed.sim.callBackOnFirstAlarm.emplace_back(value.substr(0, split), value.substr(split + 1));
            }
        }
        if (!ok) {
            *error = "bad value for " + name + ": \"" + value + "\"";
            return false;
        }
    }
    *options = parsed;
    return true;
}

int RunProgram(int argc, const char* const* argv) {
    ProgramOptions options;
    std::string error;
    if (!ParseProgramArgs(argc, argv, &options, &error)) {
        std::fprintf(stderr, "nodeward-sim: %s\n%s  (nodeward-sim --help tells more)\n", error.c_str(), kUsageLine);
        return 2;
    }
    if (options.help || options.version) {
        std::fputs(options.help ? ProgramUsage().c_str() : "nodeward-sim (Alarm SDK) " ALARMSDK_TOOL_VERSION "\n",
                   stdout);
        return 0;
    }
    // Signals are taken synchronously by this thread, in no thread's handler.
    const sigset_t stopSignals = nodeward::BlockStopSignals();

    Sim sim(options.sim);
    if (!sim.start(&error)) {
        std::fprintf(stderr, "nodeward-sim: %s\n", error.c_str());
        return 1;
    }
    std::printf("nodeward-sim listening on %s\n", sim.endpoint().c_str());
    std::fflush(stdout);
    if (!options.readyFile.empty() && !WriteReadyFile(options.readyFile, sim.endpoint())) {
        std::fprintf(stderr, "nodeward-sim: cannot write %s: %s\n", options.readyFile.c_str(), std::strerror(errno));
        sim.stop();
        return 1;
    }
    const auto started = std::chrono::steady_clock::now();
    for (;;) {  // ends on a signal or a limit; each pass waits at most 100 ms
        const timespec tick{0, 100 * 1000 * 1000};
        const int signal = sigtimedwait(&stopSignals, nullptr, &tick);
        if (signal == SIGINT || signal == SIGTERM) {
            break;
        }
        if (options.exitAfterAlarms > 0 &&
            sim.waitForAcceptedAlarms(static_cast<std::size_t>(options.exitAfterAlarms), 0)) {
            break;
        }
        if (options.exitAfterSeconds > 0 &&
            std::chrono::steady_clock::now() - started >= std::chrono::seconds(options.exitAfterSeconds)) {
            break;
        }
    }
    sim.stop();
    const SimCounts counts = sim.counts();
    std::printf("nodeward-sim stopped: %zu requests, %zu accepted, %zu alarms\n", counts.requests,
                counts.acceptedRequests, counts.acceptedAlarms);
    std::fflush(stdout);
    return 0;
}

}  // namespace nodeward
