// The legacy configuration: the definition loader (the example file, positional pairing, limits, retries after a
// failed load, hostile files), where the language files are found, the look-ups, and the properties reader.
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include "AlarmBuildAlarmConfInfo.h"
#include "ConfigTestSupport.h"

namespace {

using configtest::ConfigDir;
using configtest::Definitions;
using configtest::Doc;
using Numbers = std::vector<int64_t>;
using Strings = std::list<std::string>;

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
    EXPECT_EQ("EN:Disk usage too high##ZH:磁盘使用率过高## storage", testsupport::Words(disk.alarmName, disk.serviceType));
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
                                 Param("novalues", "<ENUM><EnumType>T</EnumType></ENUM>") +
                                 Param("first", Enum("T", "<V/>")))),
              "1_e=E\n1_T_1=one\n1_T_T=tee\n1_ALARMNAME=" + std::string(200, 'a') + "\n", "1_T_2=二\n");
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
    // An entry without children before any other takes the enumeration type as its value text.
    EXPECT_EQ("1 tee", testsupport::Words(p[6].enumNum, p[6].enumValues[0].enName));
    // A longer name is cut to 126 characters.
    EXPECT_EQ("EN:" + std::string(123, 'a'), Definitions().at(0)->alarmName);
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

// A definition whose parameters have the given one-digit lengths.
std::string Sized(const std::string& id, const std::string& service, const std::string& lengths = "") {
    std::string params;
    for (char len : lengths) {
        params += std::string("<P><ParamLen>") + len + "</ParamLen></P>";
    }
    return "<A><AlarmID>" + id + "</AlarmID><ServiceType>" + service + "</ServiceType><Params>" + params + "</Params></A>";
}

// Trailing slashes go; the definition path is set only when both language files resolve.
TEST(ConfigPaths, LanguageFilesLieBesideTheDefinitionFile) {
    for (const std::string variant : {"", "/", "///", "zh_CN", "en_US"}) {
        const bool resolves = variant.empty() || variant[0] == '/';
        ConfigDir dir;
        dir.Write(Doc(""));
        if (!resolves) {
            std::filesystem::remove_all(dir.dir.path() + "/" + variant);
        }
        g_stCfgParaInfo.configPath[0] = '\0';
        testsupport::LogCapture log;
        configtest::Load(dir.xml() + (resolves ? variant : ""));
        EXPECT_EQ(resolves ? dir.xml() : "", g_stCfgParaInfo.configPath) << variant;
        if (resolves) {
            EXPECT_EQ(dir.dir.path() + "/zh_CN/language.properties", ALARM_LANG_CONFIG_CH_PATH);
            EXPECT_EQ(dir.dir.path() + "/en_US/language.properties", ALARM_LANG_CONFIG_EN_PATH);
        }
        EXPECT_EQ(variant == "zh_CN", log.contains("input Chlanguage.properties is not realpath!", 5));
        EXPECT_EQ(variant == "en_US", log.contains("input Enlanguage.properties is not realpath!", 5));
    }
}

TEST(ConfigLookups, AnswerFromTheFirstDefinitionWithTheId) {
    stAlarmItems* found = nullptr;
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(7, &found));  // nothing loaded yet: empty answers
    EXPECT_EQ("-1 0", testsupport::Words(ALM_GetAlarmParaLengthbyAlarmId(7), ALM_GetAlarmMaxAlarmId()));
    EXPECT_TRUE(ALM_GetServiceNames().empty() && ALM_GetAlarmIds().empty() && found == nullptr);
    ConfigDir dir;
    dir.Write(Doc(Sized("7", "disk", "124") + Sized("-1", "net") + Sized("7", "dup", "4") +
                  Sized("1234567890", "net") + Sized("123456789", "cpu")));
    configtest::Load(dir.xml());
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(7, &found));
    EXPECT_STREQ("disk", found->serviceType);
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(8, &found));
    EXPECT_STREQ("disk", found->serviceType);  // untouched
    EXPECT_EQ(1, ALM_GetAlarmConfigInfo(7, nullptr));
    EXPECT_EQ("7 0 -1", testsupport::Words(ALM_GetAlarmParaLengthbyAlarmId(7), ALM_GetAlarmParaLengthbyAlarmId(-1),
                                           ALM_GetAlarmParaLengthbyAlarmId(8)));
    EXPECT_EQ(UINT64_MAX, ALM_GetAlarmMaxAlarmId());  // -1 compares as unsigned
    EXPECT_EQ((Strings{"disk", "net", "dup", "net", "cpu"}), ALM_GetServiceNames());
    EXPECT_EQ((Strings{"7", "-1", "7", "", "123456789"}), ALM_GetAlarmIds());
    EXPECT_EQ("", lltos(-123456789));
    const std::string id127(127, 'i');  // a 128-character identity is refused, not cut
    ALM_RsetConf(id127.c_str(), "inst-1", 1);
    ALM_RsetConf(nullptr, (id127 + "i").c_str(), 0);
    for (const stAlarmItems* item : configtest::Definitions()) {
        EXPECT_EQ(id127 + "  0", testsupport::Words(item->serviceId, item->serviceInsId, item->rsetClear));
    }
}

