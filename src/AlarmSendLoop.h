// The send cycle both generations share: take a batch of up to 50, build its
// document, base64 it, post it to the agent, read the answer, and send the
// same batch again after a pause until the agent accepts it. What differs
// between the generations is an explicit SendProfile, not a second loop.
#ifndef ALARM_SEND_LOOP_H
#define ALARM_SEND_LOOP_H

#include <cstddef>
#include <list>
#include <string>

#include "AlarmConfig.h"
#include "AlarmQueue.h"
#include "NoThrow.h"
#include "Pause.h"
#include "rest_client.h"

namespace alarmsdk {

struct SendProfile {
    const char* logSource;           // the manager's source file, for every line logged here
    const char* threadFunction;      // named in "In %s, bodyStr is null!" and "In %s, bodyEncode is null!"
    const char* allocFailure;        // logged when a buffer cannot be had
    bool mallocBuffers;              // encode/decode buffers from malloc/free instead of new[]/delete[]
    bool logAnswerBody;              // log "Nodeward response body is %s" before decoding
    int successLevel;                // level and text of the line for an accepted batch
    const char* successText;
    std::string (*readRetCode)(const char* answer);  // "OK" accepts the batch
};

// A zeroed buffer of size bytes from the profile's allocator, NULL on failure.
char* NewBuffer(const SendProfile& profile, std::size_t size);
void FreeBuffer(const SendProfile& profile, char* buffer);

// Base64 of the cJSON-printed document into a new buffer (*encoded). 0, or -1
// with the document released (*document NULL): the caller builds it again.
int EncodeDocument(const SendProfile& profile, char*& document, char*& encoded, int& encodedLength);

// Posts encoded to the agent and releases both texts. The answer (NULL on a
// transport failure) belongs to the caller.
stru_REST_RESPONSE* PostDocument(const SendProfile& profile, char* document, char* encoded);

enum class AgentVerdict {
    Accepted,   // "OK": the batch may be freed
    Abandoned,  // the answer could not even be read (no memory): drop the batch without resending
    Retry,      // anything else: the pause has been taken, send the same batch again
};
// Reads and releases the agent's answer.
AgentVerdict JudgeAnswer(const SendProfile& profile, stru_REST_RESPONSE* response);

// 1 settles the batch, -1 sends it again. An accepted batch is freed and left
// empty by deleteBatch; an abandoned one keeps its (unreleased) items, which
// is how the send loop tells the two apart.
template <typename Item>
int SettleBatch(const SendProfile& profile, std::list<Item*>& batch, stru_REST_RESPONSE* response,
                void (*deleteBatch)(std::list<Item*>&)) {
    switch (JudgeAnswer(profile, response)) {
        case AgentVerdict::Accepted:
            deleteBatch(batch);
            return 1;
        case AgentVerdict::Abandoned:
            return 1;
        case AgentVerdict::Retry:
            break;
    }
    return -1;
}

// One attempt of a send thread: takes a batch when it holds none (waiting
// on the manager's queue when there is nothing to send), builds and posts it
// once, tells the queue's counters how it ended, and empties it once the
// agent settled it. A batch that cannot be built is tried again by the next
// pass at once.
template <typename Manager, typename Item>
void SendPass(Manager* manager, AlarmQueue<Item>& queue, const SendProfile& profile,
              int (*settle)(std::list<Item*>&, stru_REST_RESPONSE*), std::list<Item*>& batch) {
    if (batch.empty()) {
        manager->getSendAlarmDatas(batch);
        if (batch.empty()) {
            IdleWait(kIdlePollSeconds, queue);
            return;
        }
    }
    char* document = nullptr;
    char* encoded = nullptr;
    int encodedLength = 0;
    if (manager->getSendAlarmJsonData(batch, document, encoded, encodedLength) != 0) {
        return;
    }
    const std::size_t size = batch.size();
    if (settle(batch, PostDocument(profile, document, encoded)) == 1) {
        // Freed (and emptied) after "OK"; dropped, and freed here, when the answer could not even be read.
        queue.counters().noteSettled(size, batch.empty(), static_cast<int64_t>(ALM_GetCurrMs()));
        for (Item* item : batch) {
            delete item;
        }
        batch.clear();
        return;
    }
    queue.counters().noteRetry();
}

// The body of a send thread; never returns. Manager provides
//   getSendAlarmDatas(list&), getSendAlarmJsonData(list, char*&, char*&, int&) -> 0 / -1,
// queue is the manager's own (it wakes the idle wait and keeps the delivery
// counters), and settle decides on the answer (1 settled, -1 again). The same
// batch goes out until the agent settles it; nothing is dropped or reordered
// meanwhile, also when a pass fails for lack of memory: the batch outlives
// the pass and is sent again after the retry pause.
template <typename Manager, typename Item>
void RunSendLoop(Manager* manager, AlarmQueue<Item>& queue, const SendProfile& profile,
                 int (*settle)(std::list<Item*>&, stru_REST_RESPONSE*)) {
    std::list<Item*> batch;
    const CallSite site{profile.logSource, __LINE__, profile.threadFunction};
    for (;;) {
        const bool passed = NoThrow(site, false, [&] {
            SendPass(manager, queue, profile, settle, batch);
            return true;
        });
        if (!passed) {
            Pause(kRetryPauseSeconds);
        }
    }
}

}  // namespace alarmsdk

#endif
