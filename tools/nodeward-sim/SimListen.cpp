// The sim's HTTP side: binding the endpoint, starting and stopping the
// server, and routing each request to the push or the call-back relay.
// libmicrohttpd runs one thread per connection: a delayed answer (delayMs)
// sleeps on its own connection's thread, so control requests and other
// senders are served meanwhile, and stop() wakes it.
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "SimServer.h"
#include "rest_endpoint.h"

namespace nodeward {

namespace {

constexpr char kPushPath[] = "/om/v1/request";
constexpr char kCallBackPath[] = "/sim/callback";
constexpr std::size_t kMaxControlBodyBytes = 1u << 20;

MHD_Result KeepHeader(void* cls, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    static_cast<Exchange*>(cls)->headers.emplace_back(name, value != nullptr ? value : "");
    return MHD_YES;
}

std::string SysError(const std::string& what) { return what + ": " + std::strerror(errno); }

}  // namespace

MHD_Result Answer(MHD_Connection* connection, unsigned int status, const std::string& body) {
    MHD_Response* response =
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO;
    }
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain");
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

void LogError(const std::string& text) {
    std::fprintf(stderr, "nodeward-sim: %s\n", text.c_str());
    std::fflush(stderr);
}

MHD_Result Sim::Impl::OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                                const char* /*version*/, const char* uploadData, size_t* uploadDataSize,
                                void** context) {
    auto* self = static_cast<Impl*>(cls);
    auto* exchange = static_cast<Exchange*>(*context);
    if (exchange == nullptr) {
        // First call: headers only. Refusals are answered now, before any body is read.
        exchange = new Exchange();
        *context = exchange;
        {
            std::lock_guard<std::mutex> lock(self->mu);
            ++self->openExchanges;
        }
        const std::string path = url;
        const bool post = std::strcmp(method, MHD_HTTP_METHOD_POST) == 0;
        if (path != kPushPath && path != kCallBackPath) {
            return Answer(connection, MHD_HTTP_NOT_FOUND, "not found\n");
        }
        if (!post) {
            return Answer(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "POST only\n");
        }
        exchange->route = path == kPushPath ? Route::Push : Route::CallBack;
        if (exchange->route == Route::Push && self->options.recordRequests) {
            // Only a recorded push keeps its headers.
            MHD_get_connection_values(connection, MHD_HEADER_KIND, &KeepHeader, exchange);
        }
        const std::size_t limit = exchange->route == Route::Push ? self->options.maxBodyBytes : kMaxControlBodyBytes;
        const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
        const unsigned long long announced = length != nullptr ? std::strtoull(length, nullptr, 10) : 0;
        if (announced > limit) {
            exchange->tooLarge = true;
        } else {
            exchange->body.reserve(static_cast<std::size_t>(announced));  // one buffer, not one per chunk
        }
        if (exchange->tooLarge) {
            return exchange->route == Route::Push ? self->answerPush(connection, exchange)
                                                  : Answer(connection, MHD_HTTP_CONTENT_TOO_LARGE, "too large\n");
        }
        return MHD_YES;
    }
    if (exchange->route == Route::Answered) {
        *uploadDataSize = 0;  // the answer is queued; the rest of the body is dropped
        return MHD_YES;
    }
    if (*uploadDataSize != 0) {
        const std::size_t limit = exchange->route == Route::Push ? self->options.maxBodyBytes : kMaxControlBodyBytes;
        if (exchange->body.size() + *uploadDataSize > limit) {
            exchange->tooLarge = true;  // a chunked body with no length: keep reading, keep nothing
            exchange->body.clear();
        }
        if (!exchange->tooLarge) {
            exchange->body.append(uploadData, *uploadDataSize);
        }
        *uploadDataSize = 0;
        return MHD_YES;
    }
    if (exchange->route == Route::CallBack) {
        if (exchange->tooLarge) {
            exchange->route = Route::Answered;
            return Answer(connection, MHD_HTTP_CONTENT_TOO_LARGE, "too large\n");
        }
        return self->answerCallBack(connection, exchange);
    }
    return self->answerPush(connection, exchange);
}

