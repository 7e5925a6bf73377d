// System family: device identity, subscriber, version, service state, GPS, network time.
#pragma once

#include <cstddef>
#include <cstdint>

#include <ctime>

// Network time (from the modem), seconds since the epoch. 0 on success.
int sys_getNetworkTime(time_t* seconds);
