#include "AlmJsonParser.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>

#include "AlarmAdapter.h"
#include "AlarmBuildAlarmConfInfo.h"
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

void AddString(cJSON* object, const char* key, const char* value) { Attach(object, key, cJSON_CreateString(value)); }

// cJSON numbers are doubles: integers print exactly up to 15 significant
// digits, which covers millisecond time stamps.
void AddNumber(cJSON* object, const char* key, int64_t value) {
    Attach(object, key, cJSON_CreateNumber(static_cast<double>(value)));
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
    AddString(pJsonBusiness, "name", "PushAlarm");
    Attach(pJsonRoot, "business", pJsonBusiness);

    cJSON* pJsonPayload = GenPayloadNodeEx(alarms);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJsonEx, pJsonPayload is null.");
        return nullptr;
    }
    Attach(pJsonRoot, "payload", pJsonPayload);
    AddString(pJsonRoot, "Receiver", "SendAlarm");

    char* text = cJSON_PrintUnformatted(pJsonRoot);
    cJSON_Delete(pJsonRoot);
    return text;
}

cJSON* AlmJsonParser::GenPayloadNodeEx(const std::list<AlarmEx*>& alarms) {
    return GenPayload(alarms, &AlmJsonParser::GenAlarmEx, "AlmJsonParser::GenPayloadNodeEx",
                      "AlmJsonParser::GenPayloadNodeEx, pJsonpJsonAlarmList is NULL.");
}

cJSON* AlmJsonParser::GenAlarmEx(AlarmEx* pAlarm) {
    if (pAlarm == nullptr) {
        ALM_LOG_ERROR("In %s, pAlarm is null!", "AlmJsonParser::GenAlarmEx");
        return nullptr;
    }
    cJSON* pAlarmJson = cJSON_CreateObject();
    if (pAlarmJson == nullptr) {
        ALM_LOG_ERROR("In %s, pAlarmJson is null!", "AlmJsonParser::GenAlarmEx");
        return nullptr;
    }

    // Both are written twice (here and in "callBackInfo"): fetch each once.
    const std::string serviceName = pAlarm->getServiceName();
    const std::string serviceIp = pAlarm->GetServiceIp();
    const char* alarmId = pAlarm->getAlarmId();

    AddString(pAlarmJson, "alarmId", alarmId);
    AddString(pAlarmJson, "appId", pAlarm->getAppId().c_str());
    AddNumber(pAlarmJson, "occurTime", static_cast<int64_t>(pAlarm->GetAlarmTime()));
    AddString(pAlarmJson, "serviceName", serviceName.c_str());
    AddString(pAlarmJson, "serviceIp", serviceIp.c_str());
    AddNumber(pAlarmJson, "servicePort", pAlarm->getServicePort() & 0xFFFF);
    AddString(pAlarmJson, "serviceLabel", pAlarm->getServiceLabel().c_str());
    if (std::strcmp(alarmId, "0") == 0) {
        return pAlarmJson;
    }

    AddNumber(pAlarmJson, "alarmType", pAlarm->getAlarmType());
    AddString(pAlarmJson, "serviceId", pAlarm->getServiceId().c_str());
    AddString(pAlarmJson, "serviceInstId", pAlarm->getServiceInsId().c_str());
    AddNumber(pAlarmJson, "rsetClear", static_cast<int64_t>(pAlarm->getRsetClear()));
    AddString(pAlarmJson, "nodeIp", pAlarm->getNodeIp().c_str());

    cJSON* pJsonParams = cJSON_CreateArray();
    if (pJsonParams != nullptr) {
        const std::map<std::string, std::string> params = pAlarm->getParamMap();
        for (const auto& param : params) {
            cJSON* pJsonParam = cJSON_CreateObject();
            if (pJsonParam == nullptr) {
                continue;
            }
            AddString(pJsonParam, "paramName", param.first.c_str());
            AddString(pJsonParam, "paramValue", param.second.c_str());
            cJSON_AddItemToArray(pJsonParams, pJsonParam);
        }
    }

    cJSON* pJsonCallBack = cJSON_CreateObject();
    if (pJsonCallBack != nullptr) {
        AddString(pJsonCallBack, "serviceName", serviceName.c_str());
        AddString(pJsonCallBack, "registerName", serviceName.c_str());
        AddString(pJsonCallBack, "serviceIp", serviceIp.c_str());
    }
    // Built after the parameters, but the agent expects it before them.
    Attach(pAlarmJson, "callBackInfo", pJsonCallBack);
    Attach(pAlarmJson, "parameters", pJsonParams);
    return pAlarmJson;
}

