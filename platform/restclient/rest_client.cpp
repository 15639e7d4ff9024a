// REST client over libcurl.
//
// Where a request connects:
//   - URL authority REST_LOCAL_ENDPOINT (any port): the endpoint argument when
//     non-empty, else $NODEWARD_ENDPOINT (REST_AGENT_ENDPOINT_ENV) when
//     non-empty (read on every call), else REST_DEFAULT_AGENT_ENDPOINT.
//   - any other authority: the URL as it stands, unless the endpoint argument is
//     non-empty, which then still decides where to connect.
// An endpoint is read by restParseEndpoint (rest_endpoint.cpp). The URL is
// never rewritten: a TCP endpoint is applied with CURLOPT_CONNECT_TO and a unix
// socket with CURLOPT_UNIX_SOCKET_PATH, so the Host header keeps the URL's
// authority. Proxies from the environment are ignored: the agent is always
// reached directly.
//
// Each thread keeps one easy handle (and so its live connections) for its
// whole life; the handle is released when the thread ends.
//
// Results of sendRequest: 0 success; -1 invalid arguments, URL or endpoint;
// -2 no memory; otherwise the libcurl error code of the failed transfer (always
// positive: an over-long answer header ends the transfer with CURLE_WRITE_ERROR).
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <curl/curl.h>

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "rest_client_testing.h"
#include "rest_endpoint.h"
#include "rest_head_list.h"
#include "runlog.h"

namespace {

// Real agent answers are a few dozen bytes; nothing larger is ever held.
constexpr size_t kMaxResponseBody = REST_MAX_ANSWER_BODY;
// All response header lines together; a sane agent sends a few hundred bytes.
constexpr size_t kMaxResponseHeaders = 256u * 1024u;

std::atomic<long> g_connectTimeoutMs{3000};
std::atomic<long> g_totalTimeoutMs{10000};

std::once_flag g_initOnce;
CURLcode g_globalInit = CURLE_FAILED_INIT;
bool g_haveKey = false;
pthread_key_t g_handleKey;

void releaseThreadHandle(void* handle) { curl_easy_cleanup(static_cast<CURL*>(handle)); }

void initOnce() {
    // curl_global_cleanup is never called: other threads may still be in
    // sendRequest while the process exits.
    g_globalInit = curl_global_init(CURL_GLOBAL_DEFAULT);
    g_haveKey = pthread_key_create(&g_handleKey, releaseThreadHandle) == 0;
}

// Done when the library is loaded, on the loading thread, so the TLS
// library's global state is set up (and its exit-time cleanup registered)
// before any thread sends; sendRequest still makes sure of it.
__attribute__((constructor)) void initAtLoad() { std::call_once(g_initOnce, initOnce); }

// The calling thread's handle, created on first use. *temporary is set when it
// could not be attached to the thread and must be cleaned up by the caller.
CURL* acquireHandle(bool* temporary) {
    *temporary = false;
    if (g_haveKey) {
        CURL* handle = static_cast<CURL*>(pthread_getspecific(g_handleKey));
        if (handle != nullptr) {
            // Options go back to defaults; the connection cache stays.
            curl_easy_reset(handle);
            return handle;
        }
    }
    CURL* handle = curl_easy_init();
    if (handle == nullptr) {
        return nullptr;
    }
    if (!g_haveKey || pthread_setspecific(g_handleKey, handle) != 0) {
        *temporary = true;
    }
    return handle;
}

struct Target {
    bool unixSocket = false;
    std::string unixPath;
    std::string connectTo;  // CURLOPT_CONNECT_TO entry for a TCP endpoint
};

// A refused endpoint is logged with the reason: the caller only sees -1.
bool parseEndpoint(const char* endpoint, Target* target) {
    rest_endpoint parsed;
    if (const char* why = restParseEndpoint(endpoint, 0, &parsed)) {
        Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, "rest_client", __LINE__, "sendRequest, agent endpoint \"%s\" refused: %s",
                         endpoint, why);
        return false;
    }
    target->unixSocket = parsed.isUnix != 0;
    if (target->unixSocket) {
        target->unixPath = parsed.path;
        return true;
    }
    const std::string host(parsed.host);
    const bool v6 = host.find(':') != std::string::npos;
    // Empty source host and port: applies to whatever the URL names.
    target->connectTo = "::" + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(parsed.port);
    return true;
}

