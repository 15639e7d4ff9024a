// Builds the alarm definitions from the parsed XML document, sets the
// configuration paths, and answers the look-ups over the loaded definitions.
#include "AlarmBuildAlarmConfInfo.h"

#include <sys/time.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "AlmLog.h"
#include "bounded_string.h"

using xercesc::DOMElement;
using xercesc::DOMNode;
using xercesc::DOMNodeList;
using xercesc::XMLString;

ALMCfgItems g_stCfgParaInfo = {};
uint64_t g_uiInitFlag = 0;
char ALARM_LANG_CONFIG_CH_PATH[ALM_CONF_PATH_SIZE] = {};
char ALARM_LANG_CONFIG_EN_PATH[ALM_CONF_PATH_SIZE] = {};

const char* ALARM = "Alarm";
const char* ALARM_ID = "AlarmID";
const char* ALARM_TYPE = "AlarmType";
const char* ALARM_LEVEL = "AlarmLevel";
const char* ALARM_PARAMS = "Params";
const char* ALARM_IS_GLOBAL = "IsGlobal";
const char* ALARM_EVENT_TYPE = "EventType";
const char* ALARM_CLEAN = "IsAutoClean";
const char* ALARM_SERVICE_TYPE = "ServiceType";
const char* ALARM_CHECK = "IsCheck";
const char* ALARM_TOGGLE_PARA = "ToggleParams";

