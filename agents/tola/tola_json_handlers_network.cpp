// Network groups: manual DNS, firewall, MAC filter, LAN, blocked and white-listed devices,
// reserved addresses, mobile network, port filtering and port forwarding.
#include <cstring>

#include "tola_json_handlers.h"

using namespace tola_json;

namespace {

// A group handler's frame: the BEGIN/END lines and the agent, or null when the context has none.
const Choice kAppTypes[] = {
    {"TCP", static_cast<int>(SYS_APP_PROTOCOL_TCP), nullptr},
    {"UDP", static_cast<int>(SYS_APP_PROTOCOL_UDP), nullptr},
    {"TCP/UDP", static_cast<int>(SYS_APP_PROTOCOL_TCP_UDP), nullptr},
};
const Choice kPortTypes[] = {
    {"Range", static_cast<int>(SYS_APP_PORT_RANGE), nullptr},
    {"Translate", static_cast<int>(SYS_APP_PORT_TRANSLATE), nullptr},
};

// Fills a device list (blocked or white-listed) from a JSON array of {"DeviceMacAddress": text}.
struct DeviceListTexts {
    const char* group;
    const char* absentLog;
    const char* typeLog;
    const char* typeUser;
    const char* countLog;
    const char* countUser;
    int typeCode;
    int firstEntry;
    TolaField field;
};

int handleDeviceList(const char* function, yajl_val element, context_t* ctx, const DeviceListTexts& t,
                     int* (TOLAAgent::*countOf)()) {
    TOLAAgent* agent = agentOf(ctx);
    yajl_val list = groupOf(element, t.group, yajl_t_array);
    if (list == nullptr || agent == nullptr) {
        TLOG(TOLA_LOG_INFO, t.absentLog, function);
        return 0;
    }
    int* count = (agent->*countOf)();
    sys_mac_entry_t* entries = agent->GetMacAddrList();
    if (count == nullptr || entries == nullptr) {
        return 0;
    }
    size_t len = list->u.array.len;
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:v->u.array.len %d", function, static_cast<int>(len));
    if (len == 0) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:v->u.array.len Empty", function);
    }
    if (len > static_cast<size_t>(TOLA_MAX_LISTED_DEVICES)) {
        TLOG_SYS(TOLA_LOG_ERROR, t.countLog, static_cast<int>(len > 0x7fffffff ? 0x7fffffff : len));
        agent->SetErrorMessage("%s", t.countUser);
        return 150;
    }
    int stored = 0;
    for (size_t i = 0; i < len; ++i) {
        yajl_val mac = groupOf(list->u.array.values[i], "DeviceMacAddress", yajl_t_any);
        if (mac == nullptr) {
            continue;
        }
        if (!tola_is_kind(mac, yajl_t_string)) {
            return refuse(*agent, t.typeCode, t.typeLog, t.typeUser);
        }
        copyText(entries[t.firstEntry + stored].macAddress, sizeof(entries[0].macAddress), mac->u.string);
        ++stored;
    }
    // An array that stored no address (empty, or no element with the key) leaves the list and
    // its flag as they were.
    if (stored == 0) {
        return 0;
    }
    for (int i = stored; i < TOLA_MAX_LISTED_DEVICES; ++i) {
        memset(&entries[t.firstEntry + i], 0, sizeof(entries[0]));
    }
    *count = stored;
    agent->SetPresent(t.field);
    return 0;
}

// Appends an application to a list of `count` records (bounded by the list's room). The new record,
// or null when the list is full.
sys_router_app_t* appendApp(sys_router_app_t* apps, int* count) {
    if (*count < 0 || *count >= SYS_ROUTER_APP_MAX) {
        return nullptr;
    }
    sys_router_app_t* app = &apps[*count];
    memset(app, 0, sizeof(*app));
    ++*count;
    return app;
}

// A custom application array: each element's keys go through the rules into a fresh record
// appended to the list; then the list's count is checked against its limit.
struct CustomAppTexts {
    const KeyRule* rules;
    size_t ruleCount;
    int typeCode;
    int countCode;
    int limit;
    const char* countLog;
    const char* countUser;
};

// Rules for custom applications write into this record (one element at a time).
thread_local sys_router_app_t* tCurrentApp = nullptr;
#define TOLA_APP_SLOT(member)                                                                   \
    [](TOLAAgent&) -> Slot {                                                                    \
        return tCurrentApp != nullptr ? Slot{&tCurrentApp->member, sizeof(tCurrentApp->member)} \
                                      : Slot{nullptr, 0};                                       \
    }

// Whether an element is an object with at least one key of the rules.
bool hasKnownKey(yajl_val element, const KeyRule* rules, size_t ruleCount) {
    for (size_t m = 0; m < tola_object_len(element); ++m) {
        for (size_t r = 0; r < ruleCount; ++r) {
            if (strcmp(element->u.object.keys[m], rules[r].key) == 0) {
                return true;
            }
        }
    }
    return false;
}

