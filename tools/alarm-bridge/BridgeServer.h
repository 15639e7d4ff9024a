// The bridge's HTTP listener: POST /om/v1/request and GET /metrics on one
// libmicrohttpd thread, with bounded bodies and connections.
#ifndef ALARM_BRIDGE_SERVER_H
#define ALARM_BRIDGE_SERVER_H

#include <cstddef>
#include <string>

#include "AgentEndpoint.h"
#include "Bridge.h"

struct MHD_Daemon;

namespace bridge {

constexpr std::size_t kMaxBodyBytes = 4u << 20;  // a batch of 50 alarms is far below this
constexpr unsigned int kMaxConnections = 32;

class BridgeServer {
public:
    explicit BridgeServer(Bridge& bridge) : bridge_(bridge) {}
    ~BridgeServer() { stop(); }
    BridgeServer(const BridgeServer&) = delete;
    BridgeServer& operator=(const BridgeServer&) = delete;

    bool start(const std::string& endpoint, std::string* error);
    void stop();
    int port() const { return socket_.port; }

private:
    Bridge& bridge_;
    MHD_Daemon* daemon_ = nullptr;
    nodeward::ListenSocket socket_;
};

}  // namespace bridge

#endif
