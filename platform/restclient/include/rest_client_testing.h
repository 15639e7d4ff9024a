/* What our REST client offers beyond the node's interface, for tests: its
 * answer limit and a setter for its timeouts. A node's own REST client has
 * neither, so the library never uses them. */
#ifndef REST_CLIENT_TESTING_H
#define REST_CLIENT_TESTING_H

/* The SDK itself must run on a node's own platform library, which has none of this. */
#ifdef ALARMSDK_NODE_INTERFACE_ONLY
#error "the SDK uses only the node's platform interface"
#endif

#include "rest_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest answer body sendRequest accepts (64 KiB): the agent's answers are a
 * few dozen bytes, so a longer one, announced or chunked, fails the request
 * and never holds more than this in memory. */
#define REST_MAX_ANSWER_BODY (64u * 1024u)

/* Connect and whole-transfer limits in milliseconds (defaults 3000 and 10000);
 * a value <= 0 keeps the current one. Affects later requests of every thread. */
void restClientSetTimeouts(long connectMs, long totalMs);

#ifdef __cplusplus
}
#endif
#endif
