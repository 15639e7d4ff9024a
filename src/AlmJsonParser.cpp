#include "AlmJsonParser.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "AlarmAdapter.h"
#include "AlarmConfig.h"
#include "AlarmEx.h"
#include "AlmLog.h"
#include "AlmRukInterface.h"

namespace {

const char kLogSource[] = "../src/AlmJsonParser";

// Attaches item under key, or frees it when it cannot be attached. Keys are
// always literals: cJSON keeps them by reference, saving a third of the
// allocations of a batch.
void Attach(cJSON* object, const char* key, cJSON* item) {
    if (!cJSON_AddItemToObjectCS(object, key, item)) {
        cJSON_Delete(item);
    }
}

// A copy of value: for texts that do not outlive the build.
void AddString(cJSON* object, const char* key, const char* value) { Attach(object, key, cJSON_CreateString(value)); }

// value by reference: it must stay unchanged until the tree is printed, as the
// records of a batch being sent do. Copying and freeing its texts is a third
// of the cost of a document otherwise.
void AddText(cJSON* object, const char* key, const char* value) {
    Attach(object, key, cJSON_CreateStringReference(value));
}

// Integers go in as cJSON numbers, a double: digits below 10^15, cJSON's own text beyond.
void AddNumber(cJSON* object, const char* key, int64_t value) {
    Attach(object, key, cJSON_CreateNumber(static_cast<double>(value)));
}

// Prints the finished tree compactly and deletes it.
char* PrintAndDelete(cJSON* root) {
    char* text = cJSON_PrintUnformatted(root);
    cJSON_Delete(root);
    return text;
}

// The "payload" object of either generation: {"alarmList":[one object per record]}.
// A record that yields no object is left out.
template <typename Record>
cJSON* GenPayload(const std::list<Record*>& records, cJSON* (*genOne)(Record*), const char* function,
                  const char* noArrayMessage) {
    cJSON* pJsonPayload = cJSON_CreateObject();
    if (pJsonPayload == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonPayload is null!", function);
        return nullptr;
    }
    cJSON* pJsonAlarmList = cJSON_CreateArray();
    if (pJsonAlarmList == nullptr) {
        // The payload object is not freed on this path; the library has
        // always behaved so and callers only see the null result.
        ALM_LOG_ERROR("%s", noArrayMessage);
        return nullptr;
    }
    for (Record* record : records) {
        cJSON_AddItemToArray(pJsonAlarmList, genOne(record));
    }
    Attach(pJsonPayload, "alarmList", pJsonAlarmList);
    return pJsonPayload;
}

// The object of one alarm; NULL, after the builder's line, for a null record
// or when no object can be had.
cJSON* NewAlarmObject(const void* record, const char* nullRecordFormat, const char* function) {
    if (record == nullptr) {
        ALM_LOG_ERROR(nullRecordFormat, function);
        return nullptr;
    }
    cJSON* object = cJSON_CreateObject();
    if (object == nullptr) {
        ALM_LOG_ERROR("In %s, pAlarmJson is null!", function);
    }
    return object;
}

// Parses an agent answer and hands its code field to `read`; "" when the
// answer or the field is missing. Both generations' readers name GetOprType
// in their lines; operators search for those words.
template <typename Read>
std::string ReadAnswerCode(const char* json, const char* key, Read read) {
    // Released also when copying the code runs out of memory.
    const std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(json), &cJSON_Delete);
    if (root == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonRoot is null!", "AlmJsonParser::GetOprType");
        return "";
    }
    const cJSON* jsonRetCode = cJSON_GetObjectItem(root.get(), key);
    if (jsonRetCode == nullptr) {
        ALM_LOG_ERROR("AlmJsonParser::GetOprType, jsonRetCode is NULL.");
        return "";
    }
    return read(*jsonRetCode);
}

}  // namespace

int64_t AlmJsonParser::m_lTimeStamp = 0;

char* AlmJsonParser::GenRestDataJsonEx(const std::list<AlarmEx*>& alarms) {
    cJSON* pJsonRoot = cJSON_CreateObject();
    cJSON* pJsonBusiness = cJSON_CreateObject();
    if (pJsonRoot == nullptr || pJsonBusiness == nullptr) {
        cJSON_Delete(pJsonRoot);
        cJSON_Delete(pJsonBusiness);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJsonEx, pJsonBusiness is null.");
        return nullptr;
    }
    AddText(pJsonBusiness, "name", "PushAlarm");
    Attach(pJsonRoot, "business", pJsonBusiness);

    cJSON* pJsonPayload = GenPayloadNodeEx(alarms);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJsonEx, pJsonPayload is null.");
        return nullptr;
    }
    Attach(pJsonRoot, "payload", pJsonPayload);
    AddText(pJsonRoot, "Receiver", "SendAlarm");
    return PrintAndDelete(pJsonRoot);
}