// Checks that url is an absolute http URL and reports whether its host is the
// agent's local name.
bool inspectUrl(const char* url, bool* local) {
    static const char kScheme[] = "http://";
    if (strncasecmp(url, kScheme, sizeof(kScheme) - 1) != 0) {
        return false;
    }
    const char* authority = url + sizeof(kScheme) - 1;
    const size_t authorityLen = strcspn(authority, "/?#");
    std::string hostPort(authority, authorityLen);
    const size_t at = hostPort.rfind('@');
    if (at != std::string::npos) {
        hostPort.erase(0, at + 1);
    }
    std::string host;
    if (!hostPort.empty() && hostPort[0] == '[') {
        const size_t close = hostPort.find(']');
        if (close == std::string::npos) {
            return false;
        }
        host = hostPort.substr(0, close + 1);
    } else {
        host = hostPort.substr(0, hostPort.find(':'));
    }
    if (host.empty()) {
        return false;
    }
    *local = strcasecmp(host.c_str(), REST_LOCAL_ENDPOINT) == 0;
    return true;
}

bool hasLineBreak(const char* text) { return strpbrk(text, "\r\n") != nullptr; }

bool validHeaderName(const char* name) {
    if (*name == '\0') {
        return false;
    }
    for (const char* p = name; *p != '\0'; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c <= ' ' || c == ':' || c == ';' || c >= 0x7f) {
            return false;
        }
    }
    return true;
}

struct SlistGuard {
    curl_slist* list = nullptr;
    ~SlistGuard() { curl_slist_free_all(list); }
    bool append(const std::string& line) {
        curl_slist* next = curl_slist_append(list, line.c_str());
        if (next == nullptr) {
            return false;
        }
        list = next;
        return true;
    }
};

// Builds the request header lines: the caller's list in order (framing headers
// excepted), and blanks for the headers libcurl would otherwise add on its own.
int buildHeaders(const zeb_restHeadList* headers, SlistGuard* out) {
    bool haveContentType = false;
    const size_t count = zeb_restHeadContentCount(headers);
    for (size_t i = 0; i < count; ++i) {
        const char* name = nullptr;
        const char* value = nullptr;
        if (zeb_restHeadContentGet(headers, i, &name, &value) != 0) {
            return -2;
        }
        if (!validHeaderName(name) || hasLineBreak(value)) {
            return -1;
        }
        if (strcasecmp(name, "Content-Length") == 0 || strcasecmp(name, "Transfer-Encoding") == 0) {
            // libcurl frames the body from bodyLen; a caller's copy could only disagree.
            continue;
        }
        if (strcasecmp(name, "Content-Type") == 0) {
            haveContentType = true;
        }
        // "Name;" is libcurl's spelling of a header with an empty value.
        const std::string line = *value == '\0' ? std::string(name) + ";" : std::string(name) + ": " + value;
        if (!out->append(line)) {
            return -2;
        }
    }
    if (!out->append("Expect:")) {
        return -2;
    }
    if (!haveContentType && !out->append("Content-Type:")) {
        return -2;
    }
    return 0;
}

struct Collected {
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    size_t headerBytes = 0;
    bool tooLarge = false;
    bool noMemory = false;
};

size_t onBody(char* data, size_t size, size_t count, void* userdata) {
    auto* collected = static_cast<Collected*>(userdata);
    const size_t bytes = size * count;
    if (bytes > kMaxResponseBody - collected->body.size()) {
        collected->tooLarge = true;
        return 0;
    }
    try {
        collected->body.append(data, bytes);
    } catch (...) {
        collected->noMemory = true;
        return 0;
    }
    return bytes;
}

