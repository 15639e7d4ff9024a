/* Alarm SDK: the version of the headers and of the library.
 *
 * The three numbers below are the one place the SDK's version is kept: the
 * build reads them for the library's file names and SONAME, the CMake package
 * and the Debian packages. A release with a changed major number breaks the
 * binary interface; minor and patch releases keep it.
 *
 * The macros give the version of the headers a service was compiled with;
 * alarmsdk_version() gives the version of the library it runs with. They
 * differ when the library was replaced after the service was built:
 *
 *     if (strcmp(alarmsdk_version(), ALARMSDK_VERSION) != 0) { ... }
 *
 * Included by AlarmSdk.h. Plain C (C99), usable from C and C++.
 */
#ifndef ALARMSDK_VERSION_H
#define ALARMSDK_VERSION_H

#include "AlarmSdkExport.h"

#define ALARMSDK_VERSION_MAJOR 1
#define ALARMSDK_VERSION_MINOR 0
#define ALARMSDK_VERSION_PATCH 0

#define ALARMSDK_VERSION_TEXT_(x) #x
#define ALARMSDK_VERSION_TEXT(x) ALARMSDK_VERSION_TEXT_(x)
/* "MAJOR.MINOR.PATCH", for example "1.0.0". */
#define ALARMSDK_VERSION                          \
    ALARMSDK_VERSION_TEXT(ALARMSDK_VERSION_MAJOR) \
    "." ALARMSDK_VERSION_TEXT(ALARMSDK_VERSION_MINOR) "." ALARMSDK_VERSION_TEXT(ALARMSDK_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the loaded library as "MAJOR.MINOR.PATCH".
 * Returns a static string owned by the library: never NULL, never to be
 * freed or changed. Callable from any thread, at any time (also before
 * ZEBInitAlarmSDK); does not block and does not log. */
ALARMSDK_API const char* alarmsdk_version(void);

#ifdef __cplusplus
}
#endif

#endif
