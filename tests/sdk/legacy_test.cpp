// The legacy generation: its C functions' checks, the manager's refusals, the document as the agent receives it, and
// its bilingual location and append-information texts.
#include "AlarmAdapter.h"
#include "AlarmManager.h"
#include "AlmRukInterface.h"
#include "Generations.h"

namespace {

const char kImpl[] = "../src/AlarmImpl";
const char kManager[] = "../src/AlarmManager";

const std::vector<std::pair<const char*, const char*>> kDiskParams{{"disk", "sda"}, {"usage", "95"}, {"state", "0"}};

class Legacy : public sdktest::AgentTest {
protected:
    std::string DefinitionFile() { return sdktest::GenerationDriver::ExistingFile(dir_); }
    // Starts the agent and initialises with definitions, reset-clear flag rsetClear, then queues while parked.
    template <typename Queue> void Started(const std::vector<stAlarmItems*>& items, int rsetClear, Queue queue) {
        ASSERT_TRUE(StartAgent());
        legacytest::InstallDefinitions(items);
        WhileParked([&] { return InitAlarm(DefinitionFile().c_str(), "svc-1", "inst-1", rsetClear) == 1; }, queue);
    }
    testsupport::TempDir dir_;
};

// Every key of the document in order is checked where it is built; here, what the process fills in.
TEST_F(Legacy, TheAgentReceivesTheLegacyDocumentWithRegistrationAndBothTimeFields) {
    const sdktest::NodeEnv env("node-1", "10.0.0.1", "10.0.0.9", nullptr);
    Started({legacytest::DiskDefinition(), legacytest::Definition(300020, "network", "Link down", "链路中断", {})}, 1,
            [] {
                ASSERT_EQ(1, sdktest::SendLegacy("300012", 0, kDiskParams, 3));
                ASSERT_EQ(1, sdktest::SendLegacy("300012", 1, kDiskParams, 3));
            });
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(3, 20000));
    for (const auto& request : agent_->requests()) {
        EXPECT_EQ(0u, request.json.find(R"({"service":{"name":"szServiceName","appid":"app-7","ipaddress":"10.0.0.1",)"
                                        R"("port":7888,"time_stamp":0},"business":{"name":"PushAlarm"},)"
                                        R"("payload":{"alarmList":[)"))
            << request.json;
    }
    const auto alarms = agent_->acceptedAlarms();
    const nodeward::ReceivedAlarm& registration = alarms[0];
    EXPECT_EQ((std::vector<std::string>{"alarmName", "appId", "alarmId", "serviceName", "serviceIp",
                                        "restClearAlarmList", "occurTime"}),
              registration.keys);
    EXPECT_EQ((std::vector<std::string>{"300012", "300020"}), registration.clearAlarmIds);
    EXPECT_EQ("storage 10.0.0.9", registration.serviceName + " " + registration.serviceIp);
    for (int i = 1; i <= 2; ++i) {
        const nodeward::ReceivedAlarm& a = alarms[i];
        const bool generated = i == 1;
        EXPECT_EQ(
            "EN:Disk usage high##ZH:磁盘使用率高##|EN:Disk=sda##ZH:磁盘=sda##|EN:Usage=95,State=normal,"
            "Alarm Source Location=10.0.0.1:node-1##ZH:使用率=95,状态=正常,告警源位置=10.0.0.1:node-1##",
            a.alarmName + "|" + a.location + "|" + a.appendInfo);
        for (const std::string& field :
             {std::string(R"("appName":"orders-app","serviceName":"storage","alarmEventType":0,"genClearAlarmType":)") +
                  (generated ? "0" : "1"),
              std::string(R"("alarmClearType":)") + (generated ? "2" : "0"),
              std::string(R"("nodeID":"10.0.0.1","NodeIp":"10.0.0.1","serviceID":"svc-1","serviceInstID":"inst-1",)"
                          R"("rsetClear":1)")}) {
            EXPECT_NE(std::string::npos, a.json.find(field)) << field << " in " << a.json;
        }
        EXPECT_GT(generated ? a.genTime : a.clearTime, 1700000000000LL);
        EXPECT_EQ(-1, generated ? a.clearTime : a.genTime);
    }
}

