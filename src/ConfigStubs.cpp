// TEMPORARY stand-ins for the configuration loader (replaced by its branch at merge).
#include <cstdio>
#include "AlarmConfig.h"
ALMCfgItems g_stCfgParaInfo;
uint64_t g_uiInitFlag = 0;
void ALM_SetConfFilePath(char*) {}
void ALM_ConfInit(void) {}
void ALM_RsetConf(const char* serviceId, const char* serviceInsId, long resetClear) {
    for (stAlarmItems* i = g_stCfgParaInfo.head; i; i = i->next) {
        if (serviceId) snprintf(i->serviceId, 128, "%s", serviceId);
        if (serviceInsId) snprintf(i->serviceInsId, 128, "%s", serviceInsId);
        i->rsetClear = resetClear;
    }
}
long ALM_GetAlarmConfigInfo(long alarmId, stAlarmItems** out) {
    if (!out) return 1;
    for (stAlarmItems* i = g_stCfgParaInfo.head; i; i = i->next) if (i->alarmId == alarmId) { *out = i; return 0; }
    return 0;
}
std::list<std::string> ALM_GetServiceNames(void) {
    std::list<std::string> r; for (stAlarmItems* i = g_stCfgParaInfo.head; i; i = i->next) r.push_back(i->serviceType); return r;
}
std::list<std::string> ALM_GetAlarmIds(void) {
    std::list<std::string> r; for (stAlarmItems* i = g_stCfgParaInfo.head; i; i = i->next) r.push_back(lltos(i->alarmId)); return r;
}
std::string lltos(long long v) { char b[10]; int n = snprintf(b, 10, "%lld", v); return n < 10 ? b : ""; }
