#include "bounded_string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// Destinations start full of this, so "nothing written" is visible.
constexpr char kFill = 'Z';

// A source of exactly these characters and no terminator, on the heap so
// that reading one byte too far is an AddressSanitizer finding.
std::unique_ptr<char[]> Unterminated(const std::string& text) {
    std::unique_ptr<char[]> p(new char[text.size()]);
    std::memcpy(p.get(), text.data(), text.size());
    return p;
}

struct CopyCase {
    const char* name;
    std::string initial;  // strncat_s only: what dest holds before
    std::size_t destMax;
    const char* src;
    std::size_t count;
    bool ok;
    std::string result;
};

void PrintTo(const CopyCase& c, std::ostream* os) { *os << c.name; }

class StrncpyS : public ::testing::TestWithParam<CopyCase> {};

TEST_P(StrncpyS, FollowsTheFailureRule) {
    const CopyCase& c = GetParam();
    std::vector<char> dest(c.destMax + 1, kFill);
    const int rc = strncpy_s(dest.data(), c.destMax, c.src, c.count);
    EXPECT_EQ(rc == 0, c.ok) << rc;
    EXPECT_EQ(std::string(dest.data()), c.result);
    EXPECT_EQ(dest[c.destMax], kFill) << "wrote past destMax";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StrncpyS,
    ::testing::Values(CopyCase{"fits", "", 8, "abc", 3, true, "abc"},
                      CopyCase{"countCutsLongerSource", "", 8, "abcdef", 4, true, "abcd"},
                      CopyCase{"countZeroGivesEmpty", "", 8, "abc", 0, true, ""},
                      CopyCase{"countOneBelowDestMaxFillsIt", "", 4, "abcdef", 3, true, "abc"},
                      CopyCase{"countAtDestMaxShortSourceCopiedWhole", "", 4, "abc", 4, true, "abc"},
                      CopyCase{"hugeCountShortSource", "", 8, "abc", SIZE_MAX, true, "abc"},
                      CopyCase{"countAtDestMaxSourceFillsDestFails", "", 4, "abcd", 4, false, ""},
                      CopyCase{"countAboveDestMaxLongSourceFails", "", 4, "abcdefgh", 100, false, ""},
                      CopyCase{"emptySource", "", 4, "", 10, true, ""},
                      CopyCase{"nullSourceEmptiesDest", "", 4, nullptr, 2, false, ""}),
    [](const ::testing::TestParamInfo<CopyCase>& info) { return std::string(info.param.name); });

TEST(StrncpySArgs, NullDestOrZeroSizeWritesNothing) {
    EXPECT_NE(strncpy_s(nullptr, 8, "abc", 3), 0);
    char dest[4] = {kFill, kFill, kFill, kFill};
    EXPECT_NE(strncpy_s(dest, 0, "abc", 3), 0);
    EXPECT_EQ(dest[0], kFill);
}

TEST(StrncpySArgs, ReadsUnterminatedSourceOnlyAsFarAsNeeded) {
    auto src = Unterminated("ABCDEFGH");
    char dest[16];
    // count bounds a fixed array without terminator.
    EXPECT_EQ(strncpy_s(dest, sizeof dest, src.get(), 8), 0);
    EXPECT_STREQ(dest, "ABCDEFGH");
    // Failing on a too-long source needs only destMax characters of it.
    char small[8];
    EXPECT_NE(strncpy_s(small, sizeof small, src.get(), 100), 0);
    EXPECT_STREQ(small, "");
}

class StrncatS : public ::testing::TestWithParam<CopyCase> {};