int handleCustomApps(const char* function, yajl_val apps, TOLAAgent& agent, sys_router_app_t* list,
                     int* count, const CustomAppTexts& t) {
    size_t len = tola_array_len(apps);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:node->u.array.len %d", function, static_cast<int>(len));
    if (len == 0) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:node->u.array.len Empty", function);
    }
    for (size_t i = 0; i < len; ++i) {
        yajl_val element = apps->u.array.values[i];
        if (!hasKnownKey(element, t.rules, t.ruleCount)) {
            continue;  // not an object, or nothing in it to store: no record
        }
        sys_router_app_t* app = appendApp(list, count);
        if (app == nullptr) {
            break;  // the list is full; the count check below refuses it
        }
        app->protocol = SYS_APP_PROTOCOL_TCP_UDP;
        tCurrentApp = app;
        int rc = applyRules(agent, element, t.rules, t.ruleCount, GroupCodes{t.typeCode, t.countCode});
        tCurrentApp = nullptr;
        if (rc != 0) {
            return rc;
        }
    }
    // The list's present flag was set by the rules for each field stored.
    if (*count > t.limit) {
        TLOG_SYS(TOLA_LOG_ERROR, t.countLog, *count);
        agent.SetErrorMessage("%s", t.countUser);
        return t.countCode;
    }
    return 0;
}

}  // namespace

// ---- Devices ------------------------------------------------------------------------------

namespace {
const DeviceListTexts kWhiteListedDevicesTexts = {
    "WhiteListedDevices",
    "[%s]:[%s] - %s - NO WhiteListedDevices Object in the JSON data",
    "[%s]:[%s] - Invalid WHITE_LIST_DEVICE MACADDRESS parameter data type",
    "Invalid White list devices object mac adress parameter data type",
    "[%s]:[%s] - WhiteListDevices count exceeded %d",
    "Invalid White list devices object mac adress count is exceeded",
    101,
    TOLA_WHITE_LIST_MAC_FIRST,
    TolaField::WhiteListedDevices,
};

const DeviceListTexts kBlockedDevicesTexts = {
    "BlockedDevices",
    "[%s]:[%s] - %s - NO BlockedDevices Object in the JSON data",
    "[%s]:[%s] - Invalid Blocked Devices MACADDRESS parameter data type",
    "Invalid Blocked list devices object mac adress parameter data type",
    "[%s]:[%s] - Block List Devices count exceeded %d",
    "Invalid Blocked list devices object mac adress count is exceeded",
    100,
    TOLA_BLOCKED_MAC_FIRST,
    TolaField::BlockedDevices,
};
}  // namespace

int handleBlockedDevicesInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    return handleDeviceList(__FUNCTION__, element, ctx, kBlockedDevicesTexts,
                            &TOLASettingsObject::GetMacCount);
}

int handleWhiteListedDevicesInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    return handleDeviceList(__FUNCTION__, element, ctx, kWhiteListedDevicesTexts,
                            &TOLASettingsObject::GetWhiteListMacCount);
}

// ---- Reserved addresses (built, not in the sequence) ---------------------------------------

int handleReservedIpSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "ReservedIpSettings", ctx,
                  "[%s]:[%s] - %s - NO Reserved IP Settings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    yajl_val list = groupOf(group, "ReservedIpList", yajl_t_array);
    int* count = agent->GetReservedAddrListCount();
    sys_dhcp_reservation_t* entries = agent->GetReservedAddrList();
    if (list == nullptr || count == nullptr || entries == nullptr) {
        return 0;
    }
    size_t len = list->u.array.len;
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:v->u.array.len %d", __FUNCTION__, static_cast<int>(len));
    if (len > static_cast<size_t>(SYS_DHCP_RESERVATION_MAX)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid RESERVED_IP_LIST count=%d",
                 static_cast<int>(len > 0x7fffffff ? 0x7fffffff : len));
        agent->SetErrorMessage("Invalid Reserved IP settings Object. List count is exceeded.");
        return 121;
    }
    int stored = 0;
    for (size_t i = 0; i < len; ++i) {
        yajl_val item = list->u.array.values[i];
        sys_dhcp_reservation_t entry{};
        bool any = false;
        for (size_t m = 0; m < tola_object_len(item); ++m) {
            const char* key = item->u.object.keys[m];
            yajl_val value = item->u.object.values[m];
            if (strcmp(key, "ReservedIpMAC") == 0) {
                if (!tola_is_kind(value, yajl_t_string)) {
                    return refuse(*agent, 121, "[%s]:[%s] - Invalid RESERVED_IP_MAC parameter data type",
                                  "Invalid Reserved IP settings Object MAC parameter data type");
                }
                copyText(entry.macAddress, sizeof(entry.macAddress), value->u.string);
                any = true;
            } else if (strcmp(key, "ReservedIpAddress") == 0) {
                if (!tola_is_kind(value, yajl_t_string)) {
                    return refuse(*agent, 121, "[%s]:[%s] - Invalid RESERVED_IP_ADDRESS parameter data type",
                                  "Invalid Reserved IP settings Object IP address parameter data type");
                }
                copyText(entry.ipAddress, sizeof(entry.ipAddress), value->u.string);
                any = true;
            }
        }
        if (any) {
            entries[stored++] = entry;
        }
    }
    if (stored > 0) {
        *count = stored;
        agent->SetPresent(TolaField::ReservedIpSettings);
    }
    return 0;
}