namespace {

constexpr const char* kLogSource = "../src/AlarmBuildAlarmConfInfo";

// Texts read from the document are kept up to this many characters.
constexpr size_t kTextMax = 127;
// Parameter fields are copied with this destination size:
// a text of 127 characters is refused and leaves the field empty.
constexpr size_t kFieldBound = ALM_CONF_TEXT_SIZE - 1;
// Language keys are formatted into buffers of this size; keys and alarm
// names hold at most kNameMax characters.
constexpr size_t kKeyBufSize = 127;
constexpr size_t kNameMax = kKeyBufSize - 1;
// What the enumeration key message reports as the limit.
constexpr int kReportedKeyLimit = 128;

struct XmlCharRelease {
    void operator()(char* p) const { XMLString::release(&p); }
};
using XmlChars = std::unique_ptr<char, XmlCharRelease>;

// Local-code-page copies of the parser's texts; empty when transcoding fails.
XmlChars Transcoded(const XMLCh* text) { return XmlChars(text == nullptr ? nullptr : XMLString::transcode(text)); }
XmlChars TextOf(const DOMNode* node) { return Transcoded(node->getTextContent()); }
XmlChars NameOf(const DOMNode* node) { return Transcoded(node->getNodeName()); }

bool IsElement(const DOMNode* node) { return node->getNodeType() == DOMNode::ELEMENT_NODE; }

bool NameIs(const XmlChars& name, const char* expected) {
    return name != nullptr && std::strcmp(name.get(), expected) == 0;
}

unsigned long CountElementChildren(const DOMNode* node) {
    unsigned long count = 0;
    for (const DOMNode* child = node->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
        count += IsElement(child) ? 1 : 0;
    }
    return count;
}

// Copies at most kTextMax characters of text, cutting a longer one.
void KeepText(char (&dest)[ALM_CONF_TEXT_SIZE], const char* text) {
    (void)strncpy_s(dest, sizeof(dest), text, kTextMax);
}

// The bounded copy of parameter and enumeration fields: all or nothing.
void CopyField(char* dest, const char* src) { (void)strncpy_s(dest, kFieldBound, src, std::strlen(src)); }

// English and Chinese texts of key into the two fields.
void CopyLanguageTexts(const char* key, char* enDest, char* zhDest) {
    CopyField(enDest, ALM_GetConfigVar(ALARM_LANG_CONFIG_EN_PATH, key, true).c_str());
    CopyField(zhDest, ALM_GetConfigVar(ALARM_LANG_CONFIG_CH_PATH, key, false).c_str());
}

// Walks list and the definitions side by side, the n-th element to the n-th
// definition, by position alone. `store` gets each element and returns false
// to end the pass; running out of definitions ends it too.
template <typename Store>
void PairByPosition(DOMNodeList* list, stAlarmItems* head, const char* breakMessage, Store store) {
    const XMLSize_t length = list->getLength();
    stAlarmItems* item = head;
    for (XMLSize_t i = 0; i < length; ++i) {
        if (item == nullptr) {
            if (breakMessage != nullptr) {
                ALM_LOG_ERROR(breakMessage, static_cast<unsigned long>(i));
            }
            break;
        }
        if (!store(list->item(i), item, static_cast<unsigned long>(i))) {
            break;
        }
        item = item->next;
    }
}

// A field pass: the elements named element, or noListMessage without them.
template <typename Store>
void RunPass(DOMElement* root, stAlarmItems* head, const char* element, const char* noListMessage,
             const char* breakMessage, Store store) {
    DOMNodeList* list = ALM_GetNodeListByElements(root, element);
    if (list == nullptr) {
        ALM_LOG_ERROR("%s", noListMessage);
        return;
    }
    PairByPosition(list, head, breakMessage, store);
}

// The passes that store atoi of the text into one number of the definition.
struct NumberPass {
    const char* const* element;
    const char* noListMessage;
    const char* invalidMessage;
    int64_t stAlarmItems::*field;
};

void BuildNumberField(DOMElement* root, stAlarmItems* head, const NumberPass& pass) {
    RunPass(root, head, *pass.element, pass.noListMessage, nullptr,
            [&pass](DOMNode* node, stAlarmItems* item, unsigned long index) {
                const XmlChars text = TextOf(node);
                if (text == nullptr) {
                    ALM_LOG_ERROR(pass.invalidMessage, index);
                    return false;
                }
                item->*pass.field = std::atoi(text.get());
                return true;
            });
}

// Shares the alarm type pass's messages.
void BuildServiceType(DOMElement* root, stAlarmItems* head) {
    RunPass(root, head, ALARM_SERVICE_TYPE, "get  ALARM_TYPE_XPATH fail!", nullptr,
            [](DOMNode* node, stAlarmItems* item, unsigned long index) {
                const XmlChars text = TextOf(node);
                if (text == nullptr) {
                    ALM_LOG_ERROR("index=%lu,  alarmtype invalid!", index);
                    return false;
                }
                (void)strncpy_s(item->serviceType, sizeof(item->serviceType), text.get(), std::strlen(text.get()));
                return true;
            });
}

void BuildParams(DOMElement* root, stAlarmItems* head) {
    RunPass(root, head, ALARM_PARAMS, "get  ALARM_PARAMS_XPATH fail!", "[classid= %lu] break!",
            [](DOMNode* params, stAlarmItems* item, unsigned long index) {
                const unsigned long count = CountElementChildren(params);
                if (count == 0) {
                    return true;
                }
                auto* paras = static_cast<stParaDef*>(std::calloc(count, sizeof(stParaDef)));
                if (paras == nullptr) {
                    ALM_LOG_ERROR("index =%d,Failed to alloc memory for tmp->pObjPara!", static_cast<int>(index));
                    return false;
                }
                item->params = paras;
                item->paramNum = static_cast<int64_t>(count);
                int64_t paraIndex = 0;
                for (DOMNode* para = params->getFirstChild(); para != nullptr; para = para->getNextSibling()) {
                    if (!IsElement(para)) {
                        continue;
                    }
                    for (DOMNode* field = para->getFirstChild(); field != nullptr; field = field->getNextSibling()) {
                        if (IsElement(field)) {
                            ALM_GetAlarmParaValue(field, item, paraIndex);
                        }
                    }
                    ++paraIndex;
                }
                return true;
            });
}

void BuildToggleParams(DOMElement* root, stAlarmItems* head) {
    RunPass(root, head, ALARM_TOGGLE_PARA, "get  ALARM_TOGGLE_PARA_XPATH fail!", "[classid= %lu] break!",
            [](DOMNode* toggle, stAlarmItems* item, unsigned long) {
                ALM_GetToggleParaValue(toggle, item);
                return true;
            });
}

const NumberPass kAlarmType = {&ALARM_TYPE, "get  ALARM_TYPE_XPATH fail!", "index=%lu,  alarmtype invalid!",
                               &stAlarmItems::alarmType};
const NumberPass kAlarmLevel = {&ALARM_LEVEL, "get  ALARM_LEVEL_XPATH fail!", "index=%lu,  AlarmLevel invalid!",
                                &stAlarmItems::alarmLevel};
const NumberPass kIsGlobal = {&ALARM_IS_GLOBAL, "get  ALARM_IS_GLOBAL_XPATH fail!", "index=%lu,  IsGlobal invalid!",
                              &stAlarmItems::isGlobal};
const NumberPass kEventType = {&ALARM_EVENT_TYPE, "get  ALARM_EVENT_TYPE_XPATH fail!",
                               "index=%lu,  EventType invalid!", &stAlarmItems::eventType};
const NumberPass kIsAutoClean = {&ALARM_CLEAN, "get  ALARM_CLEAN_XPATH fail!", "index=%lu,  IsAutoClean invalid!",
                                 &stAlarmItems::isAutoClean};
const NumberPass kIsCheck = {&ALARM_CHECK, "get  ALARM_CHECK_XPATH fail!", "index=%lu,  IsCheck invalid!",
                             &stAlarmItems::isCheck};

void FreeItems(stAlarmItems* head) {
    while (head != nullptr) {
        stAlarmItems* next = head->next;
        for (int64_t i = 0; head->params != nullptr && i < head->paramNum; ++i) {
            std::free(head->params[i].enumValues);
        }
        std::free(head->params);
        std::free(head);
        head = next;
    }
}

// Loaded state is published with release/acquire so a look-up on another
// thread that sees the flag also sees the whole list.
bool Loaded() { return __atomic_load_n(&g_uiInitFlag, __ATOMIC_ACQUIRE) != 0; }

void LoadIfNeeded() {
    if (!Loaded()) {
        ALM_ConfInit();
    }
}

}  // namespace

