#include "Bridge.h"

#include <chrono>
#include <cstdio>

#include "AgentDocument.h"
#include "AlarmCheckPost.h"

namespace bridge {

namespace {

void Log(const std::string& line) {
    std::fprintf(stderr, "alarm-bridge: %s\n", line.c_str());
    std::fflush(stderr);
}

std::string Metric(const char* name, const char* type, const char* help, const std::string& samples) {
    return std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n" + samples;
}

std::string Sample(const char* name, uint64_t value) { return std::string(name) + " " + std::to_string(value) + "\n"; }

}  // namespace

int64_t WallMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

Bridge::Bridge(BridgeOptions options) : options_(std::move(options)) {}

Bridge::~Bridge() { stop(); }

bool Bridge::start(std::string* error, bool forward) {
    if (!store_.open(options_.state, error)) {
        return false;
    }
    if (!forward) {
        return true;
    }
    if (!metricsReader_.open(options_.state, true, error)) {
        return false;
    }
    for (const std::string& url : options_.alertmanagers) {
        peers_.push_back(std::make_unique<PeerForwarder>(url, store_, delivered_, options_.resendSeconds));
        peers_.back()->start();
    }
    housekeeper_ = std::thread([this] { housekeeping(); });
    return true;
}

void Bridge::stop() {
    {
        std::lock_guard<std::mutex> lock(mu_);
        stopping_ = true;
    }
    cv_.notify_all();
    if (housekeeper_.joinable()) {
        housekeeper_.join();
    }
    for (auto& peer : peers_) {
        peer->stop();
    }
}

HttpAnswer Bridge::push(const std::string& body) {
    const nodeward::PushDocument doc = nodeward::ReadPushBody(body, nodeward::PushReading{false, true});
    std::string reason = doc.reason;
    for (const auto& alarm : doc.alarms) {
        if (doc.ok && alarm.alarmId.empty()) {
            reason = "an alarm has no \"alarmId\"";
        }
    }
    if (!doc.ok || !reason.empty()) {
        ++refused_;
        Log("request refused: " + reason);
        return {400, nodeward::RefusalAnswer(reason)};
    }
    const int64_t now = WallMs();
    std::vector<AlertChange> changes;
    changes.reserve(doc.alarms.size());
    for (const auto& alarm : doc.alarms) {
        changes.push_back(MapAlarm(alarm, now));
        if (changes.back().kind == AlertChange::Kind::Ignored) {
            ++ignored_;
            Log("ignored: " + changes.back().why);
        }
    }
    received_ += doc.alarms.size();
    std::string error;
    if (!store_.apply(changes, now, &error)) {
        ++storeFailures_;
        Log("not stored, answered failure: " + error);
        return {503, nodeward::FailureAnswer(doc.legacy)};
    }
    stored_ += doc.alarms.size();
    for (auto& peer : peers_) {
        peer->wake();
    }
    return {200, nodeward::SuccessAnswer(doc.legacy)};
}

HttpAnswer Bridge::tooLarge(std::size_t limit) {
    ++refused_;
    const std::string reason = "body larger than " + std::to_string(limit) + " bytes";
    Log("request refused: " + reason);
    return {413, nodeward::RefusalAnswer(reason)};
}

std::string Bridge::metrics() {
    int64_t firing = 0, oldest = 0;
    std::string error;
    if (!ReadCounts(metricsReader_.db(), delivered_.seq(), &firing, &oldest, &error)) {
        Log("metrics: " + error);
    }
    const double age = oldest > 0 ? static_cast<double>(WallMs() - oldest) / 1000.0 : 0.0;
    std::string posts, failures, up;
    for (const auto& peer : peers_) {
        const PeerStats s = peer->stats();
        const std::string label = "{peer=\"" + peer->url() + "\"} ";
        posts += "alarm_bridge_peer_alerts_sent_total" + label + std::to_string(s.alerts) + "\n";
        failures += "alarm_bridge_peer_failures_total" + label + std::to_string(s.failures) + "\n";
        up += "alarm_bridge_peer_up" + label + (s.up ? "1" : "0") + "\n";
    }
    return Metric("alarm_bridge_alarms_received_total", "counter", "Alarms in well-formed requests.",
                  Sample("alarm_bridge_alarms_received_total", received_)) +
           Metric("alarm_bridge_alarms_stored_total", "counter", "Alarms committed to the state and accepted.",
                  Sample("alarm_bridge_alarms_stored_total", stored_)) +
           Metric("alarm_bridge_alarms_ignored_total", "counter", "Alarms neither raised nor cleared.",
                  Sample("alarm_bridge_alarms_ignored_total", ignored_)) +
           Metric("alarm_bridge_alerts_forwarded_total", "counter", "Alert changes accepted by at least one peer.",
                  Sample("alarm_bridge_alerts_forwarded_total", delivered_.forwarded())) +
           Metric("alarm_bridge_requests_refused_total", "counter", "Requests refused as not a valid document.",
                  Sample("alarm_bridge_requests_refused_total", refused_)) +
           Metric("alarm_bridge_store_failures_total", "counter", "Requests answered failure: state not written.",
                  Sample("alarm_bridge_store_failures_total", storeFailures_)) +
           Metric("alarm_bridge_alerts_active", "gauge", "Firing alerts in the state.",
                  Sample("alarm_bridge_alerts_active", static_cast<uint64_t>(firing))) +
           Metric("alarm_bridge_queue_age_seconds", "gauge", "Age of the oldest change no peer has accepted.",
                  "alarm_bridge_queue_age_seconds " + std::to_string(age) + "\n") +
           Metric("alarm_bridge_checks_sent_total", "counter", "Alarm checks services answered.",
                  Sample("alarm_bridge_checks_sent_total", checks_)) +
           Metric("alarm_bridge_check_failures_total", "counter", "Alarm checks that found no service.",
                  Sample("alarm_bridge_check_failures_total", checkFailures_)) +
           Metric("alarm_bridge_peer_alerts_sent_total", "counter", "Alerts each peer accepted.", posts) +
           Metric("alarm_bridge_peer_failures_total", "counter", "Failed posts to each peer.", failures) +
           Metric("alarm_bridge_peer_up", "gauge", "Whether the last post to each peer succeeded.", up);
}

void Bridge::sendChecks() {
    StoreConnection reader;
    std::string error;
    // Alarms per check request: the request and the service's work stay bounded.
    constexpr std::size_t kAlarmsPerCheck = 500;
    const auto send = [this](const CheckTarget& t) {
        std::string answer, why;
        const int status = nodeward::PostAlarmCheck(t.ip, t.port, t.serviceName, t.appId, t.alarms, &answer, &why);
        if (status == 200) {
            ++checks_;
            return;
        }
        ++checkFailures_;
        Log("alarm check of " + t.serviceName + " at " + t.ip + ":" + std::to_string(t.port) + ": " +
            (status < 0 ? why : "status " + std::to_string(status)));
    };
    if (!reader.open(options_.state, true, &error) || !ForEachCheck(reader.db(), kAlarmsPerCheck, send, &error)) {
        Log("alarm checks: " + error);
    }
}

void Bridge::housekeeping() {
    using Clock = std::chrono::steady_clock;
    // Alarms in the state at start may have changed while the bridge was down.
    if (store_.committedSeq() > 0) {
        sendChecks();
    }
    const auto resend = std::chrono::seconds(options_.resendSeconds);
    const auto checkEvery = std::chrono::seconds(options_.checkIntervalSeconds);
    auto nextPurge = Clock::now() + resend;
    auto nextCheck = options_.checkIntervalSeconds > 0 ? Clock::now() + checkEvery : Clock::time_point::max();
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mu_);
            if (cv_.wait_until(lock, std::min(nextPurge, nextCheck), [this] { return stopping_; })) {
                return;
            }
        }
        const auto now = Clock::now();
        if (now >= nextPurge) {
            int64_t ackedByAll = INT64_MAX;
            for (const auto& peer : peers_) {
                ackedByAll = std::min(ackedByAll, peer->stats().acked);
            }
            std::string error;
            if (!store_.purge(ackedByAll, WallMs() - 3000LL * options_.resendSeconds, &error)) {
                Log("purging resolved alerts: " + error);
            }
            nextPurge = now + resend;
        }
        if (now >= nextCheck) {
            sendChecks();
            nextCheck = now + checkEvery;
        }
    }
}

}  // namespace bridge
