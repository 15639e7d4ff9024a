// The push documents: exact texts, the agent's answer, allocation failures,
// and both generations against the frozen earlier builders.
#include <cjson/cJSON.h>

#include <random>
#include <set>

#include "AlarmAdapter.h"
#include "AlmJsonParser.h"
#include "FrozenPushDocument.h"
#include "SdkTestSupport.h"

namespace {

const char kSource[] = "../src/AlmJsonParser";
using JsonTree = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
using sdktest::FullAlarm;

JsonTree Parse(const std::string& text) { return JsonTree(cJSON_Parse(text.c_str()), &cJSON_Delete); }

// A text cJSON allocated, released the documented way.
std::string Taken(char* text) {
    std::string copy = text != nullptr ? text : "<null>";
    cJSON_free(text);
    return copy;
}
template <typename Record>
std::string Printed(char* (*build)(const std::list<Record*>&), const std::list<Record*>& records) {
    return Taken(build(records));
}
std::string Document(const std::list<AlarmEx*>& alarms) { return Printed(&AlmJsonParser::GenRestDataJsonEx, alarms); }
std::string Object(AlarmEx* alarm) {
    return Taken(cJSON_PrintUnformatted(JsonTree(AlmJsonParser::GenAlarmEx(alarm), &cJSON_Delete).get()));
}

// Exact texts: a full alarm in its envelope, an announcement (id "0": the first seven keys only), a bare clear; the
// list's order kept and null records left out (other ids, integers at the limits of exact printing: the differential
// test below).
TEST(PushDocument, ExactCompactTexts) {
    testsupport::LogCapture log;
    const std::string head = R"({"business":{"name":"PushAlarm"},"payload":{"alarmList":[)";
    const std::string tail = R"(]},"Receiver":"SendAlarm"})";
    std::unique_ptr<AlarmEx> full = FullAlarm(), announcement = FullAlarm("0");
    AlarmEx bare("12", ZEB_ALARM_CLEAR);
    bare.setServiceName("svc");
    bare.setRsetClear(1700000000123L);
    EXPECT_EQ(head + tail, Document({}));
    EXPECT_EQ(head + Object(&bare) + "," + Object(full.get()) + tail, Document({&bare, nullptr, full.get(), nullptr}));
    EXPECT_EQ(2u, log.count("In AlmJsonParser::GenAlarmEx, pAlarm is null!", RUNLOG_LEVEL_ERROR, kSource)) << log.dump();
    EXPECT_EQ(nullptr, AlmJsonParser::GenAlarmEx(nullptr));
    EXPECT_EQ(R"({"alarmId":"300012","appId":"app-7","occurTime":1700000000123,"serviceName":"orders",)"
              R"("serviceIp":"10.0.0.5","servicePort":8080,"serviceLabel":"orders-label","alarmType":1,)"
              R"("serviceId":"svc-1","serviceInstId":"inst-1","rsetClear":1,"nodeIp":"10.0.0.1","callBackInfo":)"
              R"({"serviceName":"orders","registerName":"orders","serviceIp":"10.0.0.5"},"parameters":)"
              R"([{"paramName":"disk","paramValue":"sda"},{"paramName":"usage","paramValue":"95"}]})",
              Object(full.get()));
    EXPECT_EQ(R"({"alarmId":"0","appId":"app-7","occurTime":1700000000123,"serviceName":"orders",)"
              R"("serviceIp":"10.0.0.5","servicePort":8080,"serviceLabel":"orders-label"})",
              Object(announcement.get()));
    EXPECT_EQ(R"({"alarmId":"12","appId":"","occurTime":0,"serviceName":"svc","serviceIp":"","servicePort":0,)"
              R"("serviceLabel":"","alarmType":2,"serviceId":"","serviceInstId":"","rsetClear":1700000000123,)"
              R"("nodeIp":"","callBackInfo":{"serviceName":"svc","registerName":"svc","serviceIp":""},"parameters":[]})",
              Object(&bare));
}

TEST(RetCode, AnswerTable) {
    const char kRootNull[] = "In AlmJsonParser::GetOprType, pJsonRoot is null!";
    const char kMissing[] = "AlmJsonParser::GetOprType, jsonRetCode is NULL.";
    const char kFailed[] = "AlmJsonParser::GetOprType, strRetCode is NULL.";
    const struct {
        const char* answer;
        const char* result;
        const char* logged;  // nullptr: nothing logged
    } rows[] = {
        {R"({"retCode":0})", "OK", nullptr},         {R"({"retCode":7})", "Failed", kFailed},
        {R"({"retCode":-1})", "Failed", kFailed},    {R"({"retCode":true})", "Failed", kFailed},
        {R"({"retCode":3e10})", "Failed", kFailed},
        // Anything cJSON holds as integer 0 is success, by design.
        {R"({"retCode":"0"})", "OK", nullptr},       {R"({"retCode":"1"})", "OK", nullptr},
        {R"({"retCode":false})", "OK", nullptr},     {R"({"retCode":null})", "OK", nullptr},
        {R"({"retCode":[1]})", "OK", nullptr},       {R"({"retCode":{"a":1}})", "OK", nullptr},
        // The key is looked up without regard to case; trailing text is ignored.
        {R"({"RETCODE":5})", "Failed", kFailed},     {R"({"RetCode":0,"retCode":9})", "OK", nullptr},
        {R"({"retCode":0} trailing)", "OK", nullptr},
        {"{}", "", kMissing},                        {R"({"resultCode":0})", "", kMissing},
        {"[0]", "", kMissing},                       {"", "", kRootNull},
        {"not json", "", kRootNull},                 {R"({"retCode":)", "", kRootNull},
        {nullptr, "", kRootNull},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer != nullptr ? row.answer : "(null)");
        testsupport::LogCapture log;
        EXPECT_EQ(row.result, AlmJsonParser::GetRetCodeEx(row.answer));
        EXPECT_EQ(row.logged != nullptr ? std::string(row.logged) + "\n" : "", log.texts());
        EXPECT_EQ(log.lines().size(), log.count(row.logged != nullptr ? row.logged : "", 5, kSource));
    }
}