extern "C" {

uint64_t ALM_GetCurrMs() {
    struct timeval now = {};
    (void)gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_usec) / 1000u;
}

DOMNodeList* ALM_GetNodeListByElements(DOMElement* root, const char* name) {
    if (root == nullptr || name == nullptr) {
        ALM_LOG_ERROR("ALM_GetNodeListByElements pRoot || pElementsName is NULL");
        return nullptr;
    }
    XMLCh* wide = XMLString::transcode(name);
    if (wide == nullptr) {
        ALM_LOG_ERROR("In %s, pTmpStr is null!", "ALM_GetNodeListByElements");
        return nullptr;
    }
    DOMNodeList* list = root->getElementsByTagName(wide);
    XMLString::release(&wide);
    return list;
}

stAlarmItems* ALM_BuildStructInit(unsigned long count) {
    stAlarmItems* head = nullptr;
    stAlarmItems* tail = nullptr;
    for (unsigned long i = 0; i < count; ++i) {
        auto* item = static_cast<stAlarmItems*>(std::calloc(1, sizeof(stAlarmItems)));
        if (item == nullptr) {
            FreeItems(head);
            return nullptr;
        }
        if (head == nullptr) {
            ALM_LOG_ERROR("ALM_BuildStructInit, i=%d,item=%p\n", static_cast<int>(i), static_cast<void*>(item));
            head = item;
        } else {
            ALM_LOG_ERROR("ALM_BuildStructInit,head not null , i=%lu,item=%p\n", i, static_cast<void*>(item));
            tail->next = item;
        }
        tail = item;
    }
    ALM_LOG_INFO("ALM_BuildStructInit success, Alarms number is %d\n", static_cast<int>(count));
    return head;
}

