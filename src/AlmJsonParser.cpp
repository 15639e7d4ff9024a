#include "AlmJsonParser.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "AlarmAdapter.h"
#include "AlarmConfig.h"
#include "AlarmEx.h"
#include "AlmLog.h"
#include "AlmRukInterface.h"

namespace alarmsdk {

// What one push document needs besides its tree until it is printed: the
// integer texts its number nodes point at, and a running count of the bytes
// the printed text will take, so that it is printed into one buffer sized
// once instead of one grown by copies.
class DocumentScratch {
public:
    explicit DocumentScratch(std::size_t numbers)
        : texts_(new (std::nothrow) char[numbers * kTextSize]), capacity_(texts_ ? numbers * kTextSize : 0) {}

    // The decimal text of value, kept as long as the scratch; NULL when the
    // scratch is full or cJSON would print the value otherwise. cJSON prints
    // numbers with 15 significant digits, so below 10^15 its text is exactly
    // the integer's digits; larger values keep cJSON's own text.
    const char* integerText(int64_t value) {
        constexpr int64_t kExactBelow = 1000000000000000LL;
        if (value >= kExactBelow || value <= -kExactBelow || used_ + kTextSize > capacity_) {
            return nullptr;
        }
        char* text = texts_.get() + used_;
        char* end = std::to_chars(text, text + kTextSize - 1, value).ptr;
        *end = '\0';
        used_ += static_cast<std::size_t>(end - text) + 1;
        return text;
    }

    void count(std::size_t bytes) { printed_ += bytes; }
    // The printed size counted so far, with room for what the count leaves
    // out (escaped characters make cJSON grow the buffer once).
    int bufferSize() const { return static_cast<int>(printed_ + printed_ / 64 + 64); }

private:
    static constexpr std::size_t kTextSize = 24;  // "-999999999999999" and its terminator, rounded up
    std::unique_ptr<char[]> texts_;
    std::size_t used_ = 0;
    std::size_t capacity_;
    std::size_t printed_ = 2;  // the root's braces
};

}  // namespace alarmsdk