// ---- Manual DNS, firewall, MAC filter, LAN ---------------------------------------------------

int handleManualDNSSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "ManualDNSSettings", ctx,
                  "[%s]:[%s] - %s - NO  ManualDNSSettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("ManualDNSEnabled", TolaField::ManualDNSSettings_ManualDNSEnabled,
                TOLA_VALUE_SLOT(GetManualDNSEnabled),
                "[%s]:[%s] - Invalid MANUAL_DNS_ENABLED parameter data type",
                "Invalid Manual dns settings enabled parameter data type"),
        textKey("ManualDNSAddress1", TolaField::ManualDNSSettings_ManualDNSAddress1,
                TOLA_FIELD_SLOT(GetManualDNSSettings, dns1),
                "[%s]:[%s] - Invalid MANUAL_DNS_ADDRESS1 parameter data type",
                "Invalid Manual dns settings address1 parameter data type"),
        textKey("ManualDNSAddress2", TolaField::ManualDNSSettings_ManualDNSAddress2,
                TOLA_FIELD_SLOT(GetManualDNSSettings, dns2),
                "[%s]:[%s] - Invalid MANUAL_DNS_ADDRESS2 parameter data type",
                "Invalid Manual dns settings address2 parameter data type"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{106, 106});
}

int handleFirewallSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "FirewallSettings", ctx,
                  "[%s]:[%s] - %s - NO FirewallSettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("VPNPassthroughEnabled", TolaField::FirewallSettings_VPNPassthroughEnabled,
                TOLA_VALUE_SLOT(GetVPNPassthroughEnabled),
                "[%s]:[%s] - Invalid VPN_PASSTHROUGH_ENABLED parameter data type",
                "Invalid Firewall settings VPN passthrough enabled parameter data type"),
        boolKey("IPv6TransparentModeEnabled", TolaField::FirewallSettings_IPv6TransparentModeEnabled,
                TOLA_VALUE_SLOT(GetIPv6TransparentModeEnabled),
                "[%s]:[%s] - Invalid IPV6_TRANSPARENT_MODE parameter data type",
                "Invalid Firewall settings IPV6 transparent mode parameter data type"),
        boolKey("DMZEnabled", TolaField::FirewallSettings_DMZEnabled, TOLA_VALUE_SLOT(GetDMZEnabled),
                "[%s]:[%s] - Invalid DMZ_ENABLED parameter data type",
                "Invalid Firewall settings DMZ enabled parameter data type"),
        textKey("DMZIpAddress", TolaField::FirewallSettings_DMZIpAddress,
                TOLA_FIELD_SLOT(GetDMZSettings, ipAddress),
                "[%s]:[%s] - Invalid DMZ_IP_ADDRESS parameter data type",
                "Invalid Firewall settings DMZ IP address parameter data type"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{107, 107});
}

int handleMacfilterSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "MACFilterSettings", ctx,
                  "[%s]:[%s] - %s - NO MacFilterSettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("MACFilterEnabled", TolaField::MACFilterSettings_MACFilterEnabled,
                TOLA_VALUE_SLOT(GetMacFilterWhiteListEnabled),
                "[%s]:[%s] - Invalid MAC_FILTER_ENABLED parameter data type",
                "Invalid MAC filter object enabled parameter data type"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{108, 108});
}

int handleLANSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "LANSettings", ctx, "[%s]:[%s] - %s - NO LANSettings Object in the JSON data",
                  __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        textKey("RouterIPv4Address", TolaField::LANSettings_RouterIPv4Address,
                TOLA_FIELD_SLOT(GetLANSettings, ipAddress),
                "[%s]:[%s] - Invalid LAN IPv4 address parameter data type",
                "Invalid LAN Settings object IPv4 address parameter data type"),
        textKey("RouterSubnetMask", TolaField::LANSettings_RouterSubnetMask,
                TOLA_FIELD_SLOT(GetLANSettings, subnetMask),
                "[%s]:[%s] - Invalid LAN Subnetmask parameter data type",
                "Invalid LAN Settings object Sub net mask parameter data type"),
        boolKey("DHCPEnabled", TolaField::LANSettings_DHCPEnabled,
                TOLA_FIELD_SLOT(GetLANSettings, dhcpEnabled),
                "[%s]:[%s] - Invalid LAN_DHCP_EENABLED parameter data type",
                "Invalid LAN Settings object DHCP enabled parameter data type"),
        textKey("DHCPAddressRangeStart", TolaField::LANSettings_DHCPAddressRangeStart,
                TOLA_FIELD_SLOT(GetLANSettings, dhcpStart),
                "[%s]:[%s] - Invalid LAN DHCPADDRESS_START_RANGE parameter data type",
                "Invalid LAN Settings object DHCP address start range parameter data type"),
        numberKey("DHCPLeaseTime", TolaField::LANSettings_DHCPLeaseTime,
                  TOLA_FIELD_SLOT(GetLANSettings, dhcpLeaseTime),
                  "[%s]:[%s] - Invalid LAN DHCP_LEASE_TIME parameter data type",
                  "Invalid LAN Settings object DHCP lease time parameter data type"),
        boolKey("IPv6Enabled", TolaField::LANSettings_IPv6Enabled, TOLA_VALUE_SLOT(GetIPv6Enabled),
                "[%s]:[%s] - Invalid LAN IPV6_ENABLED parameter data type",
                "Invalid LAN Settings object IPv6 enabled parameter data type"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{109, 109});
}

