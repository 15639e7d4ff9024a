// The C entry points: argument checks in argument order with their exact log texts and length limits, the C alarm
// object's own rules, and the record.
#include <chrono>
#include <map>

#include "AlarmConfig.h"
#include "SdkTestSupport.h"

namespace {

const char kImpl[] = "../src/AlarmImpl";

void NoCallback(char*) {}
std::string X(std::size_t n) { return std::string(n, 'x'); }
int Result(int result) { return result; }
int Result(const void* made) { return made != nullptr ? 0 : -1; }
// Rows of refused calls: the call and its result (0 or -1; a pointer made or not), and the one error line it logs.
// clang-format off
#define REFUSED(function, args, error) {[=] { return Result(function args); }, error}
#define NULL_ARG(function, args, argument) REFUSED(function, args, "In " #function ", " #argument " is null!")
#define TOO_LONG(function, args, argument, limit) \
    REFUSED(function, args, "In %,The length of the " #argument " is longer than " #limit " ")
// clang-format on

class CApi : public ::testing::Test {
protected:
    testsupport::PauseRecorder pauses_;
    testsupport::LogCapture log_;
};

TEST_F(CApi, RefusedArgumentsGiveTheFailureResultAndOneErrorLine) {
    AlarmManagerEx* h = ZEBInitAlarmSDK4CoProcess("app", "svc", "10.0.0.1", "10.0.0.5");
    ASSERT_NE(nullptr, h);
    _ZEBAlarm* alarm = ZEBAllocAlarm("1", 0);
    const struct Row {
        std::function<int()> call;
        const char* error;
    } rows[] = {
        // clang-format off
        NULL_ARG(ZEBRegisterRsetClearInfo, (nullptr, nullptr, nullptr, 1), pStrServiceName),
        NULL_ARG(ZEBRegisterRsetClearInfo, ("s", nullptr, "i", 1), pStrServiceId),
        NULL_ARG(ZEBRegisterRsetClearInfo, ("s", "d", nullptr, 1), pStrServiceInsId),
        NULL_ARG(ZEBRegisterInfo, (nullptr, nullptr), pStrServiceName),
        TOO_LONG(ZEBRegisterInfo, (X(65).c_str(), "label"), pStrServiceName, ALARM_SERVICENAME_MAXLEN),
        TOO_LONG(ZEBRegisterInfo, ("", "label"), pStrServiceName, ALARM_SERVICENAME_MAXLEN),
        NULL_ARG(ZEBRegisterInfo, ("svc", nullptr), pServiceLabel),
        TOO_LONG(ZEBRegisterInfo, ("svc", X(257).c_str()), pServiceLabel, ALARM_SERVICELABEL_MAXLEN),
        TOO_LONG(ZEBRegisterInfo, ("svc", ""), pServiceLabel, ALARM_SERVICELABEL_MAXLEN),
        NULL_ARG(ZEBAllocAlarm, (nullptr, 0), pStrAlarmId),
        NULL_ARG(ZEBSetAlarmServiceName, (nullptr, "x"), pAlarm),
        NULL_ARG(ZEBAppendAlarmParam, (nullptr, nullptr, nullptr), pZEBAlarmObject),
        NULL_ARG(ZEBAppendAlarmParam, (alarm, nullptr, "v"), pStrParamName),
        NULL_ARG(ZEBAppendAlarmParam, (alarm, "n", nullptr), pStrParamValue),
        NULL_ARG(ZEBFreeAlarm, (nullptr), pZEBAlarmObject),
        NULL_ARG(ZEBRegisterAlarmCheckCallBackFun, (nullptr, &NoCallback), szServiceName),
        NULL_ARG(ZEBRegisterAlarmCheckCallBackFun, ("svc", nullptr), callbackFun),
        NULL_ARG(ZEBRegisterRsetClear, (nullptr), pAlarmManagerInstance),
        NULL_ARG(ZEBInitAlarmSDK4CoProcess, (nullptr, "s", "n", "i"), pStrAppId),
        TOO_LONG(ZEBInitAlarmSDK4CoProcess, (X(65).c_str(), "s", "n", "i"), pStrAppId, ALARM_APPID_MAXLEN),
        NULL_ARG(ZEBInitAlarmSDK4CoProcess, ("a", nullptr, "n", "i"), pStrServiceName),
        TOO_LONG(ZEBInitAlarmSDK4CoProcess, ("a", X(65).c_str(), "n", "i"), pStrServiceName, ALARM_SERVICENAME_MAXLEN),
        NULL_ARG(ZEBInitAlarmSDK4CoProcess, ("a", "s", nullptr, "i"), pStrNodeIp),
        TOO_LONG(ZEBInitAlarmSDK4CoProcess, ("a", "s", X(257).c_str(), "i"), pStrNodeIp, ALARM_NODEIP_MAXLEN),
        NULL_ARG(ZEBInitAlarmSDK4CoProcess, ("a", "s", "n", nullptr), pStrServiceIp),
        TOO_LONG(ZEBInitAlarmSDK4CoProcess, ("a", "s", "n", X(65).c_str()), pStrServiceIp, ALARM_SERVICEIP_MAXLEN),
        NULL_ARG(ZEBRegisterRsetClearInfo4CoProcess, (nullptr, "s", "d", "i", 0), pAlarmManagerInstance),
        NULL_ARG(ZEBRegisterRsetClearInfo4CoProcess, (h, nullptr, "d", "i", 0), pStrServiceName),
        TOO_LONG(ZEBRegisterRsetClearInfo4CoProcess, (h, X(65).c_str(), "d", "i", 0),
                 pStrServiceName, ALARM_SERVICENAME_MAXLEN),
        NULL_ARG(ZEBRegisterRsetClearInfo4CoProcess, (h, "s", nullptr, "i", 0), pStrServiceId),
        TOO_LONG(ZEBRegisterRsetClearInfo4CoProcess, (h, "s", X(257).c_str(), "i", 0),
                 pStrServiceId, ALARM_SERVICEID_MAXLEN),
        NULL_ARG(ZEBRegisterRsetClearInfo4CoProcess, (h, "s", "d", nullptr, 0), pStrServiceInsId),
        TOO_LONG(ZEBRegisterRsetClearInfo4CoProcess, (h, "s", "d", X(257).c_str(), 0),
                 pStrServiceInsId, ALARM_SERVICEINSID_MAXLEN),
        // Empty texts pass unless the service asks for reset-clear.
        TOO_LONG(ZEBRegisterRsetClearInfo4CoProcess, (h, "", "a", "b", 1), pStrServiceName, ALARM_SERVICENAME_MAXLEN),
        TOO_LONG(ZEBRegisterRsetClearInfo4CoProcess, (h, "s", "", "b", 1), pStrServiceId, ALARM_SERVICEID_MAXLEN),
        TOO_LONG(ZEBRegisterRsetClearInfo4CoProcess, (h, "s", "a", "", 1), pStrServiceInsId, ALARM_SERVICEINSID_MAXLEN),
        NULL_ARG(ZEBRegisterInfo4CoProcess, (nullptr, "label"), pAlarmManagerInstance),
        NULL_ARG(ZEBRegisterInfo4CoProcess, (h, nullptr), pStrServiceLabel),
        TOO_LONG(ZEBRegisterInfo4CoProcess, (h, ""), pStrServiceLabel, ALARM_SERVICELABEL_MAXLEN),
        TOO_LONG(ZEBRegisterInfo4CoProcess, (h, X(257).c_str()), pStrServiceLabel, ALARM_SERVICELABEL_MAXLEN),
        NULL_ARG(ZEBSendAlarm4CoProcess, (nullptr, alarm), pAlarmManagerInstance),
        // Unlike ZEBSendAlarm, a null alarm is reported before any conversion.
        NULL_ARG(ZEBSendAlarm4CoProcess, (h, nullptr), pZEBAlarmObject),
        NULL_ARG(ZEBRegisterAlarmCheckCallBackFun4CoProcess, (nullptr, &NoCallback), pAlarmManagerInstance),
        NULL_ARG(ZEBRegisterAlarmCheckCallBackFun4CoProcess, (h, nullptr), callbackFun),
        // clang-format on
    };
    for (const Row& row : rows) {
        log_.clear();
        EXPECT_EQ(-1, row.call()) << row.error;
        EXPECT_EQ(1u, log_.count(row.error, 5, kImpl)) << log_.dump();
        EXPECT_EQ(1u, log_.lines().size()) << log_.dump();
    }
    EXPECT_EQ(nullptr, +alarm->paramList);
    // A null alarm is reported by the conversion, then as a missing record.
    log_.clear();
    EXPECT_EQ(-1, ZEBSendAlarm(nullptr));
    EXPECT_EQ("In ZEBConvert2AlarmEx, pZEBAlarmObject is null!\nIn ZEBSendAlarm, pAlarmEx is null!\n", log_.texts());
    // Accepted at the limits.
    EXPECT_EQ(0, ZEBRegisterRsetClearInfo4CoProcess(h, "", "a", "b", 0));
    EXPECT_EQ(0, ZEBRegisterInfo(X(64).c_str(), X(256).c_str()));
    const AlarmManagerEx* singleton = AlarmManagerEx::getInstance();
    EXPECT_EQ(X(64) + X(256), singleton->getServiceName() + singleton->getServiceLabel());
    AlarmManagerEx* limits = ZEBInitAlarmSDK4CoProcess(X(64).c_str(), "", X(256).c_str(), "");
    ASSERT_NE(nullptr, limits);
    EXPECT_EQ(X(64) + X(256), limits->getAppId() + limits->getNodeIp());
    ZEBFreeAlarm(alarm);
}

// Fields of the packed C object are compared as values (+field): a reference to a misaligned field is undefined.
TEST_F(CApi, AlarmObjectKeepsItsLayoutRules) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("123456789", 1);
    ASSERT_NE(nullptr, alarm);
    EXPECT_EQ("123456789 1", testsupport::Words(alarm->alarmId, alarm->alarmType));
    EXPECT_TRUE(log_.contains("the len of alarm memory is 158d, len of AlarmObjectEx is 22d, len of AlarmParam is 256d",
                              2, kImpl));
    _ZEBAlarm* longId = ZEBAllocAlarm("1234567890", 0);
    EXPECT_STREQ("", longId->alarmId);
    ZEBFreeAlarm(longId);

    log_.clear();
    const int refused[] = {ZEBResetAlarmTime(alarm, 999999999L), ZEBResetAlarmTime(alarm, -5L),
                           ZEBResetAlarmTime(nullptr, 1700000000000L)};
    EXPECT_EQ("-1 -1 -1", testsupport::Words(refused[0], refused[1], refused[2]));
    EXPECT_TRUE(log_.lines().empty()) << "refused times are not logged";
    EXPECT_EQ(0, +alarm->alarmTime);
    EXPECT_EQ(0, ZEBResetAlarmTime(alarm, 1000000000L));  // read back by the conversion below

    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, X(127).c_str()));
    EXPECT_EQ(X(127), alarm->serviceName);
    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, X(128).c_str()));
    EXPECT_STREQ("", alarm->serviceName);
    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, nullptr));

    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, X(200).c_str(), "v1"));
    EXPECT_TRUE(log_.contains("the len of alarm memory is 264d, len of ZEBAlarmParam is 22d, len of AlarmParam is 256d",
                              2, kImpl));
    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, "b", X(300).c_str()));
    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, "b", "dup"));
    std::string listed;
    for (const _ZEBAlarmParam* p = alarm->paramList; p != nullptr; p = p->next) {
        listed += std::string(p->paramName) + "=" + p->paramValue + ";";
    }
    EXPECT_EQ(X(127) + "=v1;b=" + X(127) + ";b=dup;", listed);

    // Conversion: clear maps to wire type 2, a duplicate name keeps its first value.
    AlarmEx* record = ZEBConvert2AlarmEx(alarm);
    EXPECT_EQ("2 1000000000 2",
              testsupport::Words(record->getAlarmType(), record->GetAlarmTime(), record->getParamMap().size()));
    EXPECT_EQ(X(127), record->getParamMap()["b"]);
    delete record;
    // Types other than 0 and 1 are raised.
    for (const int32_t type : {7, -1}) {
        alarm->alarmType = type;
        record = ZEBConvert2AlarmEx(alarm);
        EXPECT_EQ(1, record->getAlarmType()) << type;
        delete record;
    }
    // An id the caller wrote without a terminator is read no further than its field.
    std::memset(alarm->alarmId, 'x', sizeof(alarm->alarmId));
    record = ZEBConvert2AlarmEx(alarm);
    EXPECT_STREQ("", record->getAlarmId());
    delete record;
    EXPECT_EQ(0, ZEBFreeAlarm(alarm));
}

