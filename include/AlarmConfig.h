/* Alarm SDK, legacy generation: the alarm definitions loaded from the XML
 * alarm definition file, the two language tables, and the look-ups over them.
 *
 * The definition file names every alarm with its type, level, flags,
 * parameters (with enumerations) and toggle settings; the language files
 * "<dir>/zh_CN/language.properties" and "<dir>/en_US/language.properties"
 * beside it give the bilingual texts. Loading happens once, from InitAlarm or
 * from the first look-up; afterwards everything here is read without locks.
 *
 * Plain C (C99) except for the part marked C++ below.
 */
#ifndef ALARM_CONFIG_H
#define ALARM_CONFIG_H

#include <stdbool.h>
#include <stdint.h>

#include "AlarmSdkExport.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ALM_CONF_TEXT_SIZE 128
#define ALM_CONF_PATH_SIZE 4096

/* One value of an enumerated parameter. */
typedef struct stEnumBitDef {
    int64_t value;
    char enName[ALM_CONF_TEXT_SIZE];
    char chName[ALM_CONF_TEXT_SIZE];
} stEnumBitDef;

/* One parameter of a definition. Texts longer than 126 characters are
 * refused by the bounded copy and leave the field empty. */
typedef struct stParaDef {
    char paramName[ALM_CONF_TEXT_SIZE];   /* "ParamName" */
    char paramEnName[ALM_CONF_TEXT_SIZE]; /* English text under "<alarmId>_<paramName>" */
    char paramChName[ALM_CONF_TEXT_SIZE]; /* Chinese text under the same key */
    char paramType[ALM_CONF_TEXT_SIZE];   /* "ParamType": "UINT", "STRING" or "ENUM" */
    int64_t paramLen;                     /* "ParamLen": 1, 2 or 4 bytes */
    int64_t paramClass;                   /* "ParamClass": 0 location, 1 append information */
    int64_t enumNum;                      /* entries in enumValues */
    stEnumBitDef* enumValues;             /* NULL without an enumeration */
} stParaDef;

/* One alarm definition; the definitions form a list in file order. */
typedef struct stAlarmItems {
    int64_t alarmId;                       /* "AlarmID" */
    char alarmName[ALM_CONF_TEXT_SIZE];    /* "EN:<english>##ZH:<chinese>##" */
    char serviceType[ALM_CONF_TEXT_SIZE];  /* "ServiceType" */
    int64_t alarmType;                     /* "AlarmType" */
    int64_t alarmLevel;                    /* "AlarmLevel" */
    int64_t isGlobal;                      /* "IsGlobal" */
    int64_t eventType;                     /* "EventType" */
    int64_t isAutoClean;                   /* "IsAutoClean" */
    int64_t isCheck;                       /* "IsCheck" */
    char serviceId[ALM_CONF_TEXT_SIZE];    /* from InitAlarm (ALM_RsetConf) */
    char serviceInsId[ALM_CONF_TEXT_SIZE]; /* from InitAlarm (ALM_RsetConf) */
    int64_t rsetClear;                     /* from InitAlarm: 1 or 0 */
    int64_t transientPeriod;               /* "ToggleParams": 0 absent, -1 unreadable */
    int64_t toggleStartPeriod;
    int64_t toggleEndPeriod;
    int64_t toggleThreshold;
    int64_t paramNum; /* entries in params */
    stParaDef* params;
    struct stAlarmItems* next; /* NULL at the end */
} stAlarmItems;

/* The loaded configuration: the definition file's path and the list. */
typedef struct ALMCfgItems {
    char configPath[ALM_CONF_PATH_SIZE];
    stAlarmItems* head; /* NULL until a load succeeds */
} ALMCfgItems;

/* ---- State (exported; written while loading, read afterwards) ---- */

ALARMSDK_API extern ALMCfgItems g_stCfgParaInfo;
/* 1 once a load succeeded; while 1, ALM_ConfInit does nothing. */
ALARMSDK_API extern uint64_t g_uiInitFlag;
/* Resolved paths of the two language files. */
ALARMSDK_API extern char ALARM_LANG_CONFIG_CH_PATH[ALM_CONF_PATH_SIZE];
ALARMSDK_API extern char ALARM_LANG_CONFIG_EN_PATH[ALM_CONF_PATH_SIZE];
/* Set to 1 once the language file of that language was read to the end. */
ALARMSDK_API extern unsigned char g_bInitLangFileFlagEN;
ALARMSDK_API extern unsigned char g_bInitLangFileFlagZH;

