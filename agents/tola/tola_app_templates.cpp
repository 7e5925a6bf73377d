// Templates and placeholders (being written).
#include "tola_app.h"

int TOLAApp::GetFileContent(std::string, std::string&) { return 1; }
