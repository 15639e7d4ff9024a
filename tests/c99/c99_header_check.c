/* Compiled as strict C99: the public header must be plain C, and every entry
 * point a C service calls must resolve against the shared library. */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "AlarmConfig.h"
#include "AlarmSdk.h"
#include "AlarmSdkStats.h"

/* The packed records are part of the binary interface. */
typedef char check_alarm_size[(sizeof(_ZEBAlarm) == 158) ? 1 : -1];
typedef char check_param_size[(sizeof(_ZEBAlarmParam) == 264) ? 1 : -1];
typedef char check_alarm_type_offset[(offsetof(_ZEBAlarm, alarmType) == 10) ? 1 : -1];
typedef char check_alarm_time_offset[(offsetof(_ZEBAlarm, alarmTime) == 14) ? 1 : -1];
typedef char check_param_list_offset[(offsetof(_ZEBAlarm, paramList) == 22) ? 1 : -1];
typedef char check_service_name_offset[(offsetof(_ZEBAlarm, serviceName) == 30) ? 1 : -1];
typedef char check_param_value_offset[(offsetof(_ZEBAlarmParam, paramValue) == 128) ? 1 : -1];
typedef char check_param_next_offset[(offsetof(_ZEBAlarmParam, next) == 256) ? 1 : -1];
typedef char check_legacy_header_size[(sizeof(AlarmObject) == 22 && offsetof(AlarmObject, params) == 22) ? 1 : -1];
typedef char check_legacy_param_size[(sizeof(AlarmParam) == 256) ? 1 : -1];
typedef char check_stats_size[(sizeof(alarmsdk_stats) == ALARMSDK_STATS_MIN_SIZE) ? 1 : -1];

static void on_check(char* alarms) { (void)alarms; }

int main(void) {
    /* Taking every address makes the linker resolve each symbol. */
    typedef void (*entry_fn)(void);
    entry_fn entries[] = {
        (entry_fn)&ZEBInitAlarmSDK,          (entry_fn)&ZEBRegisterRsetClearInfo,
        (entry_fn)&ZEBRegisterInfo,          (entry_fn)&ZEBAllocAlarm,
        (entry_fn)&ZEBSetAlarmServiceName,   (entry_fn)&ZEBAppendAlarmParam,
        (entry_fn)&ZEBSendAlarm,             (entry_fn)&ZEBResetAlarmTime,
        (entry_fn)&ZEBFreeAlarm,             (entry_fn)&ZEBRegisterAlarmCheckCallBackFun,
        (entry_fn)&ZEBRegisterRsetClear,     (entry_fn)&ZEBInitAlarmSDK4CoProcess,
        (entry_fn)&ZEBRegisterRsetClearInfo4CoProcess, (entry_fn)&ZEBRegisterInfo4CoProcess,
        (entry_fn)&ZEBSendAlarm4CoProcess,   (entry_fn)&ZEBRegisterAlarmCheckCallBackFun4CoProcess,
        /* legacy configuration */
        (entry_fn)&ALM_ParseConfigFile,      (entry_fn)&ALM_GetKey,
        (entry_fn)&ALM_RemoveTrailingChar,   (entry_fn)&ALM_SetConfFilePath,
        (entry_fn)&ALM_ConfInit,             (entry_fn)&ALM_RsetConf,
        (entry_fn)&ALM_GetAlarmConfigInfo,   (entry_fn)&ALM_GetAlarmParaLengthbyAlarmId,
        (entry_fn)&ALM_GetAlarmMaxAlarmId,   (entry_fn)&ALM_GetCurrMs,
        (entry_fn)&alarmsdk_version,
        /* delivery counters and flush */
        (entry_fn)&alarmsdk_get_stats,       (entry_fn)&alarmsdk_get_process_stats,
        (entry_fn)&alarmsdk_get_legacy_stats, (entry_fn)&alarmsdk_flush,
        (entry_fn)&alarmsdk_flush_process,   (entry_fn)&alarmsdk_flush_legacy,
        /* legacy generation */
        (entry_fn)&InitAlarm,                (entry_fn)&AllocAlarmObject,
        (entry_fn)&AppendParam,              (entry_fn)&SendAlarm,
        (entry_fn)&FreeAlarmObject,
    };
    /* The legacy configuration's data: naming it makes the linker resolve it. */
    const void* data[] = {
        &g_stCfgParaInfo, &g_uiInitFlag, ALARM_LANG_CONFIG_CH_PATH, ALARM_LANG_CONFIG_EN_PATH,
        &g_bInitLangFileFlagEN, &g_bInitLangFileFlagZH, &ALARM, &ALARM_ID, &ALARM_TYPE, &ALARM_LEVEL,
        &ALARM_PARAMS, &ALARM_IS_GLOBAL, &ALARM_EVENT_TYPE, &ALARM_CLEAN, &ALARM_SERVICE_TYPE, &ALARM_CHECK,
        &ALARM_TOGGLE_PARA,
    };
    size_t i;
    for (i = 0; i < sizeof(entries) / sizeof(entries[0]); ++i) {
        if (entries[i] == NULL) {
            fprintf(stderr, "entry %u is missing\n", (unsigned)i);
            return 1;
        }
    }
    /* The library linked is the one these headers describe. */
    if (strcmp(alarmsdk_version(), ALARMSDK_VERSION) != 0) {
        fprintf(stderr, "library %s, headers %s\n", alarmsdk_version(), ALARMSDK_VERSION);
        return 1;
    }
    /* A C caller's round trip on one alarm object, without the agent. */
    {
        _ZEBAlarm* alarm = ZEBAllocAlarm("1001", ZEB_ALARM_GENERATE);
        if (alarm == NULL || ZEBAppendAlarmParam(alarm, "disk", "sda") != 0 || ZEBFreeAlarm(alarm) != 0) {
            fprintf(stderr, "alarm object round trip failed\n");
            return 1;
        }
    }
    (void)on_check;
    (void)data;
    printf("1 passed, 0 failed\n");
    return 0;
}
