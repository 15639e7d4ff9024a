#include "AlarmSendLoop.h"

#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "AlmRukInterface.h"
#include "Base64.h"

namespace alarmsdk {

namespace {

#define SEND_LOG(level, ...) Runlog_TextAdapt(level, profile.logSource, __LINE__, __VA_ARGS__)

// Room for the base64 text of length bytes and a terminator; at least twice
// the length, as the agent protocol has always sized it.
std::size_t EncodedCapacity(std::size_t length) {
    std::size_t needed = 4 * ((length + 2) / 3) + 1;
    return 2 * length > needed ? 2 * length : needed;
}

}  // namespace

char* NewBuffer(const SendProfile& profile, std::size_t size) {
    if (profile.mallocBuffers) {
        return static_cast<char*>(std::calloc(size, 1));
    }
    return new (std::nothrow) char[size]();
}

void FreeBuffer(const SendProfile& profile, char* buffer) {
    if (profile.mallocBuffers) {
        std::free(buffer);
    } else {
        delete[] buffer;
    }
}

int EncodeDocument(const SendProfile& profile, char*& document, char*& encoded, int& encodedLength) {
    if (document == nullptr || document[0] == '\0') {
        SEND_LOG(RUNLOG_LEVEL_ERROR, "The response body is empty!");
        cJSON_free(document);
        document = nullptr;
        return -1;
    }
    const std::size_t documentLength = std::strlen(document);
    encoded = NewBuffer(profile, EncodedCapacity(documentLength));
    if (encoded == nullptr) {
        SEND_LOG(RUNLOG_LEVEL_ERROR, "%s", profile.allocFailure);
        cJSON_free(document);
        document = nullptr;
        return -1;
    }
    unsigned int written = 0;
    encodedLength = zeb_alm_base64_encode(document, static_cast<int>(documentLength), encoded, &written);
    if (encodedLength == -1) {
        // Sent all the same: the agent's answer decides what happens to the batch.
        SEND_LOG(RUNLOG_LEVEL_ERROR, "encode response body error");
    }
    return 0;
}

stru_REST_RESPONSE* PostDocument(const SendProfile& profile, char* document, char* encoded) {
    stru_REST_RESPONSE* response =
        AlmRukInterface::SendRestRequest(encoded, encoded != nullptr ? std::strlen(encoded) : 0);
    if (document == nullptr) {
        SEND_LOG(RUNLOG_LEVEL_ERROR, "In %s, bodyStr is null!", profile.threadFunction);
    } else {
        cJSON_free(document);
    }
    if (encoded == nullptr) {
        SEND_LOG(RUNLOG_LEVEL_ERROR, "In %s, bodyEncode is null!", profile.threadFunction);
    } else {
        FreeBuffer(profile, encoded);
    }
    return response;
}

AgentVerdict JudgeAnswer(const SendProfile& profile, stru_REST_RESPONSE* response) {
    if (response == nullptr) {
        SEND_LOG(RUNLOG_LEVEL_ERROR, "Nodeward pResponse is NULL.");
        Pause(kRetryPauseSeconds);
        return AgentVerdict::Retry;
    }
    if (response->status != 200) {
        // The status alone does not decide: the answer's document does.
        SEND_LOG(RUNLOG_LEVEL_ERROR, "Nodeward response retCode is %d ", response->status);
    }
    if (response->body == nullptr || response->body[0] == '\0') {
        freeRestResponse(&response);
        SEND_LOG(RUNLOG_LEVEL_ERROR, "Nodeward response body is NULL");
        Pause(kRetryPauseSeconds);
        return AgentVerdict::Retry;
    }
    if (profile.logAnswerBody) {
        SEND_LOG(RUNLOG_LEVEL_INFO, "Nodeward response body is %s", response->body);
    }
    const std::size_t bodyLength = std::strlen(response->body);
    // One byte more than the text, so the decoded answer is always terminated.
    char* decoded = NewBuffer(profile, bodyLength + 1);
    if (decoded == nullptr) {
        freeRestResponse(&response);
        SEND_LOG(RUNLOG_LEVEL_ERROR, "%s", profile.allocFailure);
        return AgentVerdict::Abandoned;
    }
    if (zeb_alm_base64_decode(response->body, static_cast<int>(bodyLength), decoded, nullptr) != 0) {
        SEND_LOG(RUNLOG_LEVEL_ERROR, "encode response body error");
    }
    SEND_LOG(RUNLOG_LEVEL_INFO, "response is %s", decoded);
    const std::string retCode = profile.readRetCode(decoded);
    freeRestResponse(&response);
    FreeBuffer(profile, decoded);
    if (retCode != "OK") {
        Pause(kRetryPauseSeconds);
        return AgentVerdict::Retry;
    }
    SEND_LOG(profile.successLevel, "%s", profile.successText);
    return AgentVerdict::Accepted;
}

}  // namespace alarmsdk
