#include "BridgeServer.h"

#include <microhttpd.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace bridge {

namespace {

enum class Route { Push, Answered };

struct Exchange {
    Route route = Route::Push;
    bool tooLarge = false;
    std::string body;
};

MHD_Result Send(MHD_Connection* connection, unsigned int status, const std::string& body, const char* type) {
    MHD_Response* response =
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO;
    }
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

MHD_Result OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                     const char* /*version*/, const char* upload, size_t* uploadSize, void** context) {
    auto& bridge = *static_cast<Bridge*>(cls);
    auto* exchange = static_cast<Exchange*>(*context);
    if (exchange == nullptr) {
        // Headers only: what is refused is refused before any body is read.
        exchange = new Exchange();
        *context = exchange;
        const std::string path = url;
        const bool post = std::strcmp(method, MHD_HTTP_METHOD_POST) == 0;
        if (path == "/metrics" && std::strcmp(method, MHD_HTTP_METHOD_GET) == 0) {
            exchange->route = Route::Answered;
            return Send(connection, MHD_HTTP_OK, bridge.metrics(), "text/plain; version=0.0.4");
        }
        if (path != "/om/v1/request" || !post) {
            exchange->route = Route::Answered;
            return Send(
                connection,
                path == "/om/v1/request" || path == "/metrics" ? MHD_HTTP_METHOD_NOT_ALLOWED : MHD_HTTP_NOT_FOUND, "",
                "text/plain");
        }
        const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
        const unsigned long long announced = length != nullptr ? std::strtoull(length, nullptr, 10) : 0;
        // An oversize body is read and dropped before the answer: closing on
        // unread data could reset the connection and lose the answer.
        exchange->tooLarge = announced > kMaxBodyBytes;
        if (!exchange->tooLarge) {
            exchange->body.reserve(static_cast<std::size_t>(announced));
        }
        return MHD_YES;
    }
    if (exchange->route == Route::Answered) {
        *uploadSize = 0;
        return MHD_YES;
    }
    if (*uploadSize != 0) {
        if (exchange->tooLarge || *uploadSize > kMaxBodyBytes - exchange->body.size()) {
            exchange->tooLarge = true;
            std::string().swap(exchange->body);
        } else {
            exchange->body.append(upload, *uploadSize);
        }
        *uploadSize = 0;
        return MHD_YES;
    }
    exchange->route = Route::Answered;
    const HttpAnswer answer = exchange->tooLarge ? bridge.tooLarge(kMaxBodyBytes) : bridge.push(exchange->body);
    return Send(connection, answer.status, answer.body, "text/plain");
}

void OnCompleted(void* /*cls*/, MHD_Connection* /*connection*/, void** context, MHD_RequestTerminationCode /*code*/) {
    delete static_cast<Exchange*>(*context);
    *context = nullptr;
}

}  // namespace

bool BridgeServer::start(const std::string& endpoint, std::string* error) {
    if (!nodeward::OpenListenSocket(endpoint, &socket_, error)) {
        return false;
    }
    // One thread: requests are committed one after another anyway.
    daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL, 0, nullptr, nullptr, &OnRequest,
                               &bridge_, MHD_OPTION_LISTEN_SOCKET, socket_.fd, MHD_OPTION_NOTIFY_COMPLETED,
                               &OnCompleted, nullptr, MHD_OPTION_CONNECTION_TIMEOUT, 30u, MHD_OPTION_CONNECTION_LIMIT,
                               kMaxConnections, MHD_OPTION_END);
    if (daemon_ == nullptr) {
        *error = "cannot start the HTTP server on " + endpoint;
        close(socket_.fd);
        return false;
    }
    return true;
}

void BridgeServer::stop() {
    if (daemon_ != nullptr) {
        MHD_stop_daemon(daemon_);  // closes the listening socket it was given
        daemon_ = nullptr;
        nodeward::RemoveSocketFile(socket_);
    }
}

}  // namespace bridge
