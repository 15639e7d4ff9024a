// The C entry points: argument checks in argument order with their exact log
// texts, length limits, and the C alarm object's own rules.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "AlarmEx.h"
#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "LogCapture.h"
#include "PauseRecorder.h"

namespace {

const char kImpl[] = "../src/AlarmImpl";

void NoCallback(char*) {}

class CApi : public ::testing::Test {
protected:
    // The single error line a refused call must leave.
    void ExpectOnlyError(const std::string& text) {
        auto lines = log_.lines();
        std::size_t errors = 0;
        for (const auto& l : lines) {
            errors += l.level == 5 ? 1 : 0;
        }
        EXPECT_EQ(1u, errors) << log_.dump();
        EXPECT_TRUE(log_.contains(text, 5, kImpl)) << "missing: " << text << "\n" << log_.dump();
        log_.clear();
    }
    std::string Repeat(std::size_t n) { return std::string(n, 'x'); }

    testsupport::PauseRecorder pauses_;
    testsupport::LogCapture log_;
};

TEST_F(CApi, MissingPointersAreReportedByNameBeforeAnythingElse) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("1", 0);
    ASSERT_NE(nullptr, alarm);
    log_.clear();

    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo(nullptr, nullptr, nullptr, 1));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo, pStrServiceName is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo("s", nullptr, "i", 1));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo, pStrServiceId is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo("s", "d", nullptr, 1));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo, pStrServiceInsId is null!");

    EXPECT_EQ(-1, ZEBRegisterInfo(nullptr, nullptr));
    ExpectOnlyError("In ZEBRegisterInfo, pStrServiceName is null!");
    EXPECT_EQ(-1, ZEBRegisterInfo("svc", nullptr));
    ExpectOnlyError("In ZEBRegisterInfo, pServiceLabel is null!");

    EXPECT_EQ(nullptr, ZEBAllocAlarm(nullptr, 0));
    ExpectOnlyError("In ZEBAllocAlarm, pStrAlarmId is null!");
    EXPECT_EQ(-1, ZEBSetAlarmServiceName(nullptr, "x"));
    ExpectOnlyError("In ZEBSetAlarmServiceName, pAlarm is null!");

    EXPECT_EQ(-1, ZEBAppendAlarmParam(nullptr, nullptr, nullptr));
    ExpectOnlyError("In ZEBAppendAlarmParam, pZEBAlarmObject is null!");
    EXPECT_EQ(-1, ZEBAppendAlarmParam(alarm, nullptr, "v"));
    ExpectOnlyError("In ZEBAppendAlarmParam, pStrParamName is null!");
    EXPECT_EQ(-1, ZEBAppendAlarmParam(alarm, "n", nullptr));
    ExpectOnlyError("In ZEBAppendAlarmParam, pStrParamValue is null!");
    EXPECT_EQ(nullptr, +alarm->paramList);

    EXPECT_EQ(-1, ZEBFreeAlarm(nullptr));
    ExpectOnlyError("In ZEBFreeAlarm, pZEBAlarmObject is null!");
    EXPECT_EQ(-1, ZEBRegisterAlarmCheckCallBackFun(nullptr, &NoCallback));
    ExpectOnlyError("In ZEBRegisterAlarmCheckCallBackFun, szServiceName is null!");
    EXPECT_EQ(-1, ZEBRegisterAlarmCheckCallBackFun("svc", nullptr));
    ExpectOnlyError("In ZEBRegisterAlarmCheckCallBackFun, callbackFun is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClear(nullptr));
    ExpectOnlyError("In ZEBRegisterRsetClear, pAlarmManagerInstance is null!");

    // A null alarm is reported by the conversion, then as a missing record.
    EXPECT_EQ(-1, ZEBSendAlarm(nullptr));
    EXPECT_TRUE(log_.contains("In ZEBConvert2AlarmEx, pZEBAlarmObject is null!", 5, kImpl));
    EXPECT_TRUE(log_.contains("In ZEBSendAlarm, pAlarmEx is null!", 5, kImpl));
    log_.clear();

    EXPECT_EQ(-1, ZEBResetAlarmTime(nullptr, 1700000000000L));
    EXPECT_TRUE(log_.lines().empty());
    ZEBFreeAlarm(alarm);
}

