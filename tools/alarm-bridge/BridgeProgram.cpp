#include "BridgeProgram.h"

#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "AgentEndpoint.h"
#include "AlarmSdkVersion.h"
#include "Bridge.h"
#include "BridgeServer.h"

namespace bridge {

namespace {

std::string Pad(const std::string& text, std::size_t width) {
    return text.size() >= width ? text + " " : text + std::string(width - text.size(), ' ');
}

}  // namespace

bool StatusTable(const std::string& state, std::string* table, std::string* error) {
    if (access(state.c_str(), R_OK) != 0) {
        *error = "cannot read " + state;
        return false;
    }
    StoreConnection reader;
    std::vector<StoredAlert> rows;
    if (!reader.open(state, true, error) || !ReadFiring(reader.db(), &rows, error)) {
        return false;
    }
    *table = Pad("SINCE", 25) + Pad("ALARM", 10) + Pad("SERVICE", 16) + Pad("APP", 14) + Pad("NODE", 16) +
             "ALERT AND LABELS\n";
    for (const StoredAlert& row : rows) {
        std::unique_ptr<cJSON, void (*)(cJSON*)> labels(cJSON_Parse(row.labels.c_str()), cJSON_Delete);
        const auto get = [&labels](const char* key) {
            const cJSON* item = cJSON_GetObjectItemCaseSensitive(labels.get(), key);
            return cJSON_IsString(item) ? std::string(item->valuestring) : std::string("-");
        };
        std::string rest = get("alertname");
        for (const cJSON* item = labels ? labels->child : nullptr; item != nullptr; item = item->next) {
            const std::string key = item->string;
            if (key != "alertname" && key != "alarm_id" && key != "service" && key != "app_id" && key != "node") {
                rest += " " + key + "=" + (cJSON_IsString(item) ? item->valuestring : "");
            }
        }
        *table += Pad(Rfc3339(row.startsAt), 25) + Pad(get("alarm_id"), 10) + Pad(get("service"), 16) +
                  Pad(get("app_id"), 14) + Pad(get("node"), 16) + rest + "\n";
    }
    *table += std::to_string(rows.size()) + " active\n";
    return true;
}

int RunBridge(int argc, const char* const* argv) {
    BridgeOptions options;
    std::string error;
    if (!ParseBridgeArgs(argc, argv, &options, &error)) {
        std::fprintf(stderr, "alarm-bridge: %s\n%s  (alarm-bridge --help tells more)\n", error.c_str(),
                     kBridgeUsageLine);
        return 2;
    }
    if (options.help || options.version) {
        std::fputs(options.help ? BridgeUsage().c_str() : "alarm-bridge (Alarm SDK) " ALARMSDK_VERSION "\n", stdout);
        return 0;
    }
    if (options.status) {
        std::string table;
        if (!StatusTable(options.state, &table, &error)) {
            std::fprintf(stderr, "alarm-bridge: %s\n", error.c_str());
            return 1;
        }
        std::fputs(table.c_str(), stdout);
        return 0;
    }
    // Signals are taken by sigwait below, in no thread's handler.
    const sigset_t signals = nodeward::BlockStopSignals();
    curl_global_init(CURL_GLOBAL_DEFAULT);

    Bridge bridge(options);
    BridgeServer server(bridge);
    if (!bridge.start(&error) || !server.start(options.listen, &error)) {
        std::fprintf(stderr, "alarm-bridge: %s\n", error.c_str());
        return 1;
    }
    std::fprintf(stderr, "alarm-bridge: listening on %s, state %s, %zu Alertmanager(s)\n", options.listen.c_str(),
                 options.state.c_str(), options.alertmanagers.size());
    int received = 0;
    sigwait(&signals, &received);
    server.stop();
    bridge.stop();
    return 0;
}

}  // namespace bridge