cJSON* AlmJsonParser::GenPayloadNodeEx(const std::list<AlarmEx*>& alarms) {
    return GenPayload(alarms, &AlmJsonParser::GenAlarmEx, "AlmJsonParser::GenPayloadNodeEx",
                      "AlmJsonParser::GenPayloadNodeEx, pJsonpJsonAlarmList is NULL.");
}

cJSON* AlmJsonParser::GenAlarmEx(AlarmEx* pAlarm) {
    cJSON* pAlarmJson = NewAlarmObject(pAlarm, "In %s, pAlarm is null!", "AlmJsonParser::GenAlarmEx");
    if (pAlarmJson == nullptr) {
        return nullptr;
    }

    // The record's own fields: its getters return copies, which would not outlive the build.
    const AlarmEx& alarm = *pAlarm;
    AddText(pAlarmJson, "alarmId", alarm.m_szAlarmId);
    AddText(pAlarmJson, "appId", alarm.m_strAppId.c_str());
    AddNumber(pAlarmJson, "occurTime", alarm.m_lAlarmTime);
    AddText(pAlarmJson, "serviceName", alarm.m_strServiceName.c_str());
    AddText(pAlarmJson, "serviceIp", alarm.m_strServiceIp.c_str());
    AddNumber(pAlarmJson, "servicePort", alarm.m_uServicePort & 0xFFFF);
    AddText(pAlarmJson, "serviceLabel", alarm.m_strServiceLabel.c_str());
    if (std::strcmp(alarm.m_szAlarmId, "0") == 0) {
        return pAlarmJson;
    }

    AddNumber(pAlarmJson, "alarmType", alarm.m_iAlarmType);
    AddText(pAlarmJson, "serviceId", alarm.m_strServiceId.c_str());
    AddText(pAlarmJson, "serviceInstId", alarm.m_strServiceInsId.c_str());
    AddNumber(pAlarmJson, "rsetClear", alarm.m_lRsetClear);
    AddText(pAlarmJson, "nodeIp", alarm.m_strNodeIp.c_str());

    cJSON* pJsonParams = cJSON_CreateArray();
    if (pJsonParams != nullptr) {
        for (const auto& param : alarm.m_mapParams) {
            cJSON* pJsonParam = cJSON_CreateObject();
            if (pJsonParam == nullptr) {
                continue;
            }
            AddText(pJsonParam, "paramName", param.first.c_str());
            AddText(pJsonParam, "paramValue", param.second.c_str());
            cJSON_AddItemToArray(pJsonParams, pJsonParam);
        }
    }

    cJSON* pJsonCallBack = cJSON_CreateObject();
    if (pJsonCallBack != nullptr) {
        AddText(pJsonCallBack, "serviceName", alarm.m_strServiceName.c_str());
        AddText(pJsonCallBack, "registerName", alarm.m_strServiceName.c_str());
        AddText(pJsonCallBack, "serviceIp", alarm.m_strServiceIp.c_str());
    }
    // Built after the parameters, but the agent expects it before them.
    Attach(pAlarmJson, "callBackInfo", pJsonCallBack);
    Attach(pAlarmJson, "parameters", pJsonParams);
    return pAlarmJson;
}

std::string AlmJsonParser::GetRetCodeEx(const char* json) {
    return ReadAnswerCode(json, "retCode", [](const cJSON& jsonRetCode) -> std::string {
        // Deliberately lenient: anything whose integer value is 0 (a string,
        // false, null, an array, an object) counts as success.
        if (jsonRetCode.valueint == 0) {
            return "OK";
        }
        ALM_LOG_ERROR("AlmJsonParser::GetOprType, strRetCode is NULL.");
        return "Failed";
    });
}

char* AlmJsonParser::GenRestDataJson(const std::list<_AlarmModel*>& models) {
    cJSON* pJsonRoot = cJSON_CreateObject();
    if (pJsonRoot == nullptr) {
        return nullptr;
    }
    // The fixed text, not a service's name: the agent has always received it so.
    cJSON* pJsonService = GenServiceNode("szServiceName");
    if (pJsonService == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonService is null.");
        return nullptr;
    }
    Attach(pJsonRoot, "service", pJsonService);
    cJSON* pJsonBusiness = cJSON_CreateObject();
    if (pJsonBusiness == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonBusiness is null.");
        return nullptr;
    }
    AddText(pJsonBusiness, "name", "PushAlarm");
    Attach(pJsonRoot, "business", pJsonBusiness);
    cJSON* pJsonPayload = GenPayloadNode(models);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonPayload is null.");
        return nullptr;
    }
    Attach(pJsonRoot, "payload", pJsonPayload);
    return PrintAndDelete(pJsonRoot);
}

cJSON* AlmJsonParser::GenPayloadNode(const std::list<_AlarmModel*>& models) {
    return GenPayload(models, &AlmJsonParser::GenAlarmModel, "AlmJsonParser::GenPayloadNode",
                      "AlmJsonParser::GenPayloadNode, pJsonpJsonAlarmList is NULL.");
}

