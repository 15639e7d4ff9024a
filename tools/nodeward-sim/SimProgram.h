// The nodeward-sim program: command line and run loop, kept in the core
// library so main.cpp stays a one-liner and the parsing can be tested.
#ifndef NODEWARD_SIM_PROGRAM_H
#define NODEWARD_SIM_PROGRAM_H

#include <string>

#include "NodewardSim.h"

namespace nodeward {

struct ProgramOptions {
    SimOptions sim;             // endpoint from NODEWARD_ENDPOINT unless --listen; printAlarms on
    std::string readyFile;      // gets the bound endpoint once listening
    long exitAfterAlarms = 0;   // 0: no limit
    long exitAfterSeconds = 0;  // 0: no limit
    bool help = false;
    bool version = false;
};

// false with *error for an unknown option or a bad value.
bool ParseProgramArgs(int argc, const char* const* argv, ProgramOptions* options, std::string* error);

std::string ProgramUsage();

// The whole program: runs until SIGINT/SIGTERM (or an --exit-after limit).
// 0 after a clean stop or --help, 1 when the sim cannot start, 2 on a usage error.
int RunProgram(int argc, const char* const* argv);

}  // namespace nodeward

#endif
