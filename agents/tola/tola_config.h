// Reader of the agent configuration file (config.xml) into tolaagent_config_t.
#pragma once

#include "tola_types.h"

// Reads every field from the XML document the caller has opened. 0 when every element was read,
// otherwise the first failed read's result (later fields stay as they were); 1 for a null config.
int get_tolaagent_configuration(tolaagent_config_t* config);
