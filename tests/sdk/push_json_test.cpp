// The wire formats: the push documents (exact texts, the agent's answer, allocation failures, both generations against
// the frozen earlier builders) and the base64 pair (exact output, the decoder's leniencies and refusals, the frozen
// earlier codec as the reference for random input).
#include <cjson/cJSON.h>

#include <numeric>
#include <random>
#include <set>

#include "AlarmAdapter.h"
#include "AlmJsonParser.h"
#include "Base64.h"
#include "FrozenBase64.h"
#include "FrozenPushDocument.h"
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
        const char *answer, *result, *logged;  // logged: nullptr when nothing is
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

// Bytes past the written output keep this value: neither function terminates.
constexpr char kFill = '#';

TEST(Base64, EncodesExactlyDecodesLenientlyAndRefuses) {
    std::string allBytes(256, '\0');
    std::iota(allBytes.begin(), allBytes.end(), '\0');
    const std::pair<std::string, std::string> encodings[] = {{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {allBytes, nodeward::EncodeBase64(allBytes)}};
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
        {"", 0, 0, ""}, {"Zg==", 4, 0, "f"}, {"Zm8=", 4, 0, "fo"}, {"Zm9vYmFy", 8, 0, "foobar"},
        // Line feed, carriage return and space are skipped but count toward inlen; a group left incomplete is dropped.
        {"TW\r\nFu  ", 8, 0, "Man"}, {" T W F u", 8, 0, "Man"}, {"TWFu TW ", 8, 0, "Man"},
        // The text is read to its terminator, whatever inlen says.
        {"TWFuTWE=", 4, 0, "ManMa"},
        // Every '=' lowers the byte count of that group and of every later one.
        {"TQ==TWFu", 8, 0, "MM"}, {"TWE=TWFuTWFu", 12, 0, "MaMaMa"}, {"TW=uTWFu", 8, 0, "M`Ma"},
        {"TWF", 3, -1, ""}, {"TW\r\nFu", 6, -1, ""},
        // Output before a bad byte stays.
        {"TWFu\tAAA", 8, -1, "Man"}, {"TWFu-AAA", 8, -1, "Man"}, {"TWFu_AAA", 8, -1, "Man"},
        {"TWFu\x80" "AAA", 8, -1, "Man"}, {"TWFu\xff" "AAA", 8, -1, "Man"},
    };
    for (const auto& row : decodings) {
        SCOPED_TRACE(row.text);
        std::string in = row.text;
        std::vector<char> out(row.text.size() + 8, kFill);
        int outlen = -7;
        EXPECT_EQ(row.rc, zeb_alm_base64_decode(&in[0], row.inlen, out.data(), &outlen));
        EXPECT_EQ(row.rc == 0 ? static_cast<int>(row.plain.size()) : -7, outlen);
        EXPECT_EQ(row.plain, std::string(out.data(), row.plain.size()));
        EXPECT_EQ(kFill, out[row.plain.size()]) << "wrote a terminator or more";
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
    EXPECT_EQ("In zeb_alm_base64_encode, indata is null!\nIn zeb_alm_base64_decode, indata is null!\n"
              "In zeb_alm_base64_encode, outdata is null!\nIn zeb_alm_base64_decode, outdata is null!\n", log.texts());
    for (const auto& line : log.lines()) {
        EXPECT_EQ("5 ../src/Base64", testsupport::Words(line.level, line.source));
    }
}

// Differential: the codec against its earlier implementation, kept frozen, on random bytes and on texts mixing the
// alphabet with whitespace, '=', tabs and other bytes. Results, lengths and every byte of the output buffers (what lies
// past the written part included) must be the same.
TEST(Base64Differential, SameResultsAndBuffersAsTheFrozenCodec) {
    std::mt19937 rng(1311u);
    const std::string pieces = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string odd("\n\r =\t-_.\x80\xff\0", 11);  // the zero byte ends a text early
    auto pick = [&rng](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    for (int iteration = 0; iteration < 3000; ++iteration) {
        const int len = iteration < 64 ? iteration : pick(0, 700);
        std::string plain(static_cast<std::size_t>(len), '\0');
        for (char& c : plain) {
            c = static_cast<char>(pick(0, 255));
        }
        const std::size_t encodedSize = (plain.size() + 2) / 3 * 4;
        std::vector<char> ours(encodedSize + 4, kFill), theirs(ours);
        unsigned int ourLen = 1, theirLen = 2;
        ASSERT_EQ(frozen::Base64Encode(&plain[0], len, theirs.data(), &theirLen),
                  zeb_alm_base64_encode(&plain[0], len, ours.data(), &ourLen));
        ASSERT_EQ(theirLen, ourLen);
        ASSERT_EQ(theirs, ours) << "encoding " << len << " bytes";

        // Valid text with whitespace and stray bytes sprinkled in; every third one is noise throughout.
        std::string text(ours.data(), encodedSize);
        const int insertions = iteration % 3 == 0 ? len / 2 : pick(0, 6);
        for (int k = 0; k < insertions; ++k) {
            const char c = iteration % 3 == 0 ? (k % 2 != 0 ? pieces[pick(0, 63)] : odd[pick(0, 10)])
                                              : odd[pick(0, iteration % 2 != 0 ? 3 : 10)];
            text.insert(static_cast<std::size_t>(pick(0, static_cast<int>(text.size()))), 1, c);
        }
        for (const int inlen : {static_cast<int>(text.size()), static_cast<int>(text.size() & ~std::size_t{3})}) {
            std::vector<char> ourOut(text.size() + 4, kFill), theirOut(ourOut);
            int ourCount = -7, theirCount = -7;  // left alone on failure
            ASSERT_EQ(frozen::Base64Decode(&text[0], inlen, theirOut.data(), &theirCount),
                      zeb_alm_base64_decode(&text[0], inlen, ourOut.data(), &ourCount)) << text;
            ASSERT_EQ(theirCount, ourCount) << text;
            ASSERT_EQ(theirOut, ourOut) << text;
        }
    }
}

}  // namespace
