// The agent's answer as it arrives: a body of any bytes read the way the
// send thread reads it (base64, then "retCode"), and the JSON reader alone.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>

#include "AlarmManagerEx.h"
#include "AlmJsonParser.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::QuietAndUnpaused();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string retCode = AlmJsonParser::GetRetCodeEx(text.c_str());
    if (retCode != "OK" && retCode != "Failed" && !retCode.empty()) {
        abort();
    }

    // A response record as the REST client hands it over; the reader frees it.
    auto* response = static_cast<stru_REST_RESPONSE*>(calloc(1, sizeof(stru_REST_RESPONSE)));
    response->status = 200;
    response->body = static_cast<char*>(malloc(size + 1));
    std::memcpy(response->body, data, size);
    response->body[size] = '\0';
    response->bodyLen = size;
    response->header = zeb_restHeadContentCreate();
    std::list<AlarmEx*> batch;
    const int settled = processRestResponse(batch, response);
    if (settled != 1 && settled != -1) {
        abort();
    }
    return 0;
}
