// Where the language files are found, and the look-ups over the loaded definitions.
#include <list>
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
    dir.Write(Doc(Alarm("7", "disk", "124") + Alarm("-1", "net") + Alarm("7", "dup", "4") +
                  Alarm("1234567890", "net") + Alarm("123456789", "cpu")));
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
    dir.Write(Doc(Alarm("3", "a", "1") + Alarm("9", "b")));
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

}  // namespace