// ---- Mobile network ---------------------------------------------------------------------

int handleMobileNetworkSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "NetworkSettings", ctx,
                  "[%s]:[%s] - %s - NO MobileNetwork Settings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
#define TOLA_NET_TEXT_SLOT(which)                                                        \
    [](TOLAAgent& a) -> Slot {                                                           \
        char* text = a.GetNetworkText(which);                                            \
        return text != nullptr ? Slot{text, TOLA_SETTINGS_TEXT_SIZE} : Slot{nullptr, 0}; \
    }
    static const KeyRule kRules[] = {
        boolKey("CellularDataEnabled", TolaField::NetworkSettings_CellularDataEnabled,
                TOLA_VALUE_SLOT(GetCellularDataEnabled),
                "[%s]:[%s] - Invalid NETWORK_CELLULAR_DATA_ENABLED parameter data type",
                "Invalid Network Settings Object cellular data enabled parameter data type"),
        textKey("ConnectionPreference", TolaField::NetworkSettings_ConnectionPreference,
                TOLA_NET_TEXT_SLOT(TOLA_NET_CONNECTION_PREFERENCE),
                "[%s]:[%s] - Invalid NETWORK CONNECTION PREFERENCE parameter data type",
                "Invalid Network Settings Object connection preference parameter data type"),
        textKey("LTEAPN", TolaField::NetworkSettings_LTEAPN, TOLA_NET_TEXT_SLOT(TOLA_NET_LTE_APN),
                "[%s]:[%s] - Invalid NETWORK LTEAPN parameter data type",
                "Invalid Network Settings Object LTE APN parameter data type"),
        textKey("HSPAAPN", TolaField::NetworkSettings_HSPAAPN, TOLA_NET_TEXT_SLOT(TOLA_NET_HSPA_APN),
                "[%s]:[%s] - Invalid NETWORK HSPAAPN parameter data type",
                "Invalid Network Settings Object HSPA APN parameter data type"),
        textKey("NonVeltraAPN", TolaField::NetworkSettings_NonVeltraAPN,
                TOLA_NET_TEXT_SLOT(TOLA_NET_NON_VELTRA_APN),
                "[%s]:[%s] - Invalid NETWORK NonVeltraAPN parameter data type",
                "Invalid Network Settings Object Non-Veltra APN parameter data type"),
    };
#undef TOLA_NET_TEXT_SLOT
    return applyRules(*agent, group, kRules, GroupCodes{117, 117});
}

// ---- Port filtering -----------------------------------------------------------------------

