// The library's base64 pair: exact output, the decoder's leniencies and its
// refusals, and the frozen earlier codec as the reference for random input.
#include <numeric>
#include <random>

#include "Base64.h"
#include "FrozenBase64.h"
#include "SdkTestSupport.h"

namespace {

// Bytes past the written output keep this value: neither function terminates.
constexpr char kFill = '#';

TEST(Base64, EncodesExactlyWithoutATerminator) {
    std::string allBytes(256, '\0');
    std::iota(allBytes.begin(), allBytes.end(), '\0');
    const std::pair<std::string, std::string> rows[] = {{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {allBytes, nodeward::EncodeBase64(allBytes)}};
    for (const auto& [plain, text] : rows) {
        SCOPED_TRACE(text);
        // The input lies in a block of exactly its size: a read past inlen is an ASan finding.
        std::unique_ptr<char[]> in(new char[plain.size() + 1]);
        std::memcpy(in.get(), plain.data(), plain.size());
        std::vector<char> out(text.size() + 8, kFill);
        unsigned int outlen = 12345;
        EXPECT_EQ(0, zeb_alm_base64_encode(in.get(), static_cast<int>(plain.size()), out.data(), &outlen));
        EXPECT_EQ(text, std::string(out.data(), text.size()));
        EXPECT_EQ(text.size(), outlen);
        EXPECT_EQ(kFill, out[text.size()]) << "wrote past its output";
    }
    char man[] = "Man";
    char out[8] = {};
    EXPECT_EQ(0, zeb_alm_base64_encode(man, 3, out, nullptr));  // outlen is optional
    EXPECT_STREQ("TWFu", out);
}

TEST(Base64, DecodesLenientlyAndRefusesBadLengthsAndBytes) {
    const struct {
        std::string text;
        int inlen, rc;
        std::string plain;  // what was written, also on failure
    } rows[] = {
        {"", 0, 0, ""}, {"Zg==", 4, 0, "f"}, {"Zm8=", 4, 0, "fo"}, {"Zm9vYmFy", 8, 0, "foobar"},
        // Line feed, carriage return and space are skipped but count toward inlen; a group left incomplete is dropped.
        {"TW\r\nFu  ", 8, 0, "Man"}, {" T W F u", 8, 0, "Man"}, {"TWFu TW ", 8, 0, "Man"},
        // The text is read to its terminator, whatever inlen says.
        {"TWFuTWE=", 4, 0, "ManMa"},
        // Every '=' lowers the byte count of that group and of every later one.
        {"TQ==TWFu", 8, 0, "MM"}, {"TWE=TWFuTWFu", 12, 0, "MaMaMa"}, {"TW=uTWFu", 8, 0, "M`Ma"},
        {"TWF", 3, -1, ""}, {"TW\r\nFu", 6, -1, ""},
        // Output before a bad byte stays.
        {"TWFu\tAAA", 8, -1, "Man"}, {"TWFu-AAA", 8, -1, "Man"}, {"TWFu_AAA", 8, -1, "Man"},
        {"TWFu\x80" "AAA", 8, -1, "Man"}, {"TWFu\xff" "AAA", 8, -1, "Man"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        std::string in = row.text;
        std::vector<char> out(row.text.size() + 8, kFill);
        int outlen = -7;
        EXPECT_EQ(row.rc, zeb_alm_base64_decode(&in[0], row.inlen, out.data(), &outlen));
        EXPECT_EQ(row.rc == 0 ? static_cast<int>(row.plain.size()) : -7, outlen);
        EXPECT_EQ(row.plain, std::string(out.data(), row.plain.size()));
        EXPECT_EQ(kFill, out[row.plain.size()]) << "wrote a terminator or more";
    }
    char in[] = "TWFu";
    char out[4] = {};
    EXPECT_EQ(0, zeb_alm_base64_decode(in, 4, out, nullptr));  // outlen is optional
    EXPECT_EQ("Man", std::string(out, 3));
}

TEST(Base64, MissingPointersFailWithOneLineInputFirstAndOtherRefusalsAreSilent) {
    testsupport::LogCapture log;
    char buf[8] = "TWFu";
    char bad[] = "TW-u";
    unsigned int encodedLength = 99;
    int decodedLength = 99;
    const int results[] = {zeb_alm_base64_encode(nullptr, 3, nullptr, &encodedLength),
                           zeb_alm_base64_decode(nullptr, 4, nullptr, &decodedLength),
                           zeb_alm_base64_encode(buf, 3, nullptr, &encodedLength),
                           zeb_alm_base64_decode(buf, 4, nullptr, &decodedLength),
                           zeb_alm_base64_decode(buf, 3, buf, &decodedLength),
                           zeb_alm_base64_decode(bad, 4, buf, &decodedLength)};
    EXPECT_EQ(std::vector<int>(6, -1), std::vector<int>(std::begin(results), std::end(results)));
    EXPECT_EQ(99u + 99u, encodedLength + static_cast<unsigned int>(decodedLength));
    EXPECT_EQ("In zeb_alm_base64_encode, indata is null!\nIn zeb_alm_base64_decode, indata is null!\n"
              "In zeb_alm_base64_encode, outdata is null!\nIn zeb_alm_base64_decode, outdata is null!\n", log.texts());
    for (const auto& line : log.lines()) {
        EXPECT_EQ("5 ../src/Base64", testsupport::Words(line.level, line.source));
    }
}

// Differential: the codec against its earlier implementation, kept frozen, on random bytes and on texts mixing the
// alphabet with whitespace, '=', tabs and other bytes. Results, lengths and every byte of the output buffers (what lies
// past the written part included) must be the same.
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

        // Valid text with whitespace and stray bytes sprinkled in; every third one is noise throughout.
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
                      zeb_alm_base64_decode(&text[0], inlen, ourOut.data(), &ourCount)) << text;
            ASSERT_EQ(theirCount, ourCount) << text;
            ASSERT_EQ(theirOut, ourOut) << text;
        }
    }
}

}  // namespace
