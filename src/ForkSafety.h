// fork() in a service that uses the library (src/ForkSafety.cpp).
#ifndef ALARMSDK_FORK_SAFETY_H
#define ALARMSDK_FORK_SAFETY_H

namespace alarmsdk {

// Registers the fork handlers, once; every manager's constructor calls it.
void GuardForks();

}  // namespace alarmsdk

// The definition-load lock (src/AlarmParseConfFile.cpp), taken before a fork
// so that no load is half done in the child, and given back after it.
void ALM_LockLoadsForFork();
void ALM_UnlockLoadsAfterFork();

#endif
