#include <gtest/gtest.h>

#include <list>
#include <string>
#include <thread>

#include "ConfigTestSupport.h"

namespace {

using configtest::ConfigDir;
using configtest::Doc;

constexpr const char* kSource = "../src/AlarmBuildAlarmConfInfo";

std::string Alarm(const std::string& id, const std::string& service, const std::string& lengths) {
    std::string params;
    for (char len : lengths) {
        params += "<P><ParamName>p" + std::string(1, len) + "</ParamName><ParamLen>" + len + "</ParamLen></P>";
    }
    return "<Alarm><AlarmID>" + id + "</AlarmID><ServiceType>" + service + "</ServiceType><Params>" + params +
           "</Params></Alarm>";
}

TEST(ConfigPaths, TrailingSlashesGoAndLanguagePathsLieBeside) {
    for (const char* suffix : {"", "/", "///"}) {
        SCOPED_TRACE(suffix);
        ConfigDir dir;
        dir.Write(Doc(""));
        testsupport::LogCapture log;
        ConfigDir::Load(dir.xmlPath() + suffix);
        EXPECT_EQ(dir.xmlPath(), g_stCfgParaInfo.configPath);
        EXPECT_EQ(dir.path() + "/zh_CN/language.properties", ALARM_LANG_CONFIG_CH_PATH);
        EXPECT_EQ(dir.path() + "/en_US/language.properties", ALARM_LANG_CONFIG_EN_PATH);
        EXPECT_TRUE(log.contains("input Chlanguage.properties Path is " + dir.path() + "/zh_CN/language.properties", 2));
        EXPECT_TRUE(log.contains("the real g_stCfgParaInfo.config path is  " + dir.xmlPath(), 2, kSource));
    }
}

TEST(ConfigPaths, MissingLanguageFileLeavesTheDefinitionPathUnset) {
    for (const char* missing : {"zh_CN", "en_US"}) {
        SCOPED_TRACE(missing);
        ConfigDir dir;
        dir.Write(Doc("<Alarm><AlarmID>1</AlarmID></Alarm>"));
        std::filesystem::remove_all(dir.path() + "/" + missing);
        testsupport::LogCapture log;
        dir.Load();
        EXPECT_STREQ("", g_stCfgParaInfo.configPath);
        EXPECT_EQ(0u, g_uiInitFlag);
        EXPECT_TRUE(log.contains(std::string("input ") + (missing[0] == 'z' ? "Ch" : "En") +
                                     "language.properties is not realpath!", 5, kSource));
    }
}

TEST(ConfigLookups, AnswerFromTheFirstDefinitionWithTheId) {
    ConfigDir dir;
    dir.Write(Doc(Alarm("7", "disk", "124") + Alarm("-1", "net", "") + Alarm("7", "dup", "4") +
                  Alarm("1234567890", "net", "") + Alarm("123456789", "cpu", "")));
    dir.Load();
    stAlarmItems* found = nullptr;
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(7, &found));
    ASSERT_NE(nullptr, found);
    EXPECT_STREQ("disk", found->serviceType);
    stAlarmItems sentinel = {};
    found = &sentinel;
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(8, &found));
    EXPECT_EQ(&sentinel, found);
    testsupport::LogCapture log;
    EXPECT_EQ(1, ALM_GetAlarmConfigInfo(7, nullptr));
    EXPECT_TRUE(log.contains("ALM_GetAlarmConfigInfo pAlarmitems IS NULL!\n", 5, kSource));
    EXPECT_EQ(7, ALM_GetAlarmParaLengthbyAlarmId(7));
    EXPECT_EQ(0, ALM_GetAlarmParaLengthbyAlarmId(-1));
    EXPECT_EQ(-1, ALM_GetAlarmParaLengthbyAlarmId(8));
    EXPECT_EQ(UINT64_MAX, ALM_GetAlarmMaxAlarmId());  // -1 compares as unsigned
    EXPECT_EQ((std::list<std::string>{"disk", "net", "dup", "net", "cpu"}), ALM_GetServiceNames());
    EXPECT_EQ((std::list<std::string>{"7", "-1", "7", "", "123456789"}), ALM_GetAlarmIds());
}

TEST(ConfigLookups, FirstLookUpsOnTwoThreadsLoadOnce) {
    ConfigDir dir;
    dir.Write(Doc(Alarm("3", "a", "1") + Alarm("9", "b", "")));
    std::string path = dir.xmlPath();
    ALM_SetConfFilePath(&path[0]);
    testsupport::LogCapture log;
    uint64_t seen[2] = {};
    std::thread other([&seen] { seen[1] = ALM_GetAlarmMaxAlarmId(); });
    seen[0] = ALM_GetAlarmMaxAlarmId();
    other.join();
    EXPECT_EQ(9u, seen[0]);
    EXPECT_EQ(9u, seen[1]);
    EXPECT_EQ(1u, log.count("ALM_ConfInit success! "));
    EXPECT_EQ(2u, configtest::Definitions().size());
}

TEST(ConfigLookups, NothingLoadedGivesEmptyAnswers) {
    stAlarmItems* found = nullptr;
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(1, &found));
    EXPECT_EQ(nullptr, found);
    EXPECT_EQ(-1, ALM_GetAlarmParaLengthbyAlarmId(1));
    EXPECT_EQ(0u, ALM_GetAlarmMaxAlarmId());
    EXPECT_TRUE(ALM_GetServiceNames().empty());
    EXPECT_TRUE(ALM_GetAlarmIds().empty());
}

TEST(ConfigLookups, NumbersNeedingMoreThanNineCharactersGiveEmptyText) {
    const std::pair<long long, const char*> cases[] = {
        {0, "0"}, {123456789, "123456789"}, {1234567890, ""}, {-12345678, "-12345678"}, {-123456789, ""}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.second, lltos(c.first)) << c.first;
    }
}

TEST(ConfigLookups, ServiceIdentityIsStampedIntoEveryDefinition) {
    ConfigDir dir;
    dir.Write(Doc(Alarm("1", "a", "") + Alarm("2", "b", "")));
    dir.Load();
    const std::string id127(127, 'i');
    ALM_RsetConf(id127.c_str(), "inst-1", 1);
    ALM_RsetConf(nullptr, (id127 + "i").c_str(), 0);
    for (const stAlarmItems* item : configtest::Definitions()) {
        EXPECT_EQ(id127, item->serviceId);
        EXPECT_STREQ("", item->serviceInsId);
        EXPECT_EQ(0, item->rsetClear);
    }
}

}  // namespace
