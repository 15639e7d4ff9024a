// Transport SDK over libmicrohttpd: one server thread, a registry of exact
// paths, and the translation between HTTP and the REST request/response
// records.
//
// Decisions worth knowing:
//   - TransportSdkInit remembers only success. A failed attempt (address unset
//     or invalid, port in use) is tried again on the next call, so a service
//     that fixes its environment can still start the server.
//   - RegisterUrl copies the record's methods and handler; changing the record
//     afterwards needs a new registration.
//   - Handlers run on the server thread without the registry lock held, so a
//     handler may register paths; a slow handler delays every other request.
//   - Paths are matched as the client sent them (no percent-decoding); the
//     request's url is the raw request target, query included.
//   - Nothing here is ever destroyed: the server thread keeps running while
//     the process exits, so its state lives in a heap object that is never freed.
//   - A stranger on the network can hold little: connections are limited in
//     total and per client address (extra ones are closed at once), an idle
//     connection is closed after a few seconds, and so is one that has not
//     completed a request within a few seconds of opening or of its previous
//     request, however steadily it trickles bytes. The server thread is our
//     own loop around the daemon so that it can enforce that deadline between
//     rounds; every connection callback runs on that thread, so a descriptor
//     is shut down only while the daemon still owns it.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

#include <microhttpd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <new>
#include <string>

#include "rest_head_list.h"
#include "transport_sdk_testing.h"

namespace {

struct Registry {
    std::mutex mutex;
    MHD_Daemon* daemon = nullptr;
    std::map<std::string, stru_REST_RESOURCE> resources;
};

Registry& registry() {
    static Registry* instance = new Registry;
    return *instance;
}

// A child forked while a registration held the registry finds it free.
// Registered when the library is loaded, before the SDK that registers
// resources here: its handlers take its own locks first.
void LockRegistryForFork() { registry().mutex.lock(); }
void UnlockRegistryAfterFork() { registry().mutex.unlock(); }
const int g_forkHandlers = pthread_atfork(&LockRegistryForFork, &UnlockRegistryAfterFork, &UnlockRegistryAfterFork);

using Clock = std::chrono::steady_clock;

std::atomic<unsigned> g_idleSeconds{TRANSPORT_SDK_IDLE_TIMEOUT};
std::atomic<unsigned> g_requestSeconds{TRANSPORT_SDK_REQUEST_TIMEOUT};
// How often the server thread looks for connections past their deadline
// while any is open; with none open it sleeps until the next connection.
constexpr int32_t kSweepMs = 250;
constexpr int32_t kUntilSomethingHappens = -1;

// Open connections and when their current request began (the connection's
// start, or the end of its previous request). Server thread only.
struct Watched {
    MHD_socket fd;
    Clock::time_point since;
};
std::map<MHD_Connection*, Watched>& watched() {
    static auto* connections = new std::map<MHD_Connection*, Watched>;
    return *connections;
}

struct RequestState {
    std::string target;  // raw request target: path and query
    bool started = false;
    // 404, 405 or 413: answered once the announced body is read and dropped.
    unsigned refusal = 0;
    std::string allow;  // the methods a 405 names
    stru_REST_RESOURCE resource{};
    std::string body;
};

bool parsePort(const char* text, int* port) {
    if (text == nullptr || *text == '\0' || strlen(text) > 5) {
        return false;
    }
    int value = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') {
            return false;
        }
        value = value * 10 + (*p - '0');
    }
    if (value < 1 || value > 65535) {
        return false;
    }
    *port = value;
    return true;
}

int methodBit(const char* method) {
    static const struct {
        const char* name;
        int type;
    } kMethods[] = {{"GET", REST_REQUEST_GET},
                    {"POST", REST_REQUEST_POST},
                    {"PUT", REST_REQUEST_PUT},
                    {"DELETE", REST_REQUEST_DELETE}};
    for (const auto& m : kMethods) {
        if (strcmp(method, m.name) == 0) {
            return 1 << m.type;
        }
    }
    return 0;
}

std::string allowedMethods(unsigned mask) {
    std::string allow;
    const char* names[] = {nullptr, "GET", "POST", "PUT", "DELETE"};
    for (int type = REST_REQUEST_GET; type <= REST_REQUEST_DELETE; ++type) {
        if ((mask & (1u << type)) != 0) {
            allow += allow.empty() ? names[type] : std::string(", ") + names[type];
        }
    }
    return allow;
}

