#include "DefinitionCheck.h"

#include <sys/stat.h>
#include <xercesc/util/PlatformUtils.hpp>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "AlarmConfig.h"
#include "LanguageFile.h"

namespace alarmdef {

namespace {

// The elements the loader pairs with definitions by position alone.
const char* const kPaired[] = {"AlarmID",   "AlarmType",   "ServiceType", "AlarmLevel", "IsGlobal",
                               "EventType", "IsAutoClean", "IsCheck",     "Params"};
const char* const kToggles[] = {"TransientPeriod", "ToggleStartPeriod", "ToggleEndPeriod", "ToggleThreshold"};
// Read with atoi wherever they are.
const char* const kNumbers[] = {
    "AlarmID",  "AlarmType",  "AlarmLevel",      "IsGlobal",          "EventType",       "IsAutoClean",    "IsCheck",
    "ParamLen", "ParamClass", "TransientPeriod", "ToggleStartPeriod", "ToggleEndPeriod", "ToggleThreshold"};
const char* const kParamFields[] = {"ParamName", "ParamType", "ParamLen", "ParamClass", "ENUM", "Bit"};
const char* const kEnumFields[] = {"EnumType", "Values"};

constexpr std::size_t kIdMax = 9;            // the legacy C interface's alarm id, and lltos
constexpr std::size_t kKeyMax = 126;         // language keys and the alarm name
constexpr std::size_t kStoredTextMax = 126;  // parameter fields: longer ones are stored empty
constexpr std::size_t kEnumTextMax = 127;    // enumeration texts: longer ones are cut
constexpr std::size_t kServiceNameMax = 63;  // the agent's service name field
constexpr std::size_t kListed = 5;           // definitions named in one message

template <std::size_t N> bool OneOf(const std::string& name, const char* const (&names)[N]) {
    return std::find_if(std::begin(names), std::end(names), [&](const char* n) { return name == n; }) !=
           std::end(names);
}

std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// A decimal int as atoi reads it correctly; false for anything else.
bool IsDecimalInt(const std::string& text) {
    const std::string t = Trimmed(text);
    const std::size_t digits = (!t.empty() && (t[0] == '+' || t[0] == '-')) ? 1 : 0;
    if (t.size() == digits || t.find_first_not_of("0123456789", digits) != std::string::npos || t.size() > 12) {
        return false;
    }
    const long long value = std::strtoll(t.c_str(), nullptr, 10);
    return value >= INT_MIN && value <= INT_MAX;
}

const std::map<std::string, std::string>& Table(bool english) {
    return english ? g_ENLanguageDatas : g_ZHLanguageDatas;
}

class Checker {
public:
    Checker(const std::string& file, const Outline& outline, const LanguageFile& en, const LanguageFile& zh,
            std::vector<Finding>* findings)
        : file_(file), o_(outline), en_(en), zh_(zh), findings_(findings), owner_(outline.elements.size(), -1) {
        defs_ = o_.elements[0].children;
        ownId_.assign(defs_.size(), -1);
        ownParams_.assign(defs_.size(), -1);
        for (std::size_t d = 0; d < defs_.size(); ++d) {
            owner_[static_cast<std::size_t>(defs_[d])] = static_cast<int>(d);
        }
        // Parents come first, so each element's definition is known from its parent's.
        for (std::size_t i = 1; i < o_.elements.size(); ++i) {
            const int parent = o_.elements[i].parent;
            if (parent != 0) {
                owner_[i] = owner_[static_cast<std::size_t>(parent)];
            }
            const std::size_t d = static_cast<std::size_t>(owner_[i]);
            int* first = o_.elements[i].name == "AlarmID"  ? &ownId_[d]
                         : o_.elements[i].name == "Params" ? &ownParams_[d]
                                                           : nullptr;
            if (first != nullptr && *first < 0) {
                *first = static_cast<int>(i);
            }
        }
    }

