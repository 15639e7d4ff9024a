#include "AlarmStore.h"

#include <cstdlib>
#include <memory>

namespace bridge {

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS alerts("
    " id INTEGER PRIMARY KEY, labels TEXT NOT NULL UNIQUE, seq INTEGER NOT NULL, instance TEXT NOT NULL,"
    " legacy INTEGER NOT NULL, alarm_id TEXT NOT NULL, rset INTEGER NOT NULL, annotations TEXT NOT NULL,"
    " starts_at INTEGER NOT NULL, ends_at INTEGER, received_at INTEGER NOT NULL,"
    " check_target TEXT NOT NULL, check_alarm TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS alerts_seq ON alerts(seq);"
    "CREATE INDEX IF NOT EXISTS alerts_firing ON alerts(instance, alarm_id) WHERE ends_at IS NULL;";

// A raise keeps the start of an alert that is still firing.
constexpr const char* kRaise =
    "INSERT INTO alerts(labels, seq, instance, legacy, alarm_id, rset, annotations, starts_at, ends_at, received_at,"
    " check_target, check_alarm) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, NULL, ?9, ?10, ?11)"
    " ON CONFLICT(labels) DO UPDATE SET seq = excluded.seq, instance = excluded.instance, rset = excluded.rset,"
    " annotations = excluded.annotations, received_at = excluded.received_at,"
    " check_target = excluded.check_target, check_alarm = excluded.check_alarm,"
    " starts_at = CASE WHEN ends_at IS NULL THEN starts_at ELSE excluded.starts_at END, ends_at = NULL";

// A clear of an alert never seen is kept too: it resolves one that a lost state raised.
constexpr const char* kClear =
    "INSERT INTO alerts(labels, seq, instance, legacy, alarm_id, rset, annotations, starts_at, ends_at, received_at,"
    " check_target, check_alarm) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?8, ?9, '', '')"
    " ON CONFLICT(labels) DO UPDATE SET seq = excluded.seq, received_at = excluded.received_at,"
    " ends_at = max(starts_at, excluded.ends_at) WHERE ends_at IS NULL";

constexpr const char* kResetCurrent =
    "UPDATE alerts SET ends_at = max(starts_at, ?1), seq = ?2, received_at = ?3"
    " WHERE instance = ?4 AND legacy = 0 AND rset = 1 AND ends_at IS NULL AND starts_at < ?1";

constexpr const char* kResetLegacy =
    "UPDATE alerts SET ends_at = max(starts_at, ?1), seq = ?2, received_at = ?3"
    " WHERE instance = ?4 AND alarm_id = ?5 AND legacy = 1 AND rset = 1 AND ends_at IS NULL AND starts_at < ?1";

struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

Statement Prepare(sqlite3* db, const char* sql, std::string* error) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
        *error = std::string("sqlite: ") + sqlite3_errmsg(db);
        return nullptr;
    }
    return Statement(statement);
}

void Text(sqlite3_stmt* statement, int index, const std::string& text) {
    sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

std::string Column(sqlite3_stmt* statement, int index) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
    return text != nullptr ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, index)))
                           : std::string();
}

// Runs a statement to its end; false with *error on failure.
bool Finish(sqlite3* db, sqlite3_stmt* statement, std::string* error) {
    const int rc = sqlite3_step(statement);
    sqlite3_reset(statement);
    if (rc != SQLITE_DONE) {
        *error = std::string("sqlite: ") + sqlite3_errmsg(db);
        return false;
    }
    return true;
}

StoredAlert RowOf(sqlite3_stmt* statement) {
    StoredAlert row;
    row.id = sqlite3_column_int64(statement, 0);
    row.seq = sqlite3_column_int64(statement, 1);
    row.labels = Column(statement, 2);
    row.annotations = Column(statement, 3);
    row.startsAt = sqlite3_column_int64(statement, 4);
    row.endsAt = sqlite3_column_type(statement, 5) == SQLITE_NULL ? -1 : sqlite3_column_int64(statement, 5);
    return row;
}

bool ReadRows(sqlite3* db, sqlite3_stmt* statement, std::vector<StoredAlert>* rows, std::string* error) {
    int rc = SQLITE_ROW;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        rows->push_back(RowOf(statement));
    }
    if (rc != SQLITE_DONE) {
        *error = std::string("sqlite: ") + sqlite3_errmsg(db);
        return false;
    }
    return true;
}

}  // namespace

