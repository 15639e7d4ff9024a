// One request through the platform's REST client, its answer copied out: a client of the transport SDK or the agent.
#ifndef TEST_REST_CALL_H
#define TEST_REST_CALL_H

#include <string>
#include <utility>
#include <vector>

#include "rest_client.h"

namespace testsupport {

struct RestAnswer {
    int result = -1;  // sendRequest's
    int status = 0;   // 0: no answer
    std::string body;
    std::string contentType;
};

inline RestAnswer RestCall(std::string url, std::string body, int method = REST_REQUEST_POST,
                           const char* endpoint = nullptr,
                           const std::vector<std::pair<const char*, const char*>>& headers = {}) {
    stru_REST_REQUEST request{};
    request.url = &url[0];
    request.body = body.empty() ? nullptr : &body[0];
    request.bodyLen = body.size();
    request.header = zeb_restHeadContentCreate();
    for (const auto& [name, value] : headers) {
        zeb_restHeadContentAdd(request.header, name, value);
    }
    stru_REST_RESPONSE* response = nullptr;
    RestAnswer answer;
    answer.result = sendRequest(endpoint, method, &request, &response);
    zeb_restHeadContentDestory(request.header);
    if (response != nullptr) {
        const char* type = zeb_restHeadContentFind(response->header, "Content-Type");
        answer.status = response->status;
        answer.body.assign(response->body, response->bodyLen);
        answer.contentType = type != nullptr ? type : "";
        freeRestResponse(&response);
    }
    return answer;
}

}  // namespace testsupport

#endif