// cJSON allocations through these fail exactly at the armed call and are
// tracked while live, so each failure path is checked for its line and leaks.
long g_failAt = -1;
long g_calls = 0;
std::set<void*> g_live;
void* FailingMalloc(std::size_t size) {
    void* p = g_calls++ == g_failAt ? nullptr : std::malloc(size);
    if (p != nullptr) {
        g_live.insert(p);
    }
    return p;
}
void TrackedFree(void* p) {
    g_live.erase(p);
    std::free(p);
}

TEST(PushDocumentFailures, EveryAllocationFailureIsHandled) {
    std::unique_ptr<AlarmEx> first = FullAlarm("1"), second = FullAlarm("0");
    const std::list<AlarmEx*> alarms{first.get(), second.get()};
    const std::string complete = Document(alarms);
    cJSON_Hooks hooks{&FailingMalloc, &TrackedFree};
    cJSON_InitHooks(&hooks);
    cJSON_free(AlmJsonParser::GenRestDataJsonEx(alarms));
    const long allocations = g_calls;
    ASSERT_GT(allocations, 20);
    std::set<std::string> seen;
    for (long failAt = 0; failAt < allocations; ++failAt) {
        SCOPED_TRACE(failAt);
        testsupport::LogCapture log;
        g_failAt = failAt;
        g_calls = 0;
        char* text = AlmJsonParser::GenRestDataJsonEx(alarms);
        g_failAt = -1;
        if (text != nullptr) {
            // Whatever was built is valid JSON, no longer than the complete document.
            const std::string copy = text;
            cJSON_free(text);
            EXPECT_NE(nullptr, Parse(copy)) << copy;
            EXPECT_LE(copy.size(), complete.size());
        }
        for (const testsupport::LogLine& line : log.lines()) {
            seen.insert(line.text);
        }
        // The one path that has always kept its payload object alive.
        const bool listFailed = log.contains("AlmJsonParser::GenPayloadNodeEx, pJsonpJsonAlarmList is NULL.");
        EXPECT_TRUE(!listFailed || text == nullptr);
        EXPECT_EQ(listFailed ? 1u : 0u, g_live.size());
        for (void* p : g_live) {
            std::free(p);
        }
        g_live.clear();
    }
    cJSON_InitHooks(nullptr);
    for (const char* expected : {"AlmJsonParser::GenRestDataJsonEx, pJsonBusiness is null.",
                                 "AlmJsonParser::GenRestDataJsonEx, pJsonPayload is null.",
                                 "In AlmJsonParser::GenPayloadNodeEx, pJsonPayload is null!",
                                 "AlmJsonParser::GenPayloadNodeEx, pJsonpJsonAlarmList is NULL.",
                                 "In AlmJsonParser::GenAlarmEx, pAlarmJson is null!"}) {
        EXPECT_EQ(1u, seen.count(expected)) << expected;
    }
}

