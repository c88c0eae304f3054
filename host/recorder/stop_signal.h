// How a worker learns that it shall end, and how it ends when a library call hangs.
#pragma once

namespace oculora {

// SIGTERM and SIGINT ask the worker to stop. A worker that is still there a second later (a name look-up cannot be
// interrupted) leaves at once; it holds nothing but its rings, which survive any moment of death.
void InstallStopSignals();

bool StopRequested();

// Gives the worker another 30 s. One that lets them pass is stuck: it ends with kStuckExitCode and is started anew.
void KickWatchdog();
constexpr int kWatchdogSeconds = 30;
constexpr int kStuckExitCode = 3;

}  // namespace oculora
