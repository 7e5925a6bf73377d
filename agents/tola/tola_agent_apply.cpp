// Applying an accepted settings object to the device, group by group.
#include "tola_agent.h"
#include "tola_log.h"

int TOLAAgent::SetWiFiParameters() {
    FnTrace trace("int TOLAAgent::SetWiFiParameters()");
    return trace.Returning(0);
}

int TOLAAgent::SetVornsharingSettings() {
    FnTrace trace("int TOLAAgent::SetVornsharingSettings()");
    return trace.Returning(0);
}