// Flags outside 0 and 1, identities that do not fit their fields.
TEST_F(Legacy, OutOfRangeFlagsAndOverlongIdentities) {
    const std::string appId64(64, 'a'), appName63(63, 'n');
    const testsupport::ScopedEnv appId("APPID", appId64.c_str()), appName("APPNAME", appName63.c_str());
    // A reset-clear flag of 2 counts as 0: no registration, and the alarms carry 0.
    Started({legacytest::DiskDefinition()}, 2, [] { ASSERT_EQ(1, sdktest::SendLegacy("300012", 5, kDiskParams, 3)); });
    const std::string json = OnlyAlarm().json;
    // A clear flag of 5 is a raise; a 64-character id does not fit its field and is left empty, not cut.
    for (const std::string& field : {std::string(R"("appId":"")"), std::string(R"("genClearAlarmType":0)"),
                                     std::string(R"("rsetClear":0)"), R"("appName":")" + appName63 + '"'}) {
        EXPECT_NE(std::string::npos, json.find(field)) << field << " in " << json;
    }
}

TEST_F(Legacy, ARegistrationWithoutDefinitionsNamesNoServiceAndClearsAnEmptyList) {
    Started({}, 1, [] {});
    const nodeward::ReceivedAlarm registration = OnlyAlarm();
    EXPECT_EQ(
        (std::vector<std::string>{"alarmName", "appId", "alarmId", "serviceIp", "restClearAlarmList", "occurTime"}),
        registration.keys);
    EXPECT_NE(std::string::npos, registration.json.find("\"restClearAlarmList\":[]")) << registration.json;
}

TEST_F(Legacy, ArgumentChecksAndObjectLimits) {
    AlarmObject* full = AllocAlarmObject("9", 0, 1);
    ASSERT_EQ(1, AppendParam(full, "a", "b"));
    const std::pair<std::function<bool()>, const char*> rows[] = {
        // true when refused as it should be
        {[] { return InitAlarm(nullptr, "s", "i", 0) == 0; }, "The xmlFile is null"},
        {[] { return InitAlarm("", "s", "i", 0) == 0; }, "The xmlFile is empty"},
        {[] { return InitAlarm("/x.xml", nullptr, "i", 0) == 0; }, "The serviceId is null"},
        {[] { return InitAlarm("/x.xml", "s", nullptr, 0) == 0; }, "The serviceInsId is null"},
        {[] { return AllocAlarmObject(nullptr, 0, 1) == nullptr; }, "AlarmId input is null"},
        {[] { return AllocAlarmObject("", 0, 1) == nullptr; }, "AlarmId input is empty"},
        {[] { return AllocAlarmObject("1234567890", 0, 1) == nullptr; }, "AlarmId input is too long"},
        {[] { return AllocAlarmObject("1", 0, 0) == nullptr; }, "AlarmParam number input is 0"},
        // The 32-bit block size would wrap and leave the slots outside the block.
        {[] { return AllocAlarmObject("1", 0, 0x01000000u) == nullptr; }, "AlarmParam number input is too large"},
        {[] { return AppendParam(nullptr, "a", "b") == 0; }, "AppendParam() pAlarmObject,paramName,paramValue is NULL"},
        {[full] { return AppendParam(full, "c", "d") == 0; }, "This pair of param is num 1d, and the max num is 1d"},
    };
    for (const auto& [call, error] : rows) {
        log_.clear();
        EXPECT_TRUE(call()) << error;
        EXPECT_TRUE(log_.contains(error, 5, kImpl)) << error << "\n" << log_.dump();
    }
    EXPECT_EQ(0, SendAlarm(nullptr));
    FreeAlarmObject(full);
    FreeAlarmObject(nullptr);
    // Nine-character ids fit; long values are cut.
    AlarmObject* object = AllocAlarmObject("123456789", 1, 2);
    ASSERT_NE(nullptr, object);
    EXPECT_TRUE(log_.contains("the len of alarm memory is 534d, len of AlarmObject is 22d, len of AlarmParam is 256d",
                              2, kImpl));
    ASSERT_EQ(1, AppendParam(object, "name", std::string(200, 'v').c_str()));
    EXPECT_EQ(
        "123456789 1 1 " + std::string(127, 'v'),  // packed fields: read by value
        testsupport::Words(object->alarmId, object->genClearType, object->paramCount, object->params[0].paramValue));
    FreeAlarmObject(object);
}

