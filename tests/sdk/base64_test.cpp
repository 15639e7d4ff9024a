#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Base64.h"
#include "FrozenBase64.h"
#include "LogCapture.h"
#include "runlog.h"

namespace {

// Bytes past the written output keep this value: neither function terminates.
constexpr char kFill = '#';

struct Encoded {
    int rc;
    unsigned int outlen;
    std::string text;  // exactly the characters written
    bool tailUntouched;
};

// The input lives in a heap block of exactly its size, so a read past inlen
// is an ASan finding.
Encoded Encode(const std::string& plain) {
    std::unique_ptr<char[]> in(new char[plain.size() + 1]);
    std::memcpy(in.get(), plain.data(), plain.size());
    const std::size_t expected = (plain.size() + 2) / 3 * 4;
    std::vector<char> out(expected + 8, kFill);
    Encoded result{};
    result.outlen = 12345;
    result.rc = zeb_alm_base64_encode(in.get(), static_cast<int>(plain.size()), out.data(), &result.outlen);
    result.text.assign(out.data(), expected);
    result.tailUntouched = out[expected] == kFill;
    return result;
}

struct Decoded {
    int rc;
    int outlen;
    std::vector<char> out;
};

// Decodes `text` (terminated) with the given inlen; outlen starts at -7 so an
// untouched value is visible.
Decoded Decode(const std::string& text, int inlen) {
    Decoded result{0, -7, std::vector<char>(text.size() + 8, kFill)};
    std::string terminated = text;  // c_str() supplies the terminator
    result.rc = zeb_alm_base64_decode(&terminated[0], inlen, result.out.data(), &result.outlen);
    return result;
}

std::string Written(const Decoded& d) { return std::string(d.out.data(), d.outlen < 0 ? 0 : d.outlen); }

TEST(Base64Encode, Rfc4648VectorsWithExactLengthAndNoTerminator) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},          {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& v : vectors) {
        SCOPED_TRACE(v.first);
        const Encoded e = Encode(v.first);
        EXPECT_EQ(0, e.rc);
        EXPECT_EQ(v.second, e.text);
        EXPECT_EQ(std::strlen(v.second), e.outlen);
        EXPECT_TRUE(e.tailUntouched) << "encoder wrote past its output";
    }
}

TEST(Base64Encode, AllByteValuesIncludingZeroAndHighBytes) {
    std::string plain;
    for (int i = 0; i < 256; ++i) {
        plain.push_back(static_cast<char>(i));
    }
    const Encoded e = Encode(plain);
    ASSERT_EQ(0, e.rc);
    EXPECT_EQ(344u, e.outlen);
    EXPECT_EQ("AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4v", e.text.substr(0, 64));
    EXPECT_EQ("8PHy8/T19vf4+fr7/P3+/w==", e.text.substr(320));
}

TEST(Base64Encode, OutlenIsOptional) {
    char in[] = "Man";
    char out[8] = {};
    EXPECT_EQ(0, zeb_alm_base64_encode(in, 3, out, nullptr));
    EXPECT_STREQ("TWFu", out);
}

TEST(Base64Encode, NullPointersFailWithOneLogLineInputFirst) {
    testsupport::LogCapture log;
    char buf[8] = {};
    unsigned int outlen = 99;
    EXPECT_EQ(-1, zeb_alm_base64_encode(nullptr, 3, buf, &outlen));
    EXPECT_EQ(-1, zeb_alm_base64_encode(buf, 3, nullptr, &outlen));
    EXPECT_EQ(-1, zeb_alm_base64_encode(nullptr, 3, nullptr, &outlen));
    EXPECT_EQ(99u, outlen);
    EXPECT_EQ(2u, log.count("In zeb_alm_base64_encode, indata is null!", RUNLOG_LEVEL_ERROR, "../src/Base64"))
        << log.dump();
    EXPECT_EQ(1u, log.count("In zeb_alm_base64_encode, outdata is null!", RUNLOG_LEVEL_ERROR, "../src/Base64"))
        << log.dump();
    EXPECT_EQ(3u, log.lines().size());
}

TEST(Base64Decode, Rfc4648VectorsAndOutlen) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},         {"Zg==", "f"},         {"Zm8=", "fo"},         {"Zm9v", "foo"},
        {"Zm9vYg==", "foob"}, {"Zm9vYmE=", "fooba"}, {"Zm9vYmFy", "foobar"}, {"TWFu", "Man"},
        {"TWE=", "Ma"},   {"TQ==", "M"},
    };
    for (const auto& v : vectors) {
        SCOPED_TRACE(v.first);
        const Decoded d = Decode(v.first, static_cast<int>(std::strlen(v.first)));
        EXPECT_EQ(0, d.rc);
        EXPECT_EQ(v.second, Written(d));
        EXPECT_EQ(kFill, d.out[static_cast<std::size_t>(d.outlen)]) << "decoder wrote a terminator";
    }
}

