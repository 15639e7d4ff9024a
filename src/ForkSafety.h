// fork() in a service that uses the library (src/ForkSafety.cpp).
#ifndef ALARMSDK_FORK_SAFETY_H
#define ALARMSDK_FORK_SAFETY_H

namespace alarmsdk {

// Registers the fork handlers, once; every manager's constructor calls it.
void GuardForks();

}  // namespace alarmsdk

#endif
