// The two language files: key=value lines read into the English and the
// Chinese table, and look-ups by key.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "AlarmConfig.h"
#include "AlmLog.h"
#include "bounded_string.h"

namespace {

constexpr const char* kLogSource = "../src/AlarmReadConfFile";

// fgets bound: a longer physical line arrives in pieces, each parsed alone.
constexpr int kLineBufSize = 770;
constexpr size_t kKeyLimit = 128;
// The value is measured with its line end still attached.
constexpr size_t kValueLimit = 512;
// The length the rejection messages report, for the value as well.
constexpr int kReportedLimit = 128;

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

std::map<std::string, std::string>& TableOf(bool isEnglish) {
    return isEnglish ? g_ENLanguageDatas : g_ZHLanguageDatas;
}

}  // namespace

std::map<std::string, std::string> g_ENLanguageDatas;
std::map<std::string, std::string> g_ZHLanguageDatas;
unsigned char g_bInitLangFileFlagEN = 0;
unsigned char g_bInitLangFileFlagZH = 0;

void ALM_RemoveTrailingChar(char* str, char ch) {
    if (str == nullptr) {
        return;
    }
    size_t len = strnlen(str, kValueLimit);
    while (len > 0 && str[len - 1] == ch) {
        str[--len] = '\0';
    }
}

int ALM_GetKey(char** line, char** key, char** value) {
    if (line == nullptr || key == nullptr || value == nullptr || *line == nullptr) {
        return -1;
    }
    char* p = *line;
    while (*p != '\0' && IsSpace(*p)) {
        ++p;
    }
    if (*p == '\0') {
        return -1;
    }
    char* keyStart = p++;  // the first character belongs to the key, even '='
    while (*p != '\0' && !IsSpace(*p) && *p != '=') {
        ++p;
    }
    if (*p == '\0') {
        return -1;
    }
    *p++ = '\0';
    while (*p != '\0' && (IsSpace(*p) || *p == '=')) {
        ++p;
    }
    if (*p == '\0') {
        return -1;
    }
    *key = keyStart;
    *value = p;
    return 0;
}

int ALM_ParseConfigFile(const char* path, bool isEnglish) {
    FILE* file = path == nullptr ? nullptr : std::fopen(path, "r");
    if (file == nullptr) {
        ALM_LOG_ERROR("can't open '%s'", path == nullptr ? "(null)" : path);
        return 0;
    }
    std::map<std::string, std::string>& table = TableOf(isEnglish);
    char buf[kLineBufSize];
    int lineNo = 0;
    while (std::fgets(buf, sizeof(buf), file) != nullptr) {
        ++lineNo;
        const char* start = buf;
        while (*start != '\0' && IsSpace(*start)) {
            ++start;
        }
        if (*start == '\0' || *start == '#') {
            continue;
        }
        std::memmove(buf, start, std::strlen(start) + 1);
        char* line = buf;
        char* key = nullptr;
        char* value = nullptr;
        const int ret = ALM_GetKey(&line, &key, &value);
        if (ret != 0 || std::strlen(key) >= kKeyLimit || std::strlen(value) >= kValueLimit) {
            const int column = static_cast<int>(line - buf);
            ALM_LOG_ERROR("uiRet=%d,error parsing %s, line %d:%d\n", ret, path, lineNo, column);
            ALM_LOG_ERROR("var name to long %s, line %d:%d . only support %d len\n", path, lineNo, column,
                          kReportedLimit);
            ALM_LOG_ERROR("value name to long %s, line %d:%d . only support %d len\n", path, lineNo, column,
                          kReportedLimit);
            continue;
        }
        // Slash first: a slash before the line end therefore stays.
        ALM_RemoveTrailingChar(value, '/');
        ALM_RemoveTrailingChar(value, '\n');
        ALM_RemoveTrailingChar(value, '\r');
        char stored[kValueLimit] = {};
        (void)strncpy_s(stored, sizeof(stored), value, sizeof(stored) - 1);
        stored[sizeof(stored) - 1] = '\0';
        table[key] = stored;
    }
    std::fclose(file);
    (isEnglish ? g_bInitLangFileFlagEN : g_bInitLangFileFlagZH) = 1;
    return static_cast<int>(table.size());
}

std::string ALM_GetConfigVar(const char* filePath, const char* key, bool isEnglish) {
    (void)filePath;  // the tables were filled from it already
    const std::map<std::string, std::string>& table = TableOf(isEnglish);
    const auto found = key == nullptr ? table.end() : table.find(key);
    if (found == table.end()) {
        ALM_LOG_ERROR("get %s failed", key == nullptr ? "(null)" : key);
        return std::string();
    }
    return found->second;
}