TEST(Base64Decode, LengthNotMultipleOfFourFailsBeforeWritingAnything) {
    for (const char* text : {"TWF", "TWFuT", "TW\r\nFu"}) {
        SCOPED_TRACE(text);
        const Decoded d = Decode(text, static_cast<int>(std::strlen(text)));
        EXPECT_EQ(-1, d.rc);
        EXPECT_EQ(-7, d.outlen);
        EXPECT_EQ(kFill, d.out[0]);
    }
}

TEST(Base64Decode, OnlyLineFeedCarriageReturnAndSpaceAreSkipped) {
    // Whitespace counts toward inlen but not toward the groups.
    Decoded d = Decode("TW\r\nFu  ", 8);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ("Man", Written(d));

    d = Decode(" T W F u", 8);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ("Man", Written(d));

    // A group left incomplete by skipped bytes is dropped without error.
    d = Decode("TWFu TW ", 8);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ("Man", Written(d));
}

TEST(Base64Decode, InvalidBytesFailKeepingEarlierOutputAndOutlen) {
    const std::string bad[] = {"\t", "-", "_", ".", "\x80", "\xff", "\x7f"};
    for (const std::string& b : bad) {
        SCOPED_TRACE(static_cast<int>(static_cast<unsigned char>(b[0])));
        Decoded d = Decode("TWFu" + b + "AAA", 8);
        EXPECT_EQ(-1, d.rc);
        EXPECT_EQ(-7, d.outlen);
        EXPECT_EQ("Man", std::string(d.out.data(), 3)) << "output before the bad byte is kept";

        d = Decode("TW" + b + "u", 4);
        EXPECT_EQ(-1, d.rc);
    }
}

TEST(Base64Decode, ReadsPastInlenUpToTheTerminator) {
    const Decoded d = Decode("TWFuTWE=", 4);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ("ManMa", Written(d));
}

TEST(Base64Decode, PadCountCarriesOverIntoLaterGroups) {
    Decoded d = Decode("TQ==TWFu", 8);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ("MM", Written(d));

    d = Decode("TWE=TWFuTWFu", 12);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ("MaMaMa", Written(d));

    // A "=" in the middle of a group still lowers the count for that group.
    d = Decode("TW=uTWFu", 8);
    EXPECT_EQ(0, d.rc);
    EXPECT_EQ(4, d.outlen);
}

TEST(Base64Decode, OutlenIsOptional) {
    char in[] = "TWFu";
    char out[4] = {};
    EXPECT_EQ(0, zeb_alm_base64_decode(in, 4, out, nullptr));
    EXPECT_EQ("Man", std::string(out, 3));
}

TEST(Base64Decode, NullPointersFailWithOneLogLineInputFirst) {
    testsupport::LogCapture log;
    char buf[8] = "TWFu";
    int outlen = 99;
    EXPECT_EQ(-1, zeb_alm_base64_decode(nullptr, 4, buf, &outlen));
    EXPECT_EQ(-1, zeb_alm_base64_decode(buf, 4, nullptr, &outlen));
    EXPECT_EQ(-1, zeb_alm_base64_decode(nullptr, 4, nullptr, &outlen));
    EXPECT_EQ(99, outlen);
    EXPECT_EQ(2u, log.count("In zeb_alm_base64_decode, indata is null!", RUNLOG_LEVEL_ERROR, "../src/Base64"))
        << log.dump();
    EXPECT_EQ(1u, log.count("In zeb_alm_base64_decode, outdata is null!", RUNLOG_LEVEL_ERROR, "../src/Base64"))
        << log.dump();
    EXPECT_EQ(3u, log.lines().size());

    // A bad length or byte fails silently.
    log.clear();
    EXPECT_EQ(-1, zeb_alm_base64_decode(buf, 3, buf, &outlen));
    char bad[] = "TW-u";
    char out[4];
    EXPECT_EQ(-1, zeb_alm_base64_decode(bad, 4, out, &outlen));
    EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Base64Cmove, ShiftsCutToEightBits) {
    EXPECT_EQ(0x30u, cmove_bits(0xFF, 6, 2));  // (b & 3) << 4
    EXPECT_EQ(0x0Fu, cmove_bits(0xFF, 0, 4));  // b >> 4
    EXPECT_EQ(0x3Cu, cmove_bits(0xFF, 4, 2));  // (b & 15) << 2
    EXPECT_EQ(0x03u, cmove_bits(0xFF, 0, 6));  // b >> 6
    EXPECT_EQ(0x10u, cmove_bits(0x41, 6, 2));
}

