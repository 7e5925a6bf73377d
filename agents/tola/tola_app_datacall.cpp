// Data calls: the device's Internet call, or the agent's own call on the carrier's apps APN,
// and the network conditions under which the data-usage service may be asked.
#include <cstdlib>
#include <cstring>

#include "sys_core.h"
#include "sys_datacall.h"
#include "sys_device.h"
#include "tola_app.h"
#include "tola_log.h"

namespace {
constexpr const char* kDataCallId = "tola_data_call_id";
// No interface name comes near this; a platform asking for more is treated like a failed
// allocation rather than trusted with an arbitrary amount of memory.
constexpr uint32_t kMaxInterfaceNameBuffer = 64 * 1024;
}  // namespace

int TOLAApp::CheckDataCallAndConnect() {
    TOLA_TRACE();
    bool up;
    if (config.dataCallType != 0) {
        TLOG_SYS(TOLA_LOG_INFO, "[%s]:[%s] - Trying to establish Internet APN call now");
        up = EstablishInternetApnCall(1);
    } else {
        TLOG_SYS(TOLA_LOG_INFO, "[%s]:[%s] - Trying to establish apps APN call now");
        up = EstablishAdminApnCall(1);
    }
    return trace.Returning(up ? 0 : 1);
}

// True when the call was up already or came up before the last permitted attempt; a call that
// needed the last attempt is reported as not up, even when that attempt brought it up.
bool TOLAApp::EstablishInternetApnCall(unsigned int attempts) {
    FnTrace trace(__PRETTY_FUNCTION__);
    unsigned int count = 0;
    int status = 0;
    sys_getCellularDataConnectionStatus(&status);
    if (status != SYS_DATA_CALL_CONNECTED && attempts != 0) {
        while (true) {
            ++count;
            sys_cellularDataConnect(0);
            sys_sleepSeconds(3);
            status = 0;
            sys_getCellularDataConnectionStatus(&status);
            if (status == SYS_DATA_CALL_CONNECTED) {
                TLOG(TOLA_LOG_DEBUG,
                     "[%s]:[%s] - sleeping for 20 seconds to complete the routing for WAN connection\n");
                sys_sleepSeconds(20);
                TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Completed sleeping of 20 seconds\n");
                break;
            }
            if (count >= attempts) {
                break;
            }
        }
    }
    bool result = count != attempts;
    trace.Silence();
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END ret:%d", trace.Signature(), result ? 1 : 0);
    return result;
}

bool TOLAApp::EstablishAdminApnCall(unsigned int retries) {
    TOLA_TRACE();
    interfaceName.clear();
    while (true) {
        uint32_t size = 0;
        int rc = sys_cellularDataUsageAPNCallConnect(nullptr, &size, kDataCallId, 0);
        if (rc == SYS_RESULT_BUFFER_TOO_SMALL) {
            char* buffer = size > 0 && size <= kMaxInterfaceNameBuffer
                               ? static_cast<char*>(std::calloc(size, 1))
                               : nullptr;
            if (buffer != nullptr) {
                rc = sys_cellularDataUsageAPNCallConnect(buffer, &size, kDataCallId);
                if (rc == 0) {
                    // The platform terminates the name within size bytes; never read past them.
                    std::string name(buffer, strnlen(buffer, size));
                    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - apps APN call succeeded, interface is %s",
                             name.c_str());
                    interfaceName = name;
                }
                std::free(buffer);
            }
        }
        if (rc == 0) {
            return trace.Returning(true);
        }
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: sys_cellularDataUsageAPNCallConnect returned %d", __func__,
                 rc);
        sys_sleepMilliseconds(100);
        if (retries == 0) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: AdminAPNCallConnect failed", __func__);
            return trace.Returning(false);
        }
        --retries;
    }
}

void TOLAApp::DisconnectAdminApnCall() {
    TOLA_TRACE();
    if (interfaceName.empty()) {
        return;
    }
    int rc = sys_cellularDataUsageAPNCallDisconnect(kDataCallId);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: sys_cellularDataUsageAPNCallDisconnect returned %d",
                 __func__, rc);
    }
}

// The Internet call belongs to the device and is never torn down here.
void TOLAApp::EndRequest() {
    TOLA_TRACE();
    if (config.dataCallType == 0) {
        TLOG_SYS(TOLA_LOG_INFO, "[%s]:[%s] - Disconnecting apps APN call");
        DisconnectAdminApnCall();
    }
}

// The data-usage service may only be asked on a Veltra SIM, in service, at home, and on a radio
// technology that reaches the carrier's usage server (LTE or 5G NR).
bool TOLAApp::CheckPreconditionsForRequest() {
    TOLA_TRACE();
    int carrier = 0;
    int rc = sys_getSIMCarrier(&carrier);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: sys_getSIMCarrier returned %d", __func__, rc);
        return trace.Returning(false);
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - SIM carrier is %d", __func__, carrier);
    if (carrier != SYS_SIM_CARRIER_VELTRA) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Not attempting data usage query as the SIM carrier is non-veltra %d",
             carrier);
        return trace.Returning(false);
    }

    int serviceStatus = 0;
    rc = sys_getCellularServiceStatus(&serviceStatus);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s - sys_getCellularServiceStatus returned %d", __func__, rc);
        return trace.Returning(false);
    }
    if (serviceStatus != SYS_SERVICE_STATUS_IN_SERVICE) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s: No service. Cannot get data usage", __func__);
        return trace.Returning(false);
    }

    sys_cellular_service_stats_t stats;
    std::memset(&stats, 0, sizeof stats);
    rc = sys_getCellularServiceStats(&stats);
    if (rc != 0) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - sys_getCellularServiceStats returned %d.", __func__, rc);
        return trace.Returning(false);
    }

    int network = SYS_NETWORK_HOME;
    rc = sys_validateHomeNetwork(&network);
    if (rc != 0 || network == SYS_NETWORK_ROAMING) {
        TLOG_SYS(TOLA_LOG_NOTICE,
                 "[%s]:[%s] - %s - Device is in roaming network. Cannot contact data usage server.",
                 __func__);
        return trace.Returning(false);
    }

    int technology = static_cast<int>(stats.radioTechnology);
    if (stats.radioTechnology == SYS_RADIO_TECH_LTE || stats.radioTechnology == SYS_RADIO_TECH_NR5G) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - Device technology is %d. OK to contact data usage server.",
             __func__, technology);
        return trace.Returning(true);
    }
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - Device technology is %d. Cannot contact data usage server.",
         __func__, technology);
    return trace.Returning(false);
}
