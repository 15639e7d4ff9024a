// Alarm configuration helpers: the definitions loaded from the XML file, the
// look-ups over them, and the clock that stamps alarms.
#ifndef ALARM_BUILD_ALARM_CONF_INFO_H
#define ALARM_BUILD_ALARM_CONF_INFO_H

#include <cstdint>

// Wall-clock milliseconds since the epoch (not monotonic: it follows clock
// changes, as alarm times must).
uint64_t ALM_GetCurrMs();

#endif