// Random buffers of every length class, each encoded into a block of exactly
// the announced size and decoded again, with whitespace sprinkled in.
TEST(Base64Property, RandomBuffersRoundTrip) {
    std::mt19937 rng(20240611u);
    std::uniform_int_distribution<int> byteDist(0, 255);
    std::uniform_int_distribution<int> lenDist(0, 400);
    const char whitespace[] = {'\n', '\r', ' '};
    for (int iteration = 0; iteration < 600; ++iteration) {
        const int len = iteration < 50 ? iteration : lenDist(rng);
        std::unique_ptr<char[]> plain(new char[static_cast<std::size_t>(len) + 1]);
        for (int i = 0; i < len; ++i) {
            plain[static_cast<std::size_t>(i)] = static_cast<char>(byteDist(rng));
        }
        const unsigned int expectedLen = static_cast<unsigned int>((len + 2) / 3 * 4);
        std::unique_ptr<char[]> encoded(new char[expectedLen + 1]);
        unsigned int outlen = 0;
        ASSERT_EQ(0, zeb_alm_base64_encode(plain.get(), len, encoded.get(), &outlen));
        ASSERT_EQ(expectedLen, outlen) << "len " << len;
        std::string text(encoded.get(), outlen);
        ASSERT_EQ(std::string::npos, text.find_first_not_of(
                                         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="));

        if (iteration % 2 == 1) {
            const int extra = std::uniform_int_distribution<int>(1, 12)(rng);
            for (int k = 0; k < extra; ++k) {
                const std::size_t at = std::uniform_int_distribution<std::size_t>(0, text.size())(rng);
                text.insert(at, 1, whitespace[k % 3]);
            }
            text.append((4 - text.size() % 4) % 4, ' ');
        }
        std::unique_ptr<char[]> input(new char[text.size() + 1]);
        std::memcpy(input.get(), text.c_str(), text.size() + 1);
        std::unique_ptr<char[]> decoded(new char[text.size() + 1]);
        int decodedLen = -1;
        ASSERT_EQ(0, zeb_alm_base64_decode(input.get(), static_cast<int>(text.size()), decoded.get(), &decodedLen));
        ASSERT_EQ(len, decodedLen) << "len " << len;
        ASSERT_EQ(0, std::memcmp(plain.get(), decoded.get(), static_cast<std::size_t>(len))) << "len " << len;
    }
}

// Differential: the codec against its earlier implementation, kept frozen,
// on random bytes and on texts mixing the alphabet with whitespace, '=', tabs
// and other bytes. Results, lengths and every byte of the output buffers
// (what lies past the written part included) must be the same.
TEST(Base64Differential, SameResultsAndBuffersAsTheFrozenCodec) {
    std::mt19937 rng(1311u);
    const std::string pieces = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string odd("\n\r =\t-_.\x80\xff\0", 11);  // the zero byte ends a text early
    auto pick = [&rng](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    for (int iteration = 0; iteration < 3000; ++iteration) {
        const int len = iteration < 64 ? iteration : pick(0, 700);
        std::string plain(static_cast<std::size_t>(len), '\0');
        for (char& c : plain) {
            c = static_cast<char>(pick(0, 255));
        }
        const std::size_t encodedSize = (plain.size() + 2) / 3 * 4;
        std::vector<char> ours(encodedSize + 4, kFill);
        std::vector<char> theirs(ours);
        unsigned int ourLen = 1;
        unsigned int theirLen = 2;
        ASSERT_EQ(frozen::Base64Encode(&plain[0], len, theirs.data(), &theirLen),
                  zeb_alm_base64_encode(&plain[0], len, ours.data(), &ourLen));
        ASSERT_EQ(theirLen, ourLen);
        ASSERT_EQ(theirs, ours) << "encoding " << len << " bytes";

        // Valid text with whitespace and stray bytes sprinkled in; every
        // third one is noise throughout.
        std::string text(ours.data(), encodedSize);
        const int insertions = iteration % 3 == 0 ? len / 2 : pick(0, 6);
        for (int k = 0; k < insertions; ++k) {
            const char c = iteration % 3 == 0 ? (k % 2 != 0 ? pieces[pick(0, 63)] : odd[pick(0, 10)])
                                              : odd[pick(0, iteration % 2 != 0 ? 3 : 10)];
            text.insert(static_cast<std::size_t>(pick(0, static_cast<int>(text.size()))), 1, c);
        }
        for (const int inlen : {static_cast<int>(text.size()), static_cast<int>(text.size() & ~std::size_t{3})}) {
            std::vector<char> ourOut(text.size() + 4, kFill);
            std::vector<char> theirOut(ourOut);
            int ourCount = -7;  // left alone on failure
            int theirCount = -7;
            ASSERT_EQ(frozen::Base64Decode(&text[0], inlen, theirOut.data(), &theirCount),
                      zeb_alm_base64_decode(&text[0], inlen, ourOut.data(), &ourCount))
                << text;
            ASSERT_EQ(theirCount, ourCount) << text;
            ASSERT_EQ(theirOut, ourOut) << text;
        }
    }
}

}  // namespace
