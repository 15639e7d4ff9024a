// The base64 pair on any bytes: decoding stays inside the input's terminator
// and writes at most as many bytes as it reads; whatever is encoded decodes
// back to exactly the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);  // zero-terminated, as callers pass it
    std::vector<char> decoded(size + 1);
    int decodedLength = -1;
    if (zeb_alm_base64_decode(&text[0], static_cast<int>(size), decoded.data(), &decodedLength) == 0 &&
        (decodedLength < 0 || static_cast<size_t>(decodedLength) > size)) {
        abort();
    }

    std::vector<char> encoded(4 * ((size + 2) / 3) + 1, '\0');
    unsigned int encodedLength = 0;
    if (zeb_alm_base64_encode(&text[0], static_cast<int>(size), encoded.data(), &encodedLength) != 0 ||
        encodedLength != 4 * ((size + 2) / 3)) {
        abort();
    }
    std::vector<char> back(size + 3);
    int backLength = -1;
    if (zeb_alm_base64_decode(encoded.data(), static_cast<int>(encodedLength), back.data(), &backLength) != 0 ||
        static_cast<size_t>(backLength) != size || std::memcmp(back.data(), data, size) != 0) {
        abort();
    }
    return 0;
}
