// The C entry points: argument checks in argument order with their exact log
// texts and length limits, the C alarm object's own rules, and the record.
#include <chrono>
#include <map>

#include "AlarmConfig.h"
#include "SdkTestSupport.h"

namespace {

const char kImpl[] = "../src/AlarmImpl";
const char* const kNameLength = "In %,The length of the pStrServiceName is longer than ALARM_SERVICENAME_MAXLEN ";
const char* const kIdLength = "In %,The length of the pStrServiceId is longer than ALARM_SERVICEID_MAXLEN ";
const char* const kInsLength = "In %,The length of the pStrServiceInsId is longer than ALARM_SERVICEINSID_MAXLEN ";
const char* const kLabelLength = "In %,The length of the pServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ";
const char* const kCoLabelLength = "In %,The length of the pStrServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ";

void NoCallback(char*) {}
std::string X(std::size_t n) { return std::string(n, 'x'); }

class CApi : public ::testing::Test {
protected:
    testsupport::PauseRecorder pauses_;
    testsupport::LogCapture log_;
};

TEST_F(CApi, RefusedArgumentsGiveTheFailureResultAndOneErrorLine) {
    AlarmManagerEx* h = ZEBInitAlarmSDK4CoProcess("app", "svc", "10.0.0.1", "10.0.0.5");
    ASSERT_NE(nullptr, h);
    _ZEBAlarm* alarm = ZEBAllocAlarm("1", 0);
    auto ptr = [](const void* p) { return p == nullptr ? -1L : 0L; };
    const struct Row {
        std::function<long()> call;
        const char* error;  // "In <function>, ..." texts, and the length texts as they stand
    } rows[] = {
        {[] { return ZEBRegisterRsetClearInfo(nullptr, nullptr, nullptr, 1); }, "In ZEBRegisterRsetClearInfo, pStrServiceName is null!"},
        {[] { return ZEBRegisterRsetClearInfo("s", nullptr, "i", 1); }, "In ZEBRegisterRsetClearInfo, pStrServiceId is null!"},
        {[] { return ZEBRegisterRsetClearInfo("s", "d", nullptr, 1); }, "In ZEBRegisterRsetClearInfo, pStrServiceInsId is null!"},
        {[] { return ZEBRegisterInfo(nullptr, nullptr); }, "In ZEBRegisterInfo, pStrServiceName is null!"},
        {[=] { return ZEBRegisterInfo(X(65).c_str(), "label"); }, kNameLength},
        {[] { return ZEBRegisterInfo("", "label"); }, kNameLength},
        {[] { return ZEBRegisterInfo("svc", nullptr); }, "In ZEBRegisterInfo, pServiceLabel is null!"},
        {[=] { return ZEBRegisterInfo("svc", X(257).c_str()); }, kLabelLength},
        {[] { return ZEBRegisterInfo("svc", ""); }, kLabelLength},
        {[=] { return ptr(ZEBAllocAlarm(nullptr, 0)); }, "In ZEBAllocAlarm, pStrAlarmId is null!"},
        {[] { return ZEBSetAlarmServiceName(nullptr, "x"); }, "In ZEBSetAlarmServiceName, pAlarm is null!"},
        {[] { return ZEBAppendAlarmParam(nullptr, nullptr, nullptr); }, "In ZEBAppendAlarmParam, pZEBAlarmObject is null!"},
        {[=] { return ZEBAppendAlarmParam(alarm, nullptr, "v"); }, "In ZEBAppendAlarmParam, pStrParamName is null!"},
        {[=] { return ZEBAppendAlarmParam(alarm, "n", nullptr); }, "In ZEBAppendAlarmParam, pStrParamValue is null!"},
        {[] { return ZEBFreeAlarm(nullptr); }, "In ZEBFreeAlarm, pZEBAlarmObject is null!"},
        {[] { return ZEBRegisterAlarmCheckCallBackFun(nullptr, &NoCallback); }, "In ZEBRegisterAlarmCheckCallBackFun, szServiceName is null!"},
        {[] { return ZEBRegisterAlarmCheckCallBackFun("svc", nullptr); }, "In ZEBRegisterAlarmCheckCallBackFun, callbackFun is null!"},
        {[] { return ZEBRegisterRsetClear(nullptr); }, "In ZEBRegisterRsetClear, pAlarmManagerInstance is null!"},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess(nullptr, "s", "n", "i")); }, "In ZEBInitAlarmSDK4CoProcess, pStrAppId is null!"},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess(X(65).c_str(), "s", "n", "i")); }, "In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN "},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess("a", nullptr, "n", "i")); }, "In ZEBInitAlarmSDK4CoProcess, pStrServiceName is null!"},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess("a", X(65).c_str(), "n", "i")); }, kNameLength},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess("a", "s", nullptr, "i")); }, "In ZEBInitAlarmSDK4CoProcess, pStrNodeIp is null!"},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess("a", "s", X(257).c_str(), "i")); }, "In %,The length of the pStrNodeIp is longer than ALARM_NODEIP_MAXLEN "},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess("a", "s", "n", nullptr)); }, "In ZEBInitAlarmSDK4CoProcess, pStrServiceIp is null!"},
        {[=] { return ptr(ZEBInitAlarmSDK4CoProcess("a", "s", "n", X(65).c_str())); }, "In %,The length of the pStrServiceIp is longer than ALARM_SERVICEIP_MAXLEN "},
        {[] { return ZEBRegisterRsetClearInfo4CoProcess(nullptr, "s", "d", "i", 0); }, "In ZEBRegisterRsetClearInfo4CoProcess, pAlarmManagerInstance is null!"},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, nullptr, "d", "i", 0); }, "In ZEBRegisterRsetClearInfo4CoProcess, pStrServiceName is null!"},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, X(65).c_str(), "d", "i", 0); }, kNameLength},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "s", nullptr, "i", 0); }, "In ZEBRegisterRsetClearInfo4CoProcess, pStrServiceId is null!"},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "s", X(257).c_str(), "i", 0); }, kIdLength},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "s", "d", nullptr, 0); }, "In ZEBRegisterRsetClearInfo4CoProcess, pStrServiceInsId is null!"},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "s", "d", X(257).c_str(), 0); }, kInsLength},
        // Empty texts pass unless the service asks for reset-clear.
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "", "a", "b", 1); }, kNameLength},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "s", "", "b", 1); }, kIdLength},
        {[=] { return ZEBRegisterRsetClearInfo4CoProcess(h, "s", "a", "", 1); }, kInsLength},
        {[] { return ZEBRegisterInfo4CoProcess(nullptr, "label"); }, "In ZEBRegisterInfo4CoProcess, pAlarmManagerInstance is null!"},
        {[=] { return ZEBRegisterInfo4CoProcess(h, nullptr); }, "In ZEBRegisterInfo4CoProcess, pStrServiceLabel is null!"},
        {[=] { return ZEBRegisterInfo4CoProcess(h, ""); }, kCoLabelLength},
        {[=] { return ZEBRegisterInfo4CoProcess(h, X(257).c_str()); }, kCoLabelLength},
        {[=] { return ZEBSendAlarm4CoProcess(nullptr, alarm); }, "In ZEBSendAlarm4CoProcess, pAlarmManagerInstance is null!"},
        // Unlike ZEBSendAlarm, a null alarm is reported before any conversion.
        {[=] { return ZEBSendAlarm4CoProcess(h, nullptr); }, "In ZEBSendAlarm4CoProcess, pZEBAlarmObject is null!"},
        {[] { return ZEBRegisterAlarmCheckCallBackFun4CoProcess(nullptr, &NoCallback); }, "In ZEBRegisterAlarmCheckCallBackFun4CoProcess, pAlarmManagerInstance is null!"},
        {[=] { return ZEBRegisterAlarmCheckCallBackFun4CoProcess(h, nullptr); }, "In ZEBRegisterAlarmCheckCallBackFun4CoProcess, callbackFun is null!"},
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

