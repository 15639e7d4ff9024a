// The agent stand-in: a real HTTP agent on loopback that records what services
// post to it, answers like the node's agent (or fails on request), and can call
// a service back with an alarm check. Used by the nodeward-sim program and,
// in-process, by the SDK's tests.
#ifndef NODEWARD_SIM_H
#define NODEWARD_SIM_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AgentDocument.h"
#include "rest_endpoint.h"

namespace nodeward {

// How a failed request is answered.
enum class FailMode {
    RetCode,  // 200 with a decodable document that is not OK ({"retCode":1} / {"returncode":"Failed"})
    Empty,    // 200 with an empty body
    Garbage,  // 200 with a body that is not base64
    Close,    // the connection is closed without an answer
};

// "retcode", "empty", "garbage", "close": the program's --fail-mode words.
const char* FailModeName(FailMode mode);
// Lets test frameworks print a mode by name.
std::ostream& operator<<(std::ostream& out, FailMode mode);

struct SimOptions {
    std::string endpoint = REST_DEFAULT_AGENT_ENDPOINT;  // rest_endpoint.h; port 0: any free one
    int failFirst = 0;                                   // fail the first N requests
    double failRatio = 0.0;                              // then fail this fraction of requests (0..1)
    unsigned int seed = 1;                               // for failRatio
    FailMode failMode = FailMode::RetCode;
    int status = 200;                      // HTTP status of the answers that are not failures
    int delayMs = 0;                       // wait this long before each answer
    std::string jsonlPath;                 // when set, each decoded document is appended here as one line
    bool printAlarms = false;              // print one readable line per alarm to stdout
    std::size_t maxBodyBytes = 16u << 20;  // larger push bodies are refused with 413
    // false: requests and alarms are only counted (counts(),
    // waitForAcceptedAlarms), never kept, so requests() and acceptedAlarms() stay empty;
    // a load test then pays for nothing it does not read.
    bool recordRequests = true;
    // Call SERVICE back once with JSON (callBackAlarms) after its first alarm arrives.
    // The check runs on a worker thread of the sim; its result line goes to stdout
    // when printAlarms is set.
    std::vector<std::pair<std::string, std::string>> callBackOnFirstAlarm;
};

// One POST to /om/v1/request. Recorded when it is answered (after delayMs).
// A body over maxBodyBytes is recorded with an empty body and accepted=false.
struct ReceivedRequest {
    std::string body;                   // raw body as posted
    std::string json;                   // decoded document ("" when it did not decode)
    bool legacy = false;                // the document had "service"
    bool accepted = false;              // answered with a success document (whatever options.status is:
                                        // the services decide by the document, not the status)
    std::vector<ReceivedAlarm> alarms;  // empty when the document did not parse
    std::vector<std::pair<std::string, std::string>> headers;  // request headers, as they arrived
    // The value of the first header called name (in any case), "" when there is none.
    std::string header(const std::string& name) const;
};

// What has arrived, in numbers; kept whether or not requests are recorded.
struct SimCounts {
    std::size_t requests = 0;  // answered push requests
    std::size_t acceptedRequests = 0;
    std::size_t acceptedAlarms = 0;
};

// Threads: libmicrohttpd runs one thread per connection, so a delayed answer
// holds up only its own connection. Recording, waitForAcceptedAlarms and
// failNext are safe from any thread.
class Sim {
public:
    explicit Sim(SimOptions options);
    ~Sim();  // stops the server
    Sim(const Sim&) = delete;
    Sim& operator=(const Sim&) = delete;

    // Binds and starts serving. false (with *error set) when it cannot.
    bool start(std::string* error);
    void stop();

    // The TCP port actually bound (0 for a unix socket).
    int port() const;
    // The endpoint in NODEWARD_ENDPOINT form, with the bound port.
    std::string endpoint() const;

    // Every request so far, in the order they were answered (arrival order
    // unless a delay lets concurrent requests overtake).
    std::vector<ReceivedRequest> requests() const;
    // The alarms of accepted requests, in arrival order.
    std::vector<ReceivedAlarm> acceptedAlarms() const;
    SimCounts counts() const;
    // Waits until at least n alarms were accepted, at most timeoutMs. true when reached.
    bool waitForAcceptedAlarms(std::size_t n, int timeoutMs) const;

    // Changes fault injection while running: fail the next n requests with mode.
    void failNext(int n, FailMode mode);

    // Posts an alarm check to http://ip:port/<serviceName>/<appId>/alarmCheck/callBack
    // with {"callBackInfo":{"serviceName":..},"callBackAlarms":<callBackAlarmsJson>},
    // base64-encoded. ip, port and appId are learnt from the alarms this service
    // sent (the latest alarm with "serviceIp" and "servicePort" wins). Returns the
    // HTTP status (or -1 when the service is unknown or unreachable, or the JSON
    // is invalid) and stores the raw answer body in *answer when given.
    int callBack(const std::string& serviceName, const std::string& callBackAlarmsJson, std::string* answer);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// One readable line for an alarm, as the program prints it.
std::string FormatAlarmLine(const ReceivedAlarm& alarm);

}  // namespace nodeward

#endif
