// Alarm configuration: the definitions loaded from the XML file, the look-ups
// over them, and the clock that stamps alarms. The exported declarations live
// in the public AlarmConfig.h.
#ifndef ALARM_BUILD_ALARM_CONF_INFO_H
#define ALARM_BUILD_ALARM_CONF_INFO_H

#include "AlarmConfig.h"

#endif