void Sim::Impl::OnCompleted(void* cls, MHD_Connection* /*connection*/, void** context,
                            MHD_RequestTerminationCode /*code*/) {
    if (*context == nullptr) {
        return;
    }
    delete static_cast<Exchange*>(*context);
    *context = nullptr;
    auto* self = static_cast<Impl*>(cls);
    bool lastWhileStopping = false;
    {
        std::lock_guard<std::mutex> lock(self->mu);
        lastWhileStopping = --self->openExchanges == 0 && self->stopping;
    }
    // Only stop() waits for open exchanges; other waiters need no wake-up per request.
    if (lastWhileStopping) {
        self->changed.notify_all();
    }
}

Sim::Sim(SimOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Sim::~Sim() { stop(); }

bool Sim::start(std::string* error) {
    std::string ignored;
    if (error == nullptr) {
        error = &ignored;
    }
    if (impl_->daemon != nullptr) {
        *error = "already running";
        return false;
    }
    if (!impl_->options.jsonlPath.empty()) {
        impl_->jsonl = std::fopen(impl_->options.jsonlPath.c_str(), "a");
        if (impl_->jsonl == nullptr) {
            *error = SysError("open " + impl_->options.jsonlPath);
            return false;
        }
    }
    rest_endpoint parsed;
    if (restParseEndpoint(impl_->options.endpoint.c_str(), REST_ENDPOINT_LISTEN, &parsed) == nullptr) {
        impl_->host = parsed.host;
    }
    if (!OpenListenSocket(impl_->options.endpoint, &impl_->listener, error)) {
        stop();
        return false;
    }
    const int fd = impl_->listener.fd;
    {
        std::lock_guard<std::mutex> lock(impl_->mu);
        impl_->stopping = false;
    }
    const unsigned int flags = MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ITC;
    impl_->daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, &Impl::OnRequest, impl_.get(), MHD_OPTION_LISTEN_SOCKET, fd,
                         MHD_OPTION_NOTIFY_COMPLETED, &Impl::OnCompleted, impl_.get(), MHD_OPTION_CONNECTION_TIMEOUT,
                         60u, MHD_OPTION_CONNECTION_LIMIT, 128u, MHD_OPTION_END);
    if (impl_->daemon == nullptr) {
        // Not closed here: MHD may already have closed the socket it was given,
        // and a second close could hit a descriptor another thread just opened.
        *error = "cannot start the HTTP server on " + impl_->options.endpoint;
        stop();
        return false;
    }
    if (!impl_->options.callBackOnFirstAlarm.empty()) {
        impl_->worker = std::thread([this] { impl_->workerLoop(); });
    }
    return true;
}

void Sim::stop() {
    {
        std::lock_guard<std::mutex> lock(impl_->mu);
        impl_->stopping = true;
    }
    impl_->changed.notify_all();
    if (impl_->daemon != nullptr) {
        // No new connections, then a moment for the requests already recorded
        // to get their answers out: a caller that stops as soon as it saw a
        // request must not cut that request's answer off.
        const MHD_socket listening = MHD_quiesce_daemon(impl_->daemon);
        {
            std::unique_lock<std::mutex> lock(impl_->mu);
            impl_->changed.wait_for(lock, std::chrono::seconds(2), [this] { return impl_->openExchanges == 0; });
        }
        MHD_stop_daemon(impl_->daemon);  // joins the connection threads
        impl_->daemon = nullptr;
        if (listening != MHD_INVALID_SOCKET) {
            close(listening);
        }
    }
    if (impl_->worker.joinable()) {
        impl_->worker.join();
    }
    // Only our own socket file: another sim may have taken the path since.
    RemoveSocketFile(impl_->listener);
    impl_->listener.unixInode = 0;
    std::lock_guard<std::mutex> lock(impl_->outMu);
    if (impl_->jsonl != nullptr) {
        std::fclose(impl_->jsonl);
        impl_->jsonl = nullptr;
    }
}

int Sim::port() const { return impl_->listener.port; }

std::string Sim::endpoint() const {
    if (!impl_->listener.unixPath.empty()) {
        return "unix:" + impl_->listener.unixPath;
    }
    const std::string& host = impl_->host;
    const std::string shown = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    return shown + ":" + std::to_string(impl_->listener.port);
}

}  // namespace nodeward
