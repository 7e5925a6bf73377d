// Host data calls: the Internet call's status and the apps-APN calls live in the device state
// ("data_call"); every change is journalled.
#include <cstring>
#include <string>

#include "device_state.h"
#include "sys_datacall.h"

using ardo::json;

int sys_getCellularDataConnectionStatus(int* status) {
    int rc;
    if (ardo::deviceTakeFault("sys_getCellularDataConnectionStatus", &rc)) {
        return rc;
    }
    if (status == nullptr) {
        return 1;
    }
    *status = ardo::deviceStateValue<int>("/data_call/internet/status", SYS_DATA_CALL_DISCONNECTED);
    return 0;
}

int sys_cellularDataConnect(int profileIndex) {
    int rc;
    if (ardo::deviceTakeFault("sys_cellularDataConnect", &rc)) {
        ardo::deviceJournal("sys_cellularDataConnect", {{"profile", profileIndex}}, rc);
        return rc;
    }
    // "status_after_connect" lets a test keep the call down although the connect was accepted.
    int after =
        ardo::deviceStateValue<int>("/data_call/internet/status_after_connect", SYS_DATA_CALL_CONNECTED);
    ardo::deviceStateSet("/data_call/internet/status", after);
    ardo::deviceJournal("sys_cellularDataConnect", {{"profile", profileIndex}}, 0);
    return 0;
}

int sys_cellularDataDisconnect(int profileIndex) {
    int rc;
    if (ardo::deviceTakeFault("sys_cellularDataDisconnect", &rc)) {
        ardo::deviceJournal("sys_cellularDataDisconnect", {{"profile", profileIndex}}, rc);
        return rc;
    }
    ardo::deviceStateSet("/data_call/internet/status", SYS_DATA_CALL_DISCONNECTED);
    ardo::deviceJournal("sys_cellularDataDisconnect", {{"profile", profileIndex}}, 0);
    return 0;
}

int sys_cellularDataUsageAPNCallConnect(char* interfaceName, uint32_t* size, const char* callId,
                                        int ipFamily) {
    if (size == nullptr || callId == nullptr) {
        return 1;
    }
    int rc;
    if (ardo::deviceTakeFault("sys_cellularDataUsageAPNCallConnect", &rc)) {
        ardo::deviceJournal("sys_cellularDataUsageAPNCallConnect",
                            {{"call_id", callId}, {"ip_family", ipFamily}}, rc);
        return rc;
    }
    std::string name = ardo::deviceStateValue<std::string>("/data_call/apps_apn/interface", "");
    uint32_t needed = static_cast<uint32_t>(name.size() + 1);
    if (interfaceName == nullptr || *size < needed) {
        *size = needed;
        return SYS_RESULT_BUFFER_TOO_SMALL;
    }
    std::memcpy(interfaceName, name.c_str(), needed);
    *size = needed;
    std::string id = callId;
    ardo::deviceStateUpdate([&](json& state) { state["data_call"]["apps_apn"]["open"][id] = name; });
    ardo::deviceJournal("sys_cellularDataUsageAPNCallConnect",
                        {{"call_id", id}, {"ip_family", ipFamily}, {"interface", name}}, 0);
    return 0;
}

int sys_cellularDataUsageAPNCallDisconnect(const char* callId) {
    if (callId == nullptr) {
        return 1;
    }
    int rc;
    if (ardo::deviceTakeFault("sys_cellularDataUsageAPNCallDisconnect", &rc)) {
        ardo::deviceJournal("sys_cellularDataUsageAPNCallDisconnect", {{"call_id", callId}}, rc);
        return rc;
    }
    std::string id = callId;
    bool wasOpen = false;
    ardo::deviceStateUpdate([&](json& state) {
        json& open = state["data_call"]["apps_apn"]["open"];
        if (open.is_object() && open.contains(id)) {
            open.erase(id);
            wasOpen = true;
        }
    });
    int result = wasOpen ? 0 : 1;
    ardo::deviceJournal("sys_cellularDataUsageAPNCallDisconnect", {{"call_id", id}}, result);
    return result;
}