MHD_Result answer(MHD_Connection* connection, unsigned status, MHD_Response* response) {
    if (response == nullptr) {
        return MHD_NO;
    }
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

MHD_Result answerEmpty(MHD_Connection* connection, unsigned status, const char* allow = nullptr) {
    MHD_Response* response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
    if (response != nullptr && allow != nullptr) {
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, allow);
    }
    return answer(connection, status, response);
}

void* onRequestStart(void*, const char* uri, MHD_Connection*) {
    // The server thread is the library's: named like its others.
    static thread_local const bool named = pthread_setname_np(pthread_self(), "alarmsdk-http") == 0;
    (void)named;
    auto* state = new (std::nothrow) RequestState;
    if (state != nullptr) {
        try {
            state->target = uri;
        } catch (...) {
            delete state;
            return nullptr;
        }
    }
    return state;
}

void onRequestDone(void*, MHD_Connection* connection, void** context, MHD_RequestTerminationCode) {
    delete static_cast<RequestState*>(*context);
    *context = nullptr;
    // The next request on a kept-alive connection gets a deadline of its own.
    auto it = watched().find(connection);
    if (it != watched().end()) {
        it->second.since = Clock::now();
    }
}

void onConnection(void*, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code) {
    if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
        watched().erase(connection);
        return;
    }
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    if (info == nullptr) {
        return;
    }
    try {
        watched()[connection] = Watched{info->connect_fd, Clock::now()};
    } catch (...) {
        // Without memory to watch it the connection still has the idle timeout.
    }
}

// Shuts down connections past the request deadline; the daemon then sees the
// end of the stream and closes them in its next round.
void closeOverdue() {
    const auto limit = Clock::now() - std::chrono::seconds(g_requestSeconds.load());
    for (auto& entry : watched()) {
        if (entry.second.since < limit) {
            shutdown(entry.second.fd, SHUT_RDWR);
        }
    }
}

void* serve(void* daemon) {
    for (;;) {
        // The daemon also wakes for its own idle timeouts, so a connection
        // left unwatched (no memory to note it) still ends.
        MHD_run_wait(static_cast<MHD_Daemon*>(daemon), watched().empty() ? kUntilSomethingHappens : kSweepMs);
        closeOverdue();
    }
    return nullptr;
}

struct HeaderCopy {
    zeb_restHeadList* list;
    bool ok;
};

MHD_Result collectHeader(void* context, MHD_ValueKind, const char* name, const char* value) {
    auto* copy = static_cast<HeaderCopy*>(context);
    if (zeb_restHeadContentAdd(copy->list, name, value != nullptr ? value : "") != 0) {
        copy->ok = false;
        return MHD_NO;
    }
    return MHD_YES;
}

char* copyString(const char* text) {
    const size_t size = strlen(text) + 1;
    char* copy = static_cast<char*>(malloc(size));
    if (copy != nullptr) {
        memcpy(copy, text, size);
    }
    return copy;
}

char* peerAddress(MHD_Connection* connection) {
    char text[INET6_ADDRSTRLEN] = "";
    const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    if (info != nullptr && info->client_addr != nullptr) {
        const sockaddr* addr = info->client_addr;
        if (addr->sa_family == AF_INET) {
            inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(addr)->sin_addr, text, sizeof(text));
        } else if (addr->sa_family == AF_INET6) {
            inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(addr)->sin6_addr, text, sizeof(text));
        }
    }
    return copyString(text);
}

// Records handed to the handler, released whatever it did to them.
struct Exchange {
    stru_REST_REQUEST request{};
    stru_REST_RESPONSE response{};

    ~Exchange() {
        free(request.ip);
        free(request.url);
        free(request.body);
        free(request.cookie);
        zeb_restHeadContentClear(request.header);
        zeb_restHeadContentDestory(request.header);
        free(response.body);
        zeb_restHeadContentClear(response.header);
        zeb_restHeadContentDestory(response.header);
    }

