#include "tola_agent.h"
#include "tola_json_parser.h"
#include "tola_log.h"

int TOLAAgent::ProcessResponse(const std::string& config, std::string& errorMessage) {
    FnTrace trace("int TOLAAgent::ProcessResponse(const std::string&, std::string&)");
    ClearErrorMessage();
    // Flags of an earlier document must not make this one look present.
    ClearPresentFlags();

    TOLAJSONParser parser(this);
    int rc = parser.ProcessJSONData(config);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to parse JSON");
        int resetRc = ResetObjectData();
        errorMessage = GetErrorMessage();
        return trace.Returning(resetRc != 0 ? resetRc : rc);
    }

    // Validation and applying the settings to the device come with a later issue.

    if (IsPresent(TolaField::AccessControlSettings) && !SerializeACL()) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to serialize Access Control List to file");
    }
    errorMessage = GetErrorMessage();
    return trace.Returning(0);
}