TEST_F(Legacy, TheManagerRefusesWhatItsDefinitionsDoNotAllowWhileSendAlarmStillSucceeds) {
    // Before any definition is loaded, no alarm can be found.
    EXPECT_EQ(1, sdktest::SendLegacy("300012", 0, kDiskParams, 3));
    EXPECT_TRUE(log_.contains("Get alarm 300012 failed, there is not this alarm!", 5, kManager));
    legacytest::InstallDefinitions({legacytest::DiskDefinition()});
    log_.clear();
    // Fewer parameters than announced: one empty pair joins the map, which still misses one.
    EXPECT_EQ(1, sdktest::SendLegacy("300012", 0, {{"disk", "sda"}}, 3));
    EXPECT_TRUE(log_.contains("The alarm param number is error", 5, kImpl));
    EXPECT_TRUE(log_.contains("alarmid is 300012, check alarmmodel failed!", 5, kManager));
    // A repeated name keeps its first value and leaves the map one short.
    EXPECT_EQ(1, sdktest::SendLegacy("300012", 0, {{"disk", "sda"}, {"disk", "sdb"}, {"state", "0"}}, 3));
    EXPECT_EQ(2u, log_.count("alarmid is 300012, check alarmmodel failed!", 5, kManager));
    EXPECT_EQ(1, sdktest::SendLegacy("404", 0, {{"a", "b"}}, 1));
    EXPECT_TRUE(log_.contains("Get alarm 404 failed, there is not this alarm!", 5, kManager));
    EXPECT_EQ(0u, AlarmManager::GetInstance()->queuedModelCount());
    // Every allocated slot is read: an unfilled one adds the empty pair that completes a count one short.
    EXPECT_EQ(1, sdktest::SendLegacy("300012", 0, {{"disk", "sda"}, {"usage", "9"}}, 3));
    EXPECT_EQ(1u, AlarmManager::GetInstance()->queuedModelCount());
    // The bound: 1024 models, the next is refused; the registration ignores the bound.
    for (int i = 1; i < 1024; ++i) {
        ASSERT_EQ(1, sdktest::SendLegacy("300012", 0, kDiskParams, 3));
    }
    EXPECT_EQ(1024u, AlarmManager::GetInstance()->queuedModelCount());
    EXPECT_EQ(1, sdktest::SendLegacy("300012", 0, kDiskParams, 3));
    EXPECT_TRUE(log_.contains("the alarm queue is full, this alarm has been removed !", 5, kManager));
    EXPECT_EQ(0, AlarmManager::GetInstance()->RegisterRsetClear());
    EXPECT_EQ(1025u, AlarmManager::GetInstance()->queuedModelCount());
}

TEST_F(Legacy, InitialisationWithoutAppIdIsRepeatedInFullByTheNextCall) {
    legacytest::InstallDefinitions({legacytest::DiskDefinition()});
    const std::string xml = DefinitionFile();
    for (const char* name : {"APPID", "APPNAME"}) {
        testsupport::ScopedEnv missing(name, nullptr);
        EXPECT_EQ(1, InitAlarm(xml.c_str(), "svc-1", "inst-1", 0));
        EXPECT_TRUE(log_.contains(std::string(name) + " is NULL", 5, kManager));
        EXPECT_FALSE(log_.contains("create send alarm thread success!"));
    }
    EXPECT_EQ(1, InitAlarm(xml.c_str(), "svc-1", "inst-1", 0));
    EXPECT_EQ(3u, log_.count("init xml success!", 2, kManager));
    EXPECT_TRUE(log_.contains("Get AppName orders-app", 2, kManager));
    EXPECT_EQ(1u, log_.count("create send alarm thread success!", 2, kManager));
    // Once initialised, a further call does nothing, not even log.
    log_.clear();
    EXPECT_EQ(1, InitAlarm(xml.c_str(), "svc-1", "inst-1", 0));
    EXPECT_TRUE(log_.lines().empty()) << log_.dump();
    // A path that does not resolve is refused by the manager, not by InitAlarm.
    EXPECT_EQ(1, InitAlarm("/nonexistent/alarms.xml", "s", "i", 0));
}

TEST_F(Legacy, BothGenerationsDeliverTheirOwnDocumentsFromOneProcess) {
    ASSERT_TRUE(StartAgent());
    sdktest::GenerationDriver legacy(sdktest::Generation::Legacy), current(sdktest::Generation::Current);
    ASSERT_TRUE(legacy.init() && current.init());
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(legacy.send("L" + std::to_string(i)) && current.send("C" + std::to_string(i)));
    }
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(6, 20000));
    std::string seqs[2];
    for (const auto& a : agent_->acceptedAlarms()) {
        seqs[a.legacy] += sdktest::GenerationDriver::SeqOf(a);
    }
    EXPECT_EQ("C0C1C2 L0L1L2", testsupport::Words(seqs[0], seqs[1]));
}