TEST_F(CApi, RegisterInfoLimitsNameAndLabel) {
    const char* nameMsg = "In %,The length of the pStrServiceName is longer than ALARM_SERVICENAME_MAXLEN ";
    const char* labelMsg = "In %,The length of the pServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ";
    EXPECT_EQ(-1, ZEBRegisterInfo(Repeat(65).c_str(), "label"));
    ExpectOnlyError(nameMsg);
    EXPECT_EQ(-1, ZEBRegisterInfo("", "label"));
    ExpectOnlyError(nameMsg);
    EXPECT_EQ(-1, ZEBRegisterInfo("svc", Repeat(257).c_str()));
    ExpectOnlyError(labelMsg);
    EXPECT_EQ(-1, ZEBRegisterInfo("svc", ""));
    ExpectOnlyError(labelMsg);
    // At the limits the call goes through to the manager.
    EXPECT_EQ(0, ZEBRegisterInfo(Repeat(64).c_str(), Repeat(256).c_str()));
    EXPECT_EQ(Repeat(64), AlarmManagerEx::getInstance()->getServiceName());
    EXPECT_EQ(Repeat(256), AlarmManagerEx::getInstance()->getServiceLabel());
}

// Fields of the packed C object are compared as values (+field): binding a
// reference to a misaligned field is undefined.
TEST_F(CApi, AlarmObjectKeepsItsLayoutRules) {
    _ZEBAlarm* alarm = ZEBAllocAlarm("123456789", 1);
    ASSERT_NE(nullptr, alarm);
    EXPECT_STREQ("123456789", alarm->alarmId);
    EXPECT_EQ(1, +alarm->alarmType);
    EXPECT_EQ(0, +alarm->alarmTime);
    EXPECT_TRUE(log_.contains(
        "the len of alarm memory is 158d, len of AlarmObjectEx is 22d, len of AlarmParam is 256d", 2, kImpl));

    _ZEBAlarm* longId = ZEBAllocAlarm("1234567890", 0);
    ASSERT_NE(nullptr, longId);
    EXPECT_STREQ("", longId->alarmId);
    ZEBFreeAlarm(longId);

    EXPECT_EQ(-1, ZEBResetAlarmTime(alarm, 999999999L));
    EXPECT_EQ(-1, ZEBResetAlarmTime(alarm, -5L));
    EXPECT_EQ(0, +alarm->alarmTime);
    EXPECT_EQ(0, ZEBResetAlarmTime(alarm, 1000000000L));
    EXPECT_EQ(1000000000L, +alarm->alarmTime);

    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, Repeat(127).c_str()));
    EXPECT_EQ(Repeat(127), alarm->serviceName);
    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, Repeat(128).c_str()));
    EXPECT_STREQ("", alarm->serviceName);
    EXPECT_EQ(0, ZEBSetAlarmServiceName(alarm, nullptr));

    log_.clear();
    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, Repeat(200).c_str(), "v1"));
    EXPECT_TRUE(log_.contains(
        "the len of alarm memory is 264d, len of ZEBAlarmParam is 22d, len of AlarmParam is 256d", 2, kImpl));
    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, "b", Repeat(300).c_str()));
    EXPECT_EQ(0, ZEBAppendAlarmParam(alarm, "b", "dup"));
    ASSERT_NE(nullptr, +alarm->paramList);
    EXPECT_EQ(Repeat(127), +alarm->paramList->paramName);
    ASSERT_NE(nullptr, +alarm->paramList->next);
    EXPECT_STREQ("b", +alarm->paramList->next->paramName);
    EXPECT_EQ(Repeat(127), +alarm->paramList->next->paramValue);
    ASSERT_NE(nullptr, +alarm->paramList->next->next);
    EXPECT_STREQ("dup", +alarm->paramList->next->next->paramValue);
    EXPECT_EQ(nullptr, +alarm->paramList->next->next->next);

    // Conversion: clear maps to wire type 2, a duplicate name keeps its first value.
    AlarmEx* record = ZEBConvert2AlarmEx(alarm);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(2, record->getAlarmType());
    EXPECT_EQ(1000000000L, record->GetAlarmTime());
    auto params = record->getParamMap();
    EXPECT_EQ(2u, params.size());
    EXPECT_EQ(Repeat(127), params["b"]);
    delete record;

    // An id the caller wrote without a terminator is read no further than its field.
    std::memset(alarm->alarmId, 'x', sizeof(alarm->alarmId));
    record = ZEBConvert2AlarmEx(alarm);
    ASSERT_NE(nullptr, record);
    EXPECT_STREQ("", record->getAlarmId());
    delete record;
    EXPECT_EQ(0, ZEBFreeAlarm(alarm));
}

