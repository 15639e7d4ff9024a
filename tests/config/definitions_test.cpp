// The definition loader: the example file, positional pairing, limits, retries after a failed load, hostile files.
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "AlarmBuildAlarmConfInfo.h"
#include "ConfigTestSupport.h"

namespace {

using configtest::ConfigDir;
using configtest::Definitions;
using configtest::Doc;
using Numbers = std::vector<int64_t>;

std::string Alarm(const std::string& id, const std::string& params = "", const std::string& extra = "") {
    return "<Alarm><AlarmID>" + id + "</AlarmID><AlarmType>1</AlarmType><ServiceType>svc" + id +
           "</ServiceType><AlarmLevel>2</AlarmLevel><IsGlobal>0</IsGlobal><EventType>1</EventType>"
           "<IsAutoClean>1</IsAutoClean><IsCheck>1</IsCheck>" + extra + "<Params>" + params + "</Params></Alarm>";
}

std::string Param(const std::string& name, const std::string& more = "") {
    return "<P><ParamName>" + name + "</ParamName><ParamType>ENUM</ParamType>" + more + "</P>";
}

std::string Enum(const std::string& type, const std::string& values, const std::string& element = "ENUM") {
    return "<" + element + "><EnumType>" + type + "</EnumType><Values>" + values + "</Values></" + element + ">";
}

TEST(Definitions, ExampleFileLoadsEveryTextWithoutAMissingKey) {
    testsupport::LogCapture log;
    configtest::Load(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml");
    ASSERT_EQ(1u, g_uiInitFlag) << log.dump();
    for (const auto& line : log.lines()) {
        EXPECT_NE(0u, line.text.rfind("get ", 0)) << line.text;  // every key has both texts
    }
    const auto items = Definitions();
    ASSERT_EQ(12u, items.size());
    const stAlarmItems& disk = *items[0];
    EXPECT_STREQ("EN:Disk usage too high##ZH:磁盘使用率过高##", disk.alarmName);
    EXPECT_STREQ("storage", disk.serviceType);
    EXPECT_EQ((Numbers{300001, 1, 2, 0, 1, 1, 1, 30, 60, 300, 5, 2}),
              (Numbers{disk.alarmId, disk.alarmType, disk.alarmLevel, disk.isGlobal, disk.eventType, disk.isAutoClean,
                       disk.isCheck, disk.transientPeriod, disk.toggleStartPeriod, disk.toggleEndPeriod,
                       disk.toggleThreshold, disk.paramNum}));
    const stParaDef& diskName = disk.params[0];
    EXPECT_EQ("diskName Disk 磁盘 STRING 32 0", testsupport::Words(diskName.paramName, diskName.paramEnName,
                                                                 diskName.paramChName, diskName.paramType,
                                                                 diskName.paramLen, diskName.paramClass));
    const stParaDef& reason = items[1]->params[1];
    ASSERT_EQ(4, reason.enumNum);
    const stEnumBitDef& failed = reason.enumValues[3];
    EXPECT_EQ("3 Negotiation failed 协商失败", testsupport::Words(failed.value, failed.enName, failed.chName));
    EXPECT_STREQ("Below rated speed", items[9]->params[1].enumValues[1].enName);  // a "Bit" enumeration
}

TEST(Definitions, ElementsPairWithDefinitionsByPositionAlone) {
    ConfigDir dir;
    const std::string toggles = "<ToggleParams><TransientPeriod>7</TransientPeriod><Other>1</Other></ToggleParams>";
    dir.Write(Doc("<Alarm><AlarmID>5</AlarmID><AlarmType>3</AlarmType></Alarm><Alarm><AlarmLevel>x9</AlarmLevel>"
                  "</Alarm>" + Alarm("6", "", toggles)), "5_ALARMNAME=five\n");
    testsupport::LogCapture log;
    configtest::Load(dir.xml());
    const auto items = Definitions();
    ASSERT_EQ(3u, items.size());
    EXPECT_EQ("5 6 0 3 1 0 0 7 0", testsupport::Words(items[0]->alarmId, items[1]->alarmId, items[2]->alarmId,
                                                     items[0]->alarmType, items[1]->alarmType, items[2]->alarmType,
                                                     items[0]->alarmLevel /* "x9" */, items[0]->transientPeriod,
                                                     items[2]->transientPeriod));
    EXPECT_EQ("EN:five##ZH:## svc6 ", testsupport::Words(items[0]->alarmName, items[0]->serviceType, items[2]->alarmName));
    EXPECT_TRUE(log.contains("ALM_BuildAlarmID::classnum=2 !\n", 2));
    EXPECT_TRUE(log.contains("ALM_GetToggleParaValue,pCmdValue=Other invalid.\n", 5));
}

TEST(Definitions, ParametersAndEnumerationsKeepTheirLimits) {
    ConfigDir dir;
    const std::string name126(126, 'n');
    const std::string type122(122, 't');  // "1_" + type + "_" + a one-digit value: 126 characters
    dir.Write(Doc(Alarm("1", Param(name126, "<Enum>x</Enum>") + Param(name126 + "n") +
                                 Param("e", Enum("T", "<V><K>1</K></V><V/><V><K>2</K><X>9</X></V>")) +
                                 Param("fits", Enum(type122, "<V><K>1</K></V>", "Bit")) +
                                 Param("long", Enum(type122, "<V><K>1</K></V><V><K>12</K></V>")) +
                                 Param("novalues", "<ENUM><EnumType>T</EnumType></ENUM>"))),
              "1_e=E\n1_T_1=one\n", "1_T_2=二\n");
    testsupport::LogCapture log;
    configtest::Load(dir.xml());
    const stParaDef* p = Definitions().at(0)->params;
    EXPECT_EQ(name126 + "  E", testsupport::Words(p[0].paramName, p[1].paramName, p[2].paramEnName));
    ASSERT_EQ(3, p[2].enumNum);  // the entry without children repeats the value before it
    const stEnumBitDef* e = p[2].enumValues;
    EXPECT_EQ("1 1 2 one 二", testsupport::Words(e[0].value, e[1].value, e[2].value, e[1].enName, e[2].chName));
    EXPECT_EQ("1 0 0", testsupport::Words(p[3].enumNum, p[4].enumNum, p[5].enumNum));
    EXPECT_EQ(nullptr, p[4].enumValues);
    EXPECT_STREQ("ENUM", p[4].paramType);  // the rest of the parameter stays
    EXPECT_TRUE(log.contains("name : Enum invalid!!", 5));
    EXPECT_TRUE(log.contains("cmdValue::enumType,cmdValue=" + type122 + ",cmdValue=12 is bigger than 128!\n", 5));
    EXPECT_TRUE(log.contains("ALM_GetFieldEnumValue::enumNod cannot find Values item.", 5));
}

TEST(Definitions, LoadsOnceAndRetriesOnlyAFailedLoad) {
    ConfigDir dir;
    dir.Write(Doc(""));
    testsupport::LogCapture log;
    configtest::Load(dir.xml());
    EXPECT_EQ(-1, ALM_GetAlarmParaLengthbyAlarmId(1));
    EXPECT_EQ(2u, log.count(".ALM_BuildConfInfoFromXml init fail!\n", 5, "../src/AlarmBuildAlarmConfInfo"));
    EXPECT_EQ(2u, log.count("ALM_BuildConfInfoFromXml failed! ", 5, "../src/AlarmParseConfFile"));
    configtest::WriteFile(dir.xml(), Doc(Alarm("1")));
    EXPECT_EQ(0, ALM_GetAlarmParaLengthbyAlarmId(1));
    log.clear();
    ALM_ConfInit();
    EXPECT_TRUE(log.contains("ALM_ConfInit start! ", 2, "../src/AlarmParseConfFile"));
    EXPECT_EQ(1u, log.lines().size());
}

// Hostile or broken files load nothing dangerous and never crash.
TEST(Definitions, HostileAndBrokenFiles) {
    ConfigDir secret;
    configtest::WriteFile(secret.dir.path() + "/secret", "TOPSECRET");
    std::string bomb = "<!ENTITY a0 \"lol lol lol lol lol lol lol lol lol lol\">";
    for (int i = 1; i < 10; ++i) {
        const std::string prev = "&a" + std::to_string(i - 1) + ";";
        bomb += "<!ENTITY a" + std::to_string(i) + " \"" + prev + prev + prev + prev + prev + prev + prev + prev + "\">";
    }
    const std::string alarms = "<Alarms>" + Alarm("1", Param("p")) + Alarm("2");
    const struct {
        std::string xml;
        size_t loaded;
        const char* paramName;  // neither the file's content nor an expansion
    } cases[] = {
        {"<!DOCTYPE Alarms [<!ENTITY x SYSTEM \"file://" + secret.dir.path() + "/secret\">" + bomb + "]><Alarms>" +
             Alarm("1", Param("&a9;&x;")) + "</Alarms>", 1, ""},
        {"alarm 1 = disk full\n", 0, ""},
        {"<?xml version=\"1.0\"?><!DOCTYPE Alarms [<!ELEMENT >" + alarms + "</Alarms>", 0, ""},  // error before the root
        {alarms + "<Alarm><AlarmID>3</AlarmID></Alarms>", 3, "p"},                           // error after the root
    };
    for (const auto& c : cases) {
        ConfigDir dir;
        dir.Write(c.xml, "1_ALARMNAME=one\n");
        ALM_FreeConfInfo();
        configtest::Load(dir.xml());
        ASSERT_EQ(c.loaded, Definitions().size()) << c.xml;
        EXPECT_EQ(c.loaded == 0 ? 0u : 1u, g_uiInitFlag);
        if (c.loaded != 0) {
            EXPECT_STREQ("EN:one##ZH:##", Definitions()[0]->alarmName);
            EXPECT_STREQ(c.paramName, Definitions()[0]->params[0].paramName);
        }
    }
}

// A load inside another user of the parser leaves that user working.
TEST(Definitions, LoadingLeavesOtherParserUsersWorking) {
    xercesc::XMLPlatformUtils::Initialize();
    ConfigDir dir;
    dir.Write(Doc(Alarm("1")));
    configtest::Load(dir.xml());
    ASSERT_EQ(1u, g_uiInitFlag);
    {
        xercesc::XercesDOMParser parser;
        parser.parse(dir.xml().c_str());
        ASSERT_NE(nullptr, parser.getDocument());
        EXPECT_EQ(1u, ALM_GetNodeListByElements(parser.getDocument()->getDocumentElement(), "AlarmID")->getLength());
    }
    xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace
