#include "FrozenPushDocument.h"

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "AlarmAdapter.h"
#include "AlarmBuildAlarmConfInfo.h"
#include "AlarmEx.h"
#include "AlmJsonParser.h"
#include "AlmRukInterface.h"

namespace frozen {
namespace {

void Attach(cJSON* object, const char* key, cJSON* item) {
    if (!cJSON_AddItemToObjectCS(object, key, item)) {
        cJSON_Delete(item);
    }
}

void AddString(cJSON* object, const char* key, const char* value) { Attach(object, key, cJSON_CreateString(value)); }

void AddNumber(cJSON* object, const char* key, int64_t value) {
    Attach(object, key, cJSON_CreateNumber(static_cast<double>(value)));
}

template <typename Record>
cJSON* GenPayload(const std::list<Record*>& records, cJSON* (*genOne)(Record*)) {
    cJSON* pJsonPayload = cJSON_CreateObject();
    if (pJsonPayload == nullptr) {
        return nullptr;
    }
    cJSON* pJsonAlarmList = cJSON_CreateArray();
    if (pJsonAlarmList == nullptr) {
        return nullptr;
    }
    for (Record* record : records) {
        cJSON_AddItemToArray(pJsonAlarmList, genOne(record));
    }
    Attach(pJsonPayload, "alarmList", pJsonAlarmList);
    return pJsonPayload;
}

cJSON* GenAlarmEx(AlarmEx* pAlarm) {
    if (pAlarm == nullptr) {
        return nullptr;
    }
    cJSON* pAlarmJson = cJSON_CreateObject();
    if (pAlarmJson == nullptr) {
        return nullptr;
    }
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
    Attach(pAlarmJson, "callBackInfo", pJsonCallBack);
    Attach(pAlarmJson, "parameters", pJsonParams);
    return pAlarmJson;
}

cJSON* GenServiceNode(const char* name) {
    cJSON* pJsonService = cJSON_CreateObject();
    if (pJsonService == nullptr) {
        return nullptr;
    }
    const char* szAppID = std::getenv("APPID");
    if (szAppID == nullptr) {
        cJSON_Delete(pJsonService);
        return nullptr;
    }
    const uint16_t iLocalPort = static_cast<uint16_t>(AlmRukInterface::GetLocalPort());
    if (iLocalPort == 65535) {
        cJSON_Delete(pJsonService);
        return nullptr;
    }
    AddString(pJsonService, "name", name != nullptr ? name : "");
    AddString(pJsonService, "appid", szAppID);
    AddString(pJsonService, "ipaddress", AlmRukInterface::GetNodeIP().c_str());
    AddNumber(pJsonService, "port", iLocalPort);
    AddNumber(pJsonService, "time_stamp", AlmJsonParser::m_lTimeStamp);
    return pJsonService;
}

cJSON* GenAlarmModel(_AlarmModel* alarmModel) {
    if (alarmModel == nullptr) {
        return nullptr;
    }
    cJSON* pAlarmJson = cJSON_CreateObject();
    if (pAlarmJson == nullptr) {
        return nullptr;
    }
    AddString(pAlarmJson, "alarmName", alarmModel->alarmName);
    AddString(pAlarmJson, "appId", alarmModel->appId);
    AddString(pAlarmJson, "alarmId", alarmModel->alarmId);

    if (std::strcmp(alarmModel->alarmId, "0") == 0) {
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
    AddString(pAlarmJson, "nodeID", alarmModel->nodeIp);
    AddString(pAlarmJson, "NodeIp", alarmModel->nodeIp);
    AddString(pAlarmJson, "serviceID", alarmModel->serviceID);
    AddString(pAlarmJson, "serviceInstID", alarmModel->serviceInstID);
    AddNumber(pAlarmJson, "rsetClear", alarmModel->rsetClear);
    AddString(pAlarmJson, "location", alarmModel->location);
    AddString(pAlarmJson, "appendInfo", alarmModel->appendInfo);
    return pAlarmJson;
}

}  // namespace

char* GenRestDataJsonEx(const std::list<AlarmEx*>& alarms) {
    cJSON* pJsonRoot = cJSON_CreateObject();
    cJSON* pJsonBusiness = cJSON_CreateObject();
    if (pJsonRoot == nullptr || pJsonBusiness == nullptr) {
        cJSON_Delete(pJsonRoot);
        cJSON_Delete(pJsonBusiness);
        return nullptr;
    }
    AddString(pJsonBusiness, "name", "PushAlarm");
    Attach(pJsonRoot, "business", pJsonBusiness);
    cJSON* pJsonPayload = GenPayload(alarms, &GenAlarmEx);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        return nullptr;
    }
    Attach(pJsonRoot, "payload", pJsonPayload);
    AddString(pJsonRoot, "Receiver", "SendAlarm");
    char* text = cJSON_PrintUnformatted(pJsonRoot);
    cJSON_Delete(pJsonRoot);
    return text;
}

char* GenRestDataJson(const std::list<_AlarmModel*>& models) {
    cJSON* pJsonRoot = cJSON_CreateObject();
    if (pJsonRoot == nullptr) {
        return nullptr;
    }
    cJSON* pJsonService = GenServiceNode("szServiceName");
    if (pJsonService == nullptr) {
        cJSON_Delete(pJsonRoot);
        return nullptr;
    }
    Attach(pJsonRoot, "service", pJsonService);
    cJSON* pJsonBusiness = cJSON_CreateObject();
    if (pJsonBusiness == nullptr) {
        cJSON_Delete(pJsonRoot);
        return nullptr;
    }
    AddString(pJsonBusiness, "name", "PushAlarm");
    Attach(pJsonRoot, "business", pJsonBusiness);
    cJSON* pJsonPayload = GenPayload(models, &GenAlarmModel);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        return nullptr;
    }
    Attach(pJsonRoot, "payload", pJsonPayload);
    char* text = cJSON_PrintUnformatted(pJsonRoot);
    cJSON_Delete(pJsonRoot);
    return text;
}

}  // namespace frozen
