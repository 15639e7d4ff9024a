// The bounded string functions the library builds its fixed fields with: a copy or append that does not fit fails and
// leaves the destination empty, never cut; a formatted text is cut and reported; no size is refused.
#include "bounded_string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// Destinations start with `initial` and are filled with this after it, so
// what was (not) written is visible; one byte past destMax must keep it.
constexpr char kFill = 'Z';

// A source of exactly these characters and no terminator, on the heap so
// that reading one byte too far is an AddressSanitizer finding.
std::shared_ptr<char> Unterminated(const std::string& text) {
    std::shared_ptr<char> p(new char[text.size()], std::default_delete<char[]>());
    std::memcpy(p.get(), text.data(), text.size());
    return p;
}

struct Row {
    const char* name;
    std::size_t destMax;
    std::string initial;
    std::function<int(char*, std::size_t)> call;
    bool ok;
    std::string result;  // the destination's text afterwards
};

TEST(BoundedString, FitsOrFailsByTheRules) {
    const std::string big(100 * 1024 - 1, 'q');  // base64 bodies exceed 32 KiB
    const auto abcdefgh = Unterminated("ABCDEFGH");
    const auto wxyz = Unterminated("WXYZ");
    using D = char*;
    using N = std::size_t;
    const Row rows[] = {
        {"strncpy fits", 8, "", [](D d, N m) { return strncpy_s(d, m, "abc", 3); }, true, "abc"},
        {"strncpy count cuts", 8, "", [](D d, N m) { return strncpy_s(d, m, "abcdef", 4); }, true, "abcd"},
        {"strncpy count below destMax fills", 4, "", [](D d, N m) { return strncpy_s(d, m, "abcdef", 3); }, true, "abc"},
        {"strncpy short source", 4, "", [](D d, N m) { return strncpy_s(d, m, "abc", SIZE_MAX); }, true, "abc"},
        {"strncpy source fills dest", 4, "x", [](D d, N m) { return strncpy_s(d, m, "abcd", 4); }, false, ""},
        {"strncpy longer source", 4, "x", [](D d, N m) { return strncpy_s(d, m, "abcdefgh", 100); }, false, ""},
        {"strncpy null source", 4, "x", [](D d, N m) { return strncpy_s(d, m, nullptr, 2); }, false, ""},
        {"strncpy unterminated by count", 16, "", [&](D d, N m) { return strncpy_s(d, m, abcdefgh.get(), 8); }, true, "ABCDEFGH"},
        {"strncpy unterminated too long", 8, "x", [&](D d, N m) { return strncpy_s(d, m, abcdefgh.get(), 100); }, false, ""},
        {"strncpy large", big.size() + 1, "", [&](D d, N m) { return strncpy_s(d, m, big.c_str(), big.size()); }, true, big},
        {"strncat appends", 8, "ab", [](D d, N m) { return strncat_s(d, m, "cd", 10); }, true, "abcd"},
        {"strncat count limits", 8, "ab", [](D d, N m) { return strncat_s(d, m, "cdef", 2); }, true, "abcd"},
        {"strncat fills exactly", 8, "abc", [](D d, N m) { return strncat_s(d, m, "defg", 4); }, true, "abcdefg"},
        {"strncat one too many", 8, "abc", [](D d, N m) { return strncat_s(d, m, "defgh", 5); }, false, ""},
        {"strncat count cuts in time", 8, "abc", [](D d, N m) { return strncat_s(d, m, "defgh", 4); }, true, "abcdefg"},
        {"strncat full dest", 4, "abc", [](D d, N m) { return strncat_s(d, m, "d", 5); }, false, ""},
        {"strncat null source", 8, "ab", [](D d, N m) { return strncat_s(d, m, nullptr, 5); }, false, ""},
        {"strncat unterminated by count", 16, "ab", [&](D d, N m) { return strncat_s(d, m, wxyz.get(), 4); }, true, "abWXYZ"},
        {"strncat unterminated too long", 4, "ab", [&](D d, N m) { return strncat_s(d, m, wxyz.get(), 100); }, false, ""},
        {"strncat large", big.size() + 1, "", [&](D d, N m) { return strncat_s(d, m, big.c_str(), big.size()); }, true, big},
        // A formatted text that does not fit is cut, and the cut reported.
        {"snprintf fits", 10, "", [](D d, N m) { return snprintf_s(d, m, 100, "id=%d:%s", 42, "abc") == 9 ? 0 : -1; }, true, "id=42:abc"},
        {"snprintf count cuts", 16, "", [](D d, N m) { return snprintf_s(d, m, 5, "id=%d:%s", 42, "abc"); }, false, "id=42"},
        {"snprintf destMax cuts", 6, "", [](D d, N m) { return snprintf_s(d, m, 100, "id=%d:%s", 42, "abc"); }, false, "id=42"},
        {"snprintf large", big.size() + 1, "", [&](D d, N m) { return snprintf_s(d, m, m - 1, "%s", big.c_str()) > 0 ? 0 : -1; }, true, big},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<char> dest(row.destMax + 1, kFill);
        std::memcpy(dest.data(), row.initial.c_str(), row.initial.size() + 1);
        EXPECT_EQ(row.ok, row.call(dest.data(), row.destMax) == 0);
        EXPECT_EQ(row.result, std::string(dest.data()));
        EXPECT_EQ(kFill, dest[row.destMax]) << "wrote past destMax";
    }
    char dest[4] = {'a', 0, kFill, kFill};
    for (int rc : {strncpy_s(nullptr, 8, "abc", 3), strncat_s(nullptr, 8, "abc", 3), strncpy_s(dest, 0, "abc", 3),
                   strncat_s(dest, 0, "abc", 3), snprintf_s(nullptr, 8, 7, "%s", "x"), snprintf_s(dest, 0, 7, "%s", "x")}) {
        EXPECT_NE(0, rc);
    }
    EXPECT_EQ('a', dest[0]) << "a destination without room is not touched";
}

TEST(BoundedString, MemoryCopiesAndFills) {
    const char src[6] = {'a', 'b', 0, 'c', 'd', 'e'};
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(0, memcpy_s(dest, sizeof dest, src, sizeof src));
    EXPECT_EQ(std::string(src, 6) + "ZZ", std::string(dest, 8)) << "copies bytes, not a string";
    EXPECT_NE(0, memcpy_s(dest, 6, "0123456789", 7));  // too long: destMax bytes zeroed, no more
    EXPECT_EQ(std::string(6, '\0') + "ZZ", std::string(dest, 8));
    EXPECT_NE(0, memcpy_s(dest, sizeof dest, nullptr, 2));
    EXPECT_EQ(std::string(8, '\0'), std::string(dest, 8));
    char overlap[] = "abcdefgh";
    EXPECT_EQ(0, memcpy_s(overlap + 2, sizeof overlap - 2, overlap, 6));
    EXPECT_STREQ("ababcdef", overlap);

    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(0, memset_s(dest, 6, 'a', 4));
    EXPECT_NE(0, memset_s(dest + 4, 2, 'b', 3));  // too many: destMax bytes set, no more
    EXPECT_EQ("aaaabbZZ", std::string(dest, 8));
    EXPECT_NE(0, memset_s(nullptr, 6, 0, 1));
}

}  // namespace