// Fields of the packed C object are compared as values (+field): binding a
// reference to a misaligned field is undefined.
TEST_F(CApi, AlarmObjectKeepsItsLayoutRules) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("123456789", 1);
    ASSERT_NE(nullptr, alarm);
    EXPECT_EQ("123456789 1", testsupport::Words(alarm->alarmId, alarm->alarmType));
    EXPECT_TRUE(
        log_.contains("the len of alarm memory is 158d, len of AlarmObjectEx is 22d, len of AlarmParam is 256d", 2, kImpl));
    _ZEBAlarm* longId = ZEBAllocAlarm("1234567890", 0);
    EXPECT_STREQ("", longId->alarmId);
    ZEBFreeAlarm(longId);

    log_.clear();
    const int refused[] = {ZEBResetAlarmTime(alarm, 999999999L), ZEBResetAlarmTime(alarm, -5L),
                           ZEBResetAlarmTime(nullptr, 1700000000000L)};
    EXPECT_EQ("-1 -1 -1", testsupport::Words(refused[0], refused[1], refused[2]));
    EXPECT_TRUE(log_.lines().empty()) << "refused times are not logged";
    EXPECT_EQ(0, +alarm->alarmTime);
    EXPECT_EQ(0, ZEBResetAlarmTime(alarm, 1000000000L));
    EXPECT_EQ(1000000000L, +alarm->alarmTime);

    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, X(127).c_str()));
    EXPECT_EQ(X(127), alarm->serviceName);
    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, X(128).c_str()));
    EXPECT_STREQ("", alarm->serviceName);
    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, nullptr));

    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, X(200).c_str(), "v1"));
    EXPECT_TRUE(
        log_.contains("the len of alarm memory is 264d, len of ZEBAlarmParam is 22d, len of AlarmParam is 256d", 2, kImpl));
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

// The record: a bounded id (ten or more characters do not fit: left empty,
// never cut or kept), the wire type and unset markers, parameters.
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

// Whole milliseconds of the wall clock, truncated, not rounded: sampled across
// several millisecond boundaries, never ahead of the truncated wall clock.
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