// Conversion keeps every name once, with its first value, whatever the order, the repeats and the length of the list.
TEST(AlarmConversion, EveryNameOnceWithItsFirstValue) {
    using Params = std::vector<std::pair<std::string, std::string>>;
    const std::string high = "\xc3\xa9";  // sorts after every ASCII name
    const Params rows[] = {
        {{"b", "1"}, {"a", "2"}, {"b", "3"}, {"c", "4"}},
        {{"m", "1"}, {"z", "2"}, {"a", "3"}, {"m", "4"}, {"z", "5"}, {"a", "6"}},
        {{"abc", "1"}, {"a", "2"}, {"ab", "3"}, {"", "4"}, {"", "5"}, {high, "6"}, {"ab", "7"}},
        {{X(127), "1"}, {X(126), "2"}, {X(127), "3"}},
        // More names than are sorted on the stack, repeats on either side of the limit.
        {{"h", "1"}, {"g", "2"}, {"f", "3"}, {"e", "4"}, {"d", "5"}, {"c", "6"}, {"b", "7"}, {"h", "8"}, {"a", "9"}},
        {{"h", "1"},
         {"g", "2"},
         {"f", "3"},
         {"e", "4"},
         {"d", "5"},
         {"c", "6"},
         {"b", "7"},
         {"a", "8"},
         {"i", "9"},
         {"a", "10"}},
    };
    for (const Params& row : rows) {
        _ZEBAlarm* alarm = ZEBAllocAlarm("1", 0);
        std::map<std::string, std::string> expected;
        for (const auto& [name, value] : row) {
            ASSERT_EQ(0, ZEBAppendAlarmParam(alarm, name.c_str(), value.c_str()));
            expected.emplace(name, value);
        }
        std::unique_ptr<AlarmEx> record(ZEBConvert2AlarmEx(alarm));
        EXPECT_EQ(expected, record->getParamMap()) << row.size() << " parameters from " << row.front().first;
        ZEBFreeAlarm(alarm);
    }
}