    bool prepare(MHD_Connection* connection, const RequestState& state) {
        request.url = copyString(state.target.c_str());
        request.ip = peerAddress(connection);
        request.header = zeb_restHeadContentCreate();
        response.header = zeb_restHeadContentCreate();
        // One byte more than received and zeroed: the handler may terminate it.
        request.body = static_cast<char*>(calloc(state.body.size() + 1, 1));
        if (request.url == nullptr || request.ip == nullptr || request.header == nullptr ||
            response.header == nullptr || request.body == nullptr) {
            return false;
        }
        memcpy(request.body, state.body.data(), state.body.size());
        request.bodyLen = state.body.size();
        HeaderCopy copy{request.header, true};
        MHD_get_connection_values(connection, MHD_HEADER_KIND, collectHeader, &copy);
        if (!copy.ok) {
            return false;
        }
        const char* cookie = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_COOKIE);
        request.cookie = copyString(cookie != nullptr ? cookie : "");
        return request.cookie != nullptr;
    }
};

bool framingHeader(const char* name) {
    // The server computes these itself from the body it sends.
    return strcasecmp(name, MHD_HTTP_HEADER_CONTENT_LENGTH) == 0 ||
           strcasecmp(name, MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0 ||
           strcasecmp(name, MHD_HTTP_HEADER_CONNECTION) == 0;
}

MHD_Result runHandler(MHD_Connection* connection, const RequestState& state) {
    Exchange exchange;
    if (!exchange.prepare(connection, state)) {
        return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
    }
    if (state.resource.handler(&exchange.request, &exchange.response) != 0) {
        return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
    }
    stru_REST_RESPONSE& out = exchange.response;
    const int status = out.status == 0 ? MHD_HTTP_OK : out.status;
    if (status < 100 || status > 999 || (out.body == nullptr && out.bodyLen > 0)) {
        return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
    }
    MHD_Response* response = MHD_create_response_from_buffer(out.bodyLen, out.body, MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
    }
    const size_t headerCount = zeb_restHeadContentCount(out.header);
    for (size_t i = 0; i < headerCount; ++i) {
        const char* name = nullptr;
        const char* value = nullptr;
        zeb_restHeadContentGet(out.header, i, &name, &value);
        if (framingHeader(name)) {
            continue;
        }
        if (MHD_add_response_header(response, name, value) != MHD_YES) {
            // A header that cannot go on the wire (line breaks, bad name) is a
            // handler fault, like a non-zero result.
            MHD_destroy_response(response);
            return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
        }
    }
    return answer(connection, static_cast<unsigned>(status), response);
}

// First call of a request: headers only. Unknown paths, refused methods and
// oversize bodies are refused, but answered only after the body is read and
// dropped: answering now and closing on unread data resets the connection,
// and the client may lose the answer (seen under emulation). The request
// timeout bounds how long a body that never ends is read.
MHD_Result startRequest(MHD_Connection* connection, const char* method, RequestState* state) {
    state->started = true;
    const std::string path = state->target.substr(0, state->target.find('?'));
    bool found = false;
    {
        Registry& reg = registry();
        std::lock_guard<std::mutex> lock(reg.mutex);
        auto it = reg.resources.find(path);
        if (it != reg.resources.end()) {
            state->resource = it->second;
            found = true;
        }
    }
    if (!found) {
        state->refusal = MHD_HTTP_NOT_FOUND;
        return MHD_YES;
    }
    const unsigned mask = state->resource.methods;
    if (mask != 0 && (mask & static_cast<unsigned>(methodBit(method))) == 0) {
        state->allow = allowedMethods(mask);
        state->refusal = MHD_HTTP_METHOD_NOT_ALLOWED;
        return MHD_YES;
    }
    const char* length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
    if (length != nullptr) {
        char* end = nullptr;
        const unsigned long long announced = strtoull(length, &end, 10);
        if (end != length && announced > TRANSPORT_SDK_MAX_BODY) {
            state->refusal = MHD_HTTP_CONTENT_TOO_LARGE;
        } else if (end != length) {
            state->body.reserve(static_cast<size_t>(announced));
        }
    }
    return MHD_YES;
}

MHD_Result onRequest(void*, MHD_Connection* connection, const char*, const char* method, const char*,
                     const char* upload, size_t* uploadSize, void** context) {
    auto* state = static_cast<RequestState*>(*context);
    if (state == nullptr) {
        return MHD_NO;  // no memory for the request: drop the connection
    }
    try {
        if (!state->started) {
            return startRequest(connection, method, state);
        }
        if (*uploadSize != 0) {
            // A refused body, and past the limit the rest, is read and dropped, never stored.
            if (state->refusal == 0 && *uploadSize > TRANSPORT_SDK_MAX_BODY - state->body.size()) {
                state->refusal = MHD_HTTP_CONTENT_TOO_LARGE;
                state->body.clear();
                state->body.shrink_to_fit();
            }
            if (state->refusal == 0) {
                state->body.append(upload, *uploadSize);
            }
            *uploadSize = 0;
            return MHD_YES;
        }
        if (state->refusal != 0) {
            return answerEmpty(connection, state->refusal, state->allow.empty() ? nullptr : state->allow.c_str());
        }
        return runHandler(connection, *state);
    } catch (...) {
        return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);
    }
}

