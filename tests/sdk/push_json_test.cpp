// The wire formats: both generations' push documents and the agent's answer, and the base64 pair.
#include <cjson/cJSON.h>

#include <numeric>
#include <set>

#include "AlarmAdapter.h"
#include "AlmJsonParser.h"
#include "Base64.h"
#include "SdkTestSupport.h"

namespace {

const char kSource[] = "../src/AlmJsonParser";
using JsonTree = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
using sdktest::FullAlarm;

JsonTree Parse(const std::string& text) { return JsonTree(cJSON_Parse(text.c_str()), &cJSON_Delete); }
std::string Taken(char* text) {
    std::string copy = text != nullptr ? text : "<null>";
    cJSON_free(text);
    return copy;
}
std::string Printed(cJSON* tree) { return Taken(cJSON_PrintUnformatted(JsonTree(tree, &cJSON_Delete).get())); }
std::string Document(const std::list<AlarmEx*>& alarms) { return Taken(AlmJsonParser::GenRestDataJsonEx(alarms)); }
std::string Object(AlarmEx* alarm) { return Printed(AlmJsonParser::GenAlarmEx(alarm)); }

// Exact texts: a full alarm in its envelope, an announcement (id "0" only: seven keys), a bare clear; nulls left out.
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
    EXPECT_EQ(2u, log.count("In AlmJsonParser::GenAlarmEx, pAlarm is null!", RUNLOG_LEVEL_ERROR, kSource))
        << log.dump();
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
    EXPECT_EQ(
        R"({"alarmId":"12","appId":"","occurTime":0,"serviceName":"svc","serviceIp":"","servicePort":0,)"
        R"("serviceLabel":"","alarmType":2,"serviceId":"","serviceInstId":"","rsetClear":1700000000123,)"
        R"("nodeIp":"","callBackInfo":{"serviceName":"svc","registerName":"svc","serviceIp":""},"parameters":[]})",
        Object(&bare));
    for (const char* id : {"00", "01", ""}) {
        EXPECT_EQ(14, cJSON_GetArraySize(Parse(Object(FullAlarm(id).get())).get())) << id;
    }
}