// Both answer readers name GetOprType in their lines; operators search for those words.
std::string AlmJsonParser::GetRetCodeEx(const char* json) {
    cJSON* pJsonRoot = cJSON_Parse(json);
    if (pJsonRoot == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonRoot is null!", "AlmJsonParser::GetOprType");
        return "";
    }
    const cJSON* jsonRetCode = cJSON_GetObjectItem(pJsonRoot, "retCode");
    if (jsonRetCode == nullptr) {
        ALM_LOG_ERROR("AlmJsonParser::GetOprType, jsonRetCode is NULL.");
        cJSON_Delete(pJsonRoot);
        return "";
    }
    // Deliberately lenient: anything whose integer value is 0 (a string,
    // false, null, an array, an object) counts as success.
    const bool accepted = jsonRetCode->valueint == 0;
    if (!accepted) {
        ALM_LOG_ERROR("AlmJsonParser::GetOprType, strRetCode is NULL.");
    }
    cJSON_Delete(pJsonRoot);
    return accepted ? "OK" : "Failed";
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
    AddString(pJsonBusiness, "name", "PushAlarm");
    Attach(pJsonRoot, "business", pJsonBusiness);
    cJSON* pJsonPayload = GenPayloadNode(models);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonPayload is null.");
        return nullptr;
    }
    Attach(pJsonRoot, "payload", pJsonPayload);
    char* text = cJSON_PrintUnformatted(pJsonRoot);
    cJSON_Delete(pJsonRoot);
    return text;
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
    if (alarmModel == nullptr) {
        ALM_LOG_ERROR("In %s, alarmModel is null!", "AlmJsonParser::GenAlarmModel");
        return nullptr;
    }
    cJSON* pAlarmJson = cJSON_CreateObject();
    if (pAlarmJson == nullptr) {
        ALM_LOG_ERROR("In %s, pAlarmJson is null!", "AlmJsonParser::GenAlarmModel");
        return nullptr;
    }
    AddString(pAlarmJson, "alarmName", alarmModel->alarmName);
    AddString(pAlarmJson, "appId", alarmModel->appId);
    AddString(pAlarmJson, "alarmId", alarmModel->alarmId);

    if (std::strcmp(alarmModel->alarmId, "0") == 0) {
        // The reset-clear registration: the service and every alarm it may have left standing.
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

    AddString(pAlarmJson, "appName", alarmModel->appName);
    AddString(pAlarmJson, "serviceName", alarmModel->serviceName);
    AddNumber(pAlarmJson, "alarmEventType", alarmModel->alarmEventType);
    AddNumber(pAlarmJson, "genClearAlarmType", alarmModel->genClearAlarmType);
    AddNumber(pAlarmJson, "alarmLevel", alarmModel->alarmLevel);
    AddNumber(pAlarmJson, "alarmGenTime", alarmModel->alarmGenTime);
    AddNumber(pAlarmJson, "alarmClearTime", alarmModel->alarmClearTime);
    AddNumber(pAlarmJson, "alarmClearType", alarmModel->alarmClearType);
    AddNumber(pAlarmJson, "isCanAutoClearType", alarmModel->isCanAutoClearType);
    AddNumber(pAlarmJson, "eventType", alarmModel->eventType);
    AddString(pAlarmJson, "probableCause", alarmModel->probableCause);
    // Both keys carry the node address; the agent reads either.
    AddString(pAlarmJson, "nodeID", alarmModel->nodeIp);
    AddString(pAlarmJson, "NodeIp", alarmModel->nodeIp);
    AddString(pAlarmJson, "serviceID", alarmModel->serviceID);
    AddString(pAlarmJson, "serviceInstID", alarmModel->serviceInstID);
    AddNumber(pAlarmJson, "rsetClear", alarmModel->rsetClear);
    AddString(pAlarmJson, "location", alarmModel->location);
    AddString(pAlarmJson, "appendInfo", alarmModel->appendInfo);
    return pAlarmJson;
}

std::string AlmJsonParser::GetRetCode(const char* json) {
    cJSON* pJsonRoot = cJSON_Parse(json);
    if (pJsonRoot == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonRoot is null!", "AlmJsonParser::GetOprType");
        return "";
    }
    const cJSON* jsonRetCode = cJSON_GetObjectItem(pJsonRoot, "returncode");
    if (jsonRetCode == nullptr) {
        ALM_LOG_ERROR("AlmJsonParser::GetOprType, jsonRetCode is NULL.");
        cJSON_Delete(pJsonRoot);
        return "";
    }
    // The legacy protocol sends a string; anything else reads as "".
    std::string retCode = cJSON_IsString(jsonRetCode) && jsonRetCode->valuestring != nullptr
                              ? jsonRetCode->valuestring
                              : "";
    cJSON_Delete(pJsonRoot);
    return retCode;
}
