// The configuration tests' files: definitions and both language files in a temporary directory, loaded as InitAlarm
// does.
#ifndef CONFIG_TEST_SUPPORT_H
#define CONFIG_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <fstream>

#include "AlarmConfig.h"
#include "LogCapture.h"

namespace configtest {

inline void WriteFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string Doc(const std::string& alarms) { return "<?xml version=\"1.0\"?>\n<Alarms>" + alarms + "</Alarms>"; }

inline void Load(std::string xmlPath) {
    ALM_SetConfFilePath(&xmlPath[0]);
    ALM_ConfInit();
}

struct ConfigDir {
    testsupport::TempDir dir;
    std::string xml() const { return dir.path() + "/alarms.xml"; }
    void Write(const std::string& doc, const std::string& en = "", const std::string& zh = "") const {
        WriteFile(xml(), doc);
        WriteFile(dir.path() + "/en_US/language.properties", en);
        WriteFile(dir.path() + "/zh_CN/language.properties", zh);
    }
};

inline std::vector<const stAlarmItems*> Definitions() {
    std::vector<const stAlarmItems*> items;
    for (auto* item = g_stCfgParaInfo.head; item != nullptr && items.size() < 100000; item = item->next) {
        items.push_back(item);
    }
    return items;
}

}  // namespace configtest

#endif
