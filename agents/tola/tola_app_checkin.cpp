// Check-in exchange (being written).
#include "tola_app.h"

void TOLAApp::PerformCheckIn() {}
