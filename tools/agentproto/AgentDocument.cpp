#include "AgentDocument.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace nodeward {

namespace {

struct JsonDeleter {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

std::string PrintCompact(const cJSON* item) {
    char* text = cJSON_PrintUnformatted(item);
    if (text == nullptr) {
        return std::string();
    }
    std::string out(text);
    cJSON_free(text);
    return out;
}

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The 6-bit value of an alphabet character, -1 for anything else.
int SextetOf(unsigned char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : (c == '/' ? 63 : -1);
}

const cJSON* Member(const cJSON* object, const char* key) { return cJSON_GetObjectItemCaseSensitive(object, key); }

// Numbers arrive as doubles; anything else (or out of range) leaves *out alone.
bool NumberOf(const cJSON* item, int64_t* out) {
    if (!cJSON_IsNumber(item) || !std::isfinite(item->valuedouble) || std::fabs(item->valuedouble) > 9.2e18) {
        return false;
    }
    *out = static_cast<int64_t>(item->valuedouble);
    return true;
}

// Strings as they are; numbers as the integer people would expect to read.
std::string TextOf(const cJSON* item) {
    if (cJSON_IsString(item)) {
        return item->valuestring;
    }
    int64_t number = 0;
    if (NumberOf(item, &number)) {
        return std::to_string(number);
    }
    return std::string();
}

void ReadNumber(const cJSON* object, const char* key, int64_t* out) { NumberOf(Member(object, key), out); }

// Only what identifies the sender: enough to call its service back.
ReceivedAlarm ReadSender(const cJSON* object, bool legacy) {
    ReceivedAlarm alarm;
    alarm.legacy = legacy;
    alarm.appId = TextOf(Member(object, "appId"));
    alarm.serviceName = TextOf(Member(object, "serviceName"));
    alarm.serviceIp = TextOf(Member(object, "serviceIp"));
    if (!legacy) {
        ReadNumber(object, "servicePort", &alarm.servicePort);
    }
    return alarm;
}

bool SameSender(const ReceivedAlarm& a, const ReceivedAlarm& b) {
    return a.servicePort == b.servicePort && a.serviceName == b.serviceName && a.serviceIp == b.serviceIp &&
           a.appId == b.appId;
}

ReceivedAlarm ReadAlarm(const cJSON* object, bool legacy) {
    ReceivedAlarm alarm = ReadSender(object, legacy);
    alarm.json = PrintCompact(object);
    for (const cJSON* item = object->child; item != nullptr; item = item->next) {
        alarm.keys.push_back(item->string != nullptr ? item->string : "");
    }
    alarm.alarmId = TextOf(Member(object, "alarmId"));
    ReadNumber(object, "rsetClear", &alarm.rsetClear);
    ReadNumber(object, "occurTime", &alarm.occurTime);
    if (!legacy) {
        ReadNumber(object, "alarmType", &alarm.alarmType);
        alarm.serviceLabel = TextOf(Member(object, "serviceLabel"));
        alarm.serviceId = TextOf(Member(object, "serviceId"));
        alarm.serviceInstId = TextOf(Member(object, "serviceInstId"));
        alarm.nodeIp = TextOf(Member(object, "nodeIp"));
        const cJSON* parameters = Member(object, "parameters");
        if (cJSON_IsArray(parameters)) {
            for (const cJSON* p = parameters->child; p != nullptr; p = p->next) {
                alarm.parameters.emplace_back(TextOf(Member(p, "paramName")), TextOf(Member(p, "paramValue")));
            }
        }
        return alarm;
    }
    alarm.alarmName = TextOf(Member(object, "alarmName"));
    alarm.location = TextOf(Member(object, "location"));
    alarm.appendInfo = TextOf(Member(object, "appendInfo"));
    ReadNumber(object, "alarmGenTime", &alarm.genTime);
    ReadNumber(object, "alarmClearTime", &alarm.clearTime);
    ReadNumber(object, "alarmLevel", &alarm.alarmLevel);
    ReadNumber(object, "alarmEventType", &alarm.eventType);
    alarm.serviceId = TextOf(Member(object, "serviceID"));
    alarm.serviceInstId = TextOf(Member(object, "serviceInstID"));
    alarm.nodeIp = TextOf(Member(object, "NodeIp"));
    int64_t genClear = -1;
    if (NumberOf(Member(object, "genClearAlarmType"), &genClear)) {
        alarm.alarmType = genClear == 0 ? 1 : (genClear == 1 ? 2 : 0);
        if (Member(object, "occurTime") == nullptr) {
            ReadNumber(object, genClear == 1 ? "alarmClearTime" : "alarmGenTime", &alarm.occurTime);
        }
    }
    const cJSON* clearList = Member(object, "restClearAlarmList");
    if (cJSON_IsArray(clearList)) {
        for (const cJSON* entry = clearList->child; entry != nullptr; entry = entry->next) {
            alarm.clearAlarmIds.push_back(TextOf(Member(entry, "alarmId")));
        }
    }
    return alarm;
}

std::string EncodeJson(cJSON* root) {
    JsonPtr owner(root);
    return EncodeBase64(PrintCompact(root));
}

}  // namespace

std::string EncodeBase64(const std::string& plain) {
    std::string out;
    out.reserve((plain.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < plain.size(); i += 3) {
        const std::size_t n = plain.size() - i < 3 ? plain.size() - i : 3;
        uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group = (group << 8) | (k < n ? static_cast<unsigned char>(plain[i + k]) : 0u);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            out += k <= n ? kAlphabet[(group >> (18 - 6 * k)) & 63] : '=';
        }
    }
    return out;
}

bool DecodeBase64(const std::string& text, std::string* plain, std::string* reason) {
    std::string ignored;
    std::string& why = reason != nullptr ? *reason : ignored;
    if (text.empty()) {
        why = "body is empty";
        return false;
    }
    if (text.size() % 4 != 0) {
        why = "body length " + std::to_string(text.size()) + " is not a multiple of 4";
        return false;
    }
    const std::size_t n = text.size();
    const std::size_t pad = text[n - 1] != '=' ? 0 : (text[n - 2] == '=' ? 2 : 1);
    std::string out;
    out.reserve(n / 4 * 3);
    uint32_t group = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        int value = SextetOf(c);
        if (value < 0 && c == '=' && i >= n - pad) {
            value = 0;
        } else if (value < 0) {
            char code[8];
            std::snprintf(code, sizeof(code), "0x%02x", c);
            why = c == '=' ? "padding '=' before the end at offset " + std::to_string(i)
                           : std::string("byte ") + code + " at offset " + std::to_string(i) + " is not base64";
            return false;
        }
        group = (group << 6) | static_cast<uint32_t>(value);
        if (i % 4 == 3) {
            const std::size_t bytes = i == n - 1 ? 3 - pad : 3;
            // Bits the padding leaves over must be zero: one text per byte sequence.
            if ((group & ((1u << (8 * (3 - bytes))) - 1)) != 0) {
                why = "nonzero bits under the padding at offset " + std::to_string(i);
                return false;
            }
            for (std::size_t k = 0; k < bytes; ++k) {
                out += static_cast<char>((group >> (16 - 8 * k)) & 0xFF);
            }
            group = 0;
        }
    }
    *plain = std::move(out);
    return true;
}

