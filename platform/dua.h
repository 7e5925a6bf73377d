// Data-usage family (dua_*): the device's data-usage service.
#pragma once

#include <cstdint>
