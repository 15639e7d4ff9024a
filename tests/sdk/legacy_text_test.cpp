// The bilingual location and append-information texts of a legacy alarm: parameter classes and types, the alarm source
// and its location with their fallbacks, and the 1024-byte limit.
#include "AlarmAdapter.h"
#include "AlarmManager.h"
#include "AlmRukInterface.h"
#include "LegacyFixtures.h"
#include "SdkTestSupport.h"

namespace {

using legacytest::ParamSpec;

struct TextCase {
    const char* name;
    std::vector<ParamSpec> definition;
    std::vector<std::pair<std::string, std::string>> params;
    const char* serviceName;  // the alarm's service instance name
    const char *podName, *hostingServerIp, *serverIp, *nodeId;
    std::string location, appendInfo;
    std::string error;  // an error line the case must log ("" for none)
};

const ParamSpec kUsage{"usage", "Usage", "UsageCh", "UINT", 1, 1, {}};
const ParamSpec kDisk{"disk", "Disk", "磁盘", "STRING", 0, 0, {}};
const ParamSpec kState{"state", "State", "状态", "ENUM", 1, 1, {{0, "normal", "正常"}, {-1, "failed", "故障"}}};

// Five location texts of 120 characters: more than the 1024 bytes of the text.
const std::string kLong(120, 'v');
const std::string kLongText = "p0=" + kLong + ",p1=" + kLong + ",p2=" + kLong + ",p3=" + kLong + ",p4=" + kLong;
ParamSpec Text(const char* name) { return {name, name, name, "STRING", 0, 0, {}}; }

const TextCase kTextCases[] = {
    {"WorkedExample", {kUsage}, {{"usage", "95"}}, "svc-a", nullptr, "10.0.0.5", nullptr, "node-1", "EN:##ZH:##",
     "EN:Usage=95,Alarm Source=svc-a,Alarm Source Location=10.0.0.5:node-1##"
     "ZH:UsageCh=95,告警源=svc-a,告警源位置=10.0.0.5:node-1##", ""},
    {"LocationAndAppendByClassUintCutEnumSignExtended", {kDisk, kUsage, kState},
     {{"disk", "sda"}, {"usage", "300"}, {"state", "255"}}, "", nullptr, nullptr, nullptr, nullptr,
     "EN:Disk=sda##ZH:磁盘=sda##", "EN:Usage=44,State=failed##ZH:UsageCh=44,状态=故障##", ""},
    {"EnumWithoutMatchAddsOnlyTheSeparator", {kState}, {{"state", "7"}}, "", nullptr, nullptr, nullptr, nullptr,
     "EN:##ZH:##", "EN:State=##ZH:状态=##", ""},
    {"UintOfUnsupportedLengthIsZero", {{"n", "N", "N", "UINT", 8, 0, {}}}, {{"n", "12"}}, "", nullptr, nullptr,
     nullptr, nullptr, "EN:N=0##ZH:N=0##", "EN:##ZH:##", "In ALM_GetIntValue, paraLen=8  is invalid !"},
    {"PodNameAndServerIpStandInWithoutNodeId", {kUsage}, {{"usage", "1"}}, "", "pod-1", nullptr, "10.9.9.9",
     nullptr, "EN:##ZH:##", "EN:Usage=1,Alarm Source=pod-1,Alarm Source Location=10.9.9.9##"
     "ZH:UsageCh=1,告警源=pod-1,告警源位置=10.9.9.9##", ""},
    {"ServiceNameWinsOverPodNameAndNodeAddressOverServerIp", {kUsage}, {{"usage", "1"}}, "svc-b", "pod-1",
     "10.0.0.7", "10.9.9.9", nullptr, "EN:##ZH:##", "EN:Usage=1,Alarm Source=svc-b,Alarm Source Location=10.0.0.7##"
     "ZH:UsageCh=1,告警源=svc-b,告警源位置=10.0.0.7##", ""},
    {"OneCharacterNodeAddressIsIgnored", {kUsage}, {{"usage", "1"}}, "", nullptr, "x", nullptr, "node-1",
     "EN:##ZH:##", "EN:Usage=1##ZH:UsageCh=1##", ""},
    {"InvalidClassIsSkipped", {{"x", "X", "X", "STRING", 0, 2, {}}, kUsage}, {{"x", "v"}, {"usage", "2"}}, "",
     nullptr, nullptr, nullptr, nullptr, "EN:##ZH:##", "EN:Usage=2##ZH:UsageCh=2##",
     "[ALM_ContructLocationAndAppendParainfo] ParamName=x ,ParamClass(2) is invalid!"},
    {"UndefinedNameIsIgnoredAndTheDefinedOneSkipped", {kDisk, kUsage}, {{"other", "v"}, {"usage", "3"}}, "",
     nullptr, nullptr, nullptr, nullptr, "EN:##ZH:##", "EN:Usage=3##ZH:UsageCh=3##", ""},
    {"CountMismatchAddsNoParameters", {kDisk, kUsage}, {{"usage", "3"}}, "svc-a", nullptr, nullptr, nullptr,
     nullptr, "EN:##ZH:##", "EN:Alarm Source=svc-a##ZH:告警源=svc-a##",
     "[ALM_InitAlarmCruxInfo] paralen(1) is not equal config(2)!"},
    // An overlong location is cut, and reported with the append-information text.
    {"AnOverlongLocationIsCut", {Text("p0"), Text("p1"), Text("p2"), Text("p3"), Text("p4"), kUsage},
     {{"p0", kLong}, {"p1", kLong}, {"p2", kLong}, {"p3", kLong}, {"p4", kLong}, {"usage", "9"}}, "", nullptr,
     nullptr, nullptr, nullptr, ("EN:" + kLongText + "##ZH:" + kLongText + "##").substr(0, 1022),
     "EN:Usage=9##ZH:UsageCh=9##", "LocationInfo Len > 1024,Ch is---" + kLongText + ",En is---Usage=9"},
};

void PrintTo(const TextCase& c, std::ostream* os) { *os << c.name; }

class LegacyTexts : public ::testing::TestWithParam<TextCase> {};

TEST_P(LegacyTexts, AreAssembledFromDefinitionAndEnvironment) {
    const TextCase& c = GetParam();
    const sdktest::NodeEnv env(c.nodeId, c.hostingServerIp, c.serverIp, c.podName);
    AlmRukInterface::InitAllIp();
    testsupport::LogCapture log;

    stAlarmItems* item = legacytest::Definition(300012, "storage", "Disk", "磁盘", c.definition);
    Alarm alarm("300012", ZEB_ALARM_GENERATE);
    alarm.SetServiceInsName(c.serviceName);
    for (const auto& p : c.params) {
        alarm.AppendParameter(p.first.c_str(), p.second.c_str());
    }
    ALM_Json_Para_def* location = new ALM_Json_Para_def();
    ALM_Json_Para_def* appendInfo = new ALM_Json_Para_def();
    ALM_ContructLocationAndAppendParainfo(&alarm, item, location, appendInfo);
    EXPECT_STREQ("location", location->Json_para_Name);
    EXPECT_STREQ("appendInfo", appendInfo->Json_para_Name);
    EXPECT_EQ(c.location, location->Json_para_Value);
    EXPECT_EQ(c.appendInfo, appendInfo->Json_para_Value);
    if (c.error[0] != '\0') {
        EXPECT_TRUE(log.contains(c.error, 5, "../src/AlarmAdapter")) << log.dump();
    }
    deleteALM_Json_ParaPtr(location);
    deleteALM_Json_ParaPtr(appendInfo);
}

INSTANTIATE_TEST_SUITE_P(Cases, LegacyTexts, ::testing::ValuesIn(kTextCases),
                         [](const ::testing::TestParamInfo<TextCase>& info) { return info.param.name; });

}  // namespace
