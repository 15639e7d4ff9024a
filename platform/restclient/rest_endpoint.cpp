// The endpoint grammar. Only plain C calls: every entry is callable from C.
#include "rest_endpoint.h"

#include <string.h>

namespace {

// Characters that would end or redirect a URL authority, or split a line.
bool validHost(const char* host, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(host[i]);
        if (c <= ' ' || c == '/' || c == '@' || c == '?' || c == '#' || c == 0x7f) {
            return false;
        }
    }
    return true;
}

// "1" to "65535" (leading zeros allowed, five digits at most); -1 otherwise.
long portNumber(const char* digits) {
    const size_t length = strlen(digits);
    if (length == 0 || length > 5 || strspn(digits, "0123456789") != length) {
        return -1;
    }
    long value = 0;
    for (const char* d = digits; *d != '\0'; ++d) {
        value = value * 10 + (*d - '0');
    }
    return value <= 65535 ? value : -1;
}

}  // namespace

extern "C" const char* restParseEndpoint(const char* text, unsigned flags, rest_endpoint* out) {
    if (text == nullptr || out == nullptr || *text == '\0') {
        return "no endpoint given";
    }
    memset(out, 0, sizeof(*out));
    static const char kUnix[] = "unix:";
    if (strncmp(text, kUnix, sizeof(kUnix) - 1) == 0) {
        const char* path = text + sizeof(kUnix) - 1;
        const size_t length = strlen(path);
        if (length == 0) {
            return "unix: needs a socket path";
        }
        if (length >= sizeof(out->path)) {
            return "socket path longer than 107 bytes";
        }
        out->isUnix = 1;
        memcpy(out->path, path, length + 1);
        return nullptr;
    }
    const char* host = text;
    size_t hostLength = 0;
    const char* colon = nullptr;
    if (*text == '[') {
        const char* close = strchr(text, ']');
        if (close == nullptr || close[1] != ':') {
            return "want [IPV6]:PORT";
        }
        host = text + 1;
        hostLength = static_cast<size_t>(close - host);
        colon = close + 1;
        if (memchr(host, ':', hostLength) == nullptr) {
            return "brackets hold an IPv6 address";
        }
    } else {
        colon = strchr(text, ':');
        if (colon == nullptr) {
            return "no port: want HOST:PORT or unix:PATH";
        }
        if (strchr(colon + 1, ':') != nullptr) {
            return "an IPv6 address goes in brackets: [IPV6]:PORT";
        }
        hostLength = static_cast<size_t>(colon - text);
    }
    if (hostLength == 0) {
        return "no host before the port";
    }
    if (hostLength >= sizeof(out->host)) {
        return "host longer than 255 characters";
    }
    if (!validHost(host, hostLength)) {
        return "host holds a space, control character or one of / @ ? #";
    }
    const long port = portNumber(colon + 1);
    if (port < 0) {
        return "port is not a number from 1 to 65535";
    }
    if (port == 0 && (flags & REST_ENDPOINT_LISTEN) == 0) {
        return "port 0 is no agent's port";
    }
    memcpy(out->host, host, hostLength);
    out->port = static_cast<int>(port);
    return nullptr;
}