TEST_P(StrncatS, FollowsTheFailureRule) {
    const CopyCase& c = GetParam();
    std::vector<char> dest(c.destMax + 1, kFill);
    std::memcpy(dest.data(), c.initial.c_str(), c.initial.size() + 1);
    const int rc = strncat_s(dest.data(), c.destMax, c.src, c.count);
    EXPECT_EQ(rc == 0, c.ok) << rc;
    EXPECT_EQ(std::string(dest.data()), c.result);
    EXPECT_EQ(dest[c.destMax], kFill) << "wrote past destMax";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StrncatS,
    ::testing::Values(CopyCase{"appends", "ab", 8, "cd", 10, true, "abcd"},
                      CopyCase{"countLimitsAppend", "ab", 8, "cdef", 2, true, "abcd"},
                      CopyCase{"fillsExactly", "abc", 8, "defg", 4, true, "abcdefg"},
                      CopyCase{"oneTooManyFailsAndEmpties", "abc", 8, "defgh", 5, false, ""},
                      CopyCase{"countCutsBeforeOverflow", "abc", 8, "defgh", 4, true, "abcdefg"},
                      CopyCase{"toEmptyDest", "", 4, "xyz", SIZE_MAX, true, "xyz"},
                      CopyCase{"countZeroKeepsDest", "ab", 4, "xyz", 0, true, "ab"},
                      CopyCase{"fullDestNothingToAdd", "abc", 4, "", 5, true, "abc"},
                      CopyCase{"fullDestFails", "abc", 4, "d", 5, false, ""},
                      CopyCase{"nullSourceEmptiesDest", "ab", 8, nullptr, 5, false, ""}),
    [](const ::testing::TestParamInfo<CopyCase>& info) { return std::string(info.param.name); });

TEST(StrncatSArgs, NullDestZeroSizeAndUnterminatedDest) {
    EXPECT_NE(strncat_s(nullptr, 8, "abc", 3), 0);
    char dest[4] = {'a', 0, kFill, kFill};
    EXPECT_NE(strncat_s(dest, 0, "abc", 3), 0);
    EXPECT_EQ(dest[0], 'a');

    auto unterminated = Unterminated("abcd");
    EXPECT_NE(strncat_s(unterminated.get(), 4, "x", 1), 0);
    EXPECT_EQ(unterminated[0], '\0');
}

TEST(StrncatSArgs, ReadsUnterminatedSourceOnlyAsFarAsNeeded) {
    auto src = Unterminated("WXYZ");
    char dest[16] = "ab";
    EXPECT_EQ(strncat_s(dest, sizeof dest, src.get(), 4), 0);
    EXPECT_STREQ(dest, "abWXYZ");
    char small[4] = "ab";
    EXPECT_NE(strncat_s(small, sizeof small, src.get(), 100), 0);
    EXPECT_STREQ(small, "");
}

TEST(SnprintfS, WritesAtMostCountAndReportsCuts) {
    struct Case {
        std::size_t destMax;
        std::size_t count;
        int rc;
        const char* result;
    };
    // Output of the format below is "id=42:abc" (9 characters).
    const Case cases[] = {
        {16, 15, 9, "id=42:abc"},  // fits
        {16, 9, 9, "id=42:abc"},   // exactly count
        {10, 100, 9, "id=42:abc"}, // exactly destMax - 1
        {16, 5, -1, "id=42"},      // count cuts; cut text stays
        {6, 100, -1, "id=42"},     // destMax cuts
        {16, 0, -1, ""},           // nothing allowed
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("destMax " + std::to_string(c.destMax) + " count " + std::to_string(c.count));
        std::vector<char> dest(c.destMax + 1, kFill);
        EXPECT_EQ(snprintf_s(dest.data(), c.destMax, c.count, "id=%d:%s", 42, "abc"), c.rc);
        EXPECT_STREQ(dest.data(), c.result);
        EXPECT_EQ(dest[c.destMax], kFill);
    }
}

TEST(SnprintfS, UnusableArguments) {
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(snprintf_s(nullptr, 8, 7, "%s", "x"), -1);
    EXPECT_EQ(snprintf_s(dest, 0, 7, "%s", "x"), -1);
    EXPECT_EQ(dest[0], kFill);
    const char* noFormat = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"  // a missing format is the point
    EXPECT_EQ(snprintf_s(dest, sizeof dest, 7, noFormat), -1);
#pragma GCC diagnostic pop
    EXPECT_EQ(dest[0], '\0');
}