// The source named in the appended text: the alarm's own, else the manager's.
TEST_F(Legacy, TheAlarmsOwnSourceWinsOverTheManagers) {
    Started({legacytest::Definition(9, "s", "A", "A", {{"n", "N", "N", "UINT", 1, 1, {}}})}, 0, [] {
        AlarmManager::GetInstance()->SetAlarmSource("manager-source");
        for (const char* own : {"own-source", ""}) {
            Alarm alarm("9", ZEB_ALARM_GENERATE);
            alarm.SetServiceInsName(own);
            alarm.AppendParameter("n", "1");
            AlarmManager::GetInstance()->SendAlarm(&alarm);
        }
    });
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(2, 20000));
    const auto alarms = agent_->acceptedAlarms();
    EXPECT_EQ("EN:N=1,Alarm Source=own-source##ZH:N=1,告警源=own-source##", alarms[0].appendInfo);
    EXPECT_EQ("EN:N=1,Alarm Source=manager-source##ZH:N=1,告警源=manager-source##", alarms[1].appendInfo);
}

using legacytest::ParamDef;

struct TextCase {
    const char* name;
    std::vector<ParamDef> definition;
    std::vector<std::pair<std::string, std::string>> params;
    std::string location, appendInfo;
    std::string error = "";        // an error line the case must log
    const char* serviceName = "";  // the alarm's service instance name
    const char *podName = nullptr, *hostingServerIp = nullptr, *serverIp = nullptr, *nodeId = nullptr;
};

const ParamDef kUsage{"usage", "Usage", "UsageCh", "UINT", 1, 1, {}};
const ParamDef kDisk{"disk", "Disk", "磁盘", "STRING", 0, 0, {}};
const ParamDef kState{"state", "State", "状态", "ENUM", 1, 1, {{0, "normal", "正常"}, {-1, "failed", "故障"}}};
const char kNone[] = "EN:##ZH:##";

// Five location texts of 120 characters: more than the 1024 bytes of the text.
const std::string kLong(120, 'v');
const std::string kLongText = "p0=" + kLong + ",p1=" + kLong + ",p2=" + kLong + ",p3=" + kLong + ",p4=" + kLong;
ParamDef Text(const char* name) { return {name, name, name, "STRING", 0, 0, {}}; }
ParamDef Info(const char* name) { return {name, name, name, "STRING", 0, 1, {}}; }