namespace {

// The predefined filtering applications, appended to the list when switched on.
struct PredefinedApp {
    const char* key;
    const char* name;
    uint32_t startPort;
    uint32_t endPort;
    uint32_t protocol;
    const char* typeLog;
    const char* typeUser;
};

const PredefinedApp kFilterApps[] = {
    {"PortFilteringEmail", "Email (POP3, IMAP, SMTP)", 25, 25, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FILTERING EMAIL parameter data type",
     "Invalid Port filtering Object EMAIL parameter data type"},
    {"PortFilteringFTP", "FTP", 20, 21, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FILTERING FTP parameter data type",
     "Invalid Port filtering Object FTP parameter data type"},
    {"PortFilteringHTTP", "HTTP", 80, 80, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FILTERING HTTP parameter data type",
     "Invalid Port filtering Object HTTP parameter data type"},
    {"PortFilteringHTTPS", "HTTPS", 443, 443, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FILTERING HTTPS parameter data type",
     "Invalid Port filtering Object HTTPS parameter data type"},
    {"PortFilteringTelnet", "Telnet", 23, 23, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FILTERING TELNET parameter data type",
     "Invalid Port filtering Object TELNET parameter data type"},
};

const KeyRule kFilterCustomRules[] = {
    textKey("AppName", TolaField::PortFilteringSettings_PortFilteringApplications, TOLA_APP_SLOT(name),
            "[%s]:[%s] - Invalid PORT_FILTERING_APP_NAME parameter data type",
            "Invalid Port filter Object custom application name parameter data type"),
    boolKey("AppEnabled", TolaField::PortFilteringSettings_PortFilteringApplications, TOLA_APP_SLOT(enabled),
            "[%s]:[%s] - Invalid PORT_FILTERING_APP_ENABLED parameter data type",
            "Invalid Port filter Object custom application enabled parameter data type"),
    numberKey("AppStartPortNumber", TolaField::PortFilteringSettings_PortFilteringApplications,
              TOLA_APP_SLOT(startPort),
              "[%s]:[%s] - Invalid PORT_FILTERING_APP_START_PORT parameter data type",
              "Invalid Port filter Object custom application start port number parameter data type"),
    numberKey("AppEndPortNumber", TolaField::PortFilteringSettings_PortFilteringApplications,
              TOLA_APP_SLOT(endPort), "[%s]:[%s] - Invalid PORT_FILTERING_APP_END_PORT parameter data type",
              "Invalid Port filter Object custom application end port number parameter data type"),
    enumKey("AppType", TolaField::PortFilteringSettings_PortFilteringApplications, TOLA_APP_SLOT(protocol),
            "[%s]:[%s] - Invalid PORT_FILTERING_APP_TYPE parameter data type",
            "Invalid Port filter Object custom application type parameter data type", kAppTypes,
            "[%s]:[%s] - Invalid PORT_FILTERING_APP_TYPE %s",
            "Invalid Port filter Object custom application type parameter value"),
};

const CustomAppTexts kFilterCustomTexts = {
    kFilterCustomRules,
    sizeof(kFilterCustomRules) / sizeof(kFilterCustomRules[0]),
    118,
    162,
    25,
    "[%s]:[%s] - Invalid PORT_FILTER Custom Apps count=%d",
    "Invalid Port filter Object custom applications count is exceeded",
};

}  // namespace

int handlePortFilterCustomApps(yajl_val apps, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = agentOf(ctx);
    if (agent == nullptr) {
        return 0;
    }
    int* count = agent->GetPortFilteringAppsCount();
    sys_router_app_t* list = agent->GetPortFilteringApplications();
    if (count == nullptr || list == nullptr) {
        return 0;
    }
    return handleCustomApps(__FUNCTION__, apps, *agent, list, count, kFilterCustomTexts);
}

int handlePortFilteringSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "PortFilteringSettings", ctx,
                  "[%s]:[%s] - %s - NO PortFiltering Settings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("PortFilteringEnabled", TolaField::PortFilteringSettings_PortFilteringEnabled,
                TOLA_VALUE_SLOT(GetPortFilteringEnabled),
                "[%s]:[%s] - Invalid PORT_FILTERING ENABLED parameter data type",
                "Invalid Port filtering Object enabled parameter data type"),
    };
    describeTable(kRules, 1, GroupCodes{118, 118});
    for (size_t i = 0; i < group->u.object.len; ++i) {
        const char* key = group->u.object.keys[i];
        yajl_val value = group->u.object.values[i];
        int rc = 0;
        if (applyRule(*agent, key, value, kRules, 1, GroupCodes{118, 118}, &rc)) {
            if (rc != 0) {
                return rc;
            }
            continue;
        }
        if (strcmp(key, "PortFilteringCustomApplications") == 0) {
            // Handled where it stands: its count check sees the entries stored so far.
            if (!tola_is_kind(value, yajl_t_array)) {
                return refuse(*agent, 118,
                              "[%s]:[%s] - Invalid PORT_FILTERING CUSTOM_APPLICATIONS parameter data type",
                              "Invalid Port filtering Object custom applications parameter data type");
            }
            rc = handlePortFilterCustomApps(value, ctx);
            if (rc != 0) {
                return rc;
            }
            continue;
        }
        for (const PredefinedApp& predefined : kFilterApps) {
            if (strcmp(key, predefined.key) != 0) {
                continue;
            }
            if (!tola_is_kind(value, yajl_t_true) && !tola_is_kind(value, yajl_t_false)) {
                return refuse(*agent, 118, predefined.typeLog, predefined.typeUser);
            }
            int* count = agent->GetPortFilteringAppsCount();
            sys_router_app_t* list = agent->GetPortFilteringApplications();
            if (count == nullptr || list == nullptr) {
                break;
            }
            if (value->type == yajl_t_true) {
                sys_router_app_t* app = appendApp(list, count);
                if (app != nullptr) {
                    copyText(app->name, sizeof(app->name), predefined.name);
                    app->enabled = 1;
                    app->startPort = predefined.startPort;
                    app->endPort = predefined.endPort;
                    app->protocol = predefined.protocol;
                    app->portType = SYS_APP_PORT_RANGE;
                }
            }
            agent->SetPresent(TolaField::PortFilteringSettings_PortFilteringApplications);
            break;
        }
    }
    return 0;
}