namespace {

using alarmsdk::DocumentScratch;

const char kLogSource[] = "../src/AlmJsonParser";

// Numbers an alarm object of each generation carries, and a legacy document's service node.
constexpr std::size_t kNumbersPerAlarmEx = 4;
constexpr std::size_t kNumbersPerModel = 10;
constexpr std::size_t kNumbersPerServiceNode = 2;

// Counts a member "key":value, and the comma before it, toward the printed size.
void Count(DocumentScratch* scratch, const char* key, std::size_t valueBytes) {
    if (scratch != nullptr) {
        scratch->count(std::strlen(key) + 4 + valueBytes);
    }
}

// Attaches item under key, or frees it when it cannot be attached. Keys are
// always literals: cJSON keeps them by reference, saving a third of the
// allocations of a batch.
void Attach(cJSON* object, const char* key, cJSON* item) {
    if (!cJSON_AddItemToObjectCS(object, key, item)) {
        cJSON_Delete(item);
    }
}

// An object or array member; its braces count toward the printed size.
void AttachNode(cJSON* object, const char* key, cJSON* item, DocumentScratch* scratch) {
    Count(scratch, key, 2);
    Attach(object, key, item);
}

// A copy of value: for texts that do not outlive the build.
void AddString(cJSON* object, const char* key, const char* value, DocumentScratch* scratch) {
    Count(scratch, key, std::strlen(value) + 2);
    Attach(object, key, cJSON_CreateString(value));
}

// value by reference: it must stay unchanged until the tree is printed, as the
// records of a batch being sent do.
void AddText(cJSON* object, const char* key, const char* value, std::size_t length, DocumentScratch* scratch) {
    Count(scratch, key, length + 2);
    Attach(object, key, cJSON_CreateStringReference(value));
}

void AddText(cJSON* object, const char* key, const std::string& value, DocumentScratch* scratch) {
    AddText(object, key, value.c_str(), value.size(), scratch);
}

// A fixed-size field of a record, terminated inside it.
template <std::size_t N>
void AddText(cJSON* object, const char* key, const char (&field)[N], DocumentScratch* scratch) {
    AddText(object, key, field, scratch != nullptr ? strnlen(field, N) : 0, scratch);
}

// An integer: as raw text kept in the scratch (what cJSON would print, without
// its floating-point formatting), or as a cJSON number when there is none.
void AddNumber(cJSON* object, const char* key, int64_t value, DocumentScratch* scratch) {
    const char* text = scratch != nullptr ? scratch->integerText(value) : nullptr;
    if (text == nullptr) {
        Count(scratch, key, 24);
        Attach(object, key, cJSON_CreateNumber(static_cast<double>(value)));
        return;
    }
    Count(scratch, key, std::strlen(text));
    cJSON* item = cJSON_CreateStringReference(text);
    if (item != nullptr) {
        // A raw node printed as is, and by reference: deleting the tree leaves the text alone.
        item->type = cJSON_Raw | cJSON_IsReference;
    }
    Attach(object, key, item);
}

// Prints the finished tree into one buffer from cJSON's allocator, sized from
// the count when there is one, and deletes the tree.
char* PrintAndDelete(cJSON* root, const DocumentScratch& scratch) {
    char* text = cJSON_PrintBuffered(root, scratch.bufferSize(), 0);
    cJSON_Delete(root);
    return text;
}

// The "payload" object of either generation: {"alarmList":[one object per record]}.
// A record that yields no object is left out.
template <typename Record>
cJSON* GenPayload(const std::list<Record*>& records, cJSON* (*genOne)(Record*, DocumentScratch*),
                  DocumentScratch* scratch, const char* function, const char* noArrayMessage) {
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
        Count(scratch, "", 0);  // an object's braces and comma in the array
        cJSON_AddItemToArray(pJsonAlarmList, genOne(record, scratch));
    }
    AttachNode(pJsonPayload, "alarmList", pJsonAlarmList, scratch);
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
    cJSON* pJsonRoot = cJSON_Parse(json);
    if (pJsonRoot == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonRoot is null!", "AlmJsonParser::GetOprType");
        return "";
    }
    const cJSON* jsonRetCode = cJSON_GetObjectItem(pJsonRoot, key);
    if (jsonRetCode == nullptr) {
        ALM_LOG_ERROR("AlmJsonParser::GetOprType, jsonRetCode is NULL.");
        cJSON_Delete(pJsonRoot);
        return "";
    }
    std::string code = read(*jsonRetCode);
    cJSON_Delete(pJsonRoot);
    return code;
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
    DocumentScratch scratch(alarms.size() * kNumbersPerAlarmEx);
    AddText(pJsonBusiness, "name", "PushAlarm", 9, &scratch);
    AttachNode(pJsonRoot, "business", pJsonBusiness, &scratch);

    cJSON* pJsonPayload = BuildPayloadEx(alarms, &scratch);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJsonEx, pJsonPayload is null.");
        return nullptr;
    }
    AttachNode(pJsonRoot, "payload", pJsonPayload, &scratch);
    AddText(pJsonRoot, "Receiver", "SendAlarm", 9, &scratch);
    return PrintAndDelete(pJsonRoot, scratch);
}

cJSON* AlmJsonParser::GenPayloadNodeEx(const std::list<AlarmEx*>& alarms) { return BuildPayloadEx(alarms, nullptr); }

cJSON* AlmJsonParser::BuildPayloadEx(const std::list<AlarmEx*>& alarms, DocumentScratch* scratch) {
    return GenPayload(alarms, &AlmJsonParser::BuildAlarmEx, scratch, "AlmJsonParser::GenPayloadNodeEx",
                      "AlmJsonParser::GenPayloadNodeEx, pJsonpJsonAlarmList is NULL.");
}

cJSON* AlmJsonParser::GenAlarmEx(AlarmEx* pAlarm) { return BuildAlarmEx(pAlarm, nullptr); }