std::string trimmed(const char* begin, const char* end) {
    while (begin < end && (*begin == ' ' || *begin == '\t')) {
        ++begin;
    }
    while (end > begin && (end[-1] == ' ' || end[-1] == '\t' || end[-1] == '\r' || end[-1] == '\n')) {
        --end;
    }
    return std::string(begin, end);
}

size_t onHeader(char* data, size_t size, size_t count, void* userdata) {
    auto* collected = static_cast<Collected*>(userdata);
    const size_t bytes = size * count;
    collected->headerBytes += bytes;
    if (collected->headerBytes > kMaxResponseHeaders) {
        collected->tooLarge = true;
        return 0;
    }
    const char* end = data + bytes;
    try {
        if (bytes >= 5 && memcmp(data, "HTTP/", 5) == 0) {
            // A new status line: headers of an interim (1xx) answer are dropped.
            collected->headers.clear();
            return bytes;
        }
        if ((data[0] == ' ' || data[0] == '\t') && !collected->headers.empty()) {
            // Obsolete line folding: continues the previous value.
            const std::string more = trimmed(data, end);
            if (!more.empty()) {
                auto& value = collected->headers.back().second;
                value += value.empty() ? more : " " + more;
            }
            return bytes;
        }
        const char* colon = static_cast<const char*>(memchr(data, ':', bytes));
        if (colon == nullptr) {
            return bytes;  // the blank line that ends the header block
        }
        std::string name = trimmed(data, colon);
        if (!name.empty()) {
            collected->headers.emplace_back(std::move(name), trimmed(colon + 1, end));
        }
    } catch (...) {
        collected->noMemory = true;
        return 0;
    }
    return bytes;
}

int setMethod(CURL* handle, int requestType, const stru_REST_REQUEST* request) {
    static const char kEmpty[] = "";
    const char* body = request->body != nullptr ? request->body : kEmpty;
    const bool sendBody = requestType == REST_REQUEST_POST || requestType == REST_REQUEST_PUT ||
                          (requestType == REST_REQUEST_DELETE && request->bodyLen > 0);
    switch (requestType) {
        case REST_REQUEST_GET:
            curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
            break;
        case REST_REQUEST_POST:
            break;
        case REST_REQUEST_PUT:
            curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, "PUT");
            break;
        case REST_REQUEST_DELETE:
            curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, "DELETE");
            break;
        default:
            return -1;
    }
    if (sendBody) {
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request->bodyLen));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body);
    }
    return 0;
}

void applyCommonOptions(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, g_connectTimeoutMs.load());
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, g_totalTimeoutMs.load());
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http");
#else
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP));
#endif
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxResponseBody));
}

void freeHeaderList(zeb_restHeadList* list) {
    zeb_restHeadContentClear(list);
    zeb_restHeadContentDestory(list);
}

int buildResponse(long status, const Collected& collected, stru_REST_RESPONSE** response) {
    auto* record = static_cast<stru_REST_RESPONSE*>(calloc(1, sizeof(stru_REST_RESPONSE)));
    if (record == nullptr) {
        return -2;
    }
    record->status = static_cast<int>(status);
    record->bodyLen = collected.body.size();
    // Always allocated, even when empty, so readers can treat it as a C string.
    record->body = static_cast<char*>(malloc(collected.body.size() + 1));
    record->header = zeb_restHeadContentCreate();
    bool ok = record->body != nullptr && record->header != nullptr;
    if (ok) {
        memcpy(record->body, collected.body.data(), collected.body.size());
        record->body[collected.body.size()] = '\0';
        for (const auto& header : collected.headers) {
            if (zeb_restHeadContentAdd(record->header, header.first.c_str(), header.second.c_str()) != 0) {
                ok = false;
                break;
            }
        }
    }
    if (!ok) {
        freeRestResponse(&record);
        return -2;
    }
    *response = record;
    return 0;
}

