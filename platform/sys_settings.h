// System family: the device's settings records, getters and setters, modem profiles.
#pragma once

#include <cstddef>
#include <cstdint>
