// System family: device identity, subscriber, version, service state, GPS, network time.
#pragma once

#include <cstddef>
#include <cstdint>