bool StoreConnection::open(const std::string& path, bool readOnly, std::string* error) {
    const int flags = (readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI;
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        *error = "cannot open " + path + ": " + (db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory");
        return false;
    }
    sqlite3_busy_timeout(db_, 5000);
    return true;
}

StoreConnection::~StoreConnection() { sqlite3_close_v2(db_); }

AlarmStore::~AlarmStore() {
    for (sqlite3_stmt* statement : statements_) {
        sqlite3_finalize(statement);
    }
}

bool AlarmStore::exec(const char* sql, std::string* error) {
    char* message = nullptr;
    if (sqlite3_exec(writer_.db(), sql, nullptr, nullptr, &message) != SQLITE_OK) {
        *error = path_ + ": " + (message != nullptr ? message : sqlite3_errmsg(writer_.db()));
        sqlite3_free(message);
        return false;
    }
    return true;
}

bool AlarmStore::open(const std::string& path, std::string* error) {
    path_ = path;
    if (!writer_.open(path, false, error) || !exec("PRAGMA journal_mode=WAL", error) ||
        !exec("PRAGMA synchronous=NORMAL", error) || !exec(kSchema, error)) {
        return false;
    }
    const char* const sql[] = {kRaise, kClear, kResetCurrent, kResetLegacy};
    for (int i = 0; i < 4; ++i) {
        if (sqlite3_prepare_v3(writer_.db(), sql[i], -1, SQLITE_PREPARE_PERSISTENT, &statements_[i], nullptr) !=
            SQLITE_OK) {
            *error = std::string("sqlite: ") + sqlite3_errmsg(writer_.db());
            return false;
        }
    }
    Statement max = Prepare(writer_.db(), "SELECT coalesce(max(seq), 0) FROM alerts", error);
    if (!max || sqlite3_step(max.get()) != SQLITE_ROW) {
        return false;
    }
    seq_ = sqlite3_column_int64(max.get(), 0);
    committed_.store(seq_, std::memory_order_release);
    return true;
}

bool AlarmStore::apply(const std::vector<AlertChange>& changes, int64_t nowMs, std::string* error) {
    std::lock_guard<std::mutex> lock(mu_);
    sqlite3* db = writer_.db();
    sqlite3_stmt* const raise = statements_[0];
    sqlite3_stmt* const clear = statements_[1];
    if (!exec("BEGIN IMMEDIATE", error)) {
        return false;
    }
    int64_t seq = seq_;
    bool ok = true;
    for (const AlertChange& change : changes) {
        if (!ok) {
            break;
        }
        using Kind = AlertChange::Kind;
        if (change.kind == Kind::Raise || change.kind == Kind::Clear) {
            sqlite3_stmt* s = change.kind == Kind::Raise ? raise : clear;
            Text(s, 1, change.labels);
            sqlite3_bind_int64(s, 2, ++seq);
            Text(s, 3, change.instance);
            sqlite3_bind_int(s, 4, change.legacy ? 1 : 0);
            Text(s, 5, change.alarmId);
            sqlite3_bind_int(s, 6, change.resetClear ? 1 : 0);
            Text(s, 7, change.annotations);
            sqlite3_bind_int64(s, 8, change.atMs);
            sqlite3_bind_int64(s, 9, nowMs);
            if (change.kind == Kind::Raise) {
                Text(s, 10, change.checkTarget);
                Text(s, 11, change.checkAlarm);
            }
            ok = Finish(db, s, error);
        } else if (change.kind == Kind::ResetCurrent) {
            sqlite3_stmt* s = statements_[2];
            sqlite3_bind_int64(s, 1, change.atMs);
            sqlite3_bind_int64(s, 2, ++seq);
            sqlite3_bind_int64(s, 3, nowMs);
            Text(s, 4, change.instance);
            ok = Finish(db, s, error);
        } else if (change.kind == Kind::ResetLegacy) {
            sqlite3_stmt* s = statements_[3];
            ++seq;
            for (const std::string& id : change.clearIds) {
                sqlite3_bind_int64(s, 1, change.atMs);
                sqlite3_bind_int64(s, 2, seq);
                sqlite3_bind_int64(s, 3, nowMs);
                Text(s, 4, change.instance);
                Text(s, 5, id);
                if (!(ok = Finish(db, s, error))) {
                    break;
                }
            }
        }
    }
    std::string ignored;
    if (!ok || !exec("COMMIT", error)) {
        exec("ROLLBACK", &ignored);
        return false;
    }
    seq_ = seq;
    committed_.store(seq, std::memory_order_release);
    return true;
}

bool AlarmStore::purge(int64_t ackedByAll, int64_t horizonMs, std::string* error) {
    std::lock_guard<std::mutex> lock(mu_);
    Statement s =
        Prepare(writer_.db(), "DELETE FROM alerts WHERE ends_at IS NOT NULL AND (seq <= ?1 OR ends_at < ?2)", error);
    if (!s) {
        return false;
    }
    sqlite3_bind_int64(s.get(), 1, ackedByAll);
    sqlite3_bind_int64(s.get(), 2, horizonMs);
    return Finish(writer_.db(), s.get(), error);
}

bool ReadAfter(sqlite3* db, Cursor after, int limit, std::vector<StoredAlert>* rows, std::string* error) {
    Statement s = Prepare(db,
                          "SELECT id, seq, labels, annotations, starts_at, ends_at FROM alerts"
                          " WHERE (seq, id) > (?1, ?2) ORDER BY seq, id LIMIT ?3",
                          error);
    if (!s) {
        return false;
    }
    sqlite3_bind_int64(s.get(), 1, after.seq);
    sqlite3_bind_int64(s.get(), 2, after.id);
    sqlite3_bind_int(s.get(), 3, limit);
    return ReadRows(db, s.get(), rows, error);
}

bool ReadFiring(sqlite3* db, std::vector<StoredAlert>* rows, std::string* error) {
    Statement s = Prepare(db,
                          "SELECT id, seq, labels, annotations, starts_at, ends_at FROM alerts"
                          " WHERE ends_at IS NULL ORDER BY starts_at, id",
                          error);
    return s && ReadRows(db, s.get(), rows, error);
}

namespace {

bool ParseTarget(const std::string& text, CheckTarget* t) {
    const std::size_t a = text.find('\t'), b = text.find('\t', a + 1), c = text.find('\t', b + 1);
    if (c == std::string::npos) {
        return false;
    }
    t->serviceName = text.substr(0, a);
    t->appId = text.substr(a + 1, b - a - 1);
    t->ip = text.substr(b + 1, c - b - 1);
    t->port = std::atoi(text.c_str() + c + 1);
    return true;
}

}  // namespace

bool ForEachCheck(sqlite3* db, std::size_t maxAlarms, const std::function<void(const CheckTarget&)>& send,
                  std::string* error) {
    Statement targets = Prepare(db, "SELECT DISTINCT check_target FROM alerts WHERE ends_at IS NULL", error);
    Statement alarms =
        Prepare(db, "SELECT check_alarm FROM alerts WHERE ends_at IS NULL AND check_target = ?1 ORDER BY id", error);
    if (!targets || !alarms) {
        return false;
    }
    std::vector<std::string> names;
    while (sqlite3_step(targets.get()) == SQLITE_ROW) {
        names.push_back(Column(targets.get(), 0));
    }
    for (const std::string& name : names) {
        CheckTarget t;
        if (!ParseTarget(name, &t)) {
            continue;
        }
        sqlite3_bind_text(alarms.get(), 1, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        std::size_t count = 0;
        const auto flush = [&] {
            if (count != 0) {
                t.alarms += "]";
                send(t);
            }
            count = 0;
        };
        while (sqlite3_step(alarms.get()) == SQLITE_ROW) {
            t.alarms = (count == 0 ? "[" : t.alarms + ",") + Column(alarms.get(), 0);
            if (++count == maxAlarms) {
                flush();
            }
        }
        flush();
        sqlite3_reset(alarms.get());
    }
    return true;
}

bool ReadCounts(sqlite3* db, int64_t aboveSeq, int64_t* firing, int64_t* oldestPendingMs, std::string* error) {
    Statement s = Prepare(db,
                          "SELECT (SELECT count(*) FROM alerts WHERE ends_at IS NULL),"
                          " (SELECT coalesce(min(received_at), 0) FROM alerts WHERE seq > ?1)",
                          error);
    if (!s) {
        return false;
    }
    sqlite3_bind_int64(s.get(), 1, aboveSeq);
    if (sqlite3_step(s.get()) != SQLITE_ROW) {
        *error = std::string("sqlite: ") + sqlite3_errmsg(db);
        return false;
    }
    *firing = sqlite3_column_int64(s.get(), 0);
    *oldestPendingMs = sqlite3_column_int64(s.get(), 1);
    return true;
}

}  // namespace bridge