    // Rules on the file as written; true when every definition holds its own elements.
    bool checkStructure() {
        if (defs_.empty()) {
            error(el(0).line, "no alarm definitions: the library never counts this file as loaded");
            return false;
        }
        bool paired = true;
        for (const char* name : kPaired) {
            paired = checkPairing(name, true) && paired;
        }
        paired = checkPairing("ToggleParams", false) && paired;
        for (std::size_t i = 1; i < o_.elements.size(); ++i) {
            const XmlElement& e = o_.elements[i];
            if (OneOf(e.name, kNumbers) && !IsDecimalInt(e.text)) {
                notANumber(static_cast<int>(i));
            }
            if (e.name == "ServiceType" && e.textLength > kServiceNameMax) {
                error(e.line, "<ServiceType> of " + std::to_string(e.textLength) +
                                  " characters reaches the agent empty: its service name holds at most 63");
            }
            checkChildNames(static_cast<int>(i));
        }
        checkIds();
        for (std::size_t d = 0; d < defs_.size(); ++d) {
            if (ownParams_[d] >= 0) {
                checkParams(static_cast<int>(d), ownParams_[d]);
            }
        }
        return paired;
    }

    // Language keys of every definition, in the tables the library's loader
    // read; with the pairing right, also what it stored of each text.
    void checkTexts(const stAlarmItems* head, bool paired) {
        const stAlarmItems* item = paired ? head : nullptr;
        std::set<std::string> seen;  // a repeated id's definition is never used
        for (std::size_t d = 0; d < defs_.size(); ++d, item = item != nullptr ? item->next : nullptr) {
            const std::string id = idOf(static_cast<int>(d));
            if (id.empty() || !seen.insert(id).second) {
                continue;
            }
            const int idLine = el(ownId_[d]).line;
            std::string fullName;
            for (const LanguageFile* language : {&en_, &zh_}) {
                const std::string text = lookUp(*language, id + "_ALARMNAME", idLine, "the alarm's name");
                fullName += (language == &en_ ? "EN:" : "##ZH:") + text;
            }
            fullName += "##";
            if (item != nullptr && std::strlen(item->alarmName) < fullName.size()) {
                warning(idLine, "alarm name of " + std::to_string(fullName.size()) +
                                    " bytes is cut to 126: its English and Chinese names take at most 116 together");
            }
            const int params = ownParams_[d];
            for (std::size_t k = 0; params >= 0 && k < el(params).children.size(); ++k) {
                const bool loaded = item != nullptr && static_cast<int64_t>(k) < item->paramNum;
                checkParamTexts(id, el(params).children[k], loaded ? &item->params[k] : nullptr);
            }
        }
    }

private:
    const XmlElement& el(int index) const { return o_.elements[static_cast<std::size_t>(index)]; }

    void add(Severity severity, int line, const std::string& message) {
        findings_->push_back(Finding{file_, line, severity, message});
    }
    void error(int line, const std::string& message) { add(Severity::Error, line, message); }
    void warning(int line, const std::string& message) { add(Severity::Warning, line, message); }

    int child(int parent, const char* name) const {
        for (int c : el(parent).children) {
            if (el(c).name == name) {
                return c;
            }
        }
        return -1;
    }

    std::string label(int d) const {
        if (d < 0) {
            return "none";
        }
        if (ownId_[static_cast<std::size_t>(d)] >= 0) {
            return "alarm " + Trimmed(el(ownId_[static_cast<std::size_t>(d)]).text);
        }
        return "definition " + std::to_string(d + 1) + " (line " + std::to_string(el(defs_[d]).line) + ")";
    }

