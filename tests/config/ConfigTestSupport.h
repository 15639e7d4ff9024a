// Shared by the configuration tests: a definition file and its two language
// files written into a temporary directory, loaded the way InitAlarm does.
#ifndef CONFIG_TEST_SUPPORT_H
#define CONFIG_TEST_SUPPORT_H

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "AlarmConfig.h"
#include "LogCapture.h"
#include "TestEnv.h"

namespace configtest {

inline void WriteFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

// "<Alarms>" + body + "</Alarms>" with the usual declaration.
inline std::string Doc(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Alarms>" + body + "</Alarms>\n";
}

class ConfigDir {
public:
    std::string xmlPath() const { return dir_.path() + "/alarms.xml"; }
    void Write(const std::string& xml, const std::string& en = "", const std::string& zh = "") const {
        WriteFile(xmlPath(), xml);
        WriteFile(dir_.path() + "/en_US/language.properties", en);
        WriteFile(dir_.path() + "/zh_CN/language.properties", zh);
    }
    // Sets the paths and loads, as the legacy initialisation does.
    static void Load(std::string path) {
        ALM_SetConfFilePath(&path[0]);
        ALM_ConfInit();
    }
    void Load() const { Load(xmlPath()); }
    const std::string& path() const { return dir_.path(); }

private:
    testsupport::TempDir dir_;
};

inline std::vector<const stAlarmItems*> Definitions() {
    std::vector<const stAlarmItems*> items;
    for (const stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr && items.size() < 100000; item = item->next) {
        items.push_back(item);
    }
    return items;
}

}  // namespace configtest

#endif
