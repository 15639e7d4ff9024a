// The agent's side of an alarm check: one POST to a service's callback resource.
#ifndef AGENT_ALARM_CHECK_POST_H
#define AGENT_ALARM_CHECK_POST_H

#include <string>

namespace nodeward {

// The alarm-check POST itself (libcurl, 2 s to connect, 5 s in all). Returns the HTTP status and the raw answer body,
// or -1 with *error set (invalid JSON, connection failure, timeout).
int PostAlarmCheck(const std::string& host, int port, const std::string& serviceName, const std::string& appId,
                   const std::string& callBackAlarmsJson, std::string* answer, std::string* error);

}  // namespace nodeward

#endif
