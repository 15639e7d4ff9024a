// An alarm-check request of any bytes, handled as the transport hands it
// over and then delivered as the alarm-check thread does: every request is
// either refused or answered with the fixed document, and the queue stays
// within its bounds.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "AlarmManagerEx.h"
#include "FuzzSupport.h"

namespace {
const char kAnswer[] = "eyJyZXRDb2RlIjogIjAiLCJyZXREZXNjIjogInN1Y2Nlc3MifQ==";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::QuietAndUnpaused();
    // Checks naming "orders" find a manager; its callback stays unset.
    AlarmManagerEx::RouteAlarmChecks("orders", AlarmManagerEx::getInstance());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    stru_REST_REQUEST request{};
    request.body = static_cast<char*>(malloc(size + 1));  // room for the terminator, as the transport gives
    std::memcpy(request.body, data, size);
    request.bodyLen = size;
    stru_REST_RESPONSE response{};
    response.header = zeb_restHeadContentCreate();

    if (AlarmManagerEx::ProcessAlarmCheckInterface(&request, &response) == 0 &&
        (response.status != 200 || response.bodyLen != sizeof(kAnswer) ||
         std::memcmp(response.body, kAnswer, sizeof(kAnswer)) != 0)) {
        abort();
    }
    if (AlarmManagerEx::pendingAlarmCheckCount() > AlarmManagerEx::kCheckQueueCapacity) {
        abort();
    }
    while (AlarmManagerEx::DeliverNextAlarmCheck()) {
    }
    free(request.body);
    free(response.body);
    zeb_restHeadContentClear(response.header);
    zeb_restHeadContentDestory(response.header);
    return 0;
}
