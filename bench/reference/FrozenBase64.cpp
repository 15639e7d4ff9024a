#include "FrozenBase64.h"

#include <cstdint>

namespace frozen {
namespace {

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

unsigned int MoveBits(unsigned char value, unsigned int left, unsigned int right) {
    unsigned int shifted = (static_cast<unsigned int>(value) << left) & 0xFFu;
    return shifted >> right;
}

}  // namespace

int Base64Encode(char* indata, int inlen, char* outdata, unsigned int* outlen) {
    if (indata == nullptr || outdata == nullptr || inlen < 0) {
        return -1;
    }
    const int pad = (inlen % 3 == 0) ? 0 : 3 - inlen % 3;
    const int paddedLength = inlen + pad;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(indata);
    char* out = outdata;
    for (int p = 0; p < paddedLength; p += 3) {
        const bool last = p + 3 >= paddedLength;
        const unsigned char b0 = in[p];
        const unsigned char b1 = (last && pad == 2) ? 0 : in[p + 1];
        const unsigned char b2 = (last && pad >= 1) ? 0 : in[p + 2];
        *out++ = kAlphabet[(b0 >> 2) & 63];
        if (!last || pad == 0) {
            *out++ = kAlphabet[MoveBits(b0, 6, 2) + MoveBits(b1, 0, 4)];
            *out++ = kAlphabet[MoveBits(b1, 4, 2) + MoveBits(b2, 0, 6)];
            *out++ = kAlphabet[b2 & 63];
        } else if (pad == 1) {
            *out++ = kAlphabet[MoveBits(b0, 6, 2) + MoveBits(b1, 0, 4)];
            *out++ = kAlphabet[MoveBits(b1, 4, 2)];
            *out++ = '=';
        } else {
            *out++ = kAlphabet[MoveBits(b0, 6, 2)];
            *out++ = '=';
            *out++ = '=';
        }
    }
    if (outlen != nullptr) {
        *outlen = static_cast<unsigned int>(static_cast<int64_t>(paddedLength) * 8 / 6);
    }
    return 0;
}

int Base64Decode(char* indata, int inlen, char* outdata, int* outlen) {
    if (indata == nullptr || outdata == nullptr) {
        return -1;
    }
    if ((inlen & 3) != 0) {
        return -1;
    }
    uint32_t accumulator = 0;
    int inGroup = 0;
    int written = 0;
    int bytesPerGroup = 3;
    unsigned char* out = reinterpret_cast<unsigned char*>(outdata);
    for (const unsigned char* in = reinterpret_cast<const unsigned char*>(indata); *in != 0; ++in) {
        uint8_t value = kDecode.entry[*in];
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

}  // namespace frozen
