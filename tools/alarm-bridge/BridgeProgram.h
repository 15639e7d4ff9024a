// The alarm-bridge program: run until SIGINT/SIGTERM, or print the state.
#ifndef ALARM_BRIDGE_PROGRAM_H
#define ALARM_BRIDGE_PROGRAM_H

#include <string>

namespace bridge {

// 0 after a clean stop, --help, --version or --status; 1 when it cannot
// start or read the state; 2 on a usage error.
int RunBridge(int argc, const char* const* argv);

// The firing alerts of a state file as a table, oldest first; false with *error when unreadable.
bool StatusTable(const std::string& state, std::string* table, std::string* error);

}  // namespace bridge

#endif
