// An alarm definition file of any bytes, loaded the way InitAlarm loads it
// (with language files beside it), then looked up: the loader never crashes
// and leaves every text field terminated.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "AlarmConfig.h"
#include "FuzzSupport.h"

namespace {
std::string g_xml;

void WriteFile(const std::string& path, const char* text, size_t size) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f != nullptr) {
        std::fwrite(text, 1, size, f);
        std::fclose(f);
    }
}

void CheckTerminated(const char* field, size_t size) {
    if (strnlen(field, size) == size) {
        abort();
    }
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::QuietAndUnpaused();
    char dir[] = "/tmp/alarmsdk-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        return 1;
    }
    const std::string base = dir;
    const char en[] = "1_ALARMNAME=Disk full\n1_disk=Disk\n1_State_0=ok\n";
    const char zh[] = "1_ALARMNAME=\xe7\xa3\x81\xe7\x9b\x98\n1_disk=\xe7\xa3\x81\xe7\x9b\x98\n";
    for (const char* language : {"/en_US", "/zh_CN"}) {
        mkdir((base + language).c_str(), 0700);
    }
    WriteFile(base + "/en_US/language.properties", en, sizeof(en) - 1);
    WriteFile(base + "/zh_CN/language.properties", zh, sizeof(zh) - 1);
    g_xml = base + "/alarms.xml";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (64u << 10)) {
        return 0;
    }
    WriteFile(g_xml, reinterpret_cast<const char*>(data), size);
    char path[PATH_MAX];
    std::snprintf(path, sizeof(path), "%s", g_xml.c_str());
    ALM_SetConfFilePath(path);
    ALM_ConfInit();
    for (stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr; item = item->next) {
        CheckTerminated(item->alarmName, sizeof(item->alarmName));
        CheckTerminated(item->serviceType, sizeof(item->serviceType));
        for (int64_t p = 0; item->params != nullptr && p < item->paramNum; ++p) {
            CheckTerminated(item->params[p].paramName, sizeof(item->params[p].paramName));
            CheckTerminated(item->params[p].paramEnName, sizeof(item->params[p].paramEnName));
            CheckTerminated(item->params[p].paramType, sizeof(item->params[p].paramType));
            for (int64_t e = 0; item->params[p].enumValues != nullptr && e < item->params[p].enumNum; ++e) {
                CheckTerminated(item->params[p].enumValues[e].enName, sizeof(item->params[p].enumValues[e].enName));
            }
        }
        stAlarmItems* found = nullptr;
        if (ALM_GetAlarmConfigInfo(static_cast<long>(item->alarmId), &found) != 0 || found == nullptr) {
            abort();
        }
    }
    (void)ALM_GetAlarmIds();
    (void)ALM_GetServiceNames();
    (void)ALM_GetAlarmMaxAlarmId();
    ALM_FreeConfInfo();
    return 0;
}
