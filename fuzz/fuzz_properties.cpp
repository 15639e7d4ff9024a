// A language file of any bytes: the reader never reads or writes outside its
// line buffer, whatever the line lengths, separators and line ends, and what
// it stores obeys its key and value limits.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "AlarmConfig.h"
#include "FuzzSupport.h"

namespace {
int g_file = -1;
char g_path[64];
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzsupport::QuietAndUnpaused();
    g_file = memfd_create("language.properties", 0);
    std::snprintf(g_path, sizeof(g_path), "/proc/self/fd/%d", g_file);
    return g_file >= 0 ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (ftruncate(g_file, 0) != 0 || pwrite(g_file, data, size, 0) != static_cast<ssize_t>(size)) {
        return 0;
    }
    const bool english = size > 0 && (data[0] & 1) != 0;
    ALM_ParseConfigFile(g_path, english);
    for (const auto& entry : english ? g_ENLanguageDatas : g_ZHLanguageDatas) {
        if (entry.first.size() > 127 || entry.second.size() > 511) {
            abort();
        }
    }
    // One line split in place, as the reader does it.
    std::string line(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));
    char* text = &line[0];
    char* key = nullptr;
    char* value = nullptr;
    if (ALM_GetKey(&text, &key, &value) == 0 && (key == nullptr || value == nullptr || *value == '\0')) {
        abort();
    }
    // The tables only grow in the library; start each input afresh.
    g_ENLanguageDatas.clear();
    g_ZHLanguageDatas.clear();
    return 0;
}
