// The send thread both generations run, top to bottom: take a batch of up to
// 50 from the manager's queue, build its document, base64 it, post it to the
// agent, read the answer, and send the same batch again after a pause until
// the agent accepts it. A generation is described once, beside its manager,
// as a Generation<Item>; nothing here calls back into a manager.
#ifndef ALARM_SEND_LOOP_H
#define ALARM_SEND_LOOP_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <list>
#include <new>
#include <string>

#include "AlarmConfig.h"
#include "AlarmQueue.h"
#include "AlmRukInterface.h"
#include "Base64.h"
#include "NoThrow.h"
#include "Pause.h"
#include "rest_client.h"
#include "runlog.h"

namespace alarmsdk {

// Where the request and answer buffers come from.
enum class Buffers { NewArray, Malloc };

// What one generation delivers and how it speaks of it.
template <typename Item> struct Generation {
    const char* logSource;       // the manager's source file, for every line logged here
    const char* threadFunction;  // named in "In %s, bodyStr is null!" and "In %s, bodyEncode is null!"
    // The push document of a batch (released with cJSON_free), NULL when it cannot be built.
    char* (*buildDocument)(const std::list<Item*>& batch);
    Buffers buffers;
    const char* allocFailure;  // logged when a buffer cannot be had
    bool logAnswerBody;        // log "Nodeward response body is %s" before decoding
    // The verdict in the decoded answer: "OK" accepts the batch.
    std::string (*readRetCode)(const char* answer);
    int successLevel;  // level and text of the line for an accepted batch
    const char* successText;
    // Frees the items of an accepted batch and empties it.
    void (*deleteBatch)(std::list<Item*>& batch);
};

enum class AgentVerdict {
    Accepted,   // "OK": the batch has been deleted
    Abandoned,  // the answer could not even be read (no memory): the batch is dropped and freed, never resent
    Retry,      // anything else: the pause has been taken, send the same batch again
};

template <typename Item>
void SendPass(const Generation<Item>& generation, AlarmQueue<Item>& queue, std::list<Item*>& batch);
template <typename Item> int BuildRequest(const Generation<Item>& generation, const std::list<Item*>& batch,
                                          char*& document, char*& encoded, int& encodedLength);
template <typename Item>
stru_REST_RESPONSE* PostRequest(const Generation<Item>& generation, char* document, char* encoded);
template <typename Item>
AgentVerdict Settle(const Generation<Item>& generation, std::list<Item*>& batch, stru_REST_RESPONSE* answer);

// The body of a send thread; never returns. The same batch goes out until
// the agent settles it; nothing is dropped or reordered meanwhile, also when
// a pass fails for lack of memory: the batch outlives the pass and is sent
// again after the retry pause.
template <typename Item> void RunSendLoop(const Generation<Item>& generation, AlarmQueue<Item>& queue) {
    std::list<Item*> batch;
    const CallSite site{generation.logSource, __LINE__, generation.threadFunction};
    for (;;) {
        const bool passed = NoThrow(site, false, [&] {
            SendPass(generation, queue, batch);
            return true;
        });
        if (!passed) {
            Pause(kRetryPauseSeconds);
        }
    }
}

// One attempt: takes a batch when it holds none (waiting on the queue when
// there is nothing to send), posts it once, and tells the queue's counters
// how it ended. A batch that cannot be built is built again by the next
// pass, at once.
template <typename Item>
void SendPass(const Generation<Item>& generation, AlarmQueue<Item>& queue, std::list<Item*>& batch) {
    if (batch.empty()) {
        queue.takeBatch(batch);
        if (batch.empty()) {
            IdleWait(kIdlePollSeconds, queue);
            return;
        }
    }
    char* document = nullptr;
    char* encoded = nullptr;
    int encodedLength = 0;
    if (BuildRequest(generation, batch, document, encoded, encodedLength) != 0) {
        return;
    }
    const std::size_t size = batch.size();
    const AgentVerdict verdict = Settle(generation, batch, PostRequest(generation, document, encoded));
    if (verdict == AgentVerdict::Retry) {
        queue.counters().noteRetry();
        return;
    }
    queue.counters().noteSettled(size, verdict == AgentVerdict::Accepted, static_cast<int64_t>(ALM_GetCurrMs()));
    if (verdict == AgentVerdict::Abandoned) {
        generation.deleteBatch(batch);  // dropped, never resent: freed here
    }
}

#define ALARMSDK_SEND_LOG(level, ...) Runlog_TextAdapt(level, generation.logSource, __LINE__, __VA_ARGS__)

// A zeroed buffer of size bytes, NULL on failure.
inline char* NewBuffer(Buffers buffers, std::size_t size) {
    if (buffers == Buffers::Malloc) {
        return static_cast<char*>(std::calloc(size, 1));
    }
    return new (std::nothrow) char[size]();
}

inline void FreeBuffer(Buffers buffers, char* buffer) {
    if (buffers == Buffers::Malloc) {
        std::free(buffer);
    } else {
        delete[] buffer;
    }
}

// Room for the base64 text of length bytes and a terminator; at least twice
// the length, as the agent protocol has always sized it.
inline std::size_t EncodedCapacity(std::size_t length) {
    const std::size_t needed = 4 * ((length + 2) / 3) + 1;
    return 2 * length > needed ? 2 * length : needed;
}

// The batch's document and its base64 text in a new buffer (encoded). 0, or
// -1 with nothing left to release.
template <typename Item> int BuildRequest(const Generation<Item>& generation, const std::list<Item*>& batch,
                                          char*& document, char*& encoded, int& encodedLength) {
    document = generation.buildDocument(batch);
    if (document == nullptr || document[0] == '\0') {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "The response body is empty!");
        cJSON_free(document);
        document = nullptr;
        return -1;
    }
    const std::size_t documentLength = std::strlen(document);
    encoded = NewBuffer(generation.buffers, EncodedCapacity(documentLength));
    if (encoded == nullptr) {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "%s", generation.allocFailure);
        cJSON_free(document);
        document = nullptr;
        return -1;
    }
    unsigned int written = 0;
    encodedLength = zeb_alm_base64_encode(document, static_cast<int>(documentLength), encoded, &written);
    if (encodedLength == -1) {
        // Sent all the same: the agent's answer decides what happens to the batch.
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "encode response body error");
    }
    return 0;
}

