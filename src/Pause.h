// The library's only way to wait. Production sleeps exactly the seconds asked
// for; tests install a substitute so fixed pauses cost them nothing.
#ifndef ALARMSDK_PAUSE_H
#define ALARMSDK_PAUSE_H

namespace alarmsdk {

using PauseFunction = void (*)(unsigned int seconds);

// Waits `seconds` through the installed function (sleep(3) by default).
void Pause(unsigned int seconds);

// Installs fn (nullptr restores sleep) and returns the previous one.
PauseFunction SetPauseFunction(PauseFunction fn);

}  // namespace alarmsdk

#endif