TEST(RetCode, AnswerTable) {
    const char kRootNull[] = "In AlmJsonParser::GetOprType, pJsonRoot is null!";
    const char kMissing[] = "AlmJsonParser::GetOprType, jsonRetCode is NULL.";
    const char kFailed[] = "AlmJsonParser::GetOprType, strRetCode is NULL.";
    const struct {
        const char *answer, *result, *logged;  // logged: nullptr when nothing is
    } rows[] = {
        {R"({"retCode":0})", "OK", nullptr},
        {R"({"retCode":7})", "Failed", kFailed},
        {R"({"retCode":-1})", "Failed", kFailed},
        {R"({"retCode":"1"})", "OK", nullptr},  // anything cJSON holds as integer 0 is success, by design
        // The key is looked up without regard to case; trailing text is ignored.
        {R"({"RETCODE":5})", "Failed", kFailed},
        {R"({"retCode":0} trailing)", "OK", nullptr},
        {R"({"resultCode":0})", "", kMissing},
        {"[0]", "", kMissing},
        {"", "", kRootNull},
        {"not json", "", kRootNull},
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

// cJSON allocations fail exactly at the armed call and are tracked while live: each failure path's line and leaks.
long g_failAt = -1, g_calls = 0;
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
        if (text != nullptr) {  // whatever was built is valid JSON, no longer than the complete document
            const std::string copy = Taken(text);
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

// Integers print as cJSON prints a double (digits below 10^15, 15 or 17 digits beyond) in both generations' fields.
TEST(PushDocument, IntegersPrintAsCJsonNumbers) {
    const std::pair<int64_t, std::string> rows[] = {
        {-1, "-1"},
        {2147483648LL, "2147483648"},
        {999999999999999LL, "999999999999999"},
        {-1000000000000000LL, "-1e+15"},
        {1000000000000001LL, "1000000000000001"},
        {9007199254740993LL, "9.00719925474099e+15"},
        {INT64_MAX, "9.2233720368547758e+18"},
    };
    for (const auto& [value, number] : rows) {
        SCOPED_TRACE(number);
        AlarmEx alarm("7", ZEB_ALARM_GENERATE);
        alarm.ResetAlarmTime(static_cast<long>(value));
        alarm.setRsetClear(static_cast<long>(value));
        _AlarmModel model{};
        std::strcpy(model.alarmId, "1");
        model.alarmGenTime = model.eventType = value;
        const std::string text = Object(&alarm) + Printed(AlmJsonParser::GenAlarmModel(&model));
        for (const char* key : {"occurTime", "rsetClear", "alarmGenTime", "eventType"}) {
            EXPECT_NE(std::string::npos, text.find("\"" + std::string(key) + "\":" + number + ",")) << text;
        }
    }
}

// The legacy document in full: the service node, the envelope without "Receiver", every key of an alarm in order.
TEST(PushDocument, LegacyExactText) {
    testsupport::ScopedEnv appId("APPID", "app-\"7\"");
    _AlarmModel model{0,
                      "app-7",
                      "shop",
                      "storage",
                      "300001",
                      "10.0.0.1",
                      "svc-1",
                      "inst-1",
                      1,
                      2,
                      0,
                      "EN:Disk full##ZH:\xe7\xa3\x81\xe7\x9b\x98##",
                      3,
                      1700000000123LL,
                      -1,
                      2,
                      1,
                      0,
                      4,
                      "",
                      "EN:Disk=sda##ZH:d=\"sda\"\n##",
                      "EN:##ZH:##",
                      {}};
    EXPECT_EQ(R"({"service":{"name":"szServiceName","appid":"app-\"7\"","ipaddress":"","port":7888,"time_stamp":0},)"
              R"("business":{"name":"PushAlarm"},"payload":{"alarmList":[{"alarmName":"EN:Disk full##ZH:)"
              "\xe7\xa3\x81\xe7\x9b\x98"
              R"(##","appId":"app-7","alarmId":"300001","appName":"shop","serviceName":"storage","alarmEventType":2,)"
              R"("genClearAlarmType":0,"alarmLevel":3,"alarmGenTime":1700000000123,"alarmClearTime":-1,)"
              R"("alarmClearType":2,"isCanAutoClearType":1,"eventType":4,"probableCause":"","nodeID":"10.0.0.1",)"
              R"("NodeIp":"10.0.0.1","serviceID":"svc-1","serviceInstID":"inst-1","rsetClear":1,)"
              R"("location":"EN:Disk=sda##ZH:d=\"sda\"\n##","appendInfo":"EN:##ZH:##"}]}})",
              Taken(AlmJsonParser::GenRestDataJson(std::list<_AlarmModel*>{&model})));
}

// Bytes past the written output keep this value: neither function terminates.
constexpr char kFill = '#';

// Decodes text (inlen bytes) into a filled buffer: the result, outlen (-7 when untouched) and the bytes written.
std::string Decoded(std::string text, int inlen, std::size_t written) {
    std::vector<char> out(text.size() + 8, kFill);
    int outlen = -7;
    const int rc = zeb_alm_base64_decode(&text[0], inlen, out.data(), &outlen);
    EXPECT_EQ(kFill, out[written]) << "wrote a terminator or more";
    return testsupport::Words(rc, outlen, std::string(out.data(), written));
}