TEST_F(CApi, CoProcessInitialisationChecksEachTextInOrder) {
    struct Case {
        const char* appId;
        const char* serviceName;
        const char* nodeIp;
        const char* serviceIp;
        const char* message;
    };
    const std::string a65 = Repeat(65), a257 = Repeat(257);
    const Case cases[] = {
        {nullptr, "s", "n", "i", "In ZEBInitAlarmSDK4CoProcess, pStrAppId is null!"},
        {a65.c_str(), "s", "n", "i", "In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN "},
        {"a", nullptr, "n", "i", "In ZEBInitAlarmSDK4CoProcess, pStrServiceName is null!"},
        {"a", a65.c_str(), "n", "i",
         "In %,The length of the pStrServiceName is longer than ALARM_SERVICENAME_MAXLEN "},
        {"a", "s", nullptr, "i", "In ZEBInitAlarmSDK4CoProcess, pStrNodeIp is null!"},
        {"a", "s", a257.c_str(), "i", "In %,The length of the pStrNodeIp is longer than ALARM_NODEIP_MAXLEN "},
        {"a", "s", "n", nullptr, "In ZEBInitAlarmSDK4CoProcess, pStrServiceIp is null!"},
        {"a", "s", "n", a65.c_str(),
         "In %,The length of the pStrServiceIp is longer than ALARM_SERVICEIP_MAXLEN "},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(nullptr, ZEBInitAlarmSDK4CoProcess(c.appId, c.serviceName, c.nodeIp, c.serviceIp)) << c.message;
        ExpectOnlyError(c.message);
    }
    const std::string a64 = Repeat(64), a256 = Repeat(256);
    AlarmManagerEx* handle = ZEBInitAlarmSDK4CoProcess(a64.c_str(), "", a256.c_str(), "");
    ASSERT_NE(nullptr, handle);
    EXPECT_EQ(a64, handle->getAppId());
    EXPECT_EQ(a256, handle->getNodeIp());
}

