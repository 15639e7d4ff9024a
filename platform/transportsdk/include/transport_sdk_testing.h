/* What our transport SDK offers beyond the node's interface: its limits, as
 * numbers tests check, and a setter for its timeouts. A node's own transport
 * SDK has none of it, so the library never uses it. */
#ifndef TRANSPORT_SDK_TESTING_H
#define TRANSPORT_SDK_TESTING_H

/* The SDK itself must run on a node's own platform library, which has none of this. */
#ifdef ALARMSDK_NODE_INTERFACE_ONLY
#error "the SDK uses only the node's platform interface"
#endif

#include "transport_sdk.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest request body the server accepts; larger ones are answered 413. */
#define TRANSPORT_SDK_MAX_BODY (1024u * 1024u)

/* What a client can make the server hold. At most TRANSPORT_SDK_MAX_CONNECTIONS
 * connections are open at once, and at most
 * TRANSPORT_SDK_MAX_CONNECTIONS_PER_CLIENT from one client address; a
 * connection beyond either is closed as soon as it is accepted. A connection
 * that sends nothing for TRANSPORT_SDK_IDLE_TIMEOUT seconds is closed, and so
 * is one whose request is not complete TRANSPORT_SDK_REQUEST_TIMEOUT seconds
 * after the connection opened or its previous request ended, however slowly
 * it keeps sending. So a server uses at most 64 descriptors for clients, well
 * inside a service's usual budget of 1024. */
#define TRANSPORT_SDK_MAX_CONNECTIONS 64
#define TRANSPORT_SDK_MAX_CONNECTIONS_PER_CLIENT 8
#define TRANSPORT_SDK_IDLE_TIMEOUT 5
#define TRANSPORT_SDK_REQUEST_TIMEOUT 10

/* Shorter (or longer) idle and request timeouts in seconds for a server
 * started afterwards; 0 keeps the current value. */
void transportSdkSetTimeouts(unsigned idleSeconds, unsigned requestSeconds);

#ifdef __cplusplus
}
#endif
#endif
