#include <gtest/gtest.h>

#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <string>

#include "AlarmBuildAlarmConfInfo.h"
#include "ConfigTestSupport.h"

namespace {

using configtest::ConfigDir;
using configtest::Definitions;
using configtest::Doc;

constexpr const char* kSource = "../src/AlarmBuildAlarmConfInfo";

std::string Alarm(const std::string& id, const std::string& params = "", const std::string& extra = "") {
    return "<Alarm><AlarmID>" + id + "</AlarmID><AlarmType>1</AlarmType><ServiceType>svc" + id +
           "</ServiceType><AlarmLevel>2</AlarmLevel><IsGlobal>0</IsGlobal><EventType>1</EventType>"
           "<IsAutoClean>1</IsAutoClean><IsCheck>1</IsCheck>" +
           extra + "<Params>" + params + "</Params></Alarm>";
}

std::string Param(const std::string& name, const std::string& more = "") {
    return "<P><ParamName>" + name + "</ParamName><ParamType>ENUM</ParamType><ParamLen>1</ParamLen>"
           "<ParamClass>1</ParamClass>" + more + "</P>";
}

std::string Enum(const std::string& type, const std::string& values, const char* element = "ENUM") {
    return std::string("<") + element + "><EnumType>" + type + "</EnumType><Values>" + values + "</Values></" +
           element + ">";
}

TEST(Definitions, ExampleFileLoadsEveryTextWithoutAMissingKey) {
    testsupport::LogCapture log;
    ConfigDir::Load(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml");
    ASSERT_EQ(1u, g_uiInitFlag) << log.dump();
    EXPECT_EQ(0u, log.count("get ", -1)) << log.dump();
    for (const auto& line : log.lines()) {
        EXPECT_EQ(std::string::npos, line.text.find("failed")) << line.text;
    }
    const auto items = Definitions();
    ASSERT_EQ(12u, items.size());
    for (const stAlarmItems* item : items) {
        EXPECT_EQ(0, std::string(item->alarmName).find("EN:")) << item->alarmId;
        for (int64_t i = 0; i < item->paramNum; ++i) {
            EXPECT_STRNE("", item->params[i].paramChName) << item->alarmId << " " << item->params[i].paramName;
            EXPECT_EQ(std::string(item->params[i].paramType) == "ENUM", item->params[i].enumNum > 0);
        }
    }
    const stAlarmItems& disk = *items[0];
    EXPECT_EQ(300001, disk.alarmId);
    EXPECT_STREQ("EN:Disk usage too high##ZH:磁盘使用率过高##", disk.alarmName);
    EXPECT_STREQ("storage", disk.serviceType);
    EXPECT_EQ((std::vector<int64_t>{1, 2, 0, 1, 1, 1, 30, 60, 300, 5}),
              (std::vector<int64_t>{disk.alarmType, disk.alarmLevel, disk.isGlobal, disk.eventType, disk.isAutoClean,
                                    disk.isCheck, disk.transientPeriod, disk.toggleStartPeriod, disk.toggleEndPeriod,
                                    disk.toggleThreshold}));
    ASSERT_EQ(2, disk.paramNum);
    EXPECT_STREQ("diskName", disk.params[0].paramName);
    EXPECT_STREQ("Disk", disk.params[0].paramEnName);
    EXPECT_STREQ("磁盘", disk.params[0].paramChName);
    EXPECT_STREQ("STRING", disk.params[0].paramType);
    EXPECT_EQ(32, disk.params[0].paramLen);
    EXPECT_EQ(1, disk.params[1].paramClass);
    const stParaDef& reason = items[1]->params[1];
    ASSERT_EQ(4, reason.enumNum);
    EXPECT_EQ(3, reason.enumValues[3].value);
    EXPECT_STREQ("Negotiation failed", reason.enumValues[3].enName);
    EXPECT_STREQ("协商失败", reason.enumValues[3].chName);
    EXPECT_EQ(0, items[2]->transientPeriod);
    EXPECT_STREQ("Below rated speed", items[9]->params[1].enumValues[1].enName);  // a "Bit" enumeration
    EXPECT_EQ(0, items[11]->paramNum);
}

TEST(Definitions, ElementsPairWithDefinitionsByPositionAlone) {
    ConfigDir dir;
    const std::string bare = "<Alarm><AlarmLevel>x9</AlarmLevel></Alarm>";
    const std::string toggles = "<ToggleParams><TransientPeriod>7</TransientPeriod><Other>1</Other></ToggleParams>";
    dir.Write(Doc("<Alarm><AlarmID>5</AlarmID><AlarmType>3</AlarmType></Alarm>" + bare + Alarm("6", "", toggles)),
              "5_ALARMNAME=five\n", "6_ALARMNAME=six\n");
    testsupport::LogCapture log;
    dir.Load();
    const auto items = Definitions();
    ASSERT_EQ(3u, items.size());
    EXPECT_EQ((std::vector<int64_t>{5, 6, 0}), (std::vector<int64_t>{items[0]->alarmId, items[1]->alarmId,
                                                                    items[2]->alarmId}));
    EXPECT_STREQ("EN:five##ZH:##", items[0]->alarmName);  // the Chinese text is missing
    EXPECT_STREQ("", items[2]->alarmName);
    EXPECT_EQ((std::vector<int64_t>{3, 1, 0}), (std::vector<int64_t>{items[0]->alarmType, items[1]->alarmType,
                                                                    items[2]->alarmType}));
    EXPECT_EQ(0, items[0]->alarmLevel);  // "x9"
    EXPECT_EQ(7, items[0]->transientPeriod);
    EXPECT_EQ(0, items[2]->transientPeriod);
    EXPECT_STREQ("svc6", items[0]->serviceType);
    EXPECT_TRUE(log.contains("ALM_BuildAlarmID::classnum=2 !\n", 2, kSource));
    EXPECT_TRUE(log.contains("get 5_ALARMNAME failed", 5));
    EXPECT_TRUE(log.contains("ALM_GetToggleParaValue,pCmdValue=Other invalid.\n", 5, kSource));
    EXPECT_TRUE(log.contains("ALM_BuildStructInit success, Alarms number is 3\n", 2, kSource));
}

TEST(Definitions, ParametersAndEnumerationsKeepTheirLimits) {
    ConfigDir dir;
    const std::string name126(126, 'n');
    const std::string type122(122, 't');  // "1_" + 122 + "_" + value: 126 characters with a one-digit value
    const std::string params = Param(name126, "<Enum>x</Enum>") + Param(name126 + "n") +
                               Param("e", Enum("T", "<V><K>1</K></V><V/><V><K>2</K><X>9</X></V>")) +
                               Param("fits", Enum(type122, "<V><K>1</K></V>", "Bit")) +
                               Param("long", Enum(type122, "<V><K>1</K></V><V><K>12</K></V>")) +
                               Param("novalues", "<ENUM><EnumType>T</EnumType></ENUM>");
    dir.Write(Doc(Alarm("1", params)), "1_e=E\n1_T_1=one\n", "1_T_2=二\n");
    testsupport::LogCapture log;
    dir.Load();
    ASSERT_EQ(1u, Definitions().size());
    const stParaDef* p = Definitions()[0]->params;
    EXPECT_STREQ(name126.c_str(), p[0].paramName);
    EXPECT_STREQ("", p[1].paramName);
    EXPECT_STREQ("E", p[2].paramEnName);
    ASSERT_EQ(3, p[2].enumNum);  // the entry without children repeats the value before it
    EXPECT_EQ((std::vector<int64_t>{1, 1, 2}),
              (std::vector<int64_t>{p[2].enumValues[0].value, p[2].enumValues[1].value, p[2].enumValues[2].value}));
    EXPECT_STREQ("one", p[2].enumValues[1].enName);
    EXPECT_STREQ("二", p[2].enumValues[2].chName);
    EXPECT_EQ(1, p[3].enumNum);
    EXPECT_EQ(0, p[4].enumNum);
    EXPECT_EQ(nullptr, p[4].enumValues);
    EXPECT_STREQ("ENUM", p[4].paramType);  // the rest of the parameter stays
    EXPECT_EQ(nullptr, p[5].enumValues);
    EXPECT_TRUE(log.contains("name : Enum invalid!!", 5, kSource));
    EXPECT_TRUE(log.contains("cmdValue::enumType,cmdValue=" + type122 + ",cmdValue=12 is bigger than 128!\n", 5));
    EXPECT_TRUE(log.contains("ALM_GetFieldEnumValue::enumNod cannot find Values item.", 5));
    EXPECT_TRUE(log.contains("DEBUG_LOG EnumType=T!", 2));
}

TEST(Definitions, LoadsOnceAndRetriesOnlyAFailedLoad) {
    ConfigDir dir;
    dir.Write(Doc(""));
    testsupport::LogCapture log;
    dir.Load();
    EXPECT_EQ(-1, ALM_GetAlarmParaLengthbyAlarmId(1));
    EXPECT_EQ(0u, g_uiInitFlag);
    EXPECT_EQ(2u, log.count(".ALM_BuildConfInfoFromXml init fail!\n", 5, kSource));
    EXPECT_EQ(2u, log.count("ALM_BuildConfInfoFromXml failed! ", 5, "../src/AlarmParseConfFile"));
    configtest::WriteFile(dir.xmlPath(), Doc(Alarm("1")));
    EXPECT_EQ(0, ALM_GetAlarmParaLengthbyAlarmId(1));
    log.clear();
    ALM_ConfInit();
    EXPECT_EQ(1u, log.lines().size());
    EXPECT_TRUE(log.contains("ALM_ConfInit start! ", 2, "../src/AlarmParseConfFile"));
}

// Hostile or broken files load nothing dangerous and never crash.
TEST(Definitions, HostileAndBrokenFiles) {
    ConfigDir secretDir;
    configtest::WriteFile(secretDir.path() + "/secret", "TOPSECRET");
    const std::string bombEntities = [] {
        std::string s = "<!ENTITY a0 \"lol lol lol lol lol lol lol lol lol lol\">";
        for (int i = 1; i < 10; ++i) {
            const std::string prev = "&a" + std::to_string(i - 1) + ";";
            s += "<!ENTITY a" + std::to_string(i) + " \"" + prev + prev + prev + prev + prev + prev + prev + prev +
                 prev + prev + "\">";
        }
        return s;
    }();
    const struct {
        const char* name;
        std::string xml;
        unsigned loaded;
    } cases[] = {
        {"external entity", "<!DOCTYPE Alarms [<!ENTITY x SYSTEM \"file://" + secretDir.path() +
                                "/secret\">]><Alarms>" + Alarm("1", Param("&x;")) + "</Alarms>", 1},
        {"entity bomb", "<!DOCTYPE Alarms [" + bombEntities + "]><Alarms>" + Alarm("1", Param("&a9;")) + "</Alarms>",
         1},
        {"not XML", "alarm 1 = disk full\n", 0},
        {"error before the root", "<?xml version=\"1.0\"?><!DOCTYPE Alarms [<!ELEMENT ><Alarms>" + Alarm("1") +
                                      "</Alarms>", 0},
        {"error after the root", "<Alarms>" + Alarm("1") + "<Alarm><AlarmID>2</AlarmID></Alarms>", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ConfigDir dir;
        dir.Write(c.xml, "1_ALARMNAME=one\n");
        ALM_FreeConfInfo();
        dir.Load();
        EXPECT_EQ(c.loaded, g_uiInitFlag);
        if (c.loaded == 0) {
            EXPECT_EQ(nullptr, g_stCfgParaInfo.head);
            continue;
        }
        EXPECT_STREQ("EN:one##ZH:##", Definitions()[0]->alarmName);
        for (int64_t i = 0; i < Definitions()[0]->paramNum; ++i) {
            const stParaDef& para = Definitions()[0]->params[i];
            EXPECT_EQ(std::string::npos, (std::string(para.paramName) + para.paramEnName).find("TOPSECRET"));
            EXPECT_EQ(std::string::npos, std::string(para.paramName).find("lol"));
        }
    }
}

// A load inside another user of the parser leaves that user working.
TEST(Definitions, LoadingLeavesOtherParserUsersWorking) {
    xercesc::XMLPlatformUtils::Initialize();
    ConfigDir dir;
    dir.Write(Doc(Alarm("1")));
    dir.Load();
    ASSERT_EQ(1u, g_uiInitFlag);
    {
        xercesc::XercesDOMParser parser;
        parser.parse(dir.xmlPath().c_str());
        ASSERT_NE(nullptr, parser.getDocument());
        EXPECT_EQ(1u, ALM_GetNodeListByElements(parser.getDocument()->getDocumentElement(), "AlarmID")->getLength());
    }
    xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace
