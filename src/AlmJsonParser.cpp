#include "AlmJsonParser.h"

#include <cstdint>
#include <cstring>
#include <map>

#include "AlarmEx.h"
#include "AlmLog.h"

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

}  // namespace

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
    cJSON* pJsonPayload = cJSON_CreateObject();
    if (pJsonPayload == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonPayload is null!", "AlmJsonParser::GenPayloadNodeEx");
        return nullptr;
    }
    cJSON* pJsonAlarmList = cJSON_CreateArray();
    if (pJsonAlarmList == nullptr) {
        // The payload object is not freed on this path; the library has
        // always behaved so and callers only see the null result.
        ALM_LOG_ERROR("AlmJsonParser::GenPayloadNodeEx, pJsonpJsonAlarmList is NULL.");
        return nullptr;
    }
    for (AlarmEx* pAlarm : alarms) {
        // A null record yields no object and is simply left out.
        cJSON_AddItemToArray(pJsonAlarmList, GenAlarmEx(pAlarm));
    }
    Attach(pJsonPayload, "alarmList", pJsonAlarmList);
    return pJsonPayload;
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

std::string AlmJsonParser::GetRetCodeEx(const char* json) {
    // The log texts name GetOprType; operators search for those words.
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
