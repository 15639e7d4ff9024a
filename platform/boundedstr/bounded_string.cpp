// Bounded string and memory functions. Sources are only ever scanned as far
// as the copy can use them (a source may be a fixed array without a
// terminator, bounded by count), and no size limit applies to the buffers:
// base64 bodies routinely exceed 32 KiB.
#include "bounded_string.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// Length of s, looking at no more than max characters.
std::size_t BoundedLength(const char* s, std::size_t max) {
    const void* end = std::memchr(s, '\0', max);
    return end != nullptr ? static_cast<std::size_t>(static_cast<const char*>(end) - s) : max;
}

}  // namespace

extern "C" {

int strncpy_s(char* dest, std::size_t destMax, const char* src, std::size_t count) {
    if (dest == nullptr || destMax == 0) {
        return BOUNDED_STRING_ERROR;
    }
    if (src == nullptr) {
        dest[0] = '\0';
        return BOUNDED_STRING_ERROR;
    }
    std::size_t length;
    if (count < destMax) {
        // Cutting at count is what the caller asked for.
        length = BoundedLength(src, count);
    } else {
        length = BoundedLength(src, destMax);
        if (length >= destMax) {
            dest[0] = '\0';
            return BOUNDED_STRING_ERROR;
        }
    }
    std::memmove(dest, src, length);
    dest[length] = '\0';
    return 0;
}

int strncat_s(char* dest, std::size_t destMax, const char* src, std::size_t count) {
    if (dest == nullptr || destMax == 0) {
        return BOUNDED_STRING_ERROR;
    }
    if (src == nullptr) {
        dest[0] = '\0';
        return BOUNDED_STRING_ERROR;
    }
    const std::size_t used = BoundedLength(dest, destMax);
    if (used == destMax) {
        dest[0] = '\0';
        return BOUNDED_STRING_ERROR;
    }
    const std::size_t room = destMax - 1 - used;
    // One character past the room is enough to know the append does not fit.
    const std::size_t scan = count < room + 1 ? count : room + 1;
    const std::size_t length = BoundedLength(src, scan);
    if (length > room) {
        dest[0] = '\0';
        return BOUNDED_STRING_ERROR;
    }
    std::memmove(dest + used, src, length);
    dest[used + length] = '\0';
    return 0;
}

int snprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, ...) {
    if (dest == nullptr || destMax == 0) {
        return -1;
    }
    if (format == nullptr) {
        dest[0] = '\0';
        return -1;
    }
    const std::size_t limit = count < destMax - 1 ? count : destMax - 1;
    va_list args;
    va_start(args, format);
    const int full = std::vsnprintf(dest, limit + 1, format, args);
    va_end(args);
    if (full < 0) {
        dest[0] = '\0';
        return -1;
    }
    return static_cast<std::size_t>(full) > limit ? -1 : full;
}

int sprintf_s(char* dest, std::size_t destMax, const char* format, ...) {
    if (dest == nullptr || destMax == 0) {
        return -1;
    }
    if (format == nullptr) {
        dest[0] = '\0';
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int full = std::vsnprintf(dest, destMax, format, args);
    va_end(args);
    if (full < 0 || static_cast<std::size_t>(full) >= destMax) {
        dest[0] = '\0';
        return -1;
    }
    return full;
}

// Overlapping regions are copied as memmove would: callers shift text inside
// one buffer, and refusing that would only move the fault elsewhere.
int memcpy_s(void* dest, std::size_t destMax, const void* src, std::size_t count) {
    if (dest == nullptr) {
        return BOUNDED_STRING_ERROR;
    }
    if (src == nullptr || count > destMax) {
        std::memset(dest, 0, destMax);
        return BOUNDED_STRING_ERROR;
    }
    if (count != 0) {
        std::memmove(dest, src, count);
    }
    return 0;
}

int memset_s(void* dest, std::size_t destMax, int c, std::size_t count) {
    if (dest == nullptr) {
        return BOUNDED_STRING_ERROR;
    }
    if (count > destMax) {
        std::memset(dest, c, destMax);
        return BOUNDED_STRING_ERROR;
    }
    std::memset(dest, c, count);
    return 0;
}

}  // extern "C"
