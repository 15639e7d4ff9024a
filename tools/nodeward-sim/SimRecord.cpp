// The push exchange: each request read, answered and, as the options ask,
// counted, recorded, printed and written out; the queries over what arrived.
#include <strings.h>

#include <chrono>

#include "SimDocument.h"
#include "SimServer.h"

namespace nodeward {

MHD_Result Sim::Impl::answerPush(MHD_Connection* connection, Exchange* exchange) {
    exchange->route = Route::Answered;
    if (!exchange->tooLarge && options.delayMs > 0) {
        std::unique_lock<std::mutex> lock(mu);
        changed.wait_for(lock, std::chrono::milliseconds(options.delayMs), [this] { return stopping; });
        if (stopping) {
            return MHD_NO;
        }
    }
    PushDocument doc;
    if (exchange->tooLarge) {
        doc.reason = "body larger than " + std::to_string(options.maxBodyBytes) + " bytes";
    } else {
        // Printing and full records only for whoever reads them.
        PushReading reading;
        reading.compact = !options.jsonlPath.empty();
        reading.fullAlarms = options.recordRequests || options.printAlarms;
        doc = ReadPushBody(exchange->body, reading);
    }
    std::optional<FailMode> failure;
    std::size_t number = 0;
    {
        std::lock_guard<std::mutex> lock(mu);
        if (doc.ok) {
            failure = decideFailure();
        }
        const bool accepted = doc.ok && !failure;
        learn(doc.alarms);
        number = ++counts.requests;
        if (accepted) {
            ++counts.acceptedRequests;
            counts.acceptedAlarms += doc.alarmCount;
        }
        if (options.recordRequests) {
            ReceivedRequest record;
            if (!exchange->tooLarge) {
                record.body = std::move(exchange->body);
            }
            record.headers = std::move(exchange->headers);
            record.json = std::move(doc.decoded);
            record.legacy = doc.legacy;
            record.accepted = accepted;
            // The lines printed below need them; otherwise the record takes them.
            if (options.printAlarms) {
                record.alarms = doc.alarms;
            } else {
                record.alarms = std::move(doc.alarms);
            }
            requests.push_back(std::move(record));
        }
    }
    changed.notify_all();

    if (!doc.compact.empty()) {
        writeJsonl(doc.compact);
    }
    if (!doc.ok) {
        LogError("request " + std::to_string(number) + " refused: " + doc.reason);
        const unsigned int status = exchange->tooLarge ? MHD_HTTP_CONTENT_TOO_LARGE : MHD_HTTP_BAD_REQUEST;
        return Answer(connection, status, RefusalAnswer(doc.reason));
    }
    if (failure) {
        return answerFailure(connection, *failure, doc.legacy, number);
    }
    if (options.printAlarms) {
        for (const auto& alarm : doc.alarms) {
            print(FormatAlarmLine(alarm));
        }
    }
    return Answer(connection, static_cast<unsigned int>(options.status), SuccessAnswer(doc.legacy));
}

void Sim::Impl::print(const std::string& line) {
    std::lock_guard<std::mutex> lock(outMu);
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void Sim::Impl::writeJsonl(const std::string& compact) {
    std::lock_guard<std::mutex> lock(outMu);
    if (jsonl != nullptr) {
        std::fputs(compact.c_str(), jsonl);
        std::fputc('\n', jsonl);
        std::fflush(jsonl);
    }
}

std::vector<ReceivedRequest> Sim::requests() const {
    std::lock_guard<std::mutex> lock(impl_->mu);
    return impl_->requests;
}

std::vector<ReceivedAlarm> Sim::acceptedAlarms() const {
    std::lock_guard<std::mutex> lock(impl_->mu);
    std::vector<ReceivedAlarm> alarms;
    for (const auto& request : impl_->requests) {
        if (request.accepted) {
            alarms.insert(alarms.end(), request.alarms.begin(), request.alarms.end());
        }
    }
    return alarms;
}

bool Sim::waitForAcceptedAlarms(std::size_t n, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(impl_->mu);
    return impl_->changed.wait_for(lock, std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0),
                                   [&] { return impl_->counts.acceptedAlarms >= n; });
}

SimCounts Sim::counts() const {
    std::lock_guard<std::mutex> lock(impl_->mu);
    return impl_->counts;
}

std::string ReceivedRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) {
            return value;
        }
    }
    return std::string();
}

}  // namespace nodeward
