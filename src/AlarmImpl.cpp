// The C entry points of the current generation: argument checks first, then
// the process-wide manager or the co-process manager passed as a handle.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <tuple>

#include "Alarm.h"
#include "AlarmEx.h"
#include "AlarmManager.h"
#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "AlmLog.h"
#include "NoThrow.h"
#include "bounded_string.h"

static_assert(sizeof(_ZEBAlarm) == 158, "_ZEBAlarm is 158 bytes");
static_assert(sizeof(_ZEBAlarmParam) == 264, "a parameter node is 264 bytes");
static_assert(offsetof(_ZEBAlarm, alarmType) == 10 && offsetof(_ZEBAlarm, alarmTime) == 14 &&
                  offsetof(_ZEBAlarm, paramList) == 22 && offsetof(_ZEBAlarm, serviceName) == 30,
              "_ZEBAlarm fields are packed in order");
static_assert(offsetof(_ZEBAlarmParam, paramValue) == 128 && offsetof(_ZEBAlarmParam, next) == 256,
              "parameter node fields are packed in order");
static_assert(sizeof(AlarmObject) == 22 && sizeof(AlarmParam) == 256, "the legacy block is 22 + 256 * n bytes");
static_assert(offsetof(AlarmObject, genClearType) == 10 && offsetof(AlarmObject, paramCapacity) == 14 &&
                  offsetof(AlarmObject, paramCount) == 18 && offsetof(AlarmObject, params) == 22,
              "legacy block fields are packed in order");