void ALM_BuildAlarmID(DOMElement* root, stAlarmItems* head) {
    DOMNodeList* list = ALM_GetNodeListByElements(root, ALARM_ID);
    if (list == nullptr) {
        ALM_LOG_ERROR("nodeList is NULL!");
        return;
    }
    ALM_LOG_INFO("ALM_BuildAlarmID::classnum=%d !\n", static_cast<int>(list->getLength()));
    PairByPosition(list, head, "ALM_BuildAlarmID::id=%lu break!",
                   [](DOMNode* node, stAlarmItems* item, unsigned long index) {
                       const XmlChars text = TextOf(node);
                       if (text == nullptr) {
                           ALM_LOG_ERROR("index=%d,  alarmtype invalid!", static_cast<int>(index));
                           return false;
                       }
                       item->alarmId = std::atoi(text.get());
                       char key[kKeyBufSize] = {};
                       if (snprintf_s(key, sizeof(key), kNameMax, "%d_ALARMNAME", static_cast<int>(item->alarmId)) <
                           0) {
                           ALM_LOG_ERROR("ALM_BuildAlarmID ALM_GetConfigVar Error, alarmIDDes is %s", key);
                           return true;
                       }
                       const std::string en = ALM_GetConfigVar(ALARM_LANG_CONFIG_EN_PATH, key, true);
                       const std::string zh = ALM_GetConfigVar(ALARM_LANG_CONFIG_CH_PATH, key, false);
                       // A longer name is cut, not refused.
                       (void)snprintf_s(item->alarmName, sizeof(item->alarmName), kNameMax, "EN:%s##ZH:%s##",
                                        en.c_str(), zh.c_str());
                       return true;
                   });
}

void ALM_GetParamName(stParaDef* para, int64_t alarmId, const char* name) {
    if (para == nullptr || name == nullptr) {
        return;
    }
    CopyField(para->paramName, name);
    char key[2 * ALM_CONF_TEXT_SIZE] = {};
    (void)snprintf_s(key, sizeof(key), sizeof(key) - 1, "%d_%s", static_cast<int>(alarmId), name);
    CopyLanguageTexts(key, para->paramEnName, para->paramChName);
}

void ALM_GetAlarmParaValue(DOMNode* node, stAlarmItems* item, int64_t index) {
    if (node == nullptr || item == nullptr || node->getNodeName() == nullptr || index < 0 ||
        index >= item->paramNum) {
        ALM_LOG_ERROR("ALM_GetAlarmParaValue:: input grandson=%p, pAlarmItem=%p  is null!, [index= %d]  is larger "
                      "than %d ",
                      static_cast<void*>(node), static_cast<void*>(item), static_cast<int>(index),
                      item == nullptr ? 0 : static_cast<int>(item->paramNum));
        return;
    }
    const XmlChars name = NameOf(node);
    if (name == nullptr) {
        ALM_LOG_ERROR("ALM_GetFieldStringValue:: grandson->name=%s is null!", "(null)");
        return;
    }
    char text[ALM_CONF_TEXT_SIZE] = {};
    if (!NameIs(name, "Enum") && !NameIs(name, "Bit")) {
        const XmlChars full = TextOf(node);
        KeepText(text, full == nullptr ? "" : full.get());
    }
    stParaDef& para = item->params[index];
    if (NameIs(name, "ParamName")) {
        ALM_GetParamName(&para, item->alarmId, text);
    } else if (NameIs(name, "ParamType")) {
        CopyField(para.paramType, text);
    } else if (NameIs(name, "ParamLen")) {
        para.paramLen = std::atoi(text);
    } else if (NameIs(name, "ParamClass")) {
        para.paramClass = std::atoi(text);
    } else if (NameIs(name, "ENUM") || NameIs(name, "Bit")) {
        int64_t count = 0;
        stEnumBitDef* values = ALM_GetFieldEnumValue(node->getFirstChild(), &count, item->alarmId);
        std::free(para.enumValues);  // a second enumeration element replaces the first
        para.enumValues = values;
        para.enumNum = count;
    } else {
        ALM_LOG_ERROR("name : %s invalid!!", name.get());
    }
}

void ALM_GetToggleParaValue(DOMNode* toggle, stAlarmItems* item) {
    if (toggle == nullptr || item == nullptr) {
        return;
    }
    static const struct {
        const char* name;
        int64_t stAlarmItems::*field;
    } kToggles[] = {
        {"TransientPeriod", &stAlarmItems::transientPeriod},
        {"ToggleStartPeriod", &stAlarmItems::toggleStartPeriod},
        {"ToggleEndPeriod", &stAlarmItems::toggleEndPeriod},
        {"ToggleThreshold", &stAlarmItems::toggleThreshold},
    };
    for (DOMNode* child = toggle->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
        if (!IsElement(child)) {
            continue;
        }
        const XmlChars name = NameOf(child);
        bool known = false;
        for (const auto& toggleField : kToggles) {
            if (NameIs(name, toggleField.name)) {
                const XmlChars text = TextOf(child);
                item->*toggleField.field = text == nullptr ? -1 : std::atoi(text.get());
                known = true;
                break;
            }
        }
        if (!known) {
            ALM_LOG_ERROR("ALM_GetToggleParaValue,pCmdValue=%s invalid.\n", name == nullptr ? "(null)" : name.get());
        }
    }
}

