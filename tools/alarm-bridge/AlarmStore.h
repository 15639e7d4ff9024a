// The bridge's durable state: one row per alert (its labels are its
// identity), in SQLite with a write-ahead log. Every change gets a sequence
// number; forwarders read rows in (seq, id) order from a cursor of their own.
#ifndef ALARM_BRIDGE_ALARM_STORE_H
#define ALARM_BRIDGE_ALARM_STORE_H

#include <sqlite3.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "AlertMapping.h"

namespace bridge {

struct StoredAlert {
    int64_t id = 0;
    int64_t seq = 0;
    std::string labels;
    std::string annotations;
    int64_t startsAt = 0;
    int64_t endsAt = -1;  // -1 while firing
};

struct Cursor {
    int64_t seq = 0;
    int64_t id = 0;
};

// One target of alarm checks and the firing alarms it holds there.
struct CheckTarget {
    std::string serviceName, appId, ip;
    int port = 0;
    std::string alarms;  // JSON array of {"alarmId":..,"parameters":{..}}
};

// A connection of one thread. The writer is shared under its own lock;
// each reader (a forwarder, the metrics) opens one of its own.
class StoreConnection {
public:
    // readOnly: queries only. false with *error when the file cannot be opened or set up.
    bool open(const std::string& path, bool readOnly, std::string* error);
    ~StoreConnection();
    sqlite3* db() const { return db_; }

private:
    sqlite3* db_ = nullptr;
};

class AlarmStore {
public:
    AlarmStore() = default;
    ~AlarmStore();
    AlarmStore(const AlarmStore&) = delete;
    AlarmStore& operator=(const AlarmStore&) = delete;
    // Creates the file and its tables when missing. synchronous=NORMAL in WAL
    // mode: a committed transaction survives a crash of the process; a power
    // loss can take the last ones back.
    bool open(const std::string& path, std::string* error);
    const std::string& path() const { return path_; }

    // All changes of one request in one transaction: true once committed.
    bool apply(const std::vector<AlertChange>& changes, int64_t nowMs, std::string* error);

    // The highest sequence number committed so far.
    int64_t committedSeq() const { return committed_.load(std::memory_order_acquire); }

    // Resolved rows no forwarder still needs: acked by every peer (seq below
    // ackedByAll) or resolved before horizonMs.
    bool purge(int64_t ackedByAll, int64_t horizonMs, std::string* error);

private:
    bool exec(const char* sql, std::string* error);

    std::string path_;
    std::mutex mu_;
    StoreConnection writer_;
    sqlite3_stmt* statements_[4] = {};  // raise, clear, the two reset-clears: prepared once
    int64_t seq_ = 0;
    std::atomic<int64_t> committed_{0};
};

// Reads that any thread runs on its own connection.
bool ReadAfter(sqlite3* db, Cursor after, int limit, std::vector<StoredAlert>* rows, std::string* error);
bool ReadFiring(sqlite3* db, std::vector<StoredAlert>* rows, std::string* error);
// Hands each service with firing alarms to send, at most maxAlarms of them at a time.
bool ForEachCheck(sqlite3* db, std::size_t maxAlarms, const std::function<void(const CheckTarget&)>& send,
                  std::string* error);
// Firing alerts, and the oldest change time above seq (0 when there is none).
bool ReadCounts(sqlite3* db, int64_t aboveSeq, int64_t* firing, int64_t* oldestPendingMs, std::string* error);

}  // namespace bridge

#endif