// Differential: both generations' documents against the builders as they were before they were made cheaper (kept
// frozen), over random batches of random records: texts with quotes, escapes, control bytes, UTF-8 and stray high bytes
// (zero bytes inside the C++ strings too), and integers on both sides of the 15 digits cJSON prints exactly.
class RandomRecords {
public:
    explicit RandomRecords(unsigned int seed) : rng_(seed) {}

    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng_); }

    std::string text(bool zeroBytes) {
        static const char* const kPieces[] = {"a", "Z", "9", "-", "\"", "\\", "/", "\n", "\t", "\x01", "\x1f",
                                              "\x7f", "\xc3\xa9", "\xe4\xb8\xad", "\xff", " ", "%d", "{}"};
        std::string out;
        for (int n = pick(0, 24); n > 0; --n) {
            out += kPieces[pick(0, 17)];
        }
        if (zeroBytes && pick(0, 9) == 0) {
            out.insert(static_cast<std::size_t>(pick(0, static_cast<int>(out.size()))), 1, '\0');
        }
        return out;
    }

    int64_t integer() {
        static const int64_t kEdges[] = {0, 1, -1, 999999999999999LL, -999999999999999LL, 1000000000000000LL,
                                         -1000000000000000LL, 9007199254740993LL, INT64_MAX, INT64_MIN,
                                         1700000000123LL, 65535};
        const int kind = pick(0, 3);
        return kind == 0   ? kEdges[pick(0, 11)] : kind == 1 ? pick(-1000, 1000)
                           : static_cast<int64_t>(std::uniform_int_distribution<uint64_t>()(rng_)) >> pick(0, 62);
    }

    std::unique_ptr<AlarmEx> alarm() {
        static const char* const kIds[] = {"0", "300012", "1", "", "123456789", "00", "10"};
        // Generate, clear, or a default record's type -1.
        const int type = pick(0, 2);
        auto record = type == 2 ? std::make_unique<AlarmEx>()
                                : std::make_unique<AlarmEx>("", type == 0 ? ZEB_ALARM_GENERATE : ZEB_ALARM_CLEAR);
        record->setAlarmId(kIds[pick(0, 6)]);
        for (int n = pick(0, 7); n > 0; --n) {
            record->appendParameter(text(false).c_str(), text(false).c_str());
        }
        for (auto set : {&AlarmEx::setServiceName, &AlarmEx::setServiceId, &AlarmEx::setServiceInsId, &AlarmEx::setAppId,
                         &AlarmEx::setNodeIp, &AlarmEx::SetServiceIp, &AlarmEx::setServiceLabel}) {
            (record.get()->*set)(text(true));
        }
        record->setRsetClear(static_cast<long>(integer()));
        record->setServicePort(static_cast<unsigned short>(integer()));
        record->ResetAlarmTime(static_cast<long>(integer()));
        return record;
    }

    template <std::size_t... N> void fill(char (&... fields)[N]) {
        ((std::strcpy(fields, text(false).substr(0, N - 1).c_str())), ...);
    }

    std::unique_ptr<_AlarmModel> model() {
        auto m = std::make_unique<_AlarmModel>();
        fill(m->appId, m->appName, m->serviceName, m->nodeIp, m->serviceID, m->serviceInstID, m->alarmName,
             m->probableCause, m->location, m->appendInfo);
        std::strcpy(m->alarmId, pick(0, 19) == 0 ? "0" : "300001");
        // Packed fields: assigned, never written through a pointer.
        m->rsetClear = integer();
        m->alarmEventType = integer();
        m->genClearAlarmType = integer();
        m->alarmLevel = integer();
        m->alarmGenTime = integer();
        m->alarmClearTime = integer();
        m->alarmClearType = integer();
        m->isCanAutoClearType = integer();
        m->eventType = integer();
        return m;
    }

private:
    std::mt19937_64 rng_;
};

// The announcement's time is taken while each document is built.
std::string WithoutOccurTime(std::string text) {
    for (std::size_t at = text.find("\"occurTime\":"); at != std::string::npos; at = text.find("\"occurTime\":", at + 1)) {
        const std::size_t from = at + 12;
        text.erase(from, text.find_first_not_of("-0123456789", from) - from);
    }
    return text;
}

TEST(PushDocumentDifferential, BothGenerationsPrintWhatTheFrozenBuildersPrint) {
    testsupport::ScopedEnv appId("APPID", "app-\"7\"");
    RandomRecords random(1313u);
    for (int round = 0; round < 150; ++round) {
        std::vector<std::unique_ptr<AlarmEx>> alarms;
        std::vector<std::unique_ptr<_AlarmModel>> models;
        std::list<AlarmEx*> alarmList;
        std::list<_AlarmModel*> modelList;
        for (int n = round < 2 ? round : random.pick(1, 60); n > 0; --n) {
            alarms.push_back(random.alarm());
            models.push_back(random.model());
            alarmList.push_back(random.pick(0, 29) == 0 ? nullptr : alarms.back().get());
            modelList.push_back(models.back().get());
        }
        SCOPED_TRACE(round);
        ASSERT_EQ(Printed(&frozen::GenRestDataJsonEx, alarmList), Document(alarmList));
        ASSERT_EQ(WithoutOccurTime(Printed(&frozen::GenRestDataJson, modelList)),
                  WithoutOccurTime(Printed(&AlmJsonParser::GenRestDataJson, modelList)));
    }
}

}  // namespace
