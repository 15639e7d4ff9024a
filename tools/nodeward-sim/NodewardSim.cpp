// The HTTP side of the sim. libmicrohttpd runs one thread per connection:
// a delayed answer (delayMs) sleeps on its own connection's thread, so control
// requests and other senders are served meanwhile, and stop() wakes it.
#include "NodewardSim.h"

#include <microhttpd.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <strings.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <thread>

#include "SimDocument.h"

namespace nodeward {

namespace {

constexpr char kPushPath[] = "/om/v1/request";
constexpr char kCallBackPath[] = "/sim/callback";
constexpr std::size_t kMaxControlBodyBytes = 1u << 20;

enum class Route { Push, CallBack, Answered };

// One HTTP request while MHD feeds us its body.
struct Exchange {
    Route route = Route::Answered;
    std::string body;
    bool tooLarge = false;
    std::vector<std::pair<std::string, std::string>> headers;
};

MHD_Result KeepHeader(void* cls, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    static_cast<Exchange*>(cls)->headers.emplace_back(name, value != nullptr ? value : "");
    return MHD_YES;
}

struct ServiceAddress {
    std::string ip;
    int port = 0;
    std::string appId;
};

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

std::string SysError(const std::string& what) { return what + ": " + std::strerror(errno); }

void LogError(const std::string& text) {
    std::fprintf(stderr, "nodeward-sim: %s\n", text.c_str());
    std::fflush(stderr);
}

// "callback to NAME: status 200 answer <base64> (<decoded>)"
std::string DescribeCallBack(const std::string& name, int status, const std::string& answer,
                             const std::string& error) {
    if (status < 0) {
        return "callback to " + name + ": failed (" + error + ")";
    }
    // The library answers with a trailing zero byte; people see the text before it.
    const std::string text = answer.substr(0, answer.find('\0'));
    std::string decoded;
    const std::string shown = DecodeBase64(text, &decoded) ? decoded : std::string("not base64");
    return "callback to " + name + ": status " + std::to_string(status) + " answer " + text + " (" + shown + ")";
}

}  // namespace

struct Sim::Impl {
    explicit Impl(SimOptions o) : options(std::move(o)), rng(options.seed) {}

    SimOptions options;

    // Listening state, written by start()/stop() only.
    MHD_Daemon* daemon = nullptr;
    std::string host;
    int boundPort = 0;
    std::string unixPath;
    ino_t unixInode = 0;

    // Everything below mu is shared between MHD threads, the worker and callers.
    mutable std::mutex mu;
    mutable std::condition_variable changed;
    bool stopping = false;
    std::vector<ReceivedRequest> requests;
    SimCounts counts;
    std::map<std::string, ServiceAddress> services;
    int wellFormedSeen = 0;
    int failNextCount = 0;
    FailMode failNextMode = FailMode::RetCode;
    std::mt19937 rng;
    std::set<std::string> firstAlarmCallBacksDone;
    std::deque<std::pair<std::string, std::string>> pendingCallBacks;
    int openExchanges = 0;  // requests begun and not yet completed (their answer not yet sent)

    std::thread worker;

    std::mutex outMu;  // keeps stdout lines and jsonl lines whole
    FILE* jsonl = nullptr;

    bool listenSocket(int* fd, std::string* error);
    static MHD_Result OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* uploadData, size_t* uploadDataSize,
                                void** context);
    static void OnCompleted(void* cls, MHD_Connection* connection, void** context,
                            MHD_RequestTerminationCode code);
    MHD_Result answerPush(MHD_Connection* connection, Exchange* exchange);
    MHD_Result answerCallBack(MHD_Connection* connection, Exchange* exchange);
    std::optional<FailMode> decideFailure();
    void learn(const std::vector<ReceivedAlarm>& alarms);
    void print(const std::string& line);
    void writeJsonl(const std::string& compact);
    void workerLoop();
    int callBackLearnt(const std::string& name, const std::string& json, std::string* answer, std::string* error,
                       bool* unknown);
};