TEST_F(CApi, CoProcessCallsCheckTheHandleFirstAndTheirTexts) {
    AlarmManagerEx* handle = ZEBInitAlarmSDK4CoProcess("app", "svc", "10.0.0.1", "10.0.0.5");
    ASSERT_NE(nullptr, handle);
    log_.clear();
    const std::string s65 = Repeat(65), s257 = Repeat(257);
    const char* nameMsg = "In %,The length of the pStrServiceName is longer than ALARM_SERVICENAME_MAXLEN ";
    const char* idMsg = "In %,The length of the pStrServiceId is longer than ALARM_SERVICEID_MAXLEN ";
    const char* insMsg = "In %,The length of the pStrServiceInsId is longer than ALARM_SERVICEINSID_MAXLEN ";

    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(nullptr, "s", "d", "i", 0));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo4CoProcess, pAlarmManagerInstance is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, nullptr, "d", "i", 0));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo4CoProcess, pStrServiceName is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, s65.c_str(), "d", "i", 0));
    ExpectOnlyError(nameMsg);
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "s", nullptr, "i", 0));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo4CoProcess, pStrServiceId is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "s", s257.c_str(), "i", 0));
    ExpectOnlyError(idMsg);
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "s", "d", nullptr, 0));
    ExpectOnlyError("In ZEBRegisterRsetClearInfo4CoProcess, pStrServiceInsId is null!");
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "s", "d", s257.c_str(), 0));
    ExpectOnlyError(insMsg);
    // Empty texts pass unless the service asks for reset-clear.
    EXPECT_EQ(0, ZEBRegisterRsetClearInfo4CoProcess(handle, "", "a", "b", 0));
    log_.clear();
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "", "a", "b", 1));
    ExpectOnlyError(nameMsg);
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "s", "", "b", 1));
    ExpectOnlyError(idMsg);
    EXPECT_EQ(-1, ZEBRegisterRsetClearInfo4CoProcess(handle, "s", "a", "", 1));
    ExpectOnlyError(insMsg);

    EXPECT_EQ(-1, ZEBRegisterInfo4CoProcess(nullptr, "label"));
    ExpectOnlyError("In ZEBRegisterInfo4CoProcess, pAlarmManagerInstance is null!");
    EXPECT_EQ(-1, ZEBRegisterInfo4CoProcess(handle, nullptr));
    ExpectOnlyError("In ZEBRegisterInfo4CoProcess, pStrServiceLabel is null!");
    EXPECT_EQ(-1, ZEBRegisterInfo4CoProcess(handle, ""));
    ExpectOnlyError("In %,The length of the pStrServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ");
    EXPECT_EQ(-1, ZEBRegisterInfo4CoProcess(handle, s257.c_str()));
    ExpectOnlyError("In %,The length of the pStrServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ");

    _ZEBAlarm* alarm = ZEBAllocAlarm("1", 0);
    log_.clear();
    EXPECT_EQ(-1, ZEBSendAlarm4CoProcess(nullptr, alarm));
    ExpectOnlyError("In ZEBSendAlarm4CoProcess, pAlarmManagerInstance is null!");
    // Unlike ZEBSendAlarm, a null alarm is reported before any conversion.
    EXPECT_EQ(-1, ZEBSendAlarm4CoProcess(handle, nullptr));
    ExpectOnlyError("In ZEBSendAlarm4CoProcess, pZEBAlarmObject is null!");
    ZEBFreeAlarm(alarm);

    EXPECT_EQ(-1, ZEBRegisterAlarmCheckCallBackFun4CoProcess(nullptr, &NoCallback));
    ExpectOnlyError("In ZEBRegisterAlarmCheckCallBackFun4CoProcess, pAlarmManagerInstance is null!");
    EXPECT_EQ(-1, ZEBRegisterAlarmCheckCallBackFun4CoProcess(handle, nullptr));
    ExpectOnlyError("In ZEBRegisterAlarmCheckCallBackFun4CoProcess, callbackFun is null!");
}

TEST_F(CApi, ManagerSettersIgnoreNullWithTheirOwnMessages) {
    AlarmManagerEx manager(0);
    manager.setServiceName("svc");
    manager.setServiceName(nullptr);
    manager.setAppId(nullptr);
    manager.setNodeIp(nullptr);
    manager.setServiceIp(nullptr);
    EXPECT_EQ("svc", manager.getServiceName());
    const char* src = "../src/AlarmManagerEx";
    EXPECT_TRUE(log_.contains("AlarmManagerEx::setServiceName pStrServiceName is NULL", 5, src));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::setAppId pStrAppId is NULL", 5, src));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::setNodeIp pStrNodeIp is NULL", 5, src));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::setServiceId pStrServiceIp is NULL", 5, src));
}

}  // namespace
