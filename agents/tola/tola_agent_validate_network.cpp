// Validation of the router groups: LAN, firewall (DMZ), port forwarding and filtering, reserved
// addresses and file sharing, with the application-list conflict checks.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tola_agent.h"
#include "tola_json_parser.h"
#include "tola_log.h"
#include "tola_validate.h"

namespace {

const char* const kLanMasks[] = {"255.0.0.0", "255.255.0.0", "255.255.255.0"};

bool isLanMask(const char* mask) {
    return std::any_of(std::begin(kLanMasks), std::end(kLanMasks),
                       [mask](const char* allowed) { return strcmp(mask, allowed) == 0; });
}

int listCount(const int* count) {
    return count != nullptr ? std::clamp(*count, 0, SYS_ROUTER_APP_MAX) : 0;
}

// Whether application `index` has a (non-empty) name that another application of the list has too.
bool nameTakenByAnother(int index, sys_router_app_t* apps, int count) {
    const char* name = tola_field_text(apps[index].name);
    for (int j = 0; j < count; ++j) {
        if (j != index && name[0] != '\0' && strcmp(name, tola_field_text(apps[j].name)) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int TOLAAgent::ValidateLANSettingsObj() {
    TOLA_TRACE();
    sys_lan_settings_t* lan = GetLANSettings();
    if (lan == nullptr) {
        return trace.Returning(158);
    }
    char* router = tola_field_text(lan->ipAddress);
    if (IsValidIP(router) != 0 || IsValidIPWithPrivateAddressRange(router) != 0 ||
        IsvalidIpWithBroadcastRange(router) != 0 || IsNetworkOrBroadcastIp(router) != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: Invalid LANSettings->RouterIPv4Address(%s)", __FUNCTION__,
                 router);
        return trace.Returning(
            TOLA_REFUSE(158, "Invalid Private IP address or network address or broadcast address . "));
    }
    char* mask = tola_field_text(lan->subnetMask);
    if (!isLanMask(mask) || IsValidIP(mask) != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Invalid LANSettings->RouterSubnetMask(%s)", mask);
        return trace.Returning(158);
    }
    if (lan->dhcpEnabled != 0) {
        char* start = tola_field_text(lan->dhcpStart);
        if (start[0] == '\0') {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  lan settings dhcp address range start is empty");
            return trace.Returning(158);
        }
        if (IsValidIP(start) != 0 || IsValidIpWithDhcp(router, start) != 1 ||
            CheckSubnetMatch(router, mask, start) != 1 || IsNetworkOrBroadcastIp(start) != 0 ||
            IsValidDhcpRange(start, TOLA_VALIDATION_LIMITS.minDhcpClients) != 0) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Invalid lan settings dhcp address range start(%s)", start);
            return trace.Returning(158);
        }
        // The pool keeps its size where the subnet has room above the start, else it ends below
        // the subnet's broadcast address.
        uint32_t first = IPToInt32(start);
        uint32_t broadcast = first | ~IPToInt32(mask);
        uint32_t room = broadcast - first;
        uint32_t count = lan->dhcpAddressCount > 0 ? std::min(lan->dhcpAddressCount, room) : room;
        char end[SYS_IP_TEXT_SIZE] = {};
        if (GetDhcpEndAddress(start, mask, static_cast<int>(count), end, sizeof(end)) != 0) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - Failed to get dhcp end range for lan settings dhcp address range start(%s)",
                     start);
            return trace.Returning(158);
        }
        end[sizeof(end) - 1] = '\0';
        memcpy(lan->dhcpEnd, end, sizeof(end));
        lan->dhcpAddressCount = count;
    }
    if (IsPresent(TolaField::LANSettings_DHCPLeaseTime)) {
        long long maximum =
            tola_app_configuration("adv_lan", "DHCPLeaseTimeMaxLimit", TOLA_DEFAULT_DHCP_LEASE_MAX);
        int lease = static_cast<int>(lan->dhcpLeaseTime);
        if (lease <= 0 || lease > maximum) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Invalid lansettings->dhcpleasetime:(%d)", lease);
            return trace.Returning(TOLA_REFUSE(158, "Invalid DHCP leasetime configured for lan settings ."));
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateFirewallSettingsObj() {
    TOLA_TRACE();
    int* dmzEnabled = GetDMZEnabled();
    sys_dmz_settings_t* dmz = GetDMZSettings();
    int* forwarding = GetPortForwardingEnabled();
    if (dmzEnabled == nullptr || dmz == nullptr || forwarding == nullptr || getLANSettings() == nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - DMZ Enable validation failed");
        return trace.Returning(
            TOLA_REFUSE(157, "Invalid Firewall Settings object DMZ IP address parameter value"));
    }
    // The address matters while the DMZ is on, and whenever the document gives one.
    char* address = tola_field_text(dmz->ipAddress);
    if (*dmzEnabled != 0 || address[0] != '\0') {
        struct in_addr host {};
        bool valid = inet_pton(AF_INET, address, &host) == 1 && IsNetworkOrBroadcastIp(address) == 0 &&
                     CheckForSameSubnet(host.s_addr);
        if (!valid) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Invalid DMZ IP address:(%s)", address);
            return trace.Returning(TOLA_REFUSE(157,
                                               "Invalid Firewall Settings object DMZ IP address parameter "
                                               "value is not either broadcast ip or "
                                               "not in a subnet"));
        }
    }
    if (*dmzEnabled != 0 && *forwarding != 0) {
        TLOG_SYS(
            TOLA_LOG_ERROR,
            "[%s]:[%s] -  Invalid DMZ enabled value. DMZ and Port Forwarding can not be enabled both at same "
            "time.");
        return trace.Returning(
            TOLA_REFUSE(157,
                        "Invalid Firewall Settings object DMZ enabled parameter value. DMZ and Port "
                        "Forwarding can not be enabled both at same time."));
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidatePortForwardSettingsObj() {
    TOLA_TRACE();
    auto check = [&]() -> int {
        int* forwarding = GetPortForwardingEnabled();
        int* dmzEnabled = GetDMZEnabled();
        if (forwarding != nullptr && dmzEnabled != nullptr && *forwarding != 0 && *dmzEnabled != 0) {
            return TOLA_REFUSE(
                163,
                "Invalid Firewall Settings object DMZ enabled parameter value. Port Forwarding and "
                "DMZ can not be enabled both at same time.");
        }
        sys_lan_settings_t* lan = getLANSettings();
        if (lan == nullptr) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  getLANSettings failed");
            return 163;
        }
        sys_router_app_t* apps = GetPortForwardingApplications();
        int count = listCount(GetPortForwardingAppsCount());
        if (apps == nullptr) {
            return 163;
        }
        const tola_port_range_t& ports = TOLA_VALIDATION_LIMITS.forwardPorts;
        for (int i = 0; i < count; ++i) {
            sys_router_app_t& app = apps[i];
            bool custom = !tola_is_predefined_forward_app(app);
            if (custom && tola_field_text(app.name)[0] == '\0') {
                return TOLA_REFUSE(163, "Invalid Port Forwarding object. Custom application name is empty");
            }
            char* ip = tola_field_text(app.ipAddress);
            struct in_addr host {};
            if (ip[0] == '\0') {
                return TOLA_REFUSE(163, "Invalid Port Forwarding object. Application IP address is empty");
            }
            if (IsValidIP(ip) != 0 || inet_pton(AF_INET, ip, &host) != 1) {
                return TOLA_REFUSE(
                    163, "Invalid Port Forwarding object. Application IP address %s is not a valid", ip);
            }
            if (IsNetworkOrBroadcastIp(ip) != 0) {
                return TOLA_REFUSE(
                    163, "Invalid Port Forwarding object. Application IP address %s is not a broadcast IP",
                    ip);
            }
            if (!CheckForSameSubnet(host.s_addr)) {
                return TOLA_REFUSE(
                    163, "Invalid Port Forwarding object. Application IP address %s is not in sub network",
                    ip);
            }
            if (!custom) {
                continue;
            }
            if (!validateIpWithDhcpRange(ip, tola_field_text(lan->dhcpStart),
                                         tola_field_text(lan->dhcpEnd))) {
                return TOLA_REFUSE(
                    163, "Invalid Port Forwarding object. Application IP address %s is not in a DHCP range",
                    ip);
            }
            // The port rules have no user text of their own; only a translation onto the same
            // port has one.
            int start = static_cast<int>(app.startPort);
            int end = static_cast<int>(app.endPort);
            if (!ports.contains(start) || !ports.contains(end) || start > end) {
                return 163;
            }
            if (app.portType == SYS_APP_PORT_TRANSLATE && start == end) {
                return TOLA_REFUSE(163,
                                   "Invalid Port Forwarding object. Custom application Externel port %d is "
                                   "same as Internal port %d",
                                   start, end);
            }
        }
        for (int i = 0; i < count; ++i) {
            if (CheckAppConflicts(i, apps, count) != 0) {
                return 163;
            }
        }
        return 0;
    };
    int rc = check();
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - PortForward Object validation failed");
    }
    return trace.Returning(rc);
}

int TOLAAgent::ValidatePortFilterSettingsObj() {
    TOLA_TRACE();
    const char* function = __FUNCTION__;
    auto check = [&]() -> int {
        sys_router_app_t* apps = GetPortFilteringApplications();
        int count = listCount(GetPortFilteringAppsCount());
        if (apps == nullptr) {
            return 162;
        }
        const tola_validation_limits_t& limits = TOLA_VALIDATION_LIMITS;
        for (int i = 0; i < count; ++i) {
            int start = static_cast<int>(apps[i].startPort);
            int end = static_cast<int>(apps[i].endPort);
            if (!limits.filterStartPorts.contains(start)) {
                TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s index[%d]: port range check failed start_port %d",
                         function, i, start);
                return TOLA_REFUSE(
                    162, "Invalid Port Filtering object. Custom application start port %d is out of range",
                    start);
            }
            if (!limits.filterEndPorts.contains(end)) {
                TLOG_SYS(TOLA_LOG_ERROR,
                         "[%s]:[%s] - %s index[%d]: port range[0 to 65534] check failed end_port %d",
                         function, i, end);
                return TOLA_REFUSE(
                    162, "Invalid Port Filtering object. Custom application end port %d is out of range",
                    end);
            }
            if (start > end) {
                TLOG_SYS(TOLA_LOG_ERROR,
                         "[%s]:[%s] - %s index[%d]: compare both ports failed start_port %d end_port %d",
                         function, i, start, end);
                return TOLA_REFUSE(162,
                                   "Invalid Port Filtering object. Custom application start port %d is "
                                   "greater than end port %d",
                                   start, end);
            }
            if (tola_field_text(apps[i].name)[0] == '\0') {
                return TOLA_REFUSE(162, "Invalid Port Filtering object. Custom application is empty");
            }
            if (CheckPortFilterAppConflicts(i, apps, count) != 0) {
                return 162;
            }
        }
        return 0;
    };
    int rc = check();
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - PortFilter Object validation failed");
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s - END rc %d", trace.Signature(), rc);
        trace.Silence();
        return rc;
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateReservedIPAddressSettingsObj() {
    TOLA_TRACE();
    int* countMember = GetReservedAddrListCount();
    sys_dhcp_reservation_t* list = GetReservedAddrList();
    if (countMember == nullptr || list == nullptr) {
        return trace.Returning(165);
    }
    int count = std::clamp(*countMember, 0, SYS_DHCP_RESERVATION_MAX);
    for (int i = 0; i < count; ++i) {
        const char* mac = tola_field_text(list[i].macAddress);
        char* ip = tola_field_text(list[i].ipAddress);
        if (!IsValidMacAddress(mac)) {
            return trace.Returning(
                TOLA_REFUSE(165, "Invalid Reserved IP address settings object MAC address value"));
        }
        if (IsValidIP(ip) != 0) {
            return trace.Returning(
                TOLA_REFUSE(165, "Invalid Reserved IP address settings object IP address value"));
        }
        std::string key = tola_mac_key(mac);
        for (int j = 0; j < i; ++j) {
            if (tola_mac_key(list[j].macAddress) == key) {
                return trace.Returning(TOLA_REFUSE(
                    165, "Invalid Reserved IP address settings MAC address %s is duplicate", mac));
            }
        }
        for (int j = 0; j < i; ++j) {
            if (strcmp(list[j].ipAddress, ip) == 0) {
                return trace.Returning(
                    TOLA_REFUSE(165, "Invalid Reserved IP address settings IP address %s is duplicate", ip));
            }
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::ValidateVornSharingSettingsObj() {
    TOLA_TRACE();
    int* enabled = GetSambaEnabled();
    sys_samba_settings_t* settings = GetSambaSettings();
    int* primaryAccess = GetSambaPrimaryNetworkEnabled();
    int* guestAccess = GetSambaGuestNetworkEnabled();
    sys_samba_folder_t* folders = GetSambaFolderNames();
    int* deviceEnabled = getSambaEnabled();
    if (deviceEnabled == nullptr || getSambaSettings() == nullptr || enabled == nullptr ||
        settings == nullptr || primaryAccess == nullptr || guestAccess == nullptr || folders == nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to get File sharing status.");
        return trace.Returning(164);
    }
    // Whether sharing is on is read from the device as it is now; the access switches, the
    // content and the folders are judged as the document leaves them.
    if (*deviceEnabled == 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - File sharing is disabled, So no configuration to apply.");
        return trace.Returning(0);
    }
    if (*primaryAccess == 0 && *guestAccess == 0) {
        return trace.Returning(TOLA_REFUSE(164,
                                           "Invalid file sharing settings Primary and Guest WiFi access "
                                           "enable. Both should not be disabled."));
    }
    // Sharing chosen folders needs the folders, when the document sets either.
    bool foldersAsked = IsPresent(TolaField::VornSharingSettings_VornSharingContentToShare) ||
                        IsPresent(TolaField::VornSharingSettings_VornSharingTopLevelFolder);
    if (settings->contentToShare == SYS_SAMBA_SHARE_FOLDERS && foldersAsked &&
        tola_field_text(folders[0].name)[0] == '\0') {
        return trace.Returning(TOLA_REFUSE(164,
                                           "Invalid File Sharing settings Object content to share parameter "
                                           "value : Folder list can not be blank"));
    }
    const int maximum = TOLA_VALIDATION_LIMITS.sharingFolderNameMax;
    for (int f = 0; f < SYS_SAMBA_FOLDER_SLOTS && tola_field_text(folders[f].name)[0] != '\0'; ++f) {
        int length = static_cast<int>(strlen(folders[f].name));
        if (length > maximum) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - File sharing top level folder name length is greater. Folder name "
                     "length:[%d] max "
                     "folder length:%d",
                     length, maximum);
            return trace.Returning(TOLA_REFUSE(
                164, "Invalid file sharing settings folder name %s length is more", folders[f].name));
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::CheckAppConflicts(int index, sys_router_app_t* apps, int count) {
    TOLA_TRACE();
    count = std::clamp(count, 0, SYS_ROUTER_APP_MAX);
    if (apps == nullptr || index < 0 || index >= count) {
        return trace.Returning(0);
    }
    const char* name = tola_field_text(apps[index].name);
    if (nameTakenByAnother(index, apps, count)) {
        SetErrorMessage("Invalid Port Forwarding object. Custom application name %s is duplicated", name);
        return trace.Returning(1);
    }
    // Every application takes its whole port range, a translated one included.
    const sys_router_app_t& mine = apps[index];
    for (int j = 0; j < count; ++j) {
        if (j != index &&
            !CheckPortRanges(static_cast<int>(mine.startPort), static_cast<int>(mine.endPort),
                             static_cast<int>(apps[j].startPort), static_cast<int>(apps[j].endPort))) {
            SetErrorMessage(
                "Invalid Port Forwarding object. Custom application index %d port conflict is detected",
                index);
            return trace.Returning(1);
        }
    }
    return trace.Returning(0);
}

int TOLAAgent::CheckPortFilterAppConflicts(int index, sys_router_app_t* apps, int count) {
    TOLA_TRACE();
    count = std::clamp(count, 0, SYS_ROUTER_APP_MAX);
    if (apps == nullptr || index < 0 || index >= count) {
        return trace.Returning(0);
    }
    const char* name = tola_field_text(apps[index].name);
    if (nameTakenByAnother(index, apps, count)) {
        SetErrorMessage("Invalid Port Filtering object. Custom application name %s is duplicated", name);
        return trace.Returning(1);
    }
    return trace.Returning(0);
}