    // The n-th element of name goes to the n-th definition. Reports every
    // definition without it (when required) or with more than one, and which
    // definitions then get another one's element; false when any does.
    bool checkPairing(const char* name, bool required) {
        std::vector<int> all;
        std::vector<std::vector<int>> perDef(defs_.size());
        for (std::size_t i = 1; i < o_.elements.size(); ++i) {
            if (o_.elements[i].name == name) {
                all.push_back(static_cast<int>(i));
                perDef[static_cast<std::size_t>(owner_[i])].push_back(static_cast<int>(i));
            }
        }
        std::vector<std::string> shifted;
        std::size_t firstShifted = defs_.size();
        for (std::size_t n = 0; n < defs_.size(); ++n) {
            const int got = n < all.size() ? owner_[static_cast<std::size_t>(all[n])] : -1;
            const int own = perDef[n].empty() ? -1 : static_cast<int>(n);
            if (got != own) {
                shifted.push_back(label(static_cast<int>(n)) + " gets " + (got < 0 ? "none" : label(got) + "'s"));
                firstShifted = std::min(firstShifted, n);
            }
        }
        std::string consequence;
        if (!shifted.empty()) {
            consequence = "; the loader pairs the n-th <" + std::string(name) + "> with the n-th definition, so ";
            for (std::size_t i = 0; i < shifted.size() && i < kListed; ++i) {
                consequence += (i == 0 ? "" : ", ") + shifted[i];
            }
            if (shifted.size() > kListed) {
                consequence += " and " + std::to_string(shifted.size() - kListed) + " more";
            }
        }
        bool reported = false;
        for (std::size_t n = 0; n < defs_.size(); ++n) {
            const std::string tail = reported ? "" : consequence;
            if (perDef[n].empty() && required) {
                error(el(defs_[n]).line, label(static_cast<int>(n)) + " has no <" + name + ">" + tail);
                reported = true;
            } else if (perDef[n].size() > 1) {
                error(el(perDef[n][1]).line, label(static_cast<int>(n)) + " has " + std::to_string(perDef[n].size()) +
                                                 " <" + name + "> elements" + tail);
                reported = true;
            }
        }
        if (!reported && !shifted.empty()) {
            // An optional element in some definitions that do not come first.
            error(el(defs_[firstShifted]).line,
                  "<" + std::string(name) + "> in only some definitions, and not the first ones" + consequence);
        }
        return !reported && shifted.empty();
    }

    void notANumber(int index) {
        const XmlElement& e = el(index);
        const std::string shown = Trimmed(e.text).substr(0, 40);
        error(e.line, "<" + e.name + "> '" + shown + "' is not a decimal number in the int range: the loader reads " +
                          std::to_string(std::atoi(e.text.c_str())));
    }

    // Children the loader does not know are ignored without a word.
    void checkChildNames(int index) {
        const XmlElement& e = el(index);
        const bool definition = e.parent == 0;
        const bool param = e.parent >= 0 && el(e.parent).name == "Params" && el(e.parent).parent >= 0 &&
                           el(el(e.parent).parent).parent == 0;
        if (definition && e.name != "Alarm") {
            warning(e.line, "<" + e.name + "> counts as an alarm definition: every child of the root element does");
        }
        for (int c : e.children) {
            const std::string& name = el(c).name;
            const bool unknown = (definition && !OneOf(name, kPaired) && name != "ToggleParams") ||
                                 (e.name == "ToggleParams" && !OneOf(name, kToggles)) ||
                                 (param && !OneOf(name, kParamFields)) ||
                                 ((e.name == "ENUM" || e.name == "Bit") && !OneOf(name, kEnumFields));
            if (unknown) {
                warning(el(c).line, "unknown element <" + name + "> in <" + e.name + "> is ignored" +
                                        (param ? " (an enumeration is <ENUM> or <Bit>)" : ""));
            }
        }
    }

    void checkIds() {
        std::map<int, int> firstLine;
        for (std::size_t d = 0; d < defs_.size(); ++d) {
            if (ownId_[d] < 0 || !IsDecimalInt(el(ownId_[d]).text)) {
                continue;
            }
            const XmlElement& id = el(ownId_[d]);
            const std::string text = Trimmed(id.text);
            if (text.size() > kIdMax) {
                error(id.line, "alarm id " + text + " has " + std::to_string(text.size()) +
                                   " characters: the legacy C interface takes at most 9 (AllocAlarmObject refuses "
                                   "it, and the reset-clear announcement lists it empty)");
            }
            const auto first = firstLine.emplace(std::atoi(text.c_str()), id.line);
            if (!first.second) {
                error(id.line, "alarm id " + text + " is defined again: only the first definition (line " +
                                   std::to_string(first.first->second) + ") is ever used");
            }
        }
    }

