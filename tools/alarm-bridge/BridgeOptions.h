// The command line of alarm-bridge.
#ifndef ALARM_BRIDGE_OPTIONS_H
#define ALARM_BRIDGE_OPTIONS_H

#include <string>
#include <vector>

namespace bridge {

struct BridgeOptions {
    std::string listen = "127.0.0.1:7888";  // where the node's agent would listen
    std::string state = "/var/lib/alarm-bridge/state.db";
    std::vector<std::string> alertmanagers;  // base URLs, e.g. http://127.0.0.1:9093
    int resendSeconds = 60;
    int checkIntervalSeconds = 0;  // 0: alarm checks only after a restart
    bool status = false, help = false, version = false;
};

// false with *error for an unknown option, a bad value or a missing --alertmanager.
bool ParseBridgeArgs(int argc, const char* const* argv, BridgeOptions* options, std::string* error);
std::string BridgeUsage();
extern const char kBridgeUsageLine[];

}  // namespace bridge

#endif
