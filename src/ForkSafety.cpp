// fork() in a service that uses the library. Before the fork every library
// lock is taken, in the order the library's own paths take them, so that no
// other thread holds one at the moment of the fork; the parent gives them
// back; the child gives them back too and restarts every manager with an
// empty queue and counters from zero, its send thread starting with the
// child's first alarm (the threads of the parent do not exist in the child).
// The platform libraries guard their own locks the same way; registered when
// they were loaded, before this, their handlers take their locks after ours.
#include "ForkSafety.h"

#include <pthread.h>

#include "AlarmManager.h"
#include "AlarmManagerEx.h"
#include "AlmRukInterface.h"

namespace {

void Prepare() {
    AlarmManagerEx::LockChecksForFork();  // before the transport's registry, as a registration takes them
    AlarmManager::GetInstance()->LockForFork();
    AlarmManagerEx::LockAllForFork();
    AlmRukInterface::LockAddressesForFork();  // last: nothing else is taken while it is held
}

void InParent() {
    AlmRukInterface::UnlockAddressesAfterFork();
    AlarmManagerEx::UnlockAllAfterFork();
    AlarmManager::GetInstance()->UnlockAfterFork();
    AlarmManagerEx::UnlockChecksAfterFork();
}

void InChild() {
    AlmRukInterface::UnlockAddressesAfterFork();
    AlarmManagerEx::RestartAllInChild();
    AlarmManager::GetInstance()->RestartInChild();
    AlarmManagerEx::UnlockChecksAfterFork();
}

pthread_once_t g_once = PTHREAD_ONCE_INIT;

void Register() { (void)pthread_atfork(&Prepare, &InParent, &InChild); }

}  // namespace

void alarmsdk::GuardForks() { (void)pthread_once(&g_once, &Register); }
