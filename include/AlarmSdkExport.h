#ifndef ALARMSDK_EXPORT_H
#define ALARMSDK_EXPORT_H

/* The library is built with hidden visibility; only what carries this mark is
 * part of its binary interface. */
#if defined(__GNUC__)
#define ALARMSDK_API __attribute__((visibility("default")))
#else
#define ALARMSDK_API
#endif

#endif