// Posts encoded to the agent and releases both texts. The answer (NULL on a
// transport failure) is the caller's.
template <typename Item>
stru_REST_RESPONSE* PostRequest(const Generation<Item>& generation, char* document, char* encoded) {
    stru_REST_RESPONSE* answer =
        AlmRukInterface::SendRestRequest(encoded, encoded != nullptr ? std::strlen(encoded) : 0);
    if (document == nullptr) {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "In %s, bodyStr is null!", generation.threadFunction);
    } else {
        cJSON_free(document);
    }
    if (encoded == nullptr) {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "In %s, bodyEncode is null!", generation.threadFunction);
    } else {
        FreeBuffer(generation.buffers, encoded);
    }
    return answer;
}

// Reads and releases the agent's answer, and deletes the batch when it was
// accepted. Every refusal has had its pause.
template <typename Item>
AgentVerdict Settle(const Generation<Item>& generation, std::list<Item*>& batch, stru_REST_RESPONSE* answer) {
    if (answer == nullptr) {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "Nodeward pResponse is NULL.");
        Pause(kRetryPauseSeconds);
        return AgentVerdict::Retry;
    }
    if (answer->status != 200) {
        // The status alone does not decide: the answer's document does.
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "Nodeward response retCode is %d ", answer->status);
    }
    if (answer->body == nullptr || answer->body[0] == '\0') {
        freeRestResponse(&answer);
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "Nodeward response body is NULL");
        Pause(kRetryPauseSeconds);
        return AgentVerdict::Retry;
    }
    if (generation.logAnswerBody) {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_INFO, "Nodeward response body is %s", answer->body);
    }
    const std::size_t bodyLength = std::strlen(answer->body);
    // One byte more than the text, so the decoded answer is always terminated.
    char* decoded = NewBuffer(generation.buffers, bodyLength + 1);
    if (decoded == nullptr) {
        freeRestResponse(&answer);
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "%s", generation.allocFailure);
        return AgentVerdict::Abandoned;
    }
    if (zeb_alm_base64_decode(answer->body, static_cast<int>(bodyLength), decoded, nullptr) != 0) {
        ALARMSDK_SEND_LOG(RUNLOG_LEVEL_ERROR, "encode response body error");
    }
    ALARMSDK_SEND_LOG(RUNLOG_LEVEL_INFO, "response is %s", decoded);
    const std::string retCode = generation.readRetCode(decoded);
    freeRestResponse(&answer);
    FreeBuffer(generation.buffers, decoded);
    if (retCode != "OK") {
        Pause(kRetryPauseSeconds);
        return AgentVerdict::Retry;
    }
    ALARMSDK_SEND_LOG(generation.successLevel, "%s", generation.successText);
    generation.deleteBatch(batch);
    return AgentVerdict::Accepted;
}

#undef ALARMSDK_SEND_LOG

}  // namespace alarmsdk

#endif
