// Host platform internals: the environment that configures the simulated device.
#pragma once

#include <cstdint>
#include <string>

namespace ardo {

// ARDO_ROOT, or "" for the real paths.
std::string hostRoot();
// ARDO_TIME_SCALE (> 0), 1 when unset or malformed.
double hostTimeScale();
// Real (wall) milliseconds that a wait of the given device milliseconds takes.
uint64_t hostScaledMilliseconds(uint64_t deviceMilliseconds);
// Creates every missing directory of the path (like mkdir -p). true on success.
bool hostMakeDirs(const std::string& dir);
// Writes a file crash-safely: a temporary file beside it, fsync, rename. A power loss leaves
// either the old or the new content, never a torn file. true on success.
bool hostWriteFileAtomic(const std::string& path, const std::string& content);

// Withdraws a process stop (sys_requestProcessStop), so that one test process can run many
// simulated agent lives. Only for tests: a real process never comes back from a stop.
void hostResetProcessStop();

}  // namespace ardo
