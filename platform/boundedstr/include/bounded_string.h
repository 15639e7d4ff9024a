/* Bounded string and memory functions with the Annex K names and failure rule:
 * a copy or append that does not fit fails and leaves the destination empty
 * (never cut), except snprintf_s which cuts and says so.
 * All return 0 on success and non-zero on failure unless stated otherwise.
 */
#ifndef BOUNDED_STRING_H
#define BOUNDED_STRING_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BOUNDED_STRING_ERROR 1

/* count < destMax: copies at most count characters and terminates (a longer
 * source is cut; success). count >= destMax and strlen(src) >= destMax: fails,
 * dest[0] = 0. NULL src: dest emptied, failure. NULL dest or destMax 0: failure,
 * nothing written. */
int strncpy_s(char* dest, size_t destMax, const char* src, size_t count);

/* Appends at most count characters of src. If the result would not fit in
 * destMax - 1 characters it fails and leaves dest empty. */
int strncat_s(char* dest, size_t destMax, const char* src, size_t count);

/* Writes at most min(count, destMax - 1) characters and a terminator. Returns
 * the length written, or -1 when the output had to be cut (the cut text stays)
 * or the arguments are unusable. */
int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

/* Returns the length written; output that does not fit empties dest and
 * returns -1. */
int sprintf_s(char* dest, size_t destMax, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/* count > destMax fails (dest zeroed up to destMax); NULL dest fails; NULL src
 * fails and zeroes dest. Overlapping regions are copied as memmove does. */
int memcpy_s(void* dest, size_t destMax, const void* src, size_t count);

/* count > destMax fails but still sets destMax bytes; NULL dest fails. */
int memset_s(void* dest, size_t destMax, int c, size_t count);

#ifdef __cplusplus
}
#endif
#endif
