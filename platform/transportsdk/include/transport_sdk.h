/* Transport SDK: serves REST resources of this process over HTTP.
 *
 * The server listens on TRANSPORT_SDK_IP:TRANSPORT_SDK_PORT and runs one
 * thread of its own, on which every resource handler is called. The thread
 * runs until the process ends; the library stays loaded once loaded.
 */
#ifndef TRANSPORT_SDK_H
#define TRANSPORT_SDK_H

#include <stddef.h>

#include "rest_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Called on the server thread for each request on a registered path.
 * request->body holds request->bodyLen bytes and has room for a terminator at
 * index bodyLen. response comes with status 0, no body and an empty header
 * list; the handler sets status, body (through allocRspBody), bodyLen and
 * headers. The body is sent as bodyLen bytes exactly; status 0 means 200.
 * request->url is the request target as sent (path and query), request->ip
 * the client's address, request->cookie its Cookie header or "". Every record
 * is released after the answer. A non-zero result makes the server answer 500
 * with an empty body, whatever the handler filled in. */
typedef int (*REST_RESOURCE_HANDLER)(stru_REST_REQUEST* request, stru_REST_RESPONSE* response);

typedef struct stru_REST_RESOURCE {
    unsigned int methods;          /* bit (1 << REST_REQUEST_xxx) per accepted method; 0 = any */
    REST_RESOURCE_HANDLER handler; /* the handler is always the second field */
} stru_REST_RESOURCE;

/* Starts the server thread. Thread-safe and idempotent once it succeeded:
 * later calls return 0 without reading the environment again. A failed attempt
 * is not remembered, so a later call tries again with the environment then in
 * force. TRANSPORT_SDK_IP must be an IPv4 literal ("0.0.0.0" for all).
 * 0 on success; non-zero when the address is not configured or cannot be bound. */
int TransportSdkInit(void);

/* The configured address, whether or not the server runs: the value of
 * TRANSPORT_SDK_IP ("" when unset) and TRANSPORT_SDK_PORT (0 when unset or invalid). */
const char* GetSdkIP(void);
int GetSdkPort(void);

/* Serves the exact path url (as sent, without percent-decoding; any query is
 * ignored for matching) with resource->handler. The record's fields are copied:
 * a change to the record takes effect by registering again. A second
 * registration of the same path replaces the first. Safe while requests are
 * served, also from inside a handler.
 * The server answers 404 for an unregistered path, 405 for a method outside
 * resource->methods, 413 for a body above its limit (ours:
 * TRANSPORT_SDK_MAX_BODY, transport_sdk_testing.h).
 * 0 on success; non-zero when the server is not running, an argument or the
 * handler is NULL, or url does not start with '/'. */
int RegisterUrl(const char* url, stru_REST_RESOURCE* resource);

/* Allocates a zero-filled response body of size bytes (malloc family) into
 * *body; the server frees it after sending. 0 on success; non-zero for a NULL
 * body pointer, size 0 or no memory. */
int allocRspBody(char** body, size_t size);

#ifdef __cplusplus
}
#endif
#endif
