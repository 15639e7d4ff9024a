// The base64 pair (exported, declared in AlarmBase64.h) and the bit helper
// the encoder builds its middle characters from.
#ifndef SRC_BASE64_H
#define SRC_BASE64_H

#include "AlarmBase64.h"

#ifdef __cplusplus
extern "C" {
#endif

// value shifted left by `left`, cut to 8 bits, then shifted right by `right`.
unsigned int cmove_bits(unsigned char value, unsigned int left, unsigned int right);

#ifdef __cplusplus
}
#endif

#endif
