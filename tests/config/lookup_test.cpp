#include <gtest/gtest.h>

#include <list>
#include <string>
#include <thread>

#include "ConfigTestSupport.h"

namespace {

using configtest::ConfigDir;
using configtest::Doc;
using Strings = std::list<std::string>;

// A definition whose parameters have the given one-digit lengths.
std::string Alarm(const std::string& id, const std::string& service, const std::string& lengths = "") {
    std::string params;
    for (char len : lengths) {
        params += std::string("<P><ParamLen>") + len + "</ParamLen></P>";
    }
    return "<A><AlarmID>" + id + "</AlarmID><ServiceType>" + service + "</ServiceType><Params>" + params + "</Params></A>";
}

TEST(ConfigPaths, TrailingSlashesGoAndLanguagePathsLieBeside) {
    for (const char* suffix : {"", "/", "///"}) {
        ConfigDir dir;
        dir.Write(Doc(""));
        testsupport::LogCapture log;
        configtest::Load(dir.xml() + suffix);
        EXPECT_EQ(dir.xml(), g_stCfgParaInfo.configPath) << suffix;
        EXPECT_EQ(dir.dir.path() + "/zh_CN/language.properties", ALARM_LANG_CONFIG_CH_PATH);
        EXPECT_EQ(dir.dir.path() + "/en_US/language.properties", ALARM_LANG_CONFIG_EN_PATH);
        EXPECT_TRUE(log.contains("the real g_stCfgParaInfo.config path is  " + dir.xml(), 2));
    }
}

TEST(ConfigPaths, MissingLanguageFileLeavesTheDefinitionPathUnset) {
    for (const std::string missing : {"Ch", "En"}) {
        ConfigDir dir;
        dir.Write(Doc(Alarm("1", "a")));
        std::filesystem::remove_all(dir.dir.path() + (missing == "Ch" ? "/zh_CN" : "/en_US"));
        testsupport::LogCapture log;
        configtest::Load(dir.xml());
        EXPECT_STREQ("", g_stCfgParaInfo.configPath);
        EXPECT_EQ(0u, g_uiInitFlag);
        EXPECT_TRUE(log.contains("input " + missing + "language.properties is not realpath!", 5)) << log.dump();
    }
}

TEST(ConfigLookups, AnswerFromTheFirstDefinitionWithTheId) {
    stAlarmItems* found = nullptr;
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(7, &found));  // nothing loaded yet: empty answers
    EXPECT_EQ((std::vector<long>{-1, 0}), (std::vector<long>{ALM_GetAlarmParaLengthbyAlarmId(7),
                                                              static_cast<long>(ALM_GetAlarmMaxAlarmId())}));
    EXPECT_TRUE(ALM_GetServiceNames().empty() && ALM_GetAlarmIds().empty() && found == nullptr);
    ConfigDir dir;
    dir.Write(Doc(Alarm("7", "disk", "124") + Alarm("-1", "net") + Alarm("7", "dup", "4") +
                  Alarm("1234567890", "net") + Alarm("123456789", "cpu")));
    configtest::Load(dir.xml());
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(7, &found));
    EXPECT_STREQ("disk", found->serviceType);
    EXPECT_EQ(0, ALM_GetAlarmConfigInfo(8, &found));
    EXPECT_STREQ("disk", found->serviceType);  // untouched
    EXPECT_EQ(1, ALM_GetAlarmConfigInfo(7, nullptr));
    EXPECT_EQ((std::vector<long>{7, 0, -1}), (std::vector<long>{ALM_GetAlarmParaLengthbyAlarmId(7),
                                                                 ALM_GetAlarmParaLengthbyAlarmId(-1),
                                                                 ALM_GetAlarmParaLengthbyAlarmId(8)}));
    EXPECT_EQ(UINT64_MAX, ALM_GetAlarmMaxAlarmId());  // -1 compares as unsigned
    EXPECT_EQ((Strings{"disk", "net", "dup", "net", "cpu"}), ALM_GetServiceNames());
    EXPECT_EQ((Strings{"7", "-1", "7", "", "123456789"}), ALM_GetAlarmIds());
    EXPECT_EQ("", lltos(-123456789));
}

TEST(ConfigLookups, FirstLookUpsOnTwoThreadsLoadOnce) {
    ConfigDir dir;
    dir.Write(Doc(Alarm("3", "a", "1") + Alarm("9", "b")));
    std::string path = dir.xml();
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

TEST(ConfigLookups, ServiceIdentityIsStampedIntoEveryDefinition) {
    ConfigDir dir;
    dir.Write(Doc(Alarm("1", "a") + Alarm("2", "b")));
    configtest::Load(dir.xml());
    const std::string id127(127, 'i');
    ALM_RsetConf(id127.c_str(), "inst-1", 1);
    ALM_RsetConf(nullptr, (id127 + "i").c_str(), 0);
    for (const stAlarmItems* item : configtest::Definitions()) {
        EXPECT_EQ(id127 + "  0", std::string(item->serviceId) + " " + item->serviceInsId + " " +
                                     std::to_string(item->rsetClear));
    }
}

}  // namespace