DOMNode* ALM_GetEnumKey(DOMNode* firstChild, char* enumType, size_t enumTypeSize) {
    for (DOMNode* node = firstChild; node != nullptr; node = node->getNextSibling()) {
        if (!IsElement(node)) {
            continue;
        }
        const XmlChars name = NameOf(node);
        if (NameIs(name, "EnumType")) {
            const XmlChars text = TextOf(node);
            (void)strncpy_s(enumType, enumTypeSize, text == nullptr ? "" : text.get(), kTextMax);
            ALM_LOG_INFO("DEBUG_LOG EnumType=%s!", enumType);
        } else if (NameIs(name, "Values")) {
            ALM_LOG_INFO("start to get values");
            return node;
        }
    }
    ALM_LOG_ERROR("ALM_GetFieldEnumValue::enumNod cannot find Values item.");
    return nullptr;
}

int64_t ALM_CountEnumNum(DOMNode* enumNode, DOMNode* values) {
    if (enumNode == nullptr || values == nullptr) {
        ALM_LOG_ERROR("ALM_CountEnumNum valueNodeItem || enumNodeTmp is NULL");
        return 0;
    }
    return static_cast<int64_t>(CountElementChildren(values));
}

int64_t ALM_ReadEnumItem(DOMNode* values, stEnumBitDef* out, const char* enumType, int64_t alarmId) {
    char valueText[ALM_CONF_TEXT_SIZE] = {};
    KeepText(valueText, enumType);  // an entry without children before any other reuses the type
    int64_t count = 0;
    for (DOMNode* entry = values->getFirstChild(); entry != nullptr; entry = entry->getNextSibling()) {
        if (!IsElement(entry)) {
            continue;
        }
        DOMNode* first = entry->getFirstChild();
        while (first != nullptr && !IsElement(first)) {
            first = first->getNextSibling();
        }
        if (first != nullptr) {
            const XmlChars text = TextOf(first);
            if (text == nullptr) {
                const XmlChars name = NameOf(entry);
                ALM_LOG_ERROR("pCmdValue is null , is %s", name == nullptr ? "(null)" : name.get());
                continue;
            }
            KeepText(valueText, text.get());
        }
        char key[kKeyBufSize] = {};
        if (snprintf_s(key, sizeof(key), kNameMax, "%ld_%s_%s", static_cast<long>(alarmId), enumType,
                       valueText) < 0) {
            ALM_LOG_ERROR("cmdValue::enumType,cmdValue=%s,cmdValue=%s is bigger than %d!\n", enumType, valueText,
                          kReportedKeyLimit);
            return -1;
        }
        stEnumBitDef& def = out[count];
        const std::string en = ALM_GetConfigVar(ALARM_LANG_CONFIG_EN_PATH, key, true);
        const std::string zh = ALM_GetConfigVar(ALARM_LANG_CONFIG_CH_PATH, key, false);
        (void)strncpy_s(def.enName, sizeof(def.enName), en.c_str(), kTextMax);
        (void)strncpy_s(def.chName, sizeof(def.chName), zh.c_str(), kTextMax);
        def.value = std::atoi(valueText);
        ++count;
    }
    return count;
}

