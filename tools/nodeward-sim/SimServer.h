// Internal to the sim: the server's state, shared by its parts. SimListen.cpp
// binds and routes requests, SimRecord.cpp answers and records pushes,
// SimFaults.cpp decides which pushes fail and how, SimCallBack.cpp relays
// alarm checks to services.
#ifndef NODEWARD_SIM_SERVER_H
#define NODEWARD_SIM_SERVER_H

#include <microhttpd.h>
#include <sys/types.h>

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "AgentEndpoint.h"
#include "NodewardSim.h"

namespace nodeward {

enum class Route { Push, CallBack, Answered };

// One HTTP request while MHD feeds us its body.
struct Exchange {
    Route route = Route::Answered;
    std::string body;
    bool tooLarge = false;
    std::vector<std::pair<std::string, std::string>> headers;
};

// Where a service that sent alarms can be called back.
struct ServiceAddress {
    std::string ip;
    int port = 0;
    std::string appId;
};

// Queues body with status; MHD_NO when no answer could be made.
MHD_Result Answer(MHD_Connection* connection, unsigned int status, const std::string& body);
// One line "nodeward-sim: <text>" on stderr.
void LogError(const std::string& text);

struct Sim::Impl {
    explicit Impl(SimOptions o) : options(std::move(o)), rng(options.seed) {}

    SimOptions options;

    // Listening state, written by start()/stop() only.
    MHD_Daemon* daemon = nullptr;
    std::string host;  // as the endpoint gave it, for endpoint()
    ListenSocket listener;

    // Everything below mu is shared between MHD threads, the worker and callers.
    mutable std::mutex mu;
    mutable std::condition_variable changed;
    bool stopping = false;
    std::vector<ReceivedRequest> requests;
    SimCounts counts;
    std::map<std::string, ServiceAddress> services;
    int wellFormedSeen = 0;
    int failNextCount = 0;
    FailMode failNextMode = FailMode::RetCode;
    std::mt19937 rng;
    std::set<std::string> firstAlarmCallBacksDone;
    std::deque<std::pair<std::string, std::string>> pendingCallBacks;
    int openExchanges = 0;  // requests begun and not yet completed (their answer not yet sent)

    std::thread worker;

    std::mutex outMu;  // keeps stdout lines and jsonl lines whole
    FILE* jsonl = nullptr;

    // SimListen.cpp
    static MHD_Result OnRequest(void* cls, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* uploadData, size_t* uploadDataSize, void** context);
    static void OnCompleted(void* cls, MHD_Connection* connection, void** context, MHD_RequestTerminationCode code);
    // SimRecord.cpp
    MHD_Result answerPush(MHD_Connection* connection, Exchange* exchange);
    void print(const std::string& line);
    void writeJsonl(const std::string& compact);
    // SimFaults.cpp; decideFailure under mu
    std::optional<FailMode> decideFailure();
    MHD_Result answerFailure(MHD_Connection* connection, FailMode failure, bool legacy, std::size_t number);
    // SimCallBack.cpp; learn under mu
    void learn(const std::vector<ReceivedAlarm>& alarms);
    MHD_Result answerCallBack(MHD_Connection* connection, Exchange* exchange);
    void workerLoop();
    int callBackLearnt(const std::string& name, const std::string& json, std::string* answer, std::string* error,
                       bool* unknown);
};

}  // namespace nodeward

#endif
