// Response handling (being written).
#include "tola_app.h"

bool TOLAApp::SaveConfiguration(std::string&) { return true; }
