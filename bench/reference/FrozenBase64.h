// The base64 pair as it was before it was made faster, kept unchanged (less
// its log lines) as the reference the current codec is compared with, byte
// for byte, by the differential tests and the benchmarks.
#ifndef FROZEN_BASE64_H
#define FROZEN_BASE64_H

namespace frozen {

int Base64Encode(char* indata, int inlen, char* outdata, unsigned int* outlen);
int Base64Decode(char* indata, int inlen, char* outdata, int* outlen);

}  // namespace frozen

#endif
