// Builds the two bilingual texts of a legacy alarm from its parameters and
// their definitions. The texts are assembled in fixed 1024-byte buffers with
// the platform's bounded appends, whose failure rule (an append that does not
// fit empties the buffer) shapes the output on overflow.
#include "AlarmAdapter.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "AlmLog.h"
#include "AlmRukInterface.h"
#include "bounded_string.h"

namespace {

const char kLogSource[] = "../src/AlarmAdapter";

constexpr std::size_t kTextSize = ALM_JSON_PARA_TEXT_SIZE;
constexpr std::size_t kFieldTextMax = 128;
constexpr std::size_t kValueSize = 128;
constexpr std::size_t kServiceNameMax = 64;
constexpr std::size_t kNumberSize = 11;

constexpr long kLocationClass = 0;
constexpr long kAppendClass = 1;

// Appends text (at most count characters) to the English and Chinese texts.
void AppendBoth(ALM_Json_Para_def* p, const char* english, const char* chinese, std::size_t count) {
    (void)strncat_s(p->Json_para_Value_En, kTextSize, english, count);
    (void)strncat_s(p->Json_para_Value_Ch, kTextSize, chinese, count);
}

void AppendBoth(ALM_Json_Para_def* p, const char* text) { AppendBoth(p, text, text, std::strlen(text)); }

// A text that may be missing after a failed allocation, printable as "".
const char* Printable(const char* text) { return text != nullptr ? text : ""; }

void AllocateTexts(ALM_Json_Para_def*& p) {
    if (p == nullptr) {
        ALM_LOG_ERROR("allocate memory failed");
        return;
    }
    char** buffers[] = {&p->Json_para_Value, &p->Json_para_Value_Ch, &p->Json_para_Value_En};
    for (char** buffer : buffers) {
        *buffer = static_cast<char*>(std::malloc(kTextSize));
        if (*buffer == nullptr) {
            ALM_LOG_ERROR("allocate memory failed");
            return;
        }
        (void)memset_s(*buffer, kTextSize, 0, kTextSize);
    }
}

void DropLastCharacter(char* text, unsigned long& len) {
    if (text == nullptr) {
        return;
    }
    len = std::strlen(text);
    if (len > 0) {
        text[len - 1] = '\0';
    }
}

// Writes "EN:<english>##ZH:<chinese>##" into the finished buffer; false when it had to be cut.
bool FinishText(ALM_Json_Para_def* p) {
    return snprintf_s(p->Json_para_Value, kTextSize - 1, kTextSize - 1, "EN:%s##ZH:%s##",
                      Printable(p->Json_para_Value_En), Printable(p->Json_para_Value_Ch)) != -1;
}

void NameRecord(ALM_Json_Para_def* p, const char* name) {
    (void)strncpy_s(p->Json_para_Name, sizeof(p->Json_para_Name), name, sizeof(p->Json_para_Name) - 1);
    p->Json_para_Type = ALM_JSON_PARA_TYPE_STRING;
}

// The first map entry whose name equals the defined one over 128 characters.
const std::string* FindValue(const std::map<std::string, std::string>& params, const char* name) {
    for (const auto& entry : params) {
        if (std::strncmp(entry.first.c_str(), name, kFieldTextMax) == 0) {
            return &entry.second;
        }
    }
    return nullptr;
}

// The first sizeof(T) bytes at data; memcpy because the caller's buffer
// need not be aligned for T.
template <typename T> T LoadBytes(const void* data) {
    T value;
    std::memcpy(&value, data, sizeof(value));
    return value;
}

}  // namespace