namespace {

const char kLogSource[] = "../src/AlarmImpl";

constexpr std::size_t kAppIdMaxLen = 64;
constexpr std::size_t kServiceNameMaxLen = 64;
constexpr std::size_t kNodeIpMaxLen = 256;
constexpr std::size_t kServiceIpMaxLen = 64;
constexpr std::size_t kServiceIdMaxLen = 256;
constexpr std::size_t kServiceInsIdMaxLen = 256;
constexpr std::size_t kServiceLabelMaxLen = 256;

// The length messages keep their malformed "%," placeholder: the function
// name passed with them is never printed.
const char* const kAppIdTooLong = "In %,The length of the pStrAppId is longer than ALARM_APPID_MAXLEN ";
const char* const kServiceNameTooLong =
    "In %,The length of the pStrServiceName is longer than ALARM_SERVICENAME_MAXLEN ";
const char* const kNodeIpTooLong = "In %,The length of the pStrNodeIp is longer than ALARM_NODEIP_MAXLEN ";
const char* const kServiceIpTooLong = "In %,The length of the pStrServiceIp is longer than ALARM_SERVICEIP_MAXLEN ";
const char* const kServiceIdTooLong = "In %,The length of the pStrServiceId is longer than ALARM_SERVICEID_MAXLEN ";
const char* const kServiceInsIdTooLong =
    "In %,The length of the pStrServiceInsId is longer than ALARM_SERVICEINSID_MAXLEN ";
const char* const kCoServiceLabelTooLong =
    "In %,The length of the pStrServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ";
const char* const kServiceLabelTooLong =
    "In %,The length of the pServiceLabel is longer than ALARM_SERVICELABEL_MAXLEN ";

// True (after logging) when text is NULL.
bool IsMissing(const void* pointer, const char* message, const char* function) {
    if (pointer == nullptr) {
        ALM_LOG_ERROR(message, function);
        return true;
    }
    return false;
}

// True (after logging) when text is longer than maxLen, or empty when that is refused too.
bool IsBadLength(const char* text, std::size_t maxLen, bool refuseEmpty, const char* message, const char* function) {
    const std::size_t length = std::strlen(text);
    if (length > maxLen || (refuseEmpty && length == 0)) {
        ALM_LOG_ERROR(message, function);
        return true;
    }
    return false;
}

// Null and length checks for one text argument.
bool IsBadText(const char* text, const char* nullMessage, std::size_t maxLen, bool refuseEmpty,
               const char* lengthMessage, const char* function) {
    return IsMissing(text, nullMessage, function) || IsBadLength(text, maxLen, refuseEmpty, lengthMessage, function);
}

EU_GEN_CLEAR_TYPE ToGenClearType(int32_t cType) { return cType == 1 ? ZEB_ALARM_CLEAR : ZEB_ALARM_GENERATE; }

// Queues the alarm on manager; shared by the process-wide and co-process
// paths. The converted record itself is queued: no second copy.
int SendThrough(AlarmManagerEx* manager, _ZEBAlarm* alarm, const char* function) {
    std::unique_ptr<AlarmEx> record(ZEBConvert2AlarmEx(alarm));
    if (record == nullptr) {
        ALM_LOG_ERROR("In %s, pAlarmEx is null!", function);
        return -1;
    }
    return manager->adoptAlarm(std::move(record));
}

constexpr uint32_t kLegacyHeaderSize = offsetof(AlarmObject, params);
constexpr uint32_t kLegacyParamSize = sizeof(AlarmParam);
constexpr std::size_t kLegacyIdSize = sizeof(AlarmObject::alarmId);
// Beyond this the 32-bit block size wraps and the block would be too small for its slots.
constexpr uint32_t kLegacyMaxParams = (UINT32_MAX - kLegacyHeaderSize) / kLegacyParamSize;

int SendLegacy(AlarmObject* object);

// A C text field's characters, up to its terminator or the field's end: the
// caller may have written the field itself, unterminated.
template <std::size_t N> std::tuple<const char*, std::size_t> FieldChars(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

// A parameter node and the length of its name.
struct NamedNode {
    const _ZEBAlarmParam* node;
    std::size_t length;
};

// The map's order (unsigned bytes, a prefix first), compared in place: names
// differ within their first bytes, sooner than a call to memcmp returns.
int CompareNames(const NamedNode& a, const NamedNode& b) {
    const std::size_t common = a.length < b.length ? a.length : b.length;
    for (std::size_t i = 0; i < common; ++i) {
        const auto x = static_cast<unsigned char>(a.node->paramName[i]);
        const auto y = static_cast<unsigned char>(b.node->paramName[i]);
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return a.length < b.length ? -1 : (a.length > b.length ? 1 : 0);
}

// Adds the C parameters to params, the first value of a name winning, as
// appendParameter does. The usual handful is sorted on the stack first, later
// duplicates left out, and goes in from the last name back: each lands before
// the map's first entry after one comparison instead of a search from the
// root. A longer list goes in as it comes.
void AppendParams(std::map<std::string, std::string>& params, const _ZEBAlarmParam* list) {
    constexpr std::size_t kSorted = 8;
    NamedNode sorted[kSorted];
    std::size_t count = 0;
    const _ZEBAlarmParam* node = list;
    for (; node != nullptr && count < kSorted; node = node->next) {
        const NamedNode entry{node, strnlen(node->paramName, sizeof(node->paramName))};
        std::size_t at = count;
        while (at > 0 && CompareNames(entry, sorted[at - 1]) < 0) {
            --at;
        }
        if (at > 0 && CompareNames(entry, sorted[at - 1]) == 0) {
            continue;  // a later duplicate
        }
        std::copy_backward(sorted + at, sorted + count, sorted + count + 1);
        sorted[at] = entry;
        ++count;
    }
    if (node != nullptr) {
        for (node = list; node != nullptr; node = node->next) {
            params.emplace(std::piecewise_construct, FieldChars(node->paramName), FieldChars(node->paramValue));
        }
        return;
    }
    while (count > 0) {
        const NamedNode& entry = sorted[--count];
        params.emplace_hint(params.begin(), std::piecewise_construct,
                            std::forward_as_tuple(entry.node->paramName, entry.length),
                            FieldChars(entry.node->paramValue));
    }
}

// A slot's text, bounded even if the caller wrote the block itself.
std::string SlotText(const char (&text)[sizeof(AlarmParam::paramName)]) {
    return std::string(text, strnlen(text, sizeof(text)));
}

}  // namespace

extern "C" {

// Every entry point that reaches C++ objects runs under NoThrow: an exception
// never crosses into the calling service.

int ZEBInitAlarmSDK(void) {
    return alarmsdk::NoThrow(ALM_CALL_SITE("ZEBInitAlarmSDK"), -1,
                             [] { return AlarmManagerEx::getInstance()->initManager(); });
}

int ZEBRegisterRsetClearInfo(const char* serviceName, const char* serviceId, const char* serviceInsId, int rsetClear) {
    const char* function = "ZEBRegisterRsetClearInfo";
    if (IsMissing(serviceName, "In %s, pStrServiceName is null!", function) ||
        IsMissing(serviceId, "In %s, pStrServiceId is null!", function) ||
        IsMissing(serviceInsId, "In %s, pStrServiceInsId is null!", function)) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] {
        return AlarmManagerEx::getInstance()->addServiceInfo(serviceName, serviceId, serviceInsId,
                                                             static_cast<long>(rsetClear));
    });
}

int ZEBRegisterInfo(const char* serviceName, const char* serviceLabel) {
    const char* function = "ZEBRegisterInfo";
    if (IsBadText(serviceName, "In %s, pStrServiceName is null!", kServiceNameMaxLen, true, kServiceNameTooLong,
                  function) ||
        IsBadText(serviceLabel, "In %s, pServiceLabel is null!", kServiceLabelMaxLen, true, kServiceLabelTooLong,
                  function)) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] {
        return AlarmManagerEx::getInstance()->RegisterInfo(std::string(serviceName), std::string(serviceLabel));
    });
}