TEST(SprintfS, FitsOrEmpties) {
    char dest[8];
    EXPECT_EQ(sprintf_s(dest, sizeof dest, "%s-%d", "ab", 1234), 7);
    EXPECT_STREQ(dest, "ab-1234");
    EXPECT_EQ(sprintf_s(dest, sizeof dest, "%s-%d", "ab", 12345), -1);
    EXPECT_STREQ(dest, "");
    EXPECT_EQ(sprintf_s(dest, sizeof dest, "%s", ""), 0);

    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(sprintf_s(nullptr, 8, "%d", 1), -1);
    EXPECT_EQ(sprintf_s(dest, 0, "%d", 1), -1);
    EXPECT_EQ(dest[0], kFill);
    const char* noFormat = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    EXPECT_EQ(sprintf_s(dest, sizeof dest, noFormat), -1);
#pragma GCC diagnostic pop
    EXPECT_EQ(dest[0], '\0');
}

TEST(MemcpyS, CopiesOrZeroes) {
    const char src[6] = {'a', 'b', 0, 'c', 'd', 'e'};
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(memcpy_s(dest, sizeof dest, src, sizeof src), 0);
    EXPECT_EQ(std::memcmp(dest, src, sizeof src), 0) << "copies bytes, not a string";
    EXPECT_EQ(dest[6], kFill);

    EXPECT_EQ(memcpy_s(dest, sizeof dest, src, 0), 0);

    // count > destMax: fails and zeroes destMax bytes, no more.
    char wide[10];
    std::memset(wide, kFill, sizeof wide);
    EXPECT_NE(memcpy_s(wide, 6, "0123456789", 7), 0);
    EXPECT_EQ(std::string(wide, 6), std::string(6, '\0'));
    EXPECT_EQ(wide[6], kFill);

    std::memset(dest, kFill, sizeof dest);
    EXPECT_NE(memcpy_s(dest, sizeof dest, nullptr, 2), 0);
    EXPECT_EQ(std::string(dest, sizeof dest), std::string(sizeof dest, '\0'));
    EXPECT_NE(memcpy_s(nullptr, 8, src, 2), 0);
}

TEST(MemcpyS, OverlapMovesLikeMemmove) {
    char buf[] = "abcdefgh";
    EXPECT_EQ(memcpy_s(buf + 2, sizeof buf - 2, buf, 6), 0);
    EXPECT_STREQ(buf, "ababcdef");
    char back[] = "abcdefgh";
    EXPECT_EQ(memcpy_s(back, sizeof back, back + 2, 6), 0);
    EXPECT_STREQ(back, "cdefghgh");
}

TEST(MemsetS, SetsCountOrDestMax) {
    char dest[8];
    std::memset(dest, kFill, sizeof dest);
    EXPECT_EQ(memset_s(dest, 6, 'a', 4), 0);
    EXPECT_EQ(std::string(dest, sizeof dest), "aaaaZZZZ");
    EXPECT_NE(memset_s(dest, 6, 'b', 7), 0);
    EXPECT_EQ(std::string(dest, sizeof dest), "bbbbbbZZ");
    EXPECT_EQ(memset_s(dest, 6, 'c', 0), 0);
    EXPECT_EQ(dest[0], 'b');
    EXPECT_NE(memset_s(nullptr, 6, 0, 1), 0);
}

// Base64 bodies of the library exceed 32 KiB; no size may be refused.
TEST(BoundedString, LargeBuffersWork) {
    constexpr std::size_t kBig = 100 * 1024;
    const std::string text(kBig - 1, 'q');
    std::vector<char> dest(kBig);

    EXPECT_EQ(strncpy_s(dest.data(), kBig, text.c_str(), text.size()), 0);
    EXPECT_EQ(std::strlen(dest.data()), text.size());

    dest[0] = '\0';
    EXPECT_EQ(strncat_s(dest.data(), kBig, text.c_str(), text.size()), 0);
    EXPECT_EQ(std::strlen(dest.data()), text.size());

    EXPECT_EQ(snprintf_s(dest.data(), kBig, kBig - 1, "%s", text.c_str()), static_cast<int>(text.size()));
    EXPECT_EQ(sprintf_s(dest.data(), kBig, "%s", text.c_str()), static_cast<int>(text.size()));
    EXPECT_EQ(std::memcmp(dest.data(), text.data(), text.size()), 0);

    EXPECT_EQ(memset_s(dest.data(), kBig, 0, kBig), 0);
    EXPECT_EQ(memcpy_s(dest.data(), kBig, text.data(), text.size()), 0);
    EXPECT_EQ(dest[kBig - 2], 'q');
    EXPECT_EQ(dest[kBig - 1], '\0');
}

}  // namespace
