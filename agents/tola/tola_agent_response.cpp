#include <memory>

#include "msgbus_handler.h"
#include "tola_agent.h"
#include "tola_json_parser.h"
#include "tola_log.h"

int TOLAAgent::ProcessResponse(const std::string& config, std::string& errorMessage) {
    FnTrace trace("int TOLAAgent::ProcessResponse(const std::string&, std::string&)");
    trace.Silence();  // the END line carries the result in brackets
    const char* const kFunction = trace.Signature();
    ClearErrorMessage();
    // Flags of an earlier document must not make this one look present.
    ClearPresentFlags();

    // Nothing of a refused document may stay behind: neither the access-control entries the
    // parse set in shared memory (the record write before the reboot would store them) nor the
    // values it left in the settings object (a later document would apply them).
    std::unique_ptr<tola_acl_shm_t> aclBefore = SaveAclEntries();
    auto forgetDocument = [&]() {
        if (aclBefore) {
            RestoreAclEntries(*aclBefore);
        }
        DropDocumentValues();
    };

    TOLAJSONParser parser(this);
    int rc = parser.ProcessJSONData(config);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to parse JSON");
        forgetDocument();
        int resetRc = ResetObjectData();
        errorMessage = GetErrorMessage();
        rc = resetRc != 0 ? resetRc : rc;
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning [%d]", kFunction, rc);
        return rc;
    }

    rc = ValidateObjectParameters();
    if (rc != 0) {
        // Nothing of a refused document reaches the device or the bus.
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Object Validation failed ret %d", rc);
        forgetDocument();
        errorMessage = GetErrorMessage();
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning [%d]", kFunction, rc);
        return rc;
    }

    // A bus client of the apply's own: the access-control change is announced before any setter.
    std::unique_ptr<MsgbusHandler> bus(new MsgbusHandler());
    PublishAclChange(*bus);
    ApplySettings();
    bus->Uninitialize();
    bus.reset();

    errorMessage = GetErrorMessage();
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning [%d]", kFunction, 0);
    return 0;
}
