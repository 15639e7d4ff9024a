/* REST client: synchronous HTTP requests to the node's local agent, and the
 * request/response records shared with the transport SDK.
 *
 * Ownership: a request record and everything attached to it belong to the
 * caller. A response record returned by sendRequest belongs to the caller and
 * is released with freeRestResponse.
 */
#ifndef REST_CLIENT_H
#define REST_CLIENT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The library's name for the node's local agent: a request to
 * "http://" REST_LOCAL_ENDPOINT "/path" goes to the agent wherever it listens
 * (ours: rest_endpoint.h). Any other authority is used as it stands. The URL
 * itself is never rewritten, so the Host header keeps the URL's authority.
 * Proxy settings are ignored. */
#define REST_LOCAL_ENDPOINT "nodeward.local"

/* Request types accepted by sendRequest. */
#define REST_REQUEST_GET 1
#define REST_REQUEST_POST 2
#define REST_REQUEST_PUT 3
#define REST_REQUEST_DELETE 4

/* An ordered list of header name/value pairs. */
typedef struct zeb_restHeadList zeb_restHeadList;

typedef struct stru_REST_REQUEST {
    char* ip;   /* unused by this client; may be NULL */
    char* url;  /* zero-terminated absolute http URL */
    char* body; /* bodyLen bytes; the server side adds room for a terminator */
    size_t bodyLen;
    char* cookie;             /* sent as a Cookie header when non-empty */
    zeb_restHeadList* header; /* may be NULL */
} stru_REST_REQUEST;

typedef struct stru_REST_RESPONSE {
    int status; /* HTTP status */
    char* body; /* bodyLen bytes followed by a zero byte; from sendRequest always
                   allocated, "" when empty (a server handler's record: NULL
                   until it sets a body) */
    size_t bodyLen;
    zeb_restHeadList* header; /* response headers */
} stru_REST_RESPONSE;

zeb_restHeadList* zeb_restHeadContentCreate(void);
/* Appends a copy of the pair. 0 on success; non-zero for NULL arguments or no memory. */
int zeb_restHeadContentAdd(zeb_restHeadList* list, const char* name, const char* value);
/* Removes every pair; the list stays usable. */
void zeb_restHeadContentClear(zeb_restHeadList* list);
/* Releases the list itself (clear it first). */
void zeb_restHeadContentDestory(zeb_restHeadList* list);

/* Performs one request and waits for the answer, with bounded connect and
 * transfer times. endpoint: NULL or "" for the agent's usual place,
 * otherwise an endpoint (rest_endpoint.h) that overrides it for this call
 * (also for a URL with another authority: it decides where to connect).
 * requestType: REST_REQUEST_xxx; POST and PUT send bodyLen bytes of body (NULL
 * allowed when bodyLen is 0), DELETE only when bodyLen > 0, GET never.
 * Headers go out in the list's order, plus Cookie when cookie is non-empty;
 * Content-Length and Transfer-Encoding from the list are replaced by framing
 * computed from bodyLen. No "Expect" and no default Content-Type are added.
 * Returns 0 and stores a new response (any HTTP status) in *response; returns
 * non-zero on connection failure, timeout, a broken answer or an answer body
 * above REST_MAX_ANSWER_BODY (rest_client_testing.h), with *response set to
 * NULL: -1 for invalid arguments, URL or endpoint, -2 for lack of memory,
 * otherwise libcurl's error code.
 * Connections are kept alive between calls from the same thread; safe to call
 * from several threads at once. */
int sendRequest(const char* endpoint, int requestType, stru_REST_REQUEST* request, stru_REST_RESPONSE** response);

/* Releases *response and everything it holds, and sets *response to NULL. */
void freeRestResponse(stru_REST_RESPONSE** response);

#ifdef __cplusplus
}
#endif
#endif