_ZEBAlarm* ZEBAllocAlarm(const char* alarmId, int type) {
    if (IsMissing(alarmId, "In %s, pStrAlarmId is null!", "ZEBAllocAlarm")) {
        return nullptr;
    }
    _ZEBAlarm* alarm = static_cast<_ZEBAlarm*>(std::malloc(sizeof(_ZEBAlarm)));
    ALM_LOG_INFO("the len of alarm memory is %ud, len of AlarmObjectEx is %ud, len of AlarmParam is %ud",
                 static_cast<unsigned int>(sizeof(_ZEBAlarm)),
                 static_cast<unsigned int>(offsetof(_ZEBAlarm, paramList)),
                 static_cast<unsigned int>(offsetof(_ZEBAlarmParam, next)));
    if (alarm == nullptr) {
        ALM_LOG_ERROR("In %s, pZEBAlarmObject is null!", "AllocAlarmObjectEx");
        return nullptr;
    }
    (void)memset_s(alarm, sizeof(_ZEBAlarm), 0, sizeof(_ZEBAlarm));
    alarm->alarmType = type;
    alarm->alarmTime = 0;
    // An id of ten or more characters does not fit and leaves the id empty.
    (void)strncpy_s(alarm->alarmId, sizeof(alarm->alarmId), alarmId, sizeof(alarm->alarmId));
    alarm->alarmId[sizeof(alarm->alarmId) - 1] = '\0';
    alarm->paramList = nullptr;
    return alarm;
}

int ZEBSetAlarmServiceName(_ZEBAlarm* alarm, const char* serviceName) {
    if (IsMissing(alarm, "In %s, pAlarm is null!", "ZEBSetAlarmServiceName")) {
        return -1;
    }
    (void)strncpy_s(alarm->serviceName, sizeof(alarm->serviceName), serviceName, sizeof(alarm->serviceName));
    alarm->serviceName[sizeof(alarm->serviceName) - 1] = '\0';
    return 0;
}

int ZEBAppendAlarmParam(_ZEBAlarm* alarm, const char* name, const char* value) {
    const char* function = "ZEBAppendAlarmParam";
    if (IsMissing(alarm, "In %s, pZEBAlarmObject is null!", function) ||
        IsMissing(name, "In %s, pStrParamName is null!", function) ||
        IsMissing(value, "In %s, pStrParamValue is null!", function)) {
        return -1;
    }
    // calloc: nodes are released with free() by ZEBFreeAlarm, and start zeroed.
    _ZEBAlarmParam* node = static_cast<_ZEBAlarmParam*>(std::calloc(1, sizeof(_ZEBAlarmParam)));
    ALM_LOG_INFO("the len of alarm memory is %ud, len of ZEBAlarmParam is %ud, len of AlarmParam is %ud",
                 static_cast<unsigned int>(sizeof(_ZEBAlarmParam)),
                 static_cast<unsigned int>(offsetof(_ZEBAlarm, paramList)),
                 static_cast<unsigned int>(offsetof(_ZEBAlarmParam, next)));
    if (node == nullptr) {
        ALM_LOG_ERROR("In %s, pNewAlarmParam is null!", function);
        return -1;
    }
    const std::size_t textSize = sizeof(node->paramName);
    if (strncpy_s(node->paramName, textSize, name, textSize - 1) != 0 ||
        strncpy_s(node->paramValue, textSize, value, textSize - 1) != 0) {
        ALM_LOG_ERROR("strncpy_s failed........");
        std::free(node);
        return -1;
    }
    node->paramName[textSize - 1] = '\0';
    node->paramValue[textSize - 1] = '\0';
    node->next = nullptr;
    if (alarm->paramList == nullptr) {
        alarm->paramList = node;
    } else {
        _ZEBAlarmParam* tail = alarm->paramList;
        while (tail->next != nullptr) {
            tail = tail->next;
        }
        tail->next = node;
    }
    return 0;
}

