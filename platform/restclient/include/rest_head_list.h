/* Reading a header list. A node's REST client offers only building one
 * (rest_client.h); ours also lets its own transport SDK send the headers a
 * handler set, and tests read an answer's headers. */
#ifndef REST_HEAD_LIST_H
#define REST_HEAD_LIST_H

/* The SDK itself must run on a node's own platform library, which has none of this. */
#ifdef ALARMSDK_NODE_INTERFACE_ONLY
#error "the SDK uses only the node's platform interface"
#endif

#include "rest_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The number of pairs, and the pair at index (0 on success). */
size_t zeb_restHeadContentCount(const zeb_restHeadList* list);
int zeb_restHeadContentGet(const zeb_restHeadList* list, size_t index, const char** name, const char** value);
/* The value of the first pair whose name matches case-insensitively, or NULL. */
const char* zeb_restHeadContentFind(const zeb_restHeadList* list, const char* name);

#ifdef __cplusplus
}
#endif
#endif
