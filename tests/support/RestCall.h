// One request through the platform's REST client, its answer copied out: a client of the transport SDK or the agent.
#ifndef TEST_REST_CALL_H
#define TEST_REST_CALL_H

#include <string>
#include <utility>
#include <vector>

#include "rest_head_list.h"

namespace testsupport {

struct RestAnswer {
    int result = -1;  // sendRequest's
    int status = 0;   // 0: no answer
    std::string body;
    std::string contentType;
};

// A request record over its own url, body and (empty) header list.
struct RestRequest {
    explicit RestRequest(std::string u, std::string b = "") : url(std::move(u)), body(std::move(b)) {
        rec.url = &url[0];
        rec.body = body.empty() ? nullptr : &body[0];
        rec.bodyLen = body.size();
        rec.header = zeb_restHeadContentCreate();
    }
    ~RestRequest() { zeb_restHeadContentDestory(rec.header); }
    RestRequest(const RestRequest&) = delete;
    RestRequest& operator=(const RestRequest&) = delete;
    std::string url, body;
    stru_REST_REQUEST rec{};
};

inline RestAnswer RestCall(std::string url, std::string body, int method = REST_REQUEST_POST,
                           const char* endpoint = nullptr,
                           const std::vector<std::pair<const char*, const char*>>& headers = {}) {
    RestRequest request(std::move(url), std::move(body));
    for (const auto& [name, value] : headers) {
        zeb_restHeadContentAdd(request.rec.header, name, value);
    }
    stru_REST_RESPONSE* response = nullptr;
    RestAnswer answer;
    answer.result = sendRequest(endpoint, method, &request.rec, &response);
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
