/* Transport SDK: serves REST resources of this process over HTTP.
 *
 * The server listens on TRANSPORT_SDK_IP:TRANSPORT_SDK_PORT and runs one
 * thread of its own, on which every resource handler is called.
 */
#ifndef TRANSPORT_SDK_H
#define TRANSPORT_SDK_H

#include <stddef.h>

#include "rest_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest request body the server accepts; larger ones are answered 413. */
#define TRANSPORT_SDK_MAX_BODY (1024u * 1024u)

/* Called on the server thread for each request on a registered path.
 * request->body holds request->bodyLen bytes and has room for a terminator at
 * index bodyLen. response comes with status 0, no body and an empty header
 * list; the handler sets status, body (through allocRspBody), bodyLen and
 * headers. The body is sent as bodyLen bytes exactly. A non-zero result makes
 * the server answer 500 with an empty body, whatever the handler filled in. */
typedef int (*REST_RESOURCE_HANDLER)(stru_REST_REQUEST* request, stru_REST_RESPONSE* response);

typedef struct stru_REST_RESOURCE {
    unsigned int methods;            /* bit (1 << REST_REQUEST_xxx) per accepted method; 0 = any */
    REST_RESOURCE_HANDLER handler;   /* the handler is always the second field */
} stru_REST_RESOURCE;

/* Starts the server thread. Idempotent: later calls return the first result.
 * 0 on success; non-zero when the address is not configured or cannot be bound. */
int TransportSdkInit(void);

/* The configured address, whether or not the server runs: the value of
 * TRANSPORT_SDK_IP ("" when unset) and TRANSPORT_SDK_PORT (0 when unset or invalid). */
const char* GetSdkIP(void);
int GetSdkPort(void);

/* Serves the exact path url with resource->handler. The record must outlive the
 * registration. A second registration of the same path replaces the first.
 * 0 on success; non-zero when the server is not running or an argument is NULL. */
int RegisterUrl(const char* url, stru_REST_RESOURCE* resource);

/* Allocates a zero-filled response body of size bytes into *body; the server
 * frees it after sending. 0 on success. */
int allocRspBody(char** body, size_t size);

#ifdef __cplusplus
}
#endif
#endif
