#include "Base64.h"

#include <cstdint>
#include <cstring>

#include "AlmLog.h"

namespace {

const char kLogSource[] = "../src/Base64";

// constexpr: the decoding table below is built from it at compile time.
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr uint8_t kSkip = 253;
constexpr uint8_t kPad = 254;
constexpr uint8_t kInvalid = 255;

struct DecodeTable {
    uint8_t entry[256];
    constexpr DecodeTable() : entry() {
        for (int i = 0; i < 256; ++i) {
            entry[i] = kInvalid;
        }
        for (int i = 0; i < 64; ++i) {
            entry[static_cast<unsigned char>(kAlphabet[i])] = static_cast<uint8_t>(i);
        }
        entry[uint8_t{'\n'}] = kSkip;
        entry[uint8_t{'\r'}] = kSkip;
        entry[uint8_t{' '}] = kSkip;
        entry[uint8_t{'='}] = kPad;
    }
};

constexpr DecodeTable kDecode;

}  // namespace

unsigned int cmove_bits(unsigned char value, unsigned int left, unsigned int right) {
    unsigned int shifted = (static_cast<unsigned int>(value) << left) & 0xFFu;
    return shifted >> right;
}

int zeb_alm_base64_encode(char* indata, int inlen, char* outdata, unsigned int* outlen) {
    if (indata == nullptr) {
        ALM_LOG_ERROR("In %s, indata is null!", "zeb_alm_base64_encode");
        return -1;
    }
    if (outdata == nullptr) {
        ALM_LOG_ERROR("In %s, outdata is null!", "zeb_alm_base64_encode");
        return -1;
    }
    if (inlen < 0) {
        ALM_LOG_ERROR("In %s, inlen is negative!", "zeb_alm_base64_encode");
        return -1;
    }
    const int pad = (inlen % 3 == 0) ? 0 : 3 - inlen % 3;
    const int paddedLength = inlen + pad;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(indata);
    const unsigned char* const fullEnd = in + (inlen - inlen % 3);
    char* out = outdata;
    for (; in != fullEnd; in += 3, out += 4) {
        out[0] = kAlphabet[in[0] >> 2];
        out[1] = kAlphabet[cmove_bits(in[0], 6, 2) + cmove_bits(in[1], 0, 4)];
        out[2] = kAlphabet[cmove_bits(in[1], 4, 2) + cmove_bits(in[2], 0, 6)];
        out[3] = kAlphabet[in[2] & 63];
    }
    // The last group never reads the bytes past inlen.
    if (pad == 1) {
        out[0] = kAlphabet[(in[0] >> 2) & 63];
        out[1] = kAlphabet[cmove_bits(in[0], 6, 2) + cmove_bits(in[1], 0, 4)];
        out[2] = kAlphabet[cmove_bits(in[1], 4, 2)];
        out[3] = '=';
    } else if (pad == 2) {
        out[0] = kAlphabet[(in[0] >> 2) & 63];
        out[1] = kAlphabet[cmove_bits(in[0], 6, 2)];
        out[2] = '=';
        out[3] = '=';
    }
    if (outlen != nullptr) {
        *outlen = static_cast<unsigned int>(static_cast<int64_t>(paddedLength) * 8 / 6);
    }
    return 0;
}

int zeb_alm_base64_decode(char* indata, int inlen, char* outdata, int* outlen) {
    if (indata == nullptr) {
        ALM_LOG_ERROR("In %s, indata is null!", "zeb_alm_base64_decode");
        return -1;
    }
    if (outdata == nullptr) {
        ALM_LOG_ERROR("In %s, outdata is null!", "zeb_alm_base64_decode");
        return -1;
    }
    if ((inlen & 3) != 0) {
        return -1;
    }
    // Decoding runs to the first zero byte, whatever inlen says.
    const unsigned char* in = reinterpret_cast<const unsigned char*>(indata);
    const unsigned char* const end = in + std::strlen(indata);
    uint32_t accumulator = 0;
    int inGroup = 0;
    int written = 0;
    // Lowered by every '=' and never reset: later groups keep losing bytes.
    int bytesPerGroup = 3;
    unsigned char* out = reinterpret_cast<unsigned char*>(outdata);
    while (in != end) {
        // Whole groups of four alphabet characters, while no group is open
        // and no '=' has been seen: the common case, a group at a time.
        if (inGroup == 0 && bytesPerGroup == 3) {
            while (end - in >= 4) {
                const uint32_t a = kDecode.entry[in[0]], b = kDecode.entry[in[1]], c = kDecode.entry[in[2]],
                               d = kDecode.entry[in[3]];
                // Skip, pad and invalid entries are all 64 or more.
                if ((a | b | c | d) >= 64) {
                    break;
                }
                const uint32_t group = (a << 18) | (b << 12) | (c << 6) | d;
                out[written] = static_cast<unsigned char>(group >> 16);
                out[written + 1] = static_cast<unsigned char>(group >> 8);
                out[written + 2] = static_cast<unsigned char>(group);
                written += 3;
                in += 4;
            }
            if (in == end) {
                break;
            }
        }
        // Anything else a character at a time: whitespace, '=', a bad byte,
        // or the rest of a group they interrupted.
        uint8_t value = kDecode.entry[*in++];
        if (value == kInvalid) {
            return -1;
        }
        if (value == kSkip) {
            continue;
        }
        if (value == kPad) {
            value = 0;
            --bytesPerGroup;
        }
        accumulator = (accumulator << 6) | value;
        if (++inGroup == 4) {
            out[written++] = static_cast<unsigned char>((accumulator >> 16) & 0xFF);
            if (bytesPerGroup > 1) {
                out[written++] = static_cast<unsigned char>((accumulator >> 8) & 0xFF);
            }
            if (bytesPerGroup > 2) {
                out[written++] = static_cast<unsigned char>(accumulator & 0xFF);
            }
            accumulator = 0;
            inGroup = 0;
        }
    }
    if (outlen != nullptr) {
        *outlen = written;
    }
    return 0;
}