// ---- Port forwarding ----------------------------------------------------------------------

namespace {

struct ForwardService {
    const char* key;
    const char* addressKey;
    const char* name;
    uint32_t startPort;
    uint32_t endPort;
    uint32_t protocol;
    const char* typeLog;
    const char* typeUser;
    const char* addressTypeLog;
    const char* addressTypeUser;
};

const ForwardService kForwardServices[] = {
    {"PortForwardingDNS", "PortForwardingDNSIpAddress", "DNS", 53, 53, SYS_APP_PROTOCOL_TCP_UDP,
     "[%s]:[%s] - Invalid PORT_FORWARDING DNS parameter data type",
     "Invalid Port forwarding Object DNS parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING DNS_IPADDR parameter data type",
     "Invalid Port forwarding Object DNS forward IP Address parameter data type"},
    {"PortForwardingFTP", "PortForwardingFTPIpAddress", "FTP", 20, 21, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FORWARDING FTP parameter data type",
     "Invalid Port forwarding Object FTP parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING FTP_IPADDR parameter data type",
     "Invalid Port forwarding Object FTP forward IP Address parameter data type"},
    {"PortForwardingHTTP", "PortForwardingHTTPIpAddress", "HTTP", 80, 80, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FORWARDING HTTP parameter data type",
     "Invalid Port forwarding Object HTTP parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING HTTP_IPADDR parameter data type",
     "Invalid Port forwarding Object HTTP forward IP Address parameter data type"},
    {"PortForwardingNNTP", "PortForwardingNNTPIpAddress", "NNTP", 119, 119, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FORWARDING NNTP parameter data type",
     "Invalid Port forwarding Object NNTP parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING NNTP_IPADDR parameter data type",
     "Invalid Port forwarding Object NNTP forward IP Address parameter data type"},
    {"PortForwardingPOP3", "PortForwardingPOP3IpAddress", "POP3", 110, 110, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FORWARDING POP3 parameter data type",
     "Invalid Port forwarding Object POP3 parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING POP3_IPADDR parameter data type",
     "Invalid Port forwarding Object POP3 forward IP Address parameter data type"},
    {"PortForwardingSMTP", "PortForwardingSMTPIpAddress", "SMTP", 25, 25, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FORWARDING FORWARDING_SMTP parameter data type",
     "Invalid Port forwarding Object SMTP parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING SMTP_IPADDR parameter data type",
     "Invalid Port forwarding Object SMTP forward IP Address parameter data type"},
    {"PortForwardingSNMP", "PortForwardingSNMPIpAddress", "SNMP", 161, 161, SYS_APP_PROTOCOL_UDP,
     "[%s]:[%s] - Invalid PORT_FORWARDING SNMP parameter data type",
     "Invalid Port forwarding Object SNMP parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING SNMP_IPADDR parameter data type",
     "Invalid Port forwarding Object SNMP forward IP Address parameter data type"},
    {"PortForwardingTelnet", "PortForwardingTelnetIpAddress", "Telnet", 23, 23, SYS_APP_PROTOCOL_TCP,
     "[%s]:[%s] - Invalid PORT_FORWARDING TELNET parameter data type",
     "Invalid Port forwarding Object TELNET parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING TELNET_IPADDR parameter data type",
     "Invalid Port forwarding Object TELNET forward IP Address parameter data type"},
    {"PortForwardingTFTP", "PortForwardingTFTPIpAddress", "TFTP", 69, 69, SYS_APP_PROTOCOL_UDP,
     "[%s]:[%s] - Invalid PORT_FORWARDING TFTP parameter data type",
     "Invalid Port forwarding Object TFTP parameter data type",
     "[%s]:[%s] - Invalid PORT_FORWARDING TFTP_IPADDR parameter data type",
     "Invalid Port forwarding Object TFTP forward IP Address parameter data type"},
};
constexpr size_t kForwardServiceCount = sizeof(kForwardServices) / sizeof(kForwardServices[0]);

const KeyRule kForwardCustomRules[] = {
    textKey("AppName", TolaField::PortForwardingSettings_PortForwardingApplications, TOLA_APP_SLOT(name),
            "[%s]:[%s] - Invalid PORT_FORWARDING_APP_NAME parameter data type",
            "Invalid Port forward Object custom application name parameter data type"),
    boolKey("AppEnabled", TolaField::PortForwardingSettings_PortForwardingApplications,
            TOLA_APP_SLOT(enabled), "[%s]:[%s] - Invalid PORT_FORWARDING_APP_ENABLED parameter data type",
            "Invalid Port forward Object custom application enabled parameter data type"),
    enumKey("AppPortType", TolaField::PortForwardingSettings_PortForwardingApplications,
            TOLA_APP_SLOT(portType), "[%s]:[%s] - Invalid PORT_FORWARDING_APP_PORT_TYPE parameter data type",
            "Invalid Port forward Object custom application port type parameter data type", kPortTypes,
            "[%s]:[%s] - Invalid PORT_FORWARDING_APP_PORT_TYPE %s",
            "Invalid Port forward Object custom application port type parameter value"),
    numberKey("AppStartPortNumber", TolaField::PortForwardingSettings_PortForwardingApplications,
              TOLA_APP_SLOT(startPort),
              "[%s]:[%s] - Invalid PORT_FORWARDING_APP_START_PORT parameter data type",
              "Invalid Port forward Object custom application start port number parameter data type"),
    numberKey("AppEndPortNumber", TolaField::PortForwardingSettings_PortForwardingApplications,
              TOLA_APP_SLOT(endPort), "[%s]:[%s] - Invalid PORT_FORWARDING_APP_END_PORT parameter data type",
              "Invalid Port forward Object custom application end port number parameter data type"),
    enumKey("AppType", TolaField::PortForwardingSettings_PortForwardingApplications, TOLA_APP_SLOT(protocol),
            "[%s]:[%s] - Invalid PORT_FORWARDING_APP_TYPE parameter data type",
            "Invalid Port forward Object custom application type parameter data type", kAppTypes,
            "[%s]:[%s] - Invalid PORT_FORWARDING_APP_TYPE %s",
            "Invalid Port forward Object custom application type parameter value"),
    textKey("AppIpAddress", TolaField::PortForwardingSettings_PortForwardingApplications,
            TOLA_APP_SLOT(ipAddress), "[%s]:[%s] - Invalid PORT_FORWARDING_APP_IPADDR parameter data type",
            "Invalid Port forward Object custom application IP address parameter data type"),
};

const CustomAppTexts kForwardCustomTexts = {
    kForwardCustomRules,
    sizeof(kForwardCustomRules) / sizeof(kForwardCustomRules[0]),
    119,
    163,
    23,
    "[%s]:[%s] - Invalid PORT_FORWARDING Custom Apps count=%d",
    "Invalid Port forward Object. Custom application count is exceeded.",
};

}  // namespace