size_t keepEscapes(void*, MHD_Connection*, char* text) {
    return strlen(text);
}

}  // namespace

extern "C" {

const char* GetSdkIP(void) {
    const char* ip = getenv("TRANSPORT_SDK_IP");
    return ip != nullptr ? ip : "";
}

int GetSdkPort(void) {
    int port = 0;
    return parsePort(getenv("TRANSPORT_SDK_PORT"), &port) ? port : 0;
}

int TransportSdkInit(void) try {
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    if (reg.daemon != nullptr) {
        return 0;
    }
    (void)watched();  // created here, so the server thread never allocates it
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    int port = 0;
    if (!parsePort(getenv("TRANSPORT_SDK_PORT"), &port) || inet_pton(AF_INET, GetSdkIP(), &addr.sin_addr) != 1) {
        return -1;
    }
    addr.sin_port = htons(static_cast<uint16_t>(port));
    // epoll: a service may hold descriptors above FD_SETSIZE, which select
    // could not watch. No internal thread: serve() drives the daemon.
    MHD_Daemon* daemon = MHD_start_daemon(
        MHD_USE_EPOLL, static_cast<uint16_t>(port), nullptr, nullptr, onRequest, nullptr,
        MHD_OPTION_SOCK_ADDR, reinterpret_cast<const sockaddr*>(&addr),
        MHD_OPTION_URI_LOG_CALLBACK, onRequestStart, nullptr,
        MHD_OPTION_NOTIFY_COMPLETED, onRequestDone, nullptr,
        MHD_OPTION_NOTIFY_CONNECTION, onConnection, nullptr,
        MHD_OPTION_UNESCAPE_CALLBACK, keepEscapes, nullptr,
        MHD_OPTION_CONNECTION_TIMEOUT, g_idleSeconds.load(),
        MHD_OPTION_CONNECTION_LIMIT, static_cast<unsigned>(TRANSPORT_SDK_MAX_CONNECTIONS),
        MHD_OPTION_PER_IP_CONNECTION_LIMIT, static_cast<unsigned>(TRANSPORT_SDK_MAX_CONNECTIONS_PER_CLIENT),
        MHD_OPTION_END);
    if (daemon == nullptr) {
        return -1;
    }
    // Default attributes, never joined: the thread serves until the process ends.
    pthread_t thread;
    if (pthread_create(&thread, nullptr, serve, daemon) != 0) {
        MHD_stop_daemon(daemon);
        return -1;
    }
    reg.daemon = daemon;
    return 0;
} catch (...) {
    return -1;  // no memory for the registry: a later call tries again
}

void transportSdkSetTimeouts(unsigned idleSeconds, unsigned requestSeconds) {
    if (idleSeconds > 0) {
        g_idleSeconds.store(idleSeconds);
    }
    if (requestSeconds > 0) {
        g_requestSeconds.store(requestSeconds);
    }
}

int RegisterUrl(const char* url, stru_REST_RESOURCE* resource) try {
    if (url == nullptr || url[0] != '/' || resource == nullptr || resource->handler == nullptr) {
        return -1;
    }
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    if (reg.daemon == nullptr) {
        return -1;
    }
    reg.resources[url] = *resource;
    return 0;
} catch (...) {
    return -1;
}

int allocRspBody(char** body, size_t size) {
    if (body == nullptr || size == 0) {
        return -1;
    }
    *body = static_cast<char*>(calloc(size, 1));
    return *body != nullptr ? 0 : -1;
}

}  // extern "C"