/* Element names of the definition file. */
ALARMSDK_API extern const char* ALARM;
ALARMSDK_API extern const char* ALARM_ID;
ALARMSDK_API extern const char* ALARM_TYPE;
ALARMSDK_API extern const char* ALARM_LEVEL;
ALARMSDK_API extern const char* ALARM_PARAMS;
ALARMSDK_API extern const char* ALARM_IS_GLOBAL;
ALARMSDK_API extern const char* ALARM_EVENT_TYPE;
ALARMSDK_API extern const char* ALARM_CLEAN;
ALARMSDK_API extern const char* ALARM_SERVICE_TYPE;
ALARMSDK_API extern const char* ALARM_CHECK;
ALARMSDK_API extern const char* ALARM_TOGGLE_PARA;

/* ---- Language files ---- */

/* Reads the key=value file at path into the English (isEnglish) or Chinese
 * table; a key read again replaces the earlier value. Returns the number of
 * entries the table holds afterwards, 0 when the file cannot be opened. */
ALARMSDK_API int ALM_ParseConfigFile(const char* path, bool isEnglish);
/* Splits one line in place into key and value (both point into *line).
 * 0 on success, -1 for a line without key, separator or value. */
ALARMSDK_API int ALM_GetKey(char** line, char** key, char** value);
/* Overwrites every trailing ch of str with a terminator. */
ALARMSDK_API void ALM_RemoveTrailingChar(char* str, char ch);

/* ---- Definitions ---- */

/* Sets the definition file path (trailing '/' removed from xmlPath in place)
 * and the two language file paths beside it. The definition path is set only
 * when both language files exist. */
ALARMSDK_API void ALM_SetConfFilePath(char* xmlPath);
/* Loads the definitions and the language files unless already loaded. A
 * failed load is tried again by the next call or look-up. Never throws. */
ALARMSDK_API void ALM_ConfInit(void);
/* Stamps the service identity into every loaded definition. */
ALARMSDK_API void ALM_RsetConf(const char* serviceId, const char* serviceInsId, long resetClear);
/* Frees the definition list and clears g_uiInitFlag, so that the next load
 * or look-up reads the files again: for a tool that checks file after file in
 * one process. Not while another thread loads or looks up. The library
 * itself keeps its definitions until the process ends. The language tables
 * stay as they are. */
ALARMSDK_API void ALM_FreeConfInfo(void);

/* Look-ups; each loads the definitions first while nothing is loaded. The
 * first definition with a given id is the only one ever found. */
/* *out = the definition of alarmId (left untouched when there is none).
 * 0, or 1 when out is NULL. */
ALARMSDK_API long ALM_GetAlarmConfigInfo(long alarmId, stAlarmItems** out);
/* Sum of the parameter lengths of alarmId's definition; -1 when unknown. */
ALARMSDK_API long ALM_GetAlarmParaLengthbyAlarmId(long alarmId);
/* Largest alarm id, compared as unsigned 64-bit values; 0 without definitions. */
ALARMSDK_API uint64_t ALM_GetAlarmMaxAlarmId(void);

/* Milliseconds since the epoch (wall clock). */
ALARMSDK_API uint64_t ALM_GetCurrMs(void);

#ifdef __cplusplus
}

/* ---- C++ only: tables and look-ups that hand back C++ values ---- */
#include <list>
#include <map>
#include <string>

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
extern "C" {
/* Key-to-text tables read from the language files (byte-wise key order). */
ALARMSDK_API extern std::map<std::string, std::string> g_ENLanguageDatas;
ALARMSDK_API extern std::map<std::string, std::string> g_ZHLanguageDatas;

/* The text stored under key in the English (isEnglish) or Chinese table; ""
 * (and a log line) when missing. filePath is not read. */
ALARMSDK_API std::string ALM_GetConfigVar(const char* filePath, const char* key, bool isEnglish);
/* "ServiceType" of every definition, in file order, duplicates kept. */
ALARMSDK_API std::list<std::string> ALM_GetServiceNames(void);
/* Every definition's id in decimal, in file order ("" for an id of more than 9 characters). */
ALARMSDK_API std::list<std::string> ALM_GetAlarmIds(void);
/* value in decimal when it fits in 9 characters, else "". */
ALARMSDK_API std::string lltos(long long value);
}
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
#endif

#endif