    void checkParams(int d, int params) {
        const std::string alarm = label(d);
        std::map<std::string, int> names;
        int k = 0;
        for (int p : el(params).children) {
            ++k;
            const int name = child(p, "ParamName");
            const std::string paramName = name >= 0 ? el(name).text : "";
            const std::string what =
                "parameter " + (name >= 0 ? "'" + paramName + "'" : std::to_string(k)) + " of " + alarm;
            for (const char* field : {"ParamName", "ParamType", "ParamLen", "ParamClass"}) {
                if (child(p, field) < 0) {
                    error(el(p).line, what + " has no <" + field + ">");
                }
            }
            if (name >= 0 && Trimmed(paramName) != paramName) {
                error(el(name).line, what + " has blanks around its name: alarms must name it with them");
            }
            if (name >= 0 && !names.emplace(paramName, el(name).line).second) {
                error(el(name).line, what +
                                         " is named twice: a sent alarm's parameters collapse by name, so its "
                                         "count never matches and SendAlarm refuses every such alarm");
            }
            const int type = child(p, "ParamType");
            const std::string typeText = type >= 0 ? el(type).text : "";
            const bool counted = typeText == "UINT" || typeText == "ENUM";
            if (type >= 0 && !counted && typeText != "STRING") {
                error(el(type).line, "<ParamType> '" + typeText.substr(0, 40) +
                                         "' is none of UINT, STRING, ENUM (compared exactly): the value of " + what +
                                         " is left out of the texts");
            }
            const int len = child(p, "ParamLen");
            const int lenValue = len >= 0 ? std::atoi(el(len).text.c_str()) : 0;
            if (len >= 0 && counted && lenValue != 1 && lenValue != 2 && lenValue != 4) {
                error(el(len).line, "<ParamLen> " + std::to_string(lenValue) + " of " + what +
                                        " is none of 1, 2, 4, as a " + typeText + " needs: its value is sent as 0");
            }
            const int cls = child(p, "ParamClass");
            const int clsValue = cls >= 0 ? std::atoi(el(cls).text.c_str()) : 0;
            if (cls >= 0 && clsValue != 0 && clsValue != 1) {
                error(el(cls).line, "<ParamClass> " + std::to_string(clsValue) +
                                        " is neither 0 (location) nor 1 (appendInfo): " + what + " is left out");
            }
            checkEnumeration(d, p, what, typeText == "ENUM");
        }
    }

    void checkEnumeration(int d, int p, const std::string& what, bool isEnum) {
        const int enumeration = enumerationOf(p);
        if (enumeration < 0) {
            if (isEnum) {
                error(el(p).line, what + " is an ENUM without <ENUM> or <Bit>: its values print nothing");
            }
            return;
        }
        if (!isEnum) {
            warning(el(enumeration).line, "the enumeration of " + what + " is never used: it is no ENUM");
        }
        const int values = child(enumeration, "Values");
        if (values < 0) {
            error(el(enumeration).line, "the enumeration of " + what + " has no <Values>: it is dropped");
            return;
        }
        for (int entry : el(values).children) {
            if (el(entry).children.empty()) {
                error(el(entry).line, "value entry of " + what + " has no element: it repeats the previous value");
            } else if (!IsDecimalInt(el(el(entry).children[0]).text)) {
                notANumber(el(entry).children[0]);
            }
        }
        const std::vector<std::pair<int, std::string>> keys = enumKeys(idOf(d), p);
        if (const auto* key = OverlongKey(keys)) {
            error(el(key->first).line,
                  "language key " + key->second.substr(0, 60) + "... is " + std::to_string(key->second.size()) +
                      " characters (at most 126): the whole enumeration of " + what + " is dropped");
        }
    }

    // A parameter's enumeration element, <ENUM> or else <Bit>; -1 without one.
    int enumerationOf(int p) const {
        const int enumeration = child(p, "ENUM");
        return enumeration >= 0 ? enumeration : child(p, "Bit");
    }

    // The first key longer than the loader takes (it then drops the whole
    // enumeration); NULL when every key fits.
    static const std::pair<int, std::string>* OverlongKey(const std::vector<std::pair<int, std::string>>& keys) {
        const auto found =
            std::find_if(keys.begin(), keys.end(), [](const auto& k) { return k.second.size() > kKeyMax; });
        return found != keys.end() ? &*found : nullptr;
    }

