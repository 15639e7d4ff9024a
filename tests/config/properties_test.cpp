#include <gtest/gtest.h>

#include <map>
#include <string>

#include "ConfigTestSupport.h"

namespace {

using configtest::WriteFile;

constexpr const char* kSource = "../src/AlarmReadConfFile";

struct Parsed {
    int count;
    std::map<std::string, std::string> table;
};

Parsed ParseText(const testsupport::TempDir& dir, const std::string& text, bool isEnglish = true) {
    const std::string path = dir.path() + "/language.properties";
    WriteFile(path, text);
    const int count = ALM_ParseConfigFile(path.c_str(), isEnglish);
    return {count, isEnglish ? g_ENLanguageDatas : g_ZHLanguageDatas};
}

struct StoredCase {
    const char* file;
    const char* key;
    const char* value;
};

TEST(LanguageFile, StoresValuesByTheLineRules) {
    const std::string longKey(127, 'k');
    const std::string value510(510, 'v');
    const StoredCase cases[] = {
        {"a=b\n", "a", "b"},
        {"a b\n", "a", "b"},
        {"  a \t= \t b\n", "a", "b"},
        {"a==b\n", "a", "b"},
        {"=a=b\n", "=a", "b"},
        {"k = x = y\n", "k", "x = y"},
        {"# c=1\n   #c=2\nk = value # note\n", "k", "value # note"},
        {"dir = /opt/x/\n", "dir", "/opt/x/"},
        {"dir = /opt/x//", "dir", "/opt/x"},
        {"k=v\r\n", "k", "v"},
        {"k=v/\r", "k", "v/"},
        {"k=v  \n", "k", "v  "},
        {"k=1\nk=2\n", "k", "2"},
        {"k=\xe4\xb8\xad\xe6\x96\x87\n", "k", "\xe4\xb8\xad\xe6\x96\x87"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        testsupport::TempDir dir;
        g_ENLanguageDatas.clear();
        const Parsed parsed = ParseText(dir, c.file);
        EXPECT_EQ(1, parsed.count);
        EXPECT_EQ((std::map<std::string, std::string>{{c.key, c.value}}), parsed.table);
    }
    const std::pair<std::string, std::string> limits[] = {
        {longKey + "=v\n", "v"}, {"k=" + value510 + "\n", value510},
        {"k=" + value510.substr(1) + "\r\n", value510.substr(1)}, {"k=" + value510 + "v", value510 + "v"}};
    for (const auto& limit : limits) {
        testsupport::TempDir dir;
        g_ENLanguageDatas.clear();
        const Parsed parsed = ParseText(dir, limit.first);
        ASSERT_EQ(1, parsed.count) << limit.first.size();
        EXPECT_EQ(limit.second, parsed.table.begin()->second);
    }
}

TEST(LanguageFile, RejectedLineLogsThreeMessagesAndTheParseGoesOn) {
    const struct {
        std::string line;
        int splitResult;
    } cases[] = {
        {"keyonly\n", -1}, {"key=\n", -1}, {"key   \n", -1},
        {std::string(128, 'k') + "=v\n", 0}, {"k=" + std::string(511, 'v') + "\n", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line.substr(0, 20));
        testsupport::TempDir dir;
        testsupport::LogCapture log;
        g_ENLanguageDatas.clear();
        const std::string path = dir.path() + "/language.properties";
        const Parsed parsed = ParseText(dir, "# header\n" + c.line + "ok=1\n");
        EXPECT_EQ((std::map<std::string, std::string>{{"ok", "1"}}), parsed.table);
        const std::string at = path + ", line 2:0";
        EXPECT_EQ(3u, log.lines().size()) << log.dump();
        EXPECT_TRUE(log.contains("uiRet=" + std::to_string(c.splitResult) + ",error parsing " + at + "\n", 5, kSource));
        EXPECT_TRUE(log.contains("var name to long " + at + " . only support 128 len\n", 5, kSource));
        EXPECT_TRUE(log.contains("value name to long " + at + " . only support 128 len\n", 5, kSource));
    }
}

TEST(LanguageFile, LongPhysicalLineIsReadInPiecesCountedAsLines) {
    testsupport::TempDir dir;
    testsupport::LogCapture log;
    // The comment's first 769 characters are one piece; the rest is a line of its own.
    const Parsed parsed = ParseText(dir, "#" + std::string(768, 'c') + "b=c\nbad\n");
    EXPECT_EQ((std::map<std::string, std::string>{{"b", "c"}}), parsed.table);
    EXPECT_TRUE(log.contains("uiRet=-1,error parsing " + dir.path() + "/language.properties, line 3:0\n"));
}

TEST(LanguageFile, CountsTheWholeTableAndSetsOnlyItsOwnFlag) {
    testsupport::TempDir dir;
    EXPECT_EQ(2, ParseText(dir, "a=1\nb=2\n", false).count);
    EXPECT_EQ(2, ParseText(dir, "a=1\nb=2\n", false).count);
    EXPECT_EQ(3, ParseText(dir, "c=3\n", false).count);
    EXPECT_EQ(1, g_bInitLangFileFlagZH);
    EXPECT_EQ(0, g_bInitLangFileFlagEN);
    EXPECT_TRUE(g_ENLanguageDatas.empty());
}

TEST(LanguageFile, UnopenableFileChangesNothing) {
    testsupport::LogCapture log;
    EXPECT_EQ(0, ALM_ParseConfigFile("/nonexistent/language.properties", true));
    EXPECT_EQ(0, g_bInitLangFileFlagEN);
    EXPECT_TRUE(log.contains("can't open '/nonexistent/language.properties'", 5, kSource)) << log.dump();
}

TEST(LanguageFile, LookUpAnswersFromTheChosenTableOnly) {
    testsupport::TempDir dir;
    ParseText(dir, "k=english\n", true);
    testsupport::LogCapture log;
    EXPECT_EQ("english", ALM_GetConfigVar("ignored", "k", true));
    EXPECT_EQ("", ALM_GetConfigVar(nullptr, "k", false));
    EXPECT_EQ(1u, log.count("get k failed", 5, kSource));
}

TEST(LanguageFile, SplitRefusesMissingPieces) {
    char text[] = "k v";
    char* line = text;
    char* key = nullptr;
    char* value = nullptr;
    EXPECT_EQ(-1, ALM_GetKey(nullptr, &key, &value));
    EXPECT_EQ(-1, ALM_GetKey(&line, nullptr, &value));
    EXPECT_EQ(-1, ALM_GetKey(&line, &key, nullptr));
    char* nullLine = nullptr;
    EXPECT_EQ(-1, ALM_GetKey(&nullLine, &key, &value));
    ASSERT_EQ(0, ALM_GetKey(&line, &key, &value));
    EXPECT_STREQ("k", key);
    EXPECT_STREQ("v", value);
    EXPECT_EQ(text, line);
}

}  // namespace