stEnumBitDef* ALM_GetFieldEnumValue(DOMNode* firstChild, int64_t* count, int64_t alarmId) {
    if (firstChild == nullptr || count == nullptr) {
        ALM_LOG_ERROR("ALM_GetFieldEnumValue:: input enumNode=%p, pEnumNum=%p is null!",
                      static_cast<void*>(firstChild), static_cast<void*>(count));
        return nullptr;
    }
    char enumType[ALM_CONF_TEXT_SIZE] = {};
    DOMNode* values = ALM_GetEnumKey(firstChild, enumType, sizeof(enumType));
    if (values == nullptr) {
        return nullptr;
    }
    const int64_t capacity = ALM_CountEnumNum(firstChild, values);
    // Freed also when reading the texts runs out of memory.
    std::unique_ptr<stEnumBitDef, void (*)(void*)> entries(
        static_cast<stEnumBitDef*>(std::calloc(static_cast<size_t>(capacity > 0 ? capacity : 1), sizeof(stEnumBitDef))),
        &std::free);
    if (entries == nullptr) {
        ALM_LOG_ERROR("Failed to alloc memory for pObjPara.OOM!");
        return nullptr;
    }
    const int64_t read = ALM_ReadEnumItem(values, entries.get(), enumType, alarmId);
    if (read < 0) {
        return nullptr;
    }
    *count = read;
    return entries.release();
}

int ALM_BuildConfInfoFromXml(DOMElement* root, ALMCfgItems* cfg) {
    if (root == nullptr || cfg == nullptr) {
        ALM_LOG_ERROR("ALM_BuildConfInfoFromXml head,pRoot IS NULL!\n");
        return -1;
    }
    // Freed when a step runs out of memory part way: the next load builds afresh.
    std::unique_ptr<stAlarmItems, void (*)(stAlarmItems*)> list(ALM_BuildStructInit(CountElementChildren(root)),
                                                                &FreeItems);
    stAlarmItems* head = list.get();
    if (head == nullptr) {
        ALM_LOG_ERROR(".ALM_BuildConfInfoFromXml init fail!\n");
        return -1;
    }
    ALM_BuildAlarmID(root, head);
    BuildNumberField(root, head, kAlarmType);
    BuildNumberField(root, head, kAlarmLevel);
    BuildNumberField(root, head, kIsGlobal);
    BuildNumberField(root, head, kEventType);
    BuildParams(root, head);
    BuildToggleParams(root, head);
    BuildNumberField(root, head, kIsAutoClean);
    BuildServiceType(root, head);
    BuildNumberField(root, head, kIsCheck);
    cfg->head = list.release();
    return 0;
}

void ALM_FreeConfInfo(void) {
    FreeItems(g_stCfgParaInfo.head);
    g_stCfgParaInfo.head = nullptr;
    __atomic_store_n(&g_uiInitFlag, 0, __ATOMIC_RELEASE);
}

void ALM_SetConfFilePath(char* xmlPath) {
    if (xmlPath == nullptr) {
        ALM_LOG_ERROR("In %s, xmlPath is null!", "ALM_SetConfFilePath");
        return;
    }
    size_t len = std::strlen(xmlPath);
    while (len > 0 && xmlPath[len - 1] == '/') {
        xmlPath[--len] = '\0';
    }
    const char* lastSlash = std::strrchr(xmlPath, '/');
    const size_t dirLen = lastSlash == nullptr ? 0 : static_cast<size_t>(lastSlash - xmlPath);
    char configDir[ALM_CONF_PATH_SIZE] = {};
    int err = strncpy_s(configDir, sizeof(configDir), xmlPath, dirLen);
    if (err != 0) {
        ALM_LOG_ERROR("ALM_SetConfFilePath configPath strncpy_s failed, err = %d", err);
        return;
    }
    char chPath[ALM_CONF_PATH_SIZE] = {};
    char enPath[ALM_CONF_PATH_SIZE] = {};
    // Only a result of 0 counts as failure here; a cut path fails realpath below.
    err = snprintf_s(chPath, sizeof(chPath), sizeof(chPath) - 1, "%s/zh_CN/language.properties", configDir);
    if (err == 0) {
        ALM_LOG_ERROR("ALM_SetConfFilePath ALARM_LANG_CONFIG_CH_PATH snprintf_s failed, err = %d", err);
        return;
    }
    err = snprintf_s(enPath, sizeof(enPath), sizeof(enPath) - 1, "%s/en_US/language.properties", configDir);
    if (err == 0) {
        ALM_LOG_ERROR("ALM_SetConfFilePath ALARM_LANG_CONFIG_EN_PATH snprintf_s failed, err = %d", err);
        return;
    }
    ALM_LOG_INFO("input Chlanguage.properties Path is %s", chPath);
    ALM_LOG_INFO("input Enlanguage.properties Path is %s", enPath);
    // realpath writes at most PATH_MAX bytes, the size of the path arrays.
    static_assert(ALM_CONF_PATH_SIZE >= PATH_MAX, "language path arrays must hold a resolved path");
    char resolved[ALM_CONF_PATH_SIZE] = {};
    if (realpath(chPath, resolved) == nullptr) {
        ALM_LOG_ERROR("input Chlanguage.properties is not realpath!");
        return;
    }
    std::memcpy(ALARM_LANG_CONFIG_CH_PATH, resolved, sizeof(resolved));
    if (realpath(enPath, resolved) == nullptr) {
        ALM_LOG_ERROR("input Enlanguage.properties is not realpath!");
        return;
    }
    std::memcpy(ALARM_LANG_CONFIG_EN_PATH, resolved, sizeof(resolved));
    (void)strncpy_s(g_stCfgParaInfo.configPath, sizeof(g_stCfgParaInfo.configPath), xmlPath,
                    sizeof(g_stCfgParaInfo.configPath));
    g_stCfgParaInfo.configPath[sizeof(g_stCfgParaInfo.configPath) - 1] = '\0';
    ALM_LOG_INFO("the real g_stCfgParaInfo.config path is  %s", g_stCfgParaInfo.configPath);
    ALM_LOG_INFO("the real english properties path is  %s", ALARM_LANG_CONFIG_EN_PATH);
    ALM_LOG_INFO("the real chinese properties path is  %s", ALARM_LANG_CONFIG_CH_PATH);
}

