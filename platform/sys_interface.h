// The system family of the platform library (sys_*), in parts by area.
#pragma once

#include "sys_core.h"
#include "sys_datacall.h"
#include "sys_device.h"
#include "sys_settings.h"
