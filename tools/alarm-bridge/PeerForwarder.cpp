#include "PeerForwarder.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace bridge {

namespace {

constexpr int kBatch = 1000;  // alerts per post
constexpr std::size_t kMaxAnswerBytes = 64 << 10;
constexpr auto kFirstBackoff = std::chrono::seconds(1);
constexpr auto kLongestBackoff = std::chrono::seconds(30);

std::size_t Collect(char* data, std::size_t size, std::size_t count, void* user) {
    auto* answer = static_cast<std::string*>(user);
    const std::size_t n = size * count;
    if (answer->size() + n <= kMaxAnswerBytes) {
        answer->append(data, n);
    }
    return n;
}

void Log(const std::string& line) {
    std::fprintf(stderr, "alarm-bridge: %s\n", line.c_str());
    std::fflush(stderr);
}

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

std::string Rfc3339(int64_t ms) {
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[80];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(ms % 1000));
    return text;
}

void Delivered::accepted(int64_t seq, const std::vector<StoredAlert>& rows) {
    std::lock_guard<std::mutex> lock(mu_);
    const int64_t before = seq_.load();
    forwarded_ += static_cast<uint64_t>(
        std::count_if(rows.begin(), rows.end(), [before](const StoredAlert& row) { return row.seq > before; }));
    seq_ = std::max(before, seq);
}

PeerForwarder::PeerForwarder(std::string url, const AlarmStore& store, Delivered& delivered, int resendSeconds)
    : url_(std::move(url)), store_(store), delivered_(delivered), resendSeconds_(resendSeconds) {
    while (!url_.empty() && url_.back() == '/') {
        url_.pop_back();
    }
}

PeerForwarder::~PeerForwarder() { stop(); }

void PeerForwarder::start() {
    thread_ = std::thread([this] { run(); });
}

void PeerForwarder::stop() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        stopping_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void PeerForwarder::wake() {
    { std::lock_guard<std::mutex> lock(mu_); }
    cv_.notify_all();
}

PeerStats PeerForwarder::stats() const {
    std::lock_guard<std::mutex> lock(mu_);
    return stats_;
}

void PeerForwarder::waitFor(std::chrono::steady_clock::time_point until, int64_t seenSeq) {
    std::unique_lock<std::mutex> lock(mu_);
    cv_.wait_until(lock, until, [&] { return stopping_ || store_.committedSeq() > seenSeq; });
}

int PeerForwarder::post(const std::vector<StoredAlert>& rows, int64_t nowMs, std::string* error) {
    // Firing alerts end a few rounds ahead unless sent again: a bridge that
    // died leaves nothing firing for ever.
    const std::string horizon = Rfc3339(nowMs + 3000LL * resendSeconds_);
    std::string body = "[";
    body.reserve(rows.size() * 400);
    for (const StoredAlert& row : rows) {
        body += body.size() == 1 ? "" : ",";
        body += "{\"labels\":" + row.labels + ",\"annotations\":" + row.annotations + ",\"startsAt\":\"" +
                Rfc3339(row.startsAt) + "\",\"endsAt\":\"" + (row.endsAt < 0 ? horizon : Rfc3339(row.endsAt)) + "\"}";
    }
    body += "]";
    CURL* curl = static_cast<CURL*>(curl_);
    std::string answer;
    const std::string url = url_ + "/api/v2/alerts";
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer);
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    if (code != CURLE_OK) {
        *error = curl_easy_strerror(code);
        return -1;
    }
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status == 200) {
        return 0;
    }
    *error = "status " + std::to_string(status) + ": " + answer.substr(0, 300);
    // Alertmanager refuses a batch it finds invalid as a whole; sending it
    // again would stop every later alert behind it.
    return status == 400 ? 1 : -1;
}

void PeerForwarder::run() {
    StoreConnection connection;
    std::string error;
    if (!connection.open(store_.path(), true, &error)) {
        Log(url_ + ": " + error);
        return;
    }
    CURL* curl = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, 2000L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 20000L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
    curl_ = curl;

    using Clock = std::chrono::steady_clock;
    const auto interval = std::chrono::seconds(resendSeconds_);
    Cursor cursor;
    auto nextRound = Clock::now() + interval;
    Clock::duration backoff{};
    bool failing = false;
    std::vector<StoredAlert> rows;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (stopping_) {
                break;
            }
        }
        if (Clock::now() >= nextRound) {
            cursor = Cursor();  // the whole state again, with endsAt moved on
            nextRound = Clock::now() + interval;
        }
        const int64_t committed = store_.committedSeq();
        rows.clear();
        if (!ReadAfter(connection.db(), cursor, kBatch, &rows, &error)) {
            Log(url_ + ": reading the state: " + error);
            waitFor(Clock::now() + kLongestBackoff, INT64_MAX);
            continue;
        }
        if (rows.empty()) {
            // Every row committed up to here has been seen (rows replaced by
            // later changes leave gaps in the numbers).
            if (committed >= cursor.seq) {
                cursor = Cursor{committed, INT64_MAX};
            }
            waitFor(nextRound, committed);
            continue;
        }
        const int result = post(rows, NowMs(), &error);
        if (result < 0) {
            {
                std::lock_guard<std::mutex> lock(mu_);
                ++stats_.posts;
                ++stats_.failures;
                stats_.up = false;
            }
            if (!failing) {
                Log(url_ + ": " + error + "; retrying, with the whole state once it answers");
            }
            failing = true;
            cursor = Cursor();
            backoff = std::min<Clock::duration>(std::max<Clock::duration>(kFirstBackoff, backoff * 2),
                                                std::min<Clock::duration>(kLongestBackoff, interval));
            waitFor(Clock::now() + backoff, INT64_MAX);
            continue;
        }
        if (result > 0) {
            Log(url_ + ": refused " + std::to_string(rows.size()) + " alerts: " + error);
        }
        if (failing) {
            Log(url_ + ": answers again");
        }
        failing = false;
        backoff = {};
        {
            std::lock_guard<std::mutex> lock(mu_);
            ++stats_.posts;
            stats_.refused += result > 0 ? rows.size() : 0;
            stats_.up = true;
            stats_.alerts += rows.size();
            stats_.acked = std::max(stats_.acked, rows.back().seq);
        }
        cursor = Cursor{rows.back().seq, rows.back().id};
        delivered_.accepted(rows.back().seq, rows);
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    curl_ = nullptr;
}

}  // namespace bridge
