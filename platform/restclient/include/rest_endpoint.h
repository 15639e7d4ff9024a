/* Where the agent listens, in the one form our REST client ($NODEWARD_ENDPOINT
 * and sendRequest's endpoint argument) and the programs (alarm-send --agent,
 * nodeward-sim --listen) all accept:
 *
 *   HOST:PORT     a host name or IPv4 address, PORT 1 to 65535 in decimal
 *   [IPV6]:PORT   an IPv6 address in brackets (a bare one is ambiguous)
 *   unix:PATH     a unix-domain socket, PATH 1 to 107 bytes
 *
 * Port 0 is nobody's address: only a listener may give it, meaning any free
 * port. A node's own REST client knows its agent's place itself; this form
 * is ours. */
#ifndef REST_ENDPOINT_H
#define REST_ENDPOINT_H

/* The SDK itself must run on a node's own platform library, which has none of this. */
#ifdef ALARMSDK_NODE_INTERFACE_ONLY
#error "the SDK uses only the node's platform interface"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The variable our REST client reads, on every request, for where
 * REST_LOCAL_ENDPOINT leads, and the place it uses while that is unset or "". */
#define REST_AGENT_ENDPOINT_ENV "NODEWARD_ENDPOINT"
#define REST_DEFAULT_AGENT_ENDPOINT "127.0.0.1:7888"

#define REST_ENDPOINT_HOST_SIZE 256 /* a host of at most 255 characters */
#define REST_ENDPOINT_PATH_SIZE 108 /* the room of a unix socket address */

typedef struct rest_endpoint {
    int isUnix;                         /* 1: path is set; 0: host and port are */
    char host[REST_ENDPOINT_HOST_SIZE]; /* an IPv6 address without its brackets */
    int port;
    char path[REST_ENDPOINT_PATH_SIZE];
} rest_endpoint;

/* flags for restParseEndpoint */
#define REST_ENDPOINT_LISTEN 1u /* port 0 allowed: any free port */

/* Parses text into *out. NULL on success; otherwise why text is not an
 * endpoint, a fixed English phrase ("port 0 is no agent's port", ...), with
 * *out unspecified. */
const char* restParseEndpoint(const char* text, unsigned flags, rest_endpoint* out);

#ifdef __cplusplus
}
#endif
#endif