// The record: a bounded id (ten or more characters are left empty, never cut), wire type, unset markers, parameters.
TEST(AlarmRecord, IdTypeAndParameters) {
    AlarmEx alarm("42", ZEB_ALARM_GENERATE);
    for (const char* id : {"123456789", "1234567890", "12345678901234567890", "", "7"}) {
        const std::string expected = std::strlen(id) < 10 ? id : "";
        EXPECT_EQ(expected, AlarmEx(id, ZEB_ALARM_GENERATE).getAlarmId());
        alarm.setAlarmId(id);
        EXPECT_EQ(expected, alarm.getAlarmId());
    }
    alarm.setAlarmId(alarm.getAlarmId());  // onto itself
    EXPECT_STREQ("7", alarm.getAlarmId());
    EXPECT_STREQ("", AlarmEx(nullptr, ZEB_ALARM_GENERATE).getAlarmId());
    const auto type = [](int value) { return AlarmEx("1", static_cast<EU_GEN_CLEAR_TYPE>(value)).getAlarmType(); };
    EXPECT_EQ("1 2 0 0 -1", testsupport::Words(type(ZEB_ALARM_GENERATE), type(ZEB_ALARM_CLEAR), type(7), type(-1),
                                               AlarmEx().getAlarmType()));
    const AlarmEx plain;
    const char zeros[ZEB_ALARM_ID_SIZE] = {};
    EXPECT_EQ(0, std::memcmp(zeros, plain.getAlarmId(), ZEB_ALARM_ID_SIZE));
    EXPECT_EQ(-1, plain.getRsetClear());
    // The first value of a name wins; null is empty.
    for (const auto& [name, value] : std::vector<std::pair<const char*, const char*>>{
             {"p1", "a"}, {"p1", "b"}, {"p2", nullptr}, {nullptr, "x"}, {nullptr, "y"}}) {
        alarm.appendParameter(name, value);
    }
    EXPECT_EQ((std::map<std::string, std::string>{{"", "x"}, {"p1", "a"}, {"p2", ""}}), alarm.getParamMap());
}

int64_t WallMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Whole milliseconds of the wall clock, truncated, not rounded: sampled across several millisecond boundaries.
TEST(AlarmClock, WholeMillisecondsOfTheWallClock) {
    const int64_t start = WallMs();
    for (int i = 0; i < 2000000 && WallMs() < start + 10; ++i) {
        const int64_t before = WallMs();
        const uint64_t now = ALM_GetCurrMs();
        ASSERT_LE(static_cast<uint64_t>(before), now);
        ASSERT_LE(now, static_cast<uint64_t>(WallMs()));
    }
}

}  // namespace