bool Sim::Impl::listenSocket(int* fd, std::string* error) {
    int port = 0;
    if (!ParseEndpoint(options.endpoint, &host, &port, &unixPath)) {
        *error = "malformed endpoint \"" + options.endpoint + "\" (want HOST:PORT or unix:PATH)";
        return false;
    }
    if (!unixPath.empty()) {
        struct stat st {};
        if (lstat(unixPath.c_str(), &st) == 0) {
            if (!S_ISSOCK(st.st_mode)) {
                *error = unixPath + " exists and is not a socket";
                return false;
            }
            unlink(unixPath.c_str());  // left behind by an earlier run
        }
        *fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (*fd < 0) {
            *error = SysError("socket");
            return false;
        }
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::memcpy(addr.sun_path, unixPath.c_str(), unixPath.size() + 1);
        if (bind(*fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(*fd, 64) != 0) {
            *error = SysError("bind/listen " + unixPath);
            close(*fd);
            return false;
        }
        if (lstat(unixPath.c_str(), &st) == 0) {
            unixInode = st.st_ino;
        }
        boundPort = 0;
        return true;
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int rc = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (rc != 0) {
        *error = "cannot resolve " + host + ": " + gai_strerror(rc);
        return false;
    }
    *error = "no address for " + host;
    for (addrinfo* a = found; a != nullptr; a = a->ai_next) {
        const int s = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (s < 0) {
            *error = SysError("socket");
            continue;
        }
        const int on = 1;
        setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_storage bound{};
        socklen_t len = sizeof(bound);
        if (bind(s, a->ai_addr, a->ai_addrlen) != 0 || listen(s, 64) != 0 ||
            getsockname(s, reinterpret_cast<sockaddr*>(&bound), &len) != 0) {
            *error = SysError("bind/listen " + options.endpoint);
            close(s);
            continue;
        }
        boundPort = bound.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port)
                                                : ntohs(reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
        *fd = s;
        freeaddrinfo(found);
        return true;
    }
    freeaddrinfo(found);
    return false;
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

std::optional<FailMode> Sim::Impl::decideFailure() {
    ++wellFormedSeen;
    if (failNextCount > 0) {
        --failNextCount;
        return failNextMode;
    }
    if (wellFormedSeen <= options.failFirst) {
        return options.failMode;
    }
    if (options.failRatio > 0.0) {
        // Raw engine output, not a std distribution: the same seed gives the
        // same sequence with any standard library.
        const double draw = static_cast<double>(rng()) / 4294967296.0;
        if (draw < options.failRatio) {
            return options.failMode;
        }
    }
    return std::nullopt;
}

void Sim::Impl::learn(const std::vector<ReceivedAlarm>& alarms) {
    for (const auto& alarm : alarms) {
        if (alarm.serviceName.empty() || alarm.serviceIp.empty() || alarm.servicePort < 0 ||
            alarm.servicePort > 65535) {
            continue;
        }
        ServiceAddress& known = services[alarm.serviceName];
        // Field by field: the strings keep their capacity, so a known service costs no allocation.
        known.ip = alarm.serviceIp;
        known.port = static_cast<int>(alarm.servicePort);
        known.appId = alarm.appId;
        for (const auto& [service, json] : options.callBackOnFirstAlarm) {
            if (service == alarm.serviceName && firstAlarmCallBacksDone.insert(service).second) {
                pendingCallBacks.emplace_back(service, json);
            }
        }
    }
}

MHD_Result Sim::Impl::answerPush(MHD_Connection* connection, Exchange* exchange) {
    exchange->route = Route::Answered;
    if (!exchange->tooLarge && options.delayMs > 0) {
        std::unique_lock<std::mutex> lock(mu);
        changed.wait_for(lock, std::chrono::milliseconds(options.delayMs), [this] { return stopping; });
        if (stopping) {
            return MHD_NO;
        }
    }
    PushDocument doc;
    if (exchange->tooLarge) {
        doc.reason = "body larger than " + std::to_string(options.maxBodyBytes) + " bytes";
    } else {
        // Printing and full records only for whoever reads them.
        PushReading reading;
        reading.compact = !options.jsonlPath.empty();
        reading.fullAlarms = options.recordRequests || options.printAlarms;
        doc = ReadPushBody(exchange->body, reading);
    }
    std::optional<FailMode> failure;
    std::size_t number = 0;
    {
        std::lock_guard<std::mutex> lock(mu);
        if (doc.ok) {
            failure = decideFailure();
        }
        const bool accepted = doc.ok && !failure;
        learn(doc.alarms);
        number = ++counts.requests;
        if (accepted) {
            ++counts.acceptedRequests;
            counts.acceptedAlarms += doc.alarmCount;
        }
        if (options.recordRequests) {
            ReceivedRequest record;
            if (!exchange->tooLarge) {
                record.body = std::move(exchange->body);
            }
            record.headers = std::move(exchange->headers);
            record.json = std::move(doc.decoded);
            record.legacy = doc.legacy;
            record.accepted = accepted;
            // The lines printed below need them; otherwise the record takes them.
            if (options.printAlarms) {
                record.alarms = doc.alarms;
            } else {
                record.alarms = std::move(doc.alarms);
            }
            requests.push_back(std::move(record));
        }
    }
    changed.notify_all();

    if (!doc.compact.empty()) {
        writeJsonl(doc.compact);
    }
    if (!doc.ok) {
        LogError("request " + std::to_string(number) + " refused: " + doc.reason);
        const unsigned int status = exchange->tooLarge ? MHD_HTTP_CONTENT_TOO_LARGE : MHD_HTTP_BAD_REQUEST;
        return Answer(connection, status, RefusalAnswer(doc.reason));
    }
    if (failure) {
        if (options.printAlarms) {
            print("request " + std::to_string(number) + " answered with failure (" + FailModeName(*failure) + ")");
        }
        switch (*failure) {
            case FailMode::RetCode:
                return Answer(connection, MHD_HTTP_OK, FailureAnswer(doc.legacy));
            case FailMode::Empty:
                return Answer(connection, MHD_HTTP_OK, "");
            case FailMode::Garbage:
                return Answer(connection, MHD_HTTP_OK, "%%%%");
            case FailMode::Close:
                return MHD_NO;  // MHD drops the connection without a status line
        }
    }
    if (options.printAlarms) {
        for (const auto& alarm : doc.alarms) {
            print(FormatAlarmLine(alarm));
        }
    }
    return Answer(connection, static_cast<unsigned int>(options.status), SuccessAnswer(doc.legacy));
}

MHD_Result Sim::Impl::answerCallBack(MHD_Connection* connection, Exchange* exchange) {
    exchange->route = Route::Answered;
    const char* service = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "service");
    if (service == nullptr || *service == '\0') {
        return Answer(connection, MHD_HTTP_BAD_REQUEST, "missing ?service=NAME\n");
    }
    std::string answer;
    std::string error;
    bool unknown = false;
    const int status = callBackLearnt(service, exchange->body, &answer, &error, &unknown);
    if (options.printAlarms) {
        print(DescribeCallBack(service, status, answer, error));
    }
    if (status < 0) {
        const unsigned int code = unknown ? MHD_HTTP_NOT_FOUND : MHD_HTTP_BAD_GATEWAY;
        return Answer(connection, code, error + "\n");
    }
    return Answer(connection, static_cast<unsigned int>(status), answer);
}

int Sim::Impl::callBackLearnt(const std::string& name, const std::string& json, std::string* answer,
                              std::string* error, bool* unknown) {
    ServiceAddress address;
    {
        std::lock_guard<std::mutex> lock(mu);
        const auto it = services.find(name);
        if (it == services.end()) {
            *unknown = true;
            *error = "no alarm with an address has come from service " + name;
            return -1;
        }
        address = it->second;
    }
    return PostAlarmCheck(address.ip, address.port, name, address.appId, json, answer, error);
}

void Sim::Impl::print(const std::string& line) {
    std::lock_guard<std::mutex> lock(outMu);
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void Sim::Impl::writeJsonl(const std::string& compact) {
    std::lock_guard<std::mutex> lock(outMu);
    if (jsonl != nullptr) {
        std::fputs(compact.c_str(), jsonl);
        std::fputc('\n', jsonl);
        std::fflush(jsonl);
    }
}

void Sim::Impl::workerLoop() {
    for (;;) {
        std::pair<std::string, std::string> next;
        {
            std::unique_lock<std::mutex> lock(mu);
            changed.wait(lock, [this] { return stopping || !pendingCallBacks.empty(); });
            if (stopping) {
                return;
            }
            next = pendingCallBacks.front();
            pendingCallBacks.pop_front();
        }
        std::string answer;
        std::string error;
        bool unknown = false;
        const int status = callBackLearnt(next.first, next.second, &answer, &error, &unknown);
        const std::string line = DescribeCallBack(next.first, status, answer, error);
        if (options.printAlarms) {
            print(line);
        } else if (status < 0) {
            LogError(line);
        }
    }
}

const char* FailModeName(FailMode mode) {
    switch (mode) {
        case FailMode::RetCode:
            return "retcode";
        case FailMode::Empty:
            return "empty";
        case FailMode::Garbage:
            return "garbage";
        case FailMode::Close:
            return "close";
    }
    return "?";
}

std::ostream& operator<<(std::ostream& out, FailMode mode) { return out << FailModeName(mode); }

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
    int fd = -1;
    if (!impl_->listenSocket(&fd, error)) {
        stop();
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(impl_->mu);
        impl_->stopping = false;
    }
    const unsigned int flags = MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ITC;
    impl_->daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, &Impl::OnRequest, impl_.get(),
                                     MHD_OPTION_LISTEN_SOCKET, fd, MHD_OPTION_NOTIFY_COMPLETED, &Impl::OnCompleted,
                                     impl_.get(), MHD_OPTION_CONNECTION_TIMEOUT, 60u, MHD_OPTION_CONNECTION_LIMIT,
                                     128u, MHD_OPTION_END);
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
    if (!impl_->unixPath.empty() && impl_->unixInode != 0) {
        // Only our own socket file: another sim may have taken the path since.
        struct stat st {};
        if (lstat(impl_->unixPath.c_str(), &st) == 0 && st.st_ino == impl_->unixInode) {
            unlink(impl_->unixPath.c_str());
        }
        impl_->unixInode = 0;
    }
    std::lock_guard<std::mutex> lock(impl_->outMu);
    if (impl_->jsonl != nullptr) {
        std::fclose(impl_->jsonl);
        impl_->jsonl = nullptr;
    }
}

int Sim::port() const { return impl_->boundPort; }

std::string Sim::endpoint() const {
    if (!impl_->unixPath.empty()) {
        return "unix:" + impl_->unixPath;
    }
    const std::string& host = impl_->host;
    const std::string shown = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    return shown + ":" + std::to_string(impl_->boundPort);
}

std::vector<ReceivedRequest> Sim::requests() const {
    std::lock_guard<std::mutex> lock(impl_->mu);
    return impl_->requests;
}

std::vector<ReceivedAlarm> Sim::acceptedAlarms() const {
    std::lock_guard<std::mutex> lock(impl_->mu);
    std::vector<ReceivedAlarm> alarms;
    for (const auto& request : impl_->requests) {
        if (request.accepted) {
            alarms.insert(alarms.end(), request.alarms.begin(), request.alarms.end());
        }
    }
    return alarms;
}

bool Sim::waitForAcceptedAlarms(std::size_t n, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(impl_->mu);
    return impl_->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0),
                                   [&] { return impl_->counts.acceptedAlarms >= n; });
}

bool Sim::waitForRequests(std::size_t n, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(impl_->mu);
    return impl_->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0),
                                   [&] { return impl_->counts.requests >= n; });
}

SimCounts Sim::counts() const {
    std::lock_guard<std::mutex> lock(impl_->mu);
    return impl_->counts;
}

std::string ReceivedRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) {
            return value;
        }
    }
    return std::string();
}

void Sim::failNext(int n, FailMode mode) {
    std::lock_guard<std::mutex> lock(impl_->mu);
    impl_->failNextCount = n > 0 ? n : 0;
    impl_->failNextMode = mode;
}

int Sim::callBack(const std::string& serviceName, const std::string& callBackAlarmsJson, std::string* answer) {
    std::string error;
    bool unknown = false;
    return impl_->callBackLearnt(serviceName, callBackAlarmsJson, answer, &error, &unknown);
}

int Sim::callBackTo(const std::string& host, int port, const std::string& serviceName, const std::string& appId,
                    const std::string& callBackAlarmsJson, std::string* answer) {
    return PostAlarmCheck(host, port, serviceName, appId, callBackAlarmsJson, answer, nullptr);
}

}  // namespace nodeward
