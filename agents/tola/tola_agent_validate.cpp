// Validation of the settings object against fixed rules and the device's current state.
#include "tola_agent.h"
#include "tola_log.h"

int TOLAAgent::ValidateObjectParameters() {
    FnTrace trace("int TOLAAgent::ValidateObjectParameters()");
    return trace.Returning(0);
}