// clang-format off
const TextCase kTextCases[] = {
    // name, definition, params, location, appendInfo, error, serviceName, podName, hostingServerIp, serverIp, nodeId
    {"WorkedExample", {kUsage}, {{"usage", "95"}}, kNone,
     "EN:Usage=95,Alarm Source=svc-a,Alarm Source Location=10.0.0.5:node-1##"
     "ZH:UsageCh=95,告警源=svc-a,告警源位置=10.0.0.5:node-1##", "", "svc-a", nullptr, "10.0.0.5", nullptr, "node-1"},
    {"LocationAndAppendByClassUintCutEnumSignExtended", {kDisk, kUsage, kState},
     {{"disk", "sda"}, {"usage", "300"}, {"state", "255"}},
     "EN:Disk=sda##ZH:磁盘=sda##", "EN:Usage=44,State=failed##ZH:UsageCh=44,状态=故障##"},
    {"EnumWithoutMatchAddsOnlyTheSeparator", {kState}, {{"state", "7"}}, kNone, "EN:State=##ZH:状态=##"},
    {"UintOfUnsupportedLengthIsZero", {{"n", "N", "N", "UINT", 8, 0, {}}}, {{"n", "12"}}, "EN:N=0##ZH:N=0##", kNone,
     "In ALM_GetIntValue, paraLen=8  is invalid !"},
    {"PodNameAndServerIpStandInWithoutNodeId", {kUsage}, {{"usage", "1"}}, kNone,
     "EN:Usage=1,Alarm Source=pod-1,Alarm Source Location=10.9.9.9##ZH:UsageCh=1,告警源=pod-1,告警源位置=10.9.9.9##",
     "", "", "pod-1", nullptr, "10.9.9.9"},
    {"ServiceNameWinsOverPodNameAndNodeAddressOverServerIp", {kUsage}, {{"usage", "1"}}, kNone,
     "EN:Usage=1,Alarm Source=svc-b,Alarm Source Location=10.0.0.7##ZH:UsageCh=1,告警源=svc-b,告警源位置=10.0.0.7##",
     "", "svc-b", "pod-1", "10.0.0.7", "10.9.9.9"},
    {"OneCharacterNodeAddressIsIgnored", {kUsage}, {{"usage", "1"}}, kNone, "EN:Usage=1##ZH:UsageCh=1##",
     "", "", nullptr, "x", nullptr, "node-1"},
    {"InvalidClassIsSkipped", {{"x", "X", "X", "STRING", 0, 2, {}}, kUsage}, {{"x", "v"}, {"usage", "2"}}, kNone,
     "EN:Usage=2##ZH:UsageCh=2##", "[ALM_ContructLocationAndAppendParainfo] ParamName=x ,ParamClass(2) is invalid!"},
    {"UndefinedNameIsIgnoredAndTheDefinedOneSkipped", {kDisk, kUsage}, {{"other", "v"}, {"usage", "3"}}, kNone,
     "EN:Usage=3##ZH:UsageCh=3##"},
    {"CountMismatchAddsNoParameters", {kDisk, kUsage}, {{"usage", "3"}}, kNone,
     "EN:Alarm Source=svc-a##ZH:告警源=svc-a##", "[ALM_InitAlarmCruxInfo] paralen(1) is not equal config(2)!", "svc-a"},
    {"UintAndEnumOfTwoAndFourBytes",
     {{"a", "A", "A", "UINT", 2, 1, {}}, {"b", "B", "B", "UINT", 4, 1, {}},
      {"c", "C", "C", "ENUM", 2, 1, {{-1, "minus", "负"}}}, {"d", "D", "D", "ENUM", 4, 1, {{-1, "minus", "负"}}}},
     {{"a", "70000"}, {"b", "-1"}, {"c", "65535"}, {"d", "-1"}},
     kNone, "EN:A=4464,B=4294967295,C=minus,D=minus##ZH:A=4464,B=4294967295,C=负,D=负##"},
    {"UnknownTypeLeavesTheValueOut", {{"n", "N", "N", "INT", 4, 1, {}}}, {{"n", "5"}}, kNone, "EN:N=##ZH:N=##"},
    {"ARepeatedNameKeepsItsFirstValue", {kDisk}, {{"disk", "sda"}, {"disk", "sdb"}}, "EN:Disk=sda##ZH:磁盘=sda##",
     kNone},
    // An append that would pass 1023 characters empties the text; later ones go on into it.
    {"AnOverlongAppendInfoStartsAgain",
     {Info("p0"), Info("p1"), Info("p2"), Info("p3"), Info("p4"), Info("p5"), Info("p6"), Info("p7"), Info("p8"),
      kUsage},
     {{"p0", kLong}, {"p1", kLong}, {"p2", kLong}, {"p3", kLong}, {"p4", kLong}, {"p5", kLong}, {"p6", kLong},
      {"p7", kLong}, {"p8", kLong}, {"usage", "9"}},
     kNone, "EN:,Usage=9##ZH:,UsageCh=9##"},
    // An overlong location is cut, and reported with the append-information text.
    {"AnOverlongLocationIsCut", {Text("p0"), Text("p1"), Text("p2"), Text("p3"), Text("p4"), kUsage},
     {{"p0", kLong}, {"p1", kLong}, {"p2", kLong}, {"p3", kLong}, {"p4", kLong}, {"usage", "9"}},
     ("EN:" + kLongText + "##ZH:" + kLongText + "##").substr(0, 1022),
     "EN:Usage=9##ZH:UsageCh=9##", "LocationInfo Len > 1024,Ch is---" + kLongText + ",En is---Usage=9"},
};
// clang-format on

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
    ALM_Json_Para_def *location = new ALM_Json_Para_def(), *appendInfo = new ALM_Json_Para_def();
    ALM_ContructLocationAndAppendParainfo(&alarm, item, location, appendInfo);
    EXPECT_EQ("location|" + c.location + "|appendInfo|" + c.appendInfo,
              std::string(location->Json_para_Name) + "|" + location->Json_para_Value + "|" +
                  appendInfo->Json_para_Name + "|" + appendInfo->Json_para_Value);
    EXPECT_TRUE(c.error.empty() || log.contains(c.error, 5, "../src/AlarmAdapter")) << c.error << "\n" << log.dump();
    deleteALM_Json_ParaPtr(location);
    deleteALM_Json_ParaPtr(appendInfo);
}

INSTANTIATE_TEST_SUITE_P(Cases, LegacyTexts, ::testing::ValuesIn(kTextCases),
                         [](const ::testing::TestParamInfo<TextCase>& info) { return info.param.name; });

}  // namespace