bool tola_is_predefined_forward_app(const sys_router_app_t& app) {
    for (const ForwardService& service : kForwardServices) {
        if (strncmp(app.name, service.name, sizeof(app.name)) == 0 && app.startPort == service.startPort &&
            app.endPort == service.endPort && app.protocol == service.protocol &&
            app.portType == SYS_APP_PORT_RANGE) {
            return true;
        }
    }
    return false;
}

int handlePortForwardCustomApps(yajl_val apps, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = agentOf(ctx);
    if (agent == nullptr) {
        return 0;
    }
    int* count = agent->GetPortForwardingAppsCount();
    sys_router_app_t* list = agent->GetPortForwardingApplications();
    if (count == nullptr || list == nullptr) {
        return 0;
    }
    return handleCustomApps(__FUNCTION__, apps, *agent, list, count, kForwardCustomTexts);
}

int handlePortForwardingSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "PortForwardingSettings", ctx,
                  "[%s]:[%s] - %s - NO PortForwarding Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("PortForwardingEnabled", TolaField::PortForwardingSettings_PortForwardingEnabled,
                TOLA_VALUE_SLOT(GetPortForwardingEnabled),
                "[%s]:[%s] - Invalid PORT_FORWARDING ENABLED parameter data type",
                "Invalid Port forwarding Object enabled parameter data type"),
    };
    // A service's address may come before or after its switch: keep both until the record exists.
    int appIndex[kForwardServiceCount];
    char address[kForwardServiceCount][SYS_IP_TEXT_SIZE] = {};
    for (size_t s = 0; s < kForwardServiceCount; ++s) {
        appIndex[s] = -1;
    }
    describeTable(kRules, 1, GroupCodes{119, 119});
    for (size_t i = 0; i < group->u.object.len; ++i) {
        const char* key = group->u.object.keys[i];
        yajl_val value = group->u.object.values[i];
        int rc = 0;
        if (applyRule(*agent, key, value, kRules, 1, GroupCodes{119, 119}, &rc)) {
            if (rc != 0) {
                return rc;
            }
            continue;
        }
        if (strcmp(key, "PortForwardingCustomApplications") == 0) {
            // Handled where it stands: its count check sees the entries stored so far.
            if (!tola_is_kind(value, yajl_t_array)) {
                return refuse(*agent, 119,
                              "[%s]:[%s] - Invalid PORT_FORWARDING CUSTOM_APPLICATIONS parameter data type",
                              "Invalid Port forwarding Object custom applications parameter data type");
            }
            rc = handlePortForwardCustomApps(value, ctx);
            if (rc != 0) {
                return rc;
            }
            continue;
        }
        int* count = agent->GetPortForwardingAppsCount();
        sys_router_app_t* list = agent->GetPortForwardingApplications();
        for (size_t s = 0; s < kForwardServiceCount; ++s) {
            const ForwardService& service = kForwardServices[s];
            if (strcmp(key, service.key) == 0) {
                if (!tola_is_kind(value, yajl_t_true) && !tola_is_kind(value, yajl_t_false)) {
                    return refuse(*agent, 119, service.typeLog, service.typeUser);
                }
                if (count == nullptr || list == nullptr) {
                    break;
                }
                if (value->type == yajl_t_true && appIndex[s] < 0) {
                    sys_router_app_t* app = appendApp(list, count);
                    if (app != nullptr) {
                        appIndex[s] = static_cast<int>(app - list);
                        copyText(app->name, sizeof(app->name), service.name);
                        copyText(app->ipAddress, sizeof(app->ipAddress), address[s]);
                        app->enabled = 1;
                        app->startPort = service.startPort;
                        app->endPort = service.endPort;
                        app->protocol = service.protocol;
                        app->portType = SYS_APP_PORT_RANGE;
                    }
                }
                agent->SetPresent(TolaField::PortForwardingSettings_PortForwardingApplications);
                break;
            }
            if (strcmp(key, service.addressKey) == 0) {
                if (!tola_is_kind(value, yajl_t_string)) {
                    return refuse(*agent, 119, service.addressTypeLog, service.addressTypeUser);
                }
                copyText(address[s], sizeof(address[s]), value->u.string);
                if (appIndex[s] >= 0 && list != nullptr) {
                    copyText(list[appIndex[s]].ipAddress, sizeof(list[0].ipAddress), value->u.string);
                }
                agent->SetPresent(TolaField::PortForwardingSettings_PortForwardingApplications);
                break;
            }
        }
    }
    return 0;
}