TEST(Base64, EncodesExactlyDecodesLenientlyAndRefuses) {
    std::string allBytes(256, '\0');
    std::iota(allBytes.begin(), allBytes.end(), '\0');
    const std::pair<std::string, std::string> encodings[] = {{"", ""},
                                                             {"f", "Zg=="},
                                                             {"fo", "Zm8="},
                                                             {"foo", "Zm9v"},
                                                             {"foob", "Zm9vYg=="},
                                                             {"fooba", "Zm9vYmE="},
                                                             {"foobar", "Zm9vYmFy"},
                                                             {allBytes, nodeward::EncodeBase64(allBytes)}};
    for (const auto& [plain, text] : encodings) {
        SCOPED_TRACE(text);
        // The input lies in a block of exactly its size: a read past inlen is an ASan finding.
        std::unique_ptr<char[]> in(new char[plain.size() + 1]);
        std::memcpy(in.get(), plain.data(), plain.size());
        std::vector<char> out(text.size() + 8, kFill);
        unsigned int outlen = 12345;
        EXPECT_EQ(0, zeb_alm_base64_encode(in.get(), static_cast<int>(plain.size()), out.data(), &outlen));
        EXPECT_EQ(text, std::string(out.data(), text.size()));
        EXPECT_EQ(text.size(), outlen);
        EXPECT_EQ(kFill, out[text.size()]) << "wrote past its output";
        EXPECT_EQ(testsupport::Words(0, plain.size(), plain),
                  Decoded(text, static_cast<int>(text.size()), plain.size()));
    }
    char man[] = "Man", encoded[8] = {}, decoded[4] = {};  // outlen is optional
    EXPECT_EQ(0, zeb_alm_base64_encode(man, 3, encoded, nullptr));
    EXPECT_EQ(0, zeb_alm_base64_decode(encoded, 4, decoded, nullptr));
    EXPECT_EQ("TWFu Man", testsupport::Words(encoded, std::string(decoded, 3)));
    // Decoding: lenient about whitespace and padding, refusing bad lengths and bytes.
    const struct {
        std::string text;
        int inlen, rc;
        std::string plain;  // what was written, also on failure
    } decodings[] = {
        // Line feed, carriage return and space are skipped but count toward inlen; a group left incomplete is dropped.
        {"TW\r\nFu  ", 8, 0, "Man"},
        {" T W F u", 8, 0, "Man"},
        {"TWFu TW ", 8, 0, "Man"},
        // The text is read to its terminator, whatever inlen says.
        {"TWFuTWE=", 4, 0, "ManMa"},
        // Every '=' lowers the byte count of that group and of every later one.
        {"TQ==TWFu", 8, 0, "MM"},
        {"TWE=TWFuTWFu", 12, 0, "MaMaMa"},
        {"TW=uTWFu", 8, 0, "M`Ma"},
        {"TWF", 3, -1, ""},
        {"TW\r\nFu", 6, -1, ""},
        // Output before a bad byte stays.
        {"TWFu\tAAA", 8, -1, "Man"},
        {"TWFu-AAA", 8, -1, "Man"},
        {"TWFu\377AAA", 8, -1, "Man"},
    };
    for (const auto& row : decodings) {
        SCOPED_TRACE(row.text);
        const int outlen = row.rc == 0 ? static_cast<int>(row.plain.size()) : -7;
        EXPECT_EQ(testsupport::Words(row.rc, outlen, row.plain), Decoded(row.text, row.inlen, row.plain.size()));
    }
    // Missing pointers fail with one line, input first; other refusals are silent.
    testsupport::LogCapture log;
    char buf[8] = "TWFu";
    char bad[] = "TW-u";
    unsigned int encodedLength = 99;
    int decodedLength = 99;
    const int results[] = {zeb_alm_base64_encode(nullptr, 3, nullptr, &encodedLength),
                           zeb_alm_base64_decode(nullptr, 4, nullptr, &decodedLength),
                           zeb_alm_base64_encode(buf, 3, nullptr, &encodedLength),
                           zeb_alm_base64_decode(buf, 4, nullptr, &decodedLength),
                           zeb_alm_base64_decode(buf, 3, buf, &decodedLength),
                           zeb_alm_base64_decode(bad, 4, buf, &decodedLength)};
    EXPECT_EQ(std::vector<int>(6, -1), std::vector<int>(std::begin(results), std::end(results)));
    EXPECT_EQ(99u + 99u, encodedLength + static_cast<unsigned int>(decodedLength));
    EXPECT_EQ(
        "In zeb_alm_base64_encode, indata is null!\nIn zeb_alm_base64_decode, indata is null!\n"
        "In zeb_alm_base64_encode, outdata is null!\nIn zeb_alm_base64_decode, outdata is null!\n",
        log.texts());
    for (const auto& line : log.lines()) {
        EXPECT_EQ("5 ../src/Base64", testsupport::Words(line.level, line.source));
    }
}

}  // namespace
