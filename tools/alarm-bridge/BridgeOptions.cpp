#include "BridgeOptions.h"

#include <cerrno>
#include <cstdlib>

#include "rest_endpoint.h"

namespace bridge {

namespace {

bool Seconds(const std::string& text, int low, int* out) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < low || value > 86400) {
        return false;
    }
    *out = static_cast<int>(value);
    return true;
}

}  // namespace

const char kBridgeUsageLine[] =
    "Usage: alarm-bridge --listen ENDPOINT --state PATH --alertmanager URL [--alertmanager URL ...]";

std::string BridgeUsage() {
    return std::string(kBridgeUsageLine) +
           "\n"
           "                    [--resend SECONDS] [--check-interval SECONDS]\n"
           "       alarm-bridge --status --state PATH\n"
           "Receives alarms where the node agent listens, stores each durably before it\n"
           "answers, and forwards them as alerts to every Alertmanager given.\n"
           "\n"
           "  --listen ENDPOINT        HOST:PORT or unix:PATH (default 127.0.0.1:7888);\n"
           "                           GET /metrics is served there too\n"
           "  --state PATH             the SQLite state (default /var/lib/alarm-bridge/state.db)\n"
           "  --alertmanager URL       an Alertmanager, e.g. http://127.0.0.1:9093; repeat for\n"
           "                           each peer of a cluster (peers do not share alerts)\n"
           "  --resend SECONDS         send firing alerts again this often (default 60)\n"
           "  --check-interval SECONDS ask services to check their active alarms this often\n"
           "                           (default 0: only when started with alarms in the state)\n"
           "  --status                 print the active alarms of the state and exit\n"
           "  --help, --version\n";
}

bool ParseBridgeArgs(int argc, const char* const* argv, BridgeOptions* options, std::string* error) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            options->help = true;
            return true;
        }
        if (arg == "--version") {
            options->version = true;
            return true;
        }
        if (arg == "--status") {
            options->status = true;
            continue;
        }
        const bool takesValue = arg == "--listen" || arg == "--state" || arg == "--alertmanager" || arg == "--resend" ||
                                arg == "--check-interval";
        if (!takesValue) {
            *error = "unknown option " + arg;
            return false;
        }
        if (i + 1 >= argc) {
            *error = arg + " needs a value";
            return false;
        }
        const std::string value = argv[++i];
        rest_endpoint parsed;
        const char* why = arg == "--listen" ? restParseEndpoint(value.c_str(), REST_ENDPOINT_LISTEN, &parsed) : nullptr;
        if (why != nullptr) {
            *error = "--listen \"" + value + "\": " + why;
            return false;
        }
        if (arg == "--listen") {
            options->listen = value;
        } else if (arg == "--state") {
            options->state = value;
        } else if (arg == "--alertmanager") {
            if (value.compare(0, 7, "http://") != 0 && value.compare(0, 8, "https://") != 0) {
                *error = "--alertmanager wants an http:// or https:// URL, not " + value;
                return false;
            }
            options->alertmanagers.push_back(value);
        } else if (!Seconds(value, arg == "--resend" ? 1 : 0,
                            arg == "--resend" ? &options->resendSeconds : &options->checkIntervalSeconds)) {
            *error = arg + " wants whole seconds (" + (arg == "--resend" ? "1" : "0") + " to 86400), not " + value;
            return false;
        }
    }
    if (!options->status && options->alertmanagers.empty()) {
        *error = "at least one --alertmanager URL is needed";
        return false;
    }
    return true;
}

}  // namespace bridge