int ZEBSendAlarm(_ZEBAlarm* alarm) {
    return alarmsdk::NoThrow(ALM_CALL_SITE("ZEBSendAlarm"), -1,
                             [&] { return SendThrough(AlarmManagerEx::getInstance(), alarm, "ZEBSendAlarm"); });
}

int ZEBResetAlarmTime(_ZEBAlarm* alarm, long time) {
    // Nine digits or fewer cannot be a time in milliseconds.
    if (alarm == nullptr || time < 0 || time <= 999999999L) {
        return -1;
    }
    alarm->alarmTime = time;
    return 0;
}

int ZEBFreeAlarm(_ZEBAlarm* alarm) {
    if (IsMissing(alarm, "In %s, pZEBAlarmObject is null!", "ZEBFreeAlarm")) {
        return -1;
    }
    _ZEBAlarmParam* node = alarm->paramList;
    while (node != nullptr) {
        _ZEBAlarmParam* next = node->next;
        std::free(node);
        node = next;
    }
    std::free(alarm);
    return 0;
}

int ZEBRegisterAlarmCheckCallBackFun(const char* serviceName, void (*callback)(char*)) {
    const char* function = "ZEBRegisterAlarmCheckCallBackFun";
    if (IsMissing(serviceName, "In %s, szServiceName is null!", function) ||
        IsMissing(reinterpret_cast<const void*>(callback), "In %s, callbackFun is null!", function)) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] {
        return AlarmManagerEx::getInstance()->RegAlarmCheckInterface(std::string(serviceName), callback);
    });
}

int ZEBRegisterRsetClear(AlarmManagerEx* manager) {
    if (IsMissing(manager, "In %s, pAlarmManagerInstance is null!", "ZEBRegisterRsetClear")) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE("ZEBRegisterRsetClear"), -1, [&] { return manager->RegisterRsetClear(); });
}

AlarmManagerEx* ZEBInitAlarmSDK4CoProcess(const char* appId, const char* serviceName, const char* nodeIp,
                                          const char* serviceIp) {
    const char* function = "ZEBInitAlarmSDK4CoProcess";
    if (IsBadText(appId, "In %s, pStrAppId is null!", kAppIdMaxLen, false, kAppIdTooLong, function) ||
        IsBadText(serviceName, "In %s, pStrServiceName is null!", kServiceNameMaxLen, false, kServiceNameTooLong,
                  function) ||
        IsBadText(nodeIp, "In %s, pStrNodeIp is null!", kNodeIpMaxLen, false, kNodeIpTooLong, function) ||
        IsBadText(serviceIp, "In %s, pStrServiceIp is null!", kServiceIpMaxLen, false, kServiceIpTooLong, function)) {
        return nullptr;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), static_cast<AlarmManagerEx*>(nullptr), [&] {
        std::unique_ptr<AlarmManagerEx> manager(new AlarmManagerEx(0));
        // Nothing throws once the send thread runs, so a started manager is never deleted.
        return manager->initManager(appId, serviceName, nodeIp, serviceIp) == 0 ? manager.release() : nullptr;
    });
}

