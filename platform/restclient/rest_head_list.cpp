// Header list: an ordered sequence of owned name/value copies. Every entry
// point is callable from C, so nothing here may throw; allocation failures
// turn into error results.
#include <strings.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "rest_head_list.h"

struct zeb_restHeadList {
    std::vector<std::pair<std::string, std::string>> entries;
};

extern "C" {

zeb_restHeadList* zeb_restHeadContentCreate(void) { return new (std::nothrow) zeb_restHeadList; }

int zeb_restHeadContentAdd(zeb_restHeadList* list, const char* name, const char* value) {
    if (list == nullptr || name == nullptr || value == nullptr) {
        return -1;
    }
    try {
        list->entries.emplace_back(name, value);
    } catch (...) {
        return -1;
    }
    return 0;
}

void zeb_restHeadContentClear(zeb_restHeadList* list) {
    if (list != nullptr) {
        list->entries.clear();
    }
}

void zeb_restHeadContentDestory(zeb_restHeadList* list) {
    // Entries still present are released too: a caller that skipped the
    // clear step must not leak.
    delete list;
}

size_t zeb_restHeadContentCount(const zeb_restHeadList* list) { return list == nullptr ? 0 : list->entries.size(); }

int zeb_restHeadContentGet(const zeb_restHeadList* list, size_t index, const char** name, const char** value) {
    if (list == nullptr || index >= list->entries.size()) {
        return -1;
    }
    const auto& entry = list->entries[index];
    if (name != nullptr) {
        *name = entry.first.c_str();
    }
    if (value != nullptr) {
        *value = entry.second.c_str();
    }
    return 0;
}

const char* zeb_restHeadContentFind(const zeb_restHeadList* list, const char* name) {
    if (list == nullptr || name == nullptr) {
        return nullptr;
    }
    for (const auto& entry : list->entries) {
        if (strcasecmp(entry.first.c_str(), name) == 0) {
            return entry.second.c_str();
        }
    }
    return nullptr;
}

}  // extern "C"