cJSON* AlmJsonParser::GenServiceNode(const char* name) {
    cJSON* pJsonService = cJSON_CreateObject();
    if (pJsonService == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonService is null!", "AlmJsonParser::GenServiceNode");
        return nullptr;
    }
    const char* szAppID = std::getenv("APPID");
    if (szAppID == nullptr) {
        cJSON_Delete(pJsonService);
        ALM_LOG_ERROR("AlmJsonParser::GenServiceNode, szAppID is NULL.");
        return nullptr;
    }
    // 65535 marks a local port that is not configured.
    const uint16_t iLocalPort = static_cast<uint16_t>(AlmRukInterface::GetLocalPort());
    if (iLocalPort == 65535) {
        cJSON_Delete(pJsonService);
        ALM_LOG_ERROR("AlmJsonParser::GenServiceNode, iLocalPort is INVALID.");
        return nullptr;
    }
    AddString(pJsonService, "name", name != nullptr ? name : "");
    AddString(pJsonService, "appid", szAppID);
    AddString(pJsonService, "ipaddress", AlmRukInterface::GetNodeIP().c_str());
    AddNumber(pJsonService, "port", iLocalPort);
    AddNumber(pJsonService, "time_stamp", m_lTimeStamp);
    return pJsonService;
}

cJSON* AlmJsonParser::GenAlarmModel(_AlarmModel* alarmModel) {
    cJSON* pAlarmJson = NewAlarmObject(alarmModel, "In %s, alarmModel is null!", "AlmJsonParser::GenAlarmModel");
    if (pAlarmJson == nullptr) {
        return nullptr;
    }
    const _AlarmModel& model = *alarmModel;
    AddText(pAlarmJson, "alarmName", model.alarmName);
    AddText(pAlarmJson, "appId", model.appId);
    AddText(pAlarmJson, "alarmId", model.alarmId);

    if (std::strcmp(model.alarmId, "0") == 0) {
        // The reset-clear registration: the service and every alarm it may
        // have left standing. Rare, so its texts are copies.
        const std::list<std::string> serviceNames = ALM_GetServiceNames();
        if (!serviceNames.empty()) {
            AddString(pAlarmJson, "serviceName", serviceNames.front().c_str());
        }
        AddString(pAlarmJson, "serviceIp", AlmRukInterface::GetServiceIp().c_str());
        cJSON* clearList = cJSON_CreateArray();
        if (clearList != nullptr) {
            for (const std::string& id : ALM_GetAlarmIds()) {
                cJSON* entry = cJSON_CreateObject();
                if (entry == nullptr) {
                    continue;
                }
                AddString(entry, "alarmId", id.c_str());
                cJSON_AddItemToArray(clearList, entry);
            }
        }
        Attach(pAlarmJson, "restClearAlarmList", clearList);
        AddNumber(pAlarmJson, "occurTime", static_cast<int64_t>(ALM_GetCurrMs()));
        return pAlarmJson;
    }

    AddText(pAlarmJson, "appName", model.appName);
    AddText(pAlarmJson, "serviceName", model.serviceName);
    AddNumber(pAlarmJson, "alarmEventType", model.alarmEventType);
    AddNumber(pAlarmJson, "genClearAlarmType", model.genClearAlarmType);
    AddNumber(pAlarmJson, "alarmLevel", model.alarmLevel);
    AddNumber(pAlarmJson, "alarmGenTime", model.alarmGenTime);
    AddNumber(pAlarmJson, "alarmClearTime", model.alarmClearTime);
    AddNumber(pAlarmJson, "alarmClearType", model.alarmClearType);
    AddNumber(pAlarmJson, "isCanAutoClearType", model.isCanAutoClearType);
    AddNumber(pAlarmJson, "eventType", model.eventType);
    AddText(pAlarmJson, "probableCause", model.probableCause);
    // Both keys carry the node address; the agent reads either.
    AddText(pAlarmJson, "nodeID", model.nodeIp);
    AddText(pAlarmJson, "NodeIp", model.nodeIp);
    AddText(pAlarmJson, "serviceID", model.serviceID);
    AddText(pAlarmJson, "serviceInstID", model.serviceInstID);
    AddNumber(pAlarmJson, "rsetClear", model.rsetClear);
    AddText(pAlarmJson, "location", model.location);
    AddText(pAlarmJson, "appendInfo", model.appendInfo);
    return pAlarmJson;
}

std::string AlmJsonParser::GetRetCode(const char* json) {
    return ReadAnswerCode(json, "returncode", [](const cJSON& jsonRetCode) -> std::string {
        // The legacy protocol sends a string; anything else reads as "".
        return cJSON_IsString(&jsonRetCode) && jsonRetCode.valuestring != nullptr ? jsonRetCode.valuestring : "";
    });
}