void ALM_RsetConf(const char* serviceId, const char* serviceInsId, long resetClear) {
    for (stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr; item = item->next) {
        if (serviceId != nullptr) {
            (void)strncpy_s(item->serviceId, sizeof(item->serviceId), serviceId, std::strlen(serviceId));
            item->serviceId[sizeof(item->serviceId) - 1] = '\0';
        }
        if (serviceInsId != nullptr) {
            (void)strncpy_s(item->serviceInsId, sizeof(item->serviceInsId), serviceInsId, std::strlen(serviceInsId));
            item->serviceInsId[sizeof(item->serviceInsId) - 1] = '\0';
        }
        item->rsetClear = resetClear;
    }
}

long ALM_GetAlarmConfigInfo(long alarmId, stAlarmItems** out) {
    if (out == nullptr) {
        ALM_LOG_ERROR("ALM_GetAlarmConfigInfo pAlarmitems IS NULL!\n");
        return 1;
    }
    LoadIfNeeded();
    for (stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr; item = item->next) {
        if (item->alarmId == alarmId) {
            *out = item;
            break;
        }
    }
    return 0;
}

long ALM_GetAlarmParaLengthbyAlarmId(long alarmId) {
    stAlarmItems* item = nullptr;
    (void)ALM_GetAlarmConfigInfo(alarmId, &item);
    if (item == nullptr) {
        return -1;
    }
    long length = 0;
    for (int64_t i = 0; item->params != nullptr && i < item->paramNum; ++i) {
        length += static_cast<long>(item->params[i].paramLen);
    }
    return length;
}

uint64_t ALM_GetAlarmMaxAlarmId(void) {
    LoadIfNeeded();
    uint64_t maxId = 0;
    for (const stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr; item = item->next) {
        const auto id = static_cast<uint64_t>(item->alarmId);
        maxId = id > maxId ? id : maxId;
    }
    return maxId;
}

std::list<std::string> ALM_GetServiceNames(void) {
    LoadIfNeeded();
    std::list<std::string> names;
    for (const stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr; item = item->next) {
        names.emplace_back(item->serviceType);
    }
    return names;
}

std::list<std::string> ALM_GetAlarmIds(void) {
    LoadIfNeeded();
    std::list<std::string> ids;
    for (const stAlarmItems* item = g_stCfgParaInfo.head; item != nullptr; item = item->next) {
        ids.push_back(lltos(item->alarmId));
    }
    return ids;
}

std::string lltos(long long value) {
    char text[10] = {};
    if (snprintf_s(text, sizeof(text), sizeof(text) - 1, "%lld", value) < 0) {
        return std::string();
    }
    return text;
}

}  // extern "C"
