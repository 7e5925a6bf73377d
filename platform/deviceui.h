// Device UI family (deviceui_*): what the device's own screen shows and allows.
#pragma once

#include <cstdint>