TEST(ConfigLookups, FirstLookUpsOnTwoThreadsLoadOnce) {
    ConfigDir dir;
    dir.Write(Doc(Sized("3", "a", "1") + Sized("9", "b")));
    std::string path = dir.xml();
    ALM_SetConfFilePath(&path[0]);
    testsupport::LogCapture log;
    uint64_t seen[2] = {};
    std::thread other([&seen] { seen[1] = ALM_GetAlarmMaxAlarmId(); });
    seen[0] = ALM_GetAlarmMaxAlarmId();
    other.join();
    EXPECT_EQ("9 9 1 2", testsupport::Words(seen[0], seen[1], log.count("ALM_ConfInit success! "),
                                            configtest::Definitions().size()));
}

using Table = std::map<std::string, std::string>;

const std::string& LangPath() {
    static const testsupport::TempDir dir;
    static const std::string path = dir.path() + "/l.properties";
    return path;
}

// Reads text as a language file into a freshly emptied table.
Table Parse(const std::string& text, bool isEnglish = true) {
    configtest::WriteFile(LangPath(), text);
    Table& table = isEnglish ? g_ENLanguageDatas : g_ZHLanguageDatas;
    table.clear();
    const int count = ALM_ParseConfigFile(LangPath().c_str(), isEnglish);
    EXPECT_EQ(static_cast<int>(table.size()), count);
    return table;
}

TEST(LanguageFile, StoresValuesByTheLineRules) {
    testsupport::LogCapture log;
    const std::string v510(510, 'v');
    const std::pair<std::string, Table> cases[] = {
        {"a=b\n", {{"a", "b"}}}, {"a b\n", {{"a", "b"}}}, {"  a \t= \t b\n", {{"a", "b"}}},
        {"a==b\n=c=d\n", {{"a", "b"}, {"=c", "d"}}}, {"k = x = y\n", {{"k", "x = y"}}},
        {"# c=1\n   #c=2\nk = value # note\n", {{"k", "value # note"}}},
        {"dir = /opt/x/\nlast = /opt/y//", {{"dir", "/opt/x/"}, {"last", "/opt/y"}}},
        {"k=v\r\nslash=v/\r", {{"k", "v"}, {"slash", "v/"}}},  // slash before newline and CR stays
        {"k=v  \n", {{"k", "v  "}}}, {"k=1\nk=2\n", {{"k", "2"}}},
        {std::string(127, 'k') + "=v\n", {{std::string(127, 'k'), "v"}}},
        {"a=" + v510 + "\nb=" + v510.substr(1) + "\r\nc=" + v510 + "v",
         {{"a", v510}, {"b", v510.substr(1)}, {"c", v510 + "v"}}},
        // A long physical line is read in pieces of 769 characters, each counted as a line: "bad" is line 3.
        {"#" + std::string(768, 'c') + "b=c\nbad\n", {{"b", "c"}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.second, Parse(c.first)) << c.first.substr(0, 40);
    }
    EXPECT_TRUE(log.contains("uiRet=-1,error parsing " + LangPath() + ", line 3:0\n"));
}

TEST(LanguageFile, RejectedLineLogsThreeMessagesAndTheParseGoesOn) {
    const std::pair<std::string, int> cases[] = {
        {"keyonly\n", -1}, {"key=\n", -1}, {"key   \n", -1},
        {std::string(128, 'k') + "=v\n", 0}, {"k=" + std::string(511, 'v') + "\n", 0},
    };
    for (const auto& c : cases) {
        testsupport::LogCapture log;
        EXPECT_EQ((Table{{"ok", "1"}}), Parse("# header\n" + c.first + "ok=1\n")) << c.first.substr(0, 20);
        const std::string at = LangPath() + ", line 2:0";
        EXPECT_EQ(3u, log.lines().size()) << log.dump();
        EXPECT_TRUE(log.contains("uiRet=" + std::to_string(c.second) + ",error parsing " + at + "\n", 5));
        EXPECT_TRUE(log.contains("var name to long " + at + " . only support 128 len\n", 5));
        EXPECT_TRUE(log.contains("value name to long " + at + " . only support 128 len\n", 5));
    }
}

TEST(LanguageFile, TablesGrowAcrossReadsAndLookUpsAnswerFromTheChosenOne) {
    Parse("a=1\nb=2\n", false);
    configtest::WriteFile(LangPath(), "b=two\nc=3\n");
    EXPECT_EQ(3, ALM_ParseConfigFile(LangPath().c_str(), false));
    testsupport::LogCapture log;
    EXPECT_EQ(0, ALM_ParseConfigFile("/nonexistent/l.properties", true));
    EXPECT_EQ("1 0", testsupport::Words(g_bInitLangFileFlagZH, g_bInitLangFileFlagEN));
    EXPECT_EQ("two", ALM_GetConfigVar("ignored", "b", false));
    EXPECT_EQ("", ALM_GetConfigVar(nullptr, "b", true));
    EXPECT_EQ("can't open '/nonexistent/l.properties'\nget b failed\n", log.texts());
}

}  // namespace
