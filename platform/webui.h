// Web UI family (webui_*): the web interface's login, advanced, log and language settings.
#pragma once

#include <cstdint>
