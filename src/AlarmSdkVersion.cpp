// The library's own version, compiled in, so a service can tell which build
// it actually loaded.
#include "AlarmSdkVersion.h"

extern "C" const char* alarmsdk_version(void) { return ALARMSDK_VERSION; }
