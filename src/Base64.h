// Standard base64 (A-Z a-z 0-9 + /, pad '='), no line breaks, with the
// library's own length and whitespace rules. Neither function writes a
// terminating zero; callers size and pre-zero the output.
#ifndef ALARM_BASE64_H
#define ALARM_BASE64_H

#ifdef __cplusplus
extern "C" {
#endif

// value shifted left by `left`, cut to 8 bits, then shifted right by `right`.
unsigned int cmove_bits(unsigned char value, unsigned int left, unsigned int right);

// Encodes inlen bytes of indata into outdata, which must hold
// 4 * ceil(inlen / 3) characters. outlen (may be NULL) receives the number of
// characters written. 0 on success, -1 when indata or outdata is NULL.
int zeb_alm_base64_encode(char* indata, int inlen, char* outdata, unsigned int* outlen);

// Decodes the zero-terminated text indata into outdata (at most as many bytes
// as the text has characters). inlen must be a multiple of 4 and serves only
// that test: decoding runs to the first zero byte. Line feed, carriage return
// and space are skipped. outlen (may be NULL) receives the byte count on
// success. 0 on success; -1 on NULL pointers, a bad length or an invalid byte
// (bytes decoded before it stay in outdata).
int zeb_alm_base64_decode(char* indata, int inlen, char* outdata, int* outlen);

#ifdef __cplusplus
}
#endif

#endif