cJSON* AlmJsonParser::BuildAlarmEx(AlarmEx* pAlarm, DocumentScratch* scratch) {
    cJSON* pAlarmJson = NewAlarmObject(pAlarm, "In %s, pAlarm is null!", "AlmJsonParser::GenAlarmEx");
    if (pAlarmJson == nullptr) {
        return nullptr;
    }

    const AlarmEx& alarm = *pAlarm;
    AddText(pAlarmJson, "alarmId", alarm.m_szAlarmId, scratch);
    AddText(pAlarmJson, "appId", alarm.m_strAppId, scratch);
    AddNumber(pAlarmJson, "occurTime", alarm.m_lAlarmTime, scratch);
    AddText(pAlarmJson, "serviceName", alarm.m_strServiceName, scratch);
    AddText(pAlarmJson, "serviceIp", alarm.m_strServiceIp, scratch);
    AddNumber(pAlarmJson, "servicePort", alarm.m_uServicePort & 0xFFFF, scratch);
    AddText(pAlarmJson, "serviceLabel", alarm.m_strServiceLabel, scratch);
    if (std::strcmp(alarm.m_szAlarmId, "0") == 0) {
        return pAlarmJson;
    }

    AddNumber(pAlarmJson, "alarmType", alarm.m_iAlarmType, scratch);
    AddText(pAlarmJson, "serviceId", alarm.m_strServiceId, scratch);
    AddText(pAlarmJson, "serviceInstId", alarm.m_strServiceInsId, scratch);
    AddNumber(pAlarmJson, "rsetClear", alarm.m_lRsetClear, scratch);
    AddText(pAlarmJson, "nodeIp", alarm.m_strNodeIp, scratch);

    cJSON* pJsonParams = cJSON_CreateArray();
    if (pJsonParams != nullptr) {
        for (const auto& param : alarm.m_mapParams) {
            cJSON* pJsonParam = cJSON_CreateObject();
            if (pJsonParam == nullptr) {
                continue;
            }
            Count(scratch, "", 0);
            AddText(pJsonParam, "paramName", param.first, scratch);
            AddText(pJsonParam, "paramValue", param.second, scratch);
            cJSON_AddItemToArray(pJsonParams, pJsonParam);
        }
    }

    cJSON* pJsonCallBack = cJSON_CreateObject();
    if (pJsonCallBack != nullptr) {
        AddText(pJsonCallBack, "serviceName", alarm.m_strServiceName, scratch);
        AddText(pJsonCallBack, "registerName", alarm.m_strServiceName, scratch);
        AddText(pJsonCallBack, "serviceIp", alarm.m_strServiceIp, scratch);
    }
    // Built after the parameters, but the agent expects it before them.
    AttachNode(pAlarmJson, "callBackInfo", pJsonCallBack, scratch);
    AttachNode(pAlarmJson, "parameters", pJsonParams, scratch);
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
    DocumentScratch scratch(models.size() * kNumbersPerModel + kNumbersPerServiceNode);
    // The fixed text, not a service's name: the agent has always received it so.
    cJSON* pJsonService = BuildServiceNode("szServiceName", &scratch);
    if (pJsonService == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonService is null.");
        return nullptr;
    }
    AttachNode(pJsonRoot, "service", pJsonService, &scratch);
    cJSON* pJsonBusiness = cJSON_CreateObject();
    if (pJsonBusiness == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonBusiness is null.");
        return nullptr;
    }
    AddText(pJsonBusiness, "name", "PushAlarm", 9, &scratch);
    AttachNode(pJsonRoot, "business", pJsonBusiness, &scratch);
    cJSON* pJsonPayload = BuildPayload(models, &scratch);
    if (pJsonPayload == nullptr) {
        cJSON_Delete(pJsonRoot);
        ALM_LOG_ERROR("AlmJsonParser::GenRestDataJson, pJsonPayload is null.");
        return nullptr;
    }
    AttachNode(pJsonRoot, "payload", pJsonPayload, &scratch);
    return PrintAndDelete(pJsonRoot, scratch);
}

cJSON* AlmJsonParser::GenPayloadNode(const std::list<_AlarmModel*>& models) { return BuildPayload(models, nullptr); }

cJSON* AlmJsonParser::BuildPayload(const std::list<_AlarmModel*>& models, DocumentScratch* scratch) {
    return GenPayload(models, &AlmJsonParser::BuildAlarmModel, scratch, "AlmJsonParser::GenPayloadNode",
                      "AlmJsonParser::GenPayloadNode, pJsonpJsonAlarmList is NULL.");
}

cJSON* AlmJsonParser::GenServiceNode(const char* name) { return BuildServiceNode(name, nullptr); }