    // The alarm id as the loader formats it into keys; "" without a usable one.
    std::string idOf(int d) const {
        const int id = ownId_[static_cast<std::size_t>(d)];
        return id >= 0 && IsDecimalInt(el(id).text) ? std::to_string(std::atoi(el(id).text.c_str())) : "";
    }

    // Each value entry of parameter p's enumeration with its language key,
    // "<id>_<EnumType>_<value>", the texts cut at 127 as the loader keeps them.
    // An entry without a value element repeats the previous value (the first
    // one the type).
    std::vector<std::pair<int, std::string>> enumKeys(const std::string& id, int p) const {
        const int enumeration = enumerationOf(p);
        const int values = enumeration >= 0 ? child(enumeration, "Values") : -1;
        std::vector<std::pair<int, std::string>> keys;
        if (values < 0) {
            return keys;
        }
        const int type = child(enumeration, "EnumType");
        const std::string enumType = type >= 0 ? el(type).text.substr(0, kEnumTextMax) : "";
        std::string value = enumType;
        for (int entry : el(values).children) {
            if (!el(entry).children.empty()) {
                value = el(el(entry).children[0]).text.substr(0, kEnumTextMax);
            }
            keys.emplace_back(entry, id + "_" + enumType + "_" + value);
        }
        return keys;
    }

    // The text under key in one language, with a warning when it is missing.
    std::string lookUp(const LanguageFile& language, const std::string& key, int line, const std::string& of) {
        const auto& table = Table(&language == &en_);
        const auto found = table.find(key);
        if (found == table.end()) {
            warning(line, "key " + key + " is missing from " + language.label + ": " + of + " prints empty there");
            return "";
        }
        return found->second;
    }

    // A text the loader stored shorter than the table holds: report it at its language line.
    void textStored(const LanguageFile& language, const std::string& key, const char* stored, std::size_t max,
                    const char* fate) {
        const auto& table = Table(&language == &en_);
        const auto found = table.find(key);
        if (found == table.end() || std::strlen(stored) >= found->second.size()) {
            return;
        }
        const auto line = language.keyLines.find(key);
        findings_->push_back(Finding{language.path, line != language.keyLines.end() ? line->second : 0,
                                     Severity::Warning,
                                     "text of " + key + " is " + std::to_string(found->second.size()) +
                                         " bytes: " + fate + " (at most " + std::to_string(max) + ")"});
    }

    void checkParamTexts(const std::string& id, int p, const stParaDef* loaded) {
        const int name = child(p, "ParamName");
        if (name < 0) {
            return;
        }
        const std::string text = el(name).text;
        if (loaded != nullptr && loaded->paramName[0] == '\0' && !text.empty()) {
            error(el(name).line, "<ParamName> of " + std::to_string(el(name).textLength) +
                                     " characters is stored empty (at most 126): no alarm can fill it");
            return;
        }
        const std::string key = id + "_" + text;
        for (const LanguageFile* language : {&en_, &zh_}) {
            (void)lookUp(*language, key, el(name).line, "the parameter's label");
            if (loaded != nullptr) {
                textStored(*language, key, language == &en_ ? loaded->paramEnName : loaded->paramChName, kStoredTextMax,
                           "stored empty");
            }
        }
        const std::vector<std::pair<int, std::string>> keys = enumKeys(id, p);
        const bool dropped = OverlongKey(keys) != nullptr;
        for (std::size_t e = 0; !dropped && e < keys.size(); ++e) {
            const bool stored =
                loaded != nullptr && loaded->enumValues != nullptr && static_cast<int64_t>(e) < loaded->enumNum;
            for (const LanguageFile* language : {&en_, &zh_}) {
                (void)lookUp(*language, keys[e].second, el(keys[e].first).line, "the value's text");
                if (stored) {
                    const stEnumBitDef& def = loaded->enumValues[e];
                    textStored(*language, keys[e].second, language == &en_ ? def.enName : def.chName, kEnumTextMax,
                               "cut");
                }
            }
        }
    }