int ZEBRegisterRsetClearInfo4CoProcess(AlarmManagerEx* manager, const char* serviceName, const char* serviceId,
                                       const char* serviceInsId, int rsetClear) {
    const char* function = "ZEBRegisterRsetClearInfo4CoProcess";
    if (IsMissing(manager, "In %s, pAlarmManagerInstance is null!", function)) {
        return -1;
    }
    auto badTexts = [&](bool refuseEmpty) {
        return IsBadText(serviceName, "In %s, pStrServiceName is null!", kServiceNameMaxLen, refuseEmpty,
                         kServiceNameTooLong, function) ||
               IsBadText(serviceId, "In %s, pStrServiceId is null!", kServiceIdMaxLen, refuseEmpty, kServiceIdTooLong,
                         function) ||
               IsBadText(serviceInsId, "In %s, pStrServiceInsId is null!", kServiceInsIdMaxLen, refuseEmpty,
                         kServiceInsIdTooLong, function);
    };
    // Announcing for reset-clear needs all three texts, so empty ones are refused then.
    if (badTexts(false) || (rsetClear == 1 && badTexts(true))) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] {
        return manager->addServiceInfo(serviceName, serviceId, serviceInsId, static_cast<long>(rsetClear));
    });
}

int ZEBRegisterInfo4CoProcess(AlarmManagerEx* manager, const char* serviceLabel) {
    const char* function = "ZEBRegisterInfo4CoProcess";
    if (IsMissing(manager, "In %s, pAlarmManagerInstance is null!", function) ||
        IsBadText(serviceLabel, "In %s, pStrServiceLabel is null!", kServiceLabelMaxLen, true, kCoServiceLabelTooLong,
                  function)) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] {
        return manager->RegisterInfo(manager->getServiceName(), std::string(serviceLabel));
    });
}

int ZEBSendAlarm4CoProcess(AlarmManagerEx* manager, _ZEBAlarm* alarm) {
    const char* function = "ZEBSendAlarm4CoProcess";
    if (IsMissing(manager, "In %s, pAlarmManagerInstance is null!", function) ||
        IsMissing(alarm, "In %s, pZEBAlarmObject is null!", function)) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1, [&] { return SendThrough(manager, alarm, function); });
}

int ZEBRegisterAlarmCheckCallBackFun4CoProcess(AlarmManagerEx* manager, void (*callback)(char*)) {
    const char* function = "ZEBRegisterAlarmCheckCallBackFun4CoProcess";
    if (IsMissing(manager, "In %s, pAlarmManagerInstance is null!", function) ||
        IsMissing(reinterpret_cast<const void*>(callback), "In %s, callbackFun is null!", function)) {
        return -1;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE(function), -1,
                             [&] { return manager->RegAlarmCheckInterface(manager->getServiceName(), callback); });
}

int InitAlarm(const char* xmlFile, const char* serviceId, const char* serviceInsId, int rsetClear) {
    if (xmlFile == nullptr) {
        ALM_LOG_ERROR("The xmlFile is null");
        return 0;
    }
    if (xmlFile[0] == '\0') {
        ALM_LOG_ERROR("The xmlFile is empty");
        return 0;
    }
    if (serviceId == nullptr) {
        ALM_LOG_ERROR("The serviceId is null");
        return 0;
    }
    if (serviceInsId == nullptr) {
        ALM_LOG_ERROR("The serviceInsId is null");
        return 0;
    }
    // Accepted arguments are a success: the manager reports its own failures in the log.
    alarmsdk::NoThrow(ALM_CALL_SITE("InitAlarm"), 0, [&] {
        AlarmManager::GetInstance()->InitXML(xmlFile, serviceId, serviceInsId, rsetClear == 1 ? 1 : 0);
        return 0;
    });
    return 1;
}

AlarmObject* AllocAlarmObject(const char* alarmId, int genClearType, unsigned int paramNum) {
    if (alarmId == nullptr) {
        ALM_LOG_ERROR("AlarmId input is null");
        return nullptr;
    }
    if (alarmId[0] == '\0') {
        ALM_LOG_ERROR("AlarmId input is empty");
        return nullptr;
    }
    if (strnlen(alarmId, kLegacyIdSize) >= kLegacyIdSize) {
        ALM_LOG_ERROR("AlarmId input is too long");
        return nullptr;
    }
    if (paramNum == 0) {
        ALM_LOG_ERROR("AlarmParam number input is 0");
        return nullptr;
    }
    // Computed in 32 bits, as the size has always been reported.
    const uint32_t size = kLegacyParamSize * paramNum + kLegacyHeaderSize;
    ALM_LOG_INFO("the len of alarm memory is %ud, len of AlarmObject is %ud, len of AlarmParam is %ud", size,
                 kLegacyHeaderSize, kLegacyParamSize);
    if (paramNum > kLegacyMaxParams) {
        ALM_LOG_ERROR("AlarmParam number input is too large");
        return nullptr;
    }
    AlarmObject* object = static_cast<AlarmObject*>(std::malloc(size));
    if (object == nullptr) {
        ALM_LOG_ERROR("In %s, pAlarmObject is null!", "AllocAlarmObject");
        return nullptr;
    }
    (void)memset_s(object, size, 0, size);
    object->genClearType = genClearType;
    object->paramCapacity = paramNum;
    object->paramCount = 0;
    (void)strncpy_s(object->alarmId, sizeof(object->alarmId), alarmId, sizeof(object->alarmId) - 1);
    ALM_LOG_INFO("AlarmId is %s", object->alarmId);
    return object;
}