extern "C" {

unsigned int CHECK_ALARMODEL(Alarm* alarm, stAlarmItems* item) {
    if (alarm == nullptr || item == nullptr) {
        ALM_LOG_ERROR("CHECK_ALARMODEL pAlarm,pSstAlarmInfo is NULL");
        return 0;
    }
    const std::size_t count = alarm->GetParamMap().size();
    if (static_cast<int64_t>(count) != item->paramNum) {
        ALM_LOG_ERROR("[CHECK_ALARMODEL]  AlarmID(%s) paralen(%d) is not equal config(%d)!", alarm->GetAlarmId(),
                      static_cast<int>(count), static_cast<int>(item->paramNum));
        return 0;
    }
    return 1;
}

void ALM_ContructLocationAndAppendParainfo(Alarm* alarm, stAlarmItems* item, ALM_Json_Para_def* location,
                                           ALM_Json_Para_def* appendInfo) {
    if (appendInfo == nullptr || location == nullptr || alarm == nullptr) {
        ALM_LOG_ERROR("In ALM_ContructLocationAndAppendParainfo, alarm, pAppendInfoParam, pLocationParam is null !");
        return;
    }
    if (item == nullptr) {
        ALM_LOG_ERROR("[ALM_ContructLocationAndAppendParainfo]  ulAlarmID(%d) is invalid!", 0);
        return;
    }
    NameRecord(location, "location");
    NameRecord(appendInfo, "appendInfo");
    ALM_InitAlarmLocationInfo(location);
    ALM_InitAlarmAppendInfo(appendInfo);

    ALM_AddAlarmCruxInfo(alarm, item, location, appendInfo);
    unsigned long len = 0;
    ALM_AddAlarmPasramLen(location, len);
    ALM_AddAlarmSourceInfo(alarm, appendInfo);
    ALM_AddAlarmSourcePosition(alarm, appendInfo, len);

    if (!FinishText(location)) {
        // The append-information English text in this line is how it has always been reported.
        ALM_LOG_ERROR("LocationInfo Len > 1024,Ch is---%s,En is---%s", Printable(location->Json_para_Value_Ch),
                      Printable(appendInfo->Json_para_Value_En));
    }
    if (!FinishText(appendInfo)) {
        ALM_LOG_ERROR("AppendInfo Len > 1024,Ch is---%s,En is---%s", Printable(appendInfo->Json_para_Value_Ch),
                      Printable(appendInfo->Json_para_Value_En));
    }
}

void ALM_InitAlarmLocationInfo(ALM_Json_Para_def*& p) { AllocateTexts(p); }

void ALM_InitAlarmAppendInfo(ALM_Json_Para_def*& p) { AllocateTexts(p); }

void ALM_AddAlarmCruxInfo(Alarm* alarm, stAlarmItems*& item, ALM_Json_Para_def*& location,
                          ALM_Json_Para_def*& appendInfo) {
    const std::map<std::string, std::string> params = alarm->GetParamMap();
    if (static_cast<int64_t>(params.size()) != item->paramNum) {
        ALM_LOG_ERROR("[ALM_InitAlarmCruxInfo] paralen(%d) is not equal config(%d)!", static_cast<int>(params.size()),
                      static_cast<int>(item->paramNum));
        return;
    }
    for (int64_t i = 0; i < item->paramNum && item->params != nullptr; ++i) {
        stParaDef* def = &item->params[i];
        ALM_Json_Para_def* target = nullptr;
        if (def->paramClass == kLocationClass) {
            target = location;
        } else if (def->paramClass == kAppendClass) {
            target = appendInfo;
        } else {
            ALM_LOG_ERROR("[ALM_ContructLocationAndAppendParainfo] ParamName=%s ,ParamClass(%d) is invalid!",
                          def->paramName, static_cast<int>(def->paramClass));
            continue;
        }
        const std::string* value = FindValue(params, def->paramName);
        if (value == nullptr) {
            continue;
        }
        char text[kValueSize] = {0};
        (void)strncpy_s(text, sizeof(text), value->c_str(), sizeof(text) - 1);
        ALM_PieceAlarmParTogether(def, text, target);
    }
}

void ALM_PieceAlarmParTogether(stParaDef* def, char* value, ALM_Json_Para_def* target) {
    if (def == nullptr || value == nullptr || target == nullptr) {
        ALM_LOG_ERROR("In ALM_PieceAlarmParTogether, pObjPara=%p, pAlarmData=%p, pAlarmParam=%p is null !",
                      static_cast<void*>(target), static_cast<void*>(value), static_cast<void*>(def));
        return;
    }
    AppendBoth(target, def->paramEnName, def->paramChName, kFieldTextMax);
    AppendBoth(target, "=");
    if (std::strcmp(def->paramType, "UINT") == 0) {
        unsigned long number = static_cast<unsigned long>(static_cast<long>(std::atoi(value)));
        char digits[kNumberSize] = {0};
        (void)snprintf_s(digits, sizeof(digits), sizeof(digits) - 1, "%lu",
                         ALM_GetIntValue(static_cast<unsigned long>(def->paramLen), &number));
        AppendBoth(target, digits);
    } else if (std::strcmp(def->paramType, "STRING") == 0) {
        AppendBoth(target, value);
    } else if (std::strcmp(def->paramType, "ENUM") == 0) {
        unsigned int number = static_cast<unsigned int>(std::atoi(value));
        const unsigned int key = ALM_GetEnumValue(static_cast<unsigned long>(def->paramLen), &number);
        for (int64_t i = 0; i < def->enumNum && def->enumValues != nullptr; ++i) {
            // Compared as 32-bit values, so a negative definition matches its sign-extended wire form.
            if (static_cast<unsigned int>(def->enumValues[i].value) == key) {
                AppendBoth(target, def->enumValues[i].enName, def->enumValues[i].chName, kFieldTextMax);
                break;
            }
        }
    }
    AppendBoth(target, ",");
}

void ALM_AddAlarmPasramLen(ALM_Json_Para_def*& p, unsigned long& len) {
    if (p == nullptr) {
        return;
    }
    DropLastCharacter(p->Json_para_Value_En, len);
    DropLastCharacter(p->Json_para_Value_Ch, len);
    p->Json_para_Len = static_cast<uint32_t>(p->Json_para_Value_Ch != nullptr ? std::strlen(p->Json_para_Value_Ch) : 0);
}

void ALM_AddAlarmSourceInfo(Alarm* alarm, ALM_Json_Para_def*& appendInfo) {
    std::string source(alarm->GetServiceName(), strnlen(alarm->GetServiceName(), kServiceNameMax));
    if (source.empty()) {
        const char* podName = std::getenv("PODNAME");
        if (podName != nullptr) {
            source = podName;
        }
    }
    if (source.empty()) {
        return;
    }
    AppendBoth(appendInfo, "Alarm Source", "告警源", kTextSize);
    AppendBoth(appendInfo, "=");
    AppendBoth(appendInfo, source.c_str());
    AppendBoth(appendInfo, ",");
}

void ALM_AddAlarmSourcePosition(Alarm* /*alarm*/, ALM_Json_Para_def*& appendInfo, unsigned long& len) {
    std::string address;
    if (AlmRukInterface::GetAlarmSourceAddress(address)) {
        AppendBoth(appendInfo, "Alarm Source Location", "告警源位置", kTextSize);
        AppendBoth(appendInfo, "=");
        AppendBoth(appendInfo, address.c_str());
        const char* nodeId = std::getenv("NODE_ID");
        if (nodeId != nullptr && nodeId[0] != '\0') {
            AppendBoth(appendInfo, ":");
            AppendBoth(appendInfo, nodeId, nodeId, kFieldTextMax);
        }
        AppendBoth(appendInfo, ",");
    }
    // Also without an address: the trailing separator of the parameters goes.
    ALM_AddAlarmPasramLen(appendInfo, len);
}

unsigned long ALM_GetIntValue(unsigned long paraLen, unsigned long* data) {
    if (data == nullptr) {
        ALM_LOG_ERROR("In ALM_GetIntValue, pData=%p,   is null !", static_cast<void*>(data));
        return 0;
    }
    // The low-order bytes, as they lie in memory on the little-endian targets.
    switch (paraLen) {
        case 1:
            return LoadBytes<uint8_t>(data);
        case 2:
            return LoadBytes<uint16_t>(data);
        case 4:
            return LoadBytes<uint32_t>(data);
        default:
            ALM_LOG_ERROR("In ALM_GetIntValue, paraLen=%d  is invalid !", static_cast<int>(paraLen));
            return 0;
    }
}

unsigned int ALM_GetEnumValue(unsigned long paraLen, unsigned int* data) {
    if (data == nullptr) {
        ALM_LOG_ERROR("In ALM_GetEnumValue, pEnumData=%p,   is null !", static_cast<void*>(data));
        return 0;
    }
    switch (paraLen) {
        // Signed, widened: an enumeration key of 0xFF in one byte is -1.
        case 1:
            return static_cast<unsigned int>(static_cast<int>(LoadBytes<int8_t>(data)));
        case 2:
            return static_cast<unsigned int>(static_cast<int>(LoadBytes<int16_t>(data)));
        case 4:
            return *data;
        default:
            ALM_LOG_ERROR("In ALM_GetEnumValue, paraLen=%d  is invalid !", static_cast<int>(paraLen));
            return 0;
    }
}

void ALM_ContructOnlineSetBigIntPara(char* name, long value, ALM_Json_Para_def* p) {
    if (p == nullptr || name == nullptr) {
        ALM_LOG_ERROR("In ALM_ContructOnlineSetBigIntPara, pJsonParam=%p,  paraName=%p, is null !",
                      static_cast<void*>(p), static_cast<void*>(name));
        return;
    }
    // The name is copied without a terminator of its own.
    (void)memcpy_s(p->Json_para_Name, sizeof(p->Json_para_Name), name, strnlen(name, sizeof(p->Json_para_Name) - 1));
    p->Json_para_Type = ALM_JSON_PARA_TYPE_INT64;
    p->Json_para_Len = sizeof(int64_t);
    if (p->Json_para_Value != nullptr) {
        const int64_t number = value;
        std::memcpy(p->Json_para_Value, &number, sizeof(number));
    }
}

void ALM_ContructOnlineSetStringPara(char* name, char* data, ALM_Json_Para_def* p) {
    if (p == nullptr || name == nullptr || data == nullptr) {
        ALM_LOG_ERROR("In ALM_ContructOnlineSetBigIntPara, pJsonParam=%p,  paraName=%p,  pData=%p, is null !",
                      static_cast<void*>(p), static_cast<void*>(name), static_cast<void*>(data));
        return;
    }
    (void)memcpy_s(p->Json_para_Name, sizeof(p->Json_para_Name), name, strnlen(name, sizeof(p->Json_para_Name)));
    const std::size_t length = strnlen(data, sizeof(p->Json_para_Name));
    p->Json_para_Type = ALM_JSON_PARA_TYPE_STRING;
    p->Json_para_Len = static_cast<uint32_t>(length);
    if (p->Json_para_Value != nullptr) {
        // Limit and count are both the length, so a non-empty text is refused and the value left empty.
        (void)strncpy_s(p->Json_para_Value, length, data, length);
        p->Json_para_Value[length > 127 ? 127 : length] = '\0';
    }
}

}  // extern "C"