// ---- Description of the keys read without a table -------------------------------------------

namespace {

std::string protocolName(uint32_t protocol) {
    for (const Choice& choice : kAppTypes) {
        if (static_cast<uint32_t>(choice.code) == protocol) {
            return choice.text;
        }
    }
    return std::to_string(protocol);
}

std::string portsText(uint32_t start, uint32_t end, uint32_t protocol) {
    std::string ports =
        start == end ? std::to_string(start) : std::to_string(start) + "-" + std::to_string(end);
    return protocolName(protocol) + " " + ports;
}

void describeDeviceList(const DeviceListTexts& t, KeyTableSink& sink) {
    sink.note(KeyNote{"(the group)", "array of objects {DeviceMacAddress}",
                      "replaces the list; at most " + std::to_string(TOLA_MAX_LISTED_DEVICES) +
                          " elements; elements without the key are skipped",
                      0, nullptr, 150, t.countUser});
    sink.note(KeyNote{"DeviceMacAddress", "string", "in each element; up to 49 characters", t.typeCode,
                      t.typeUser, 0, nullptr});
}

void describeCustomApps(const char* group, const char* key, const CustomAppTexts& t, const char* typeUser,
                        KeyTableSink& sink) {
    sink.note(KeyNote{key, "array of objects",
                      "each element with a known key adds one application; at most " +
                          std::to_string(t.limit) +
                          " applications in the list, predefined ones written before the array included",
                      t.typeCode, typeUser, t.countCode, t.countUser});
    sink.group(std::string(group) + "." + key + "[]");
    sink.table(t.rules, t.ruleCount, GroupCodes{t.typeCode, t.countCode});
}

}  // namespace

void tola_json::describeNetworkKeys(const std::string& group, KeyTableSink& sink) {
    if (group == "BlockedDevices") {
        describeDeviceList(kBlockedDevicesTexts, sink);
    } else if (group == "WhiteListedDevices") {
        describeDeviceList(kWhiteListedDevicesTexts, sink);
    } else if (group == "PortFilteringSettings") {
        for (const PredefinedApp& app : kFilterApps) {
            sink.note(KeyNote{app.key, "true/false",
                              std::string("true appends \"") + app.name + "\", " +
                                  portsText(app.startPort, app.endPort, app.protocol),
                              118, app.typeUser, 0, nullptr});
        }
        describeCustomApps("PortFilteringSettings", "PortFilteringCustomApplications", kFilterCustomTexts,
                           "Invalid Port filtering Object custom applications parameter data type", sink);
    } else if (group == "PortForwardingSettings") {
        for (const ForwardService& service : kForwardServices) {
            sink.note(KeyNote{service.key, "true/false",
                              std::string("true appends \"") + service.name + "\", " +
                                  portsText(service.startPort, service.endPort, service.protocol) + ", to " +
                                  service.addressKey,
                              119, service.typeUser, 0, nullptr});
            sink.note(KeyNote{service.addressKey, "string",
                              std::string("the address ") + service.key + " forwards to", 119,
                              service.addressTypeUser, 0, nullptr});
        }
        describeCustomApps("PortForwardingSettings", "PortForwardingCustomApplications", kForwardCustomTexts,
                           "Invalid Port forwarding Object custom applications parameter data type", sink);
    }
}