PushDocument ReadPushBody(const std::string& body, PushReading reading) {
    PushDocument doc;
    std::string decoded;
    if (!DecodeBase64(body, &decoded, &doc.reason)) {
        return doc;
    }
    doc.decoded = std::move(decoded);
    if (std::memchr(doc.decoded.data(), '\0', doc.decoded.size()) != nullptr) {
        doc.reason = "decoded text holds a zero byte";
        return doc;
    }
    // Trailing text after the document is refused: it would hide a sender bug.
    JsonPtr root(cJSON_ParseWithOpts(doc.decoded.c_str(), nullptr, 1));
    if (!root) {
        doc.reason = "decoded text is not JSON";
        return doc;
    }
    if (!cJSON_IsObject(root.get())) {
        doc.reason = "document is not a JSON object";
        return doc;
    }
    if (reading.compact) {
        doc.compact = PrintCompact(root.get());
    }
    const bool current = Member(root.get(), "Receiver") != nullptr;
    doc.legacy = !current && Member(root.get(), "service") != nullptr;
    if (!current && !doc.legacy) {
        doc.reason = "document has neither \"Receiver\" nor \"service\"";
        return doc;
    }
    const cJSON* alarmList = Member(Member(root.get(), "payload"), "alarmList");
    if (!cJSON_IsArray(alarmList)) {
        doc.reason = "document has no \"payload\".\"alarmList\" array";
        return doc;
    }
    for (const cJSON* item = alarmList->child; item != nullptr; item = item->next) {
        if (!cJSON_IsObject(item)) {
            doc.alarms.clear();
            doc.alarmCount = 0;
            doc.reason = "\"alarmList\" holds something other than an object";
            return doc;
        }
        ++doc.alarmCount;
        if (reading.fullAlarms) {
            doc.alarms.push_back(ReadAlarm(item, doc.legacy));
            continue;
        }
        // A batch comes from one sender: keep it once, not once per alarm.
        ReceivedAlarm sender = ReadSender(item, doc.legacy);
        if (doc.alarms.empty() || !SameSender(doc.alarms.back(), sender)) {
            doc.alarms.push_back(std::move(sender));
        }
    }
    doc.ok = true;
    return doc;
}

namespace {

std::string Answer(bool legacy, const char* legacyCode, int retCode) {
    cJSON* root = cJSON_CreateObject();
    if (legacy) {
        cJSON_AddStringToObject(root, "returncode", legacyCode);
    } else {
        cJSON_AddNumberToObject(root, "retCode", retCode);
    }
    return EncodeJson(root);
}

}  // namespace

// Built once: every accepted request gets the same answer.
std::string SuccessAnswer(bool legacy) {
    static const std::string current = Answer(false, "OK", 0);
    static const std::string older = Answer(true, "OK", 0);
    return legacy ? older : current;
}

std::string FailureAnswer(bool legacy) { return Answer(legacy, "Failed", 1); }

std::string RefusalAnswer(const std::string& reason) {
    cJSON* root = cJSON_CreateObject();
    cJSON_AddNumberToObject(root, "retCode", 1);
    cJSON_AddStringToObject(root, "retDesc", reason.c_str());
    return EncodeJson(root);
}

}  // namespace nodeward
