/* Alarm SDK: the base64 pair every body exchanged with the agent goes
 * through. Standard alphabet (A-Z a-z 0-9 + /, pad '='), no line breaks.
 * Neither function writes a terminating zero: callers size and pre-zero the
 * output. Both are reentrant and keep no state. Plain C (C99).
 */
#ifndef ALARM_BASE64_H
#define ALARM_BASE64_H

#include "AlarmSdkExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Encodes inlen bytes of indata (no terminator needed) into outdata, which
 * must hold 4 * ceil(inlen / 3) characters. outlen (may be NULL) receives the
 * number of characters written. 0 on success, -1 when indata or outdata is NULL. */
ALARMSDK_API int zeb_alm_base64_encode(char* indata, int inlen, char* outdata, unsigned int* outlen);

/* Decodes the zero-terminated text indata into outdata (at most as many bytes
 * as the text has characters). inlen must be a multiple of 4 and serves only
 * that test: decoding runs to the first zero byte. Line feed, carriage return
 * and space are skipped wherever they stand; after a '=' every later group
 * yields one byte fewer. outlen (may be NULL) receives the byte count on
 * success. 0 on success; -1 on NULL pointers, a bad length or an invalid
 * byte (bytes decoded before it stay in outdata). */
ALARMSDK_API int zeb_alm_base64_decode(char* indata, int inlen, char* outdata, int* outlen);

#ifdef __cplusplus
}
#endif

#endif
