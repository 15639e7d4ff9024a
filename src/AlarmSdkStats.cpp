// The alarmsdk_ extension: delivery counters and a bounded flush for each
// kind of manager. The entry points stay small; nothing may throw out of them.
#include "AlarmSdkStats.h"

#include <cstddef>
#include <cstring>

#include "AlarmManager.h"
#include "AlarmManagerEx.h"
#include "AlmLog.h"
#include "DeliveryCounters.h"
#include "NoThrow.h"

static_assert(sizeof(alarmsdk_stats) == ALARMSDK_STATS_MIN_SIZE, "the first version of the struct is 72 bytes");
static_assert(offsetof(alarmsdk_stats, last_delivery_ms) == 64, "fields are never moved");

namespace {

const char kLogSource[] = "../src/AlarmSdkStats";

int FillStats(alarmsdk::DeliveryCounters* counters, alarmsdk_stats* stats, const char* function) {
    if (counters == nullptr || stats == nullptr) {
        ALM_LOG_ERROR("In %s, %s is null!", function, counters == nullptr ? "manager" : "stats");
        return -1;
    }
    if (stats->size < ALARMSDK_STATS_MIN_SIZE) {
        ALM_LOG_ERROR("In %s, stats->size %u is below %u", function, stats->size, ALARMSDK_STATS_MIN_SIZE);
        return -1;
    }
    const alarmsdk::DeliverySnapshot s = counters->snapshot();
    alarmsdk_stats filled = {};
    filled.size = static_cast<uint32_t>(sizeof(alarmsdk_stats));
    filled.accepted = s.accepted;
    filled.refused = s.refused;
    filled.delivered = s.delivered;
    filled.batches = s.batches;
    filled.retried = s.retried;
    filled.dropped = s.dropped;
    filled.waiting = s.waiting;
    filled.last_delivery_ms = s.lastDeliveryMs;
    // A caller built against a newer header keeps its later fields untouched.
    std::memcpy(stats, &filled, sizeof(filled));
    return 0;
}

int Flush(alarmsdk::DeliveryCounters* counters, uint32_t timeoutMs, const char* function) {
    if (counters == nullptr) {
        ALM_LOG_ERROR("In %s, manager is null!", function);
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] {
        switch (counters->waitSettled(timeoutMs)) {
            case alarmsdk::FlushResult::Delivered:
                return ALARMSDK_FLUSH_DELIVERED;
            case alarmsdk::FlushResult::TimedOut:
                return ALARMSDK_FLUSH_TIMED_OUT;
            case alarmsdk::FlushResult::Dropped:
                return ALARMSDK_FLUSH_DROPPED;
        }
        return -1;
    });
}

alarmsdk::DeliveryCounters* CountersOf(AlarmManagerEx* manager) {
    return manager == nullptr ? nullptr : &manager->deliveryCounters();
}

}  // namespace

extern "C" {

int alarmsdk_get_stats(AlarmManagerEx* manager, alarmsdk_stats* stats) {
    return FillStats(CountersOf(manager), stats, "alarmsdk_get_stats");
}

int alarmsdk_get_process_stats(alarmsdk_stats* stats) {
    return FillStats(CountersOf(AlarmManagerEx::getInstance()), stats, "alarmsdk_get_process_stats");
}

int alarmsdk_get_legacy_stats(alarmsdk_stats* stats) {
    return FillStats(&AlarmManager::GetInstance()->deliveryCounters(), stats, "alarmsdk_get_legacy_stats");
}

int alarmsdk_flush(AlarmManagerEx* manager, uint32_t timeout_ms) {
    return Flush(CountersOf(manager), timeout_ms, "alarmsdk_flush");
}

int alarmsdk_flush_process(uint32_t timeout_ms) {
    return Flush(CountersOf(AlarmManagerEx::getInstance()), timeout_ms, "alarmsdk_flush_process");
}

int alarmsdk_flush_legacy(uint32_t timeout_ms) {
    return Flush(&AlarmManager::GetInstance()->deliveryCounters(), timeout_ms, "alarmsdk_flush_legacy");
}

}  // extern "C"
