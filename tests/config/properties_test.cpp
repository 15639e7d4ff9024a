// The language files' properties reader.
#include <map>

#include "ConfigTestSupport.h"

namespace {

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