int perform(CURL* handle, const char* endpoint, int requestType, stru_REST_REQUEST* request,
            stru_REST_RESPONSE** response) {
    bool local = false;
    if (!inspectUrl(request->url, &local)) {
        return -1;
    }
    const char* connectTo = nullptr;
    if (endpoint != nullptr && *endpoint != '\0') {
        connectTo = endpoint;
    } else if (local) {
        const char* fromEnv = getenv(REST_AGENT_ENDPOINT_ENV);
        connectTo = fromEnv != nullptr && *fromEnv != '\0' ? fromEnv : REST_DEFAULT_AGENT_ENDPOINT;
    }
    Target target;
    if (connectTo != nullptr && !parseEndpoint(connectTo, &target)) {
        return -1;
    }
    if (request->cookie != nullptr && hasLineBreak(request->cookie)) {
        return -1;
    }

    SlistGuard headerLines;
    const int headerResult = buildHeaders(request->header, &headerLines);
    if (headerResult != 0) {
        return headerResult;
    }
    SlistGuard connectToList;
    if (connectTo != nullptr && !target.unixSocket && !connectToList.append(target.connectTo)) {
        return -2;
    }

    applyCommonOptions(handle);
    curl_easy_setopt(handle, CURLOPT_URL, request->url);
    if (connectTo != nullptr) {
        if (target.unixSocket) {
            curl_easy_setopt(handle, CURLOPT_UNIX_SOCKET_PATH, target.unixPath.c_str());
        } else {
            curl_easy_setopt(handle, CURLOPT_CONNECT_TO, connectToList.list);
        }
    }
    if (setMethod(handle, requestType, request) != 0) {
        return -1;
    }
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headerLines.list);
    if (request->cookie != nullptr && *request->cookie != '\0') {
        curl_easy_setopt(handle, CURLOPT_COOKIE, request->cookie);
    }
    Collected collected;
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &collected);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &collected);

    const CURLcode result = curl_easy_perform(handle);
    // The lists above die with this call; the handle must not keep pointers.
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(handle, CURLOPT_CONNECT_TO, nullptr);
    if (result != CURLE_OK) {
        return collected.noMemory ? -2 : static_cast<int>(result);
    }
    long status = 0;
    if (curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status < 100 || status > 999) {
        return static_cast<int>(CURLE_WEIRD_SERVER_REPLY);
    }
    return buildResponse(status, collected, response);
}

}  // namespace

extern "C" {

int sendRequest(const char* endpoint, int requestType, stru_REST_REQUEST* request, stru_REST_RESPONSE** response) {
    if (response == nullptr) {
        return -1;
    }
    *response = nullptr;
    if (request == nullptr || request->url == nullptr || (request->body == nullptr && request->bodyLen > 0)) {
        return -1;
    }
    std::call_once(g_initOnce, initOnce);
    if (g_globalInit != CURLE_OK) {
        return static_cast<int>(g_globalInit);
    }
    bool temporary = false;
    CURL* handle = acquireHandle(&temporary);
    if (handle == nullptr) {
        return -2;
    }
    int result;
    try {
        result = perform(handle, endpoint, requestType, request, response);
    } catch (...) {
        result = -2;  // std::string allocation failures
    }
    if (temporary) {
        curl_easy_cleanup(handle);
    }
    return result;
}

void freeRestResponse(stru_REST_RESPONSE** response) {
    if (response == nullptr || *response == nullptr) {
        return;
    }
    stru_REST_RESPONSE* record = *response;
    free(record->body);
    if (record->header != nullptr) {
        freeHeaderList(record->header);
    }
    free(record);
    *response = nullptr;
}

void restClientSetTimeouts(long connectMs, long totalMs) {
    if (connectMs > 0) {
        g_connectTimeoutMs.store(connectMs);
    }
    if (totalMs > 0) {
        g_totalTimeoutMs.store(totalMs);
    }
}

}  // extern "C"