int AppendParam(AlarmObject* object, const char* paramName, const char* paramValue) {
    if (object == nullptr || paramName == nullptr || paramValue == nullptr) {
        ALM_LOG_ERROR("AppendParam() pAlarmObject,paramName,paramValue is NULL");
        return 0;
    }
    ALM_LOG_INFO("the max len of paramName is %d", static_cast<int>(sizeof(AlarmParam::paramName)));
    if (object->paramCount >= object->paramCapacity) {
        ALM_LOG_ERROR("This pair of param is num %ud, and the max num is %ud", object->paramCount,
                      object->paramCapacity);
        return 0;
    }
    AlarmParam* slot = &object->params[object->paramCount];
    const std::size_t textSize = sizeof(slot->paramName);
    // Longer texts are cut to 127 characters, not refused.
    if (strncpy_s(slot->paramName, textSize, paramName, textSize - 1) != 0 ||
        strncpy_s(slot->paramValue, textSize, paramValue, textSize - 1) != 0) {
        ALM_LOG_ERROR("strncpy_s failed........");
        return 0;
    }
    slot->paramName[textSize - 1] = '\0';
    slot->paramValue[textSize - 1] = '\0';
    object->paramCount++;
    ALM_LOG_INFO("paramName is %s, paramValue is %s", slot->paramName, slot->paramValue);
    return 1;
}

int SendAlarm(AlarmObject* object) {
    if (object == nullptr) {
        return 0;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE("SendAlarm"), 0, [&] { return SendLegacy(object); });
}

void FreeAlarmObject(AlarmObject* object) { std::free(object); }

}  // extern "C"

namespace {

// SendAlarm's body: 1 once handed to the manager, whatever the manager decides.
int SendLegacy(AlarmObject* object) {
    if (object->paramCount != object->paramCapacity) {
        ALM_LOG_ERROR("The alarm param number is error");
    }
    Alarm alarm(object->alarmId, object->genClearType == 1 ? ZEB_ALARM_CLEAR : ZEB_ALARM_GENERATE);
    // Every slot up to the capacity: unfilled ones add one empty pair, which
    // the definition check then refuses. The result is 1 all the same.
    for (uint32_t i = 0; i < object->paramCapacity; ++i) {
        alarm.AppendParameter(SlotText(object->params[i].paramName).c_str(),
                              SlotText(object->params[i].paramValue).c_str());
    }
    (void)AlarmManager::GetInstance()->SendAlarm(&alarm);
    return 1;
}

}  // namespace

AlarmEx* ZEBConvert2AlarmEx(_ZEBAlarm* alarm) {
    if (IsMissing(alarm, "In %s, pZEBAlarmObject is null!", "ZEBConvert2AlarmEx")) {
        return nullptr;
    }
    return alarmsdk::NoThrow(ALM_CALL_SITE("ZEBConvert2AlarmEx"), static_cast<AlarmEx*>(nullptr), [&] {
        // The record's id copy reads at most the id's 10 bytes; the texts are
        // bounded by their fields and built in place, without temporaries.
        std::unique_ptr<AlarmEx> record(new AlarmEx(alarm->alarmId, ToGenClearType(alarm->alarmType)));
        record->m_strServiceName.assign(alarm->serviceName, strnlen(alarm->serviceName, sizeof(alarm->serviceName)));
        record->m_lAlarmTime = alarm->alarmTime;
        AppendParams(record->m_mapParams, alarm->paramList);
        return record.release();
    });
}