    const std::string& file_;
    const Outline& o_;
    const LanguageFile& en_;
    const LanguageFile& zh_;
    std::vector<Finding>* findings_;
    std::vector<int> defs_;
    std::vector<int> owner_;
    std::vector<int> ownId_;      // per definition: its first AlarmID, or -1
    std::vector<int> ownParams_;  // per definition: its first Params, or -1
};

// Refuses what is missing, not a file, or too large, with one error.
bool Readable(const std::string& path, const std::string& what, std::size_t maxBytes, std::vector<Finding>* findings) {
    struct stat info = {};
    std::string problem;
    if (stat(path.c_str(), &info) != 0) {
        problem = what + " cannot be read: " + std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        problem = what + " is not a regular file";
    } else if (static_cast<std::size_t>(info.st_size) > maxBytes) {
        problem = what + " has " + std::to_string(info.st_size) + " bytes: files over " + std::to_string(maxBytes) +
                  " bytes are not checked";
    }
    if (!problem.empty()) {
        findings->push_back(Finding{path, 0, Severity::Error, problem + ", and the library loads nothing from it"});
    }
    return problem.empty();
}

// The library's loader on xmlPath, as InitAlarm runs it; true when it loaded.
bool LoadWithLibrary(const std::string& xmlPath) {
    char resolved[PATH_MAX] = {};
    if (realpath(xmlPath.c_str(), resolved) == nullptr) {
        return false;
    }
    g_ENLanguageDatas.clear();
    g_ZHLanguageDatas.clear();
    ALM_FreeConfInfo();
    g_stCfgParaInfo.configPath[0] = '\0';
    ALM_SetConfFilePath(resolved);
    if (g_stCfgParaInfo.configPath[0] == '\0') {
        return false;
    }
    ALM_ConfInit();
    return g_uiInitFlag == 1 && g_stCfgParaInfo.head != nullptr;
}

int FileRank(const Finding& f, const std::string& xmlPath, const LanguageFile& en) {
    return f.file == xmlPath ? 0 : (f.file == en.path ? 1 : 2);
}

}  // namespace

std::vector<Finding> CheckDefinitionFile(const std::string& xmlPath, const CheckLimits& limits) {
    std::vector<Finding> findings;
    // Beside the file, as the library derives them.
    std::string dir = xmlPath;
    while (!dir.empty() && dir.back() == '/') {
        dir.pop_back();
    }
    const std::size_t slash = dir.rfind('/');
    dir = slash == std::string::npos ? "" : dir.substr(0, slash);
    LanguageFile en{(dir.empty() ? "" : dir + "/") + "en_US/language.properties", "en_US/language.properties", {}};
    LanguageFile zh{(dir.empty() ? "" : dir + "/") + "zh_CN/language.properties", "zh_CN/language.properties", {}};
    bool languages = true;
    for (LanguageFile* language : {&en, &zh}) {
        if (Readable(language->path, "the language file", limits.maxFileBytes, &findings)) {
            *language = ReadLanguageFile(language->path, language->label, &findings);
        } else {
            languages = false;
        }
    }
    if (Readable(xmlPath, "the definition file", limits.maxFileBytes, &findings)) {
        xercesc::XMLPlatformUtils::Initialize();
        const Outline outline = ReadOutline(xmlPath, limits.outline, &findings);
        if (outline.complete) {
            Checker checker(xmlPath, outline, en, zh, &findings);
            const bool paired = checker.checkStructure();
            if (languages && !LoadWithLibrary(xmlPath)) {
                findings.push_back(
                    Finding{xmlPath, 0, Severity::Error, "the library's own loader loads no definitions from it"});
            } else if (languages) {
                checker.checkTexts(g_stCfgParaInfo.head, paired);
            }
            ALM_FreeConfInfo();
        }
        xercesc::XMLPlatformUtils::Terminate();
    }
    std::stable_sort(findings.begin(), findings.end(), [&](const Finding& a, const Finding& b) {
        const int ra = FileRank(a, xmlPath, en);
        const int rb = FileRank(b, xmlPath, en);
        return ra != rb ? ra < rb : a.line < b.line;
    });
    return findings;
}

}  // namespace alarmdef