cJSON* AlmJsonParser::BuildServiceNode(const char* name, DocumentScratch* scratch) {
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
    // Once per document: these are copied rather than kept alive.
    AddString(pJsonService, "name", name != nullptr ? name : "", scratch);
    AddString(pJsonService, "appid", szAppID, scratch);
    AddString(pJsonService, "ipaddress", AlmRukInterface::GetNodeIP().c_str(), scratch);
    AddNumber(pJsonService, "port", iLocalPort, scratch);
    AddNumber(pJsonService, "time_stamp", m_lTimeStamp, scratch);
    return pJsonService;
}

cJSON* AlmJsonParser::GenAlarmModel(_AlarmModel* alarmModel) { return BuildAlarmModel(alarmModel, nullptr); }

cJSON* AlmJsonParser::BuildAlarmModel(_AlarmModel* alarmModel, DocumentScratch* scratch) {
    cJSON* pAlarmJson = NewAlarmObject(alarmModel, "In %s, alarmModel is null!", "AlmJsonParser::GenAlarmModel");
    if (pAlarmJson == nullptr) {
        return nullptr;
    }
    const _AlarmModel& model = *alarmModel;
    AddText(pAlarmJson, "alarmName", model.alarmName, scratch);
    AddText(pAlarmJson, "appId", model.appId, scratch);
    AddText(pAlarmJson, "alarmId", model.alarmId, scratch);

    if (std::strcmp(model.alarmId, "0") == 0) {
        // The reset-clear registration: the service and every alarm it may
        // have left standing. Rare, so its texts are copies.
        const std::list<std::string> serviceNames = ALM_GetServiceNames();
        if (!serviceNames.empty()) {
            AddString(pAlarmJson, "serviceName", serviceNames.front().c_str(), scratch);
        }
        AddString(pAlarmJson, "serviceIp", AlmRukInterface::GetServiceIp().c_str(), scratch);
        cJSON* clearList = cJSON_CreateArray();
        if (clearList != nullptr) {
            for (const std::string& id : ALM_GetAlarmIds()) {
                cJSON* entry = cJSON_CreateObject();
                if (entry == nullptr) {
                    continue;
                }
                Count(scratch, "", 0);
                AddString(entry, "alarmId", id.c_str(), scratch);
                cJSON_AddItemToArray(clearList, entry);
            }
        }
        AttachNode(pAlarmJson, "restClearAlarmList", clearList, scratch);
        AddNumber(pAlarmJson, "occurTime", static_cast<int64_t>(ALM_GetCurrMs()), scratch);
        return pAlarmJson;
    }

    AddText(pAlarmJson, "appName", model.appName, scratch);
    AddText(pAlarmJson, "serviceName", model.serviceName, scratch);
    AddNumber(pAlarmJson, "alarmEventType", model.alarmEventType, scratch);
    AddNumber(pAlarmJson, "genClearAlarmType", model.genClearAlarmType, scratch);
    AddNumber(pAlarmJson, "alarmLevel", model.alarmLevel, scratch);
    AddNumber(pAlarmJson, "alarmGenTime", model.alarmGenTime, scratch);
    AddNumber(pAlarmJson, "alarmClearTime", model.alarmClearTime, scratch);
    AddNumber(pAlarmJson, "alarmClearType", model.alarmClearType, scratch);
    AddNumber(pAlarmJson, "isCanAutoClearType", model.isCanAutoClearType, scratch);
    AddNumber(pAlarmJson, "eventType", model.eventType, scratch);
    AddText(pAlarmJson, "probableCause", model.probableCause, scratch);
    // Both keys carry the node address; the agent reads either.
    AddText(pAlarmJson, "nodeID", model.nodeIp, scratch);
    AddText(pAlarmJson, "NodeIp", model.nodeIp, scratch);
    AddText(pAlarmJson, "serviceID", model.serviceID, scratch);
    AddText(pAlarmJson, "serviceInstID", model.serviceInstID, scratch);
    AddNumber(pAlarmJson, "rsetClear", model.rsetClear, scratch);
    AddText(pAlarmJson, "location", model.location, scratch);
    AddText(pAlarmJson, "appendInfo", model.appendInfo, scratch);
    return pAlarmJson;
}

std::string AlmJsonParser::GetRetCode(const char* json) {
    return ReadAnswerCode(json, "returncode", [](const cJSON& jsonRetCode) -> std::string {
        // The legacy protocol sends a string; anything else reads as "".
        return cJSON_IsString(&jsonRetCode) && jsonRetCode.valuestring != nullptr ? jsonRetCode.valuestring : "";
    });
}
