// The handler sequence of one document element, the key-rule engine shared by the group handlers,
// and the access-control entries.
#include <climits>
#include <cstring>

#include "tola_json_handlers.h"

namespace tola_json {

namespace {

// Set only during describeKeyTables (one thread, the tool's): null while the agent runs.
thread_local KeyTableSink* tDescribing = nullptr;
thread_local std::string tDescribedGroup;
// The element handed to the handlers and the empty group openGroup hands out while describing.
yajl_val_s gDescribedElementNode{};
yajl_val_s gDescribedGroupNode{};

struct TextCheck {
    bool (*accept)(const char*);
    const char* text;
};
TextCheck gTextChecks[16];
size_t gTextCheckCount = 0;

}  // namespace

TextCheckDescription::TextCheckDescription(bool (*accept)(const char*), const char* text) {
    if (gTextCheckCount < sizeof(gTextChecks) / sizeof(gTextChecks[0])) {
        gTextChecks[gTextCheckCount++] = TextCheck{accept, text};
    }
}

const char* describeTextCheck(bool (*accept)(const char*)) {
    for (size_t i = 0; i < gTextCheckCount; ++i) {
        if (gTextChecks[i].accept == accept) {
            return gTextChecks[i].text;
        }
    }
    return nullptr;
}

void describeTable(const KeyRule* rules, size_t count, GroupCodes codes) {
    if (tDescribing != nullptr) {
        tDescribing->table(rules, count, codes);
    }
}

KeyRule boolKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser) {
    return KeyRule{key, Kind::Bool, field,   slot,    typeLog, typeUser, nullptr,
                   0,   nullptr,    nullptr, nullptr, 0,       0,        0};
}

KeyRule textKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser,
                bool (*accept)(const char*), const char* valueLog, const char* valueUser) {
    return KeyRule{key, Kind::Text, field,     slot,   typeLog, typeUser, nullptr,
                   0,   valueLog,   valueUser, accept, 0,       0,        0};
}

KeyRule numberKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser,
                  long long min, long long max, const char* valueLog, const char* valueUser) {
    return KeyRule{key, Kind::Number, field,     slot,    typeLog, typeUser, nullptr,
                   0,   valueLog,     valueUser, nullptr, min,     max,      0};
}

KeyRule soundKey(const char* key, uint32_t mask, const char* typeLog, const char* typeUser) {
    return KeyRule{key,
                   Kind::Sounds,
                   TolaField::AudioPreferences_NotificationSounds,
                   TOLA_VALUE_SLOT(GetUINotificationSettings),
                   typeLog,
                   typeUser,
                   nullptr,
                   0,
                   nullptr,
                   nullptr,
                   nullptr,
                   0,
                   0,
                   mask};
}

void copyText(char* dst, size_t size, const char* text) {
    if (dst == nullptr || size == 0) {
        return;
    }
    size_t n = 0;
    if (text != nullptr) {
        n = strnlen(text, size - 1);
        memcpy(dst, text, n);
    }
    dst[n] = '\0';
}

int refuse(TOLAAgent& agent, int code, const char* log, const char* user) {
    if (log != nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR, log);
    }
    agent.SetErrorMessage("%s", user != nullptr ? user : "");
    return code;
}

namespace {

void storeInt(const Slot& slot, long long value) {
    if (slot.size == 1) {
        *static_cast<uint8_t*>(slot.p) = static_cast<uint8_t>(value);
    } else if (slot.size >= 4) {
        int32_t v = static_cast<int32_t>(value);
        memcpy(slot.p, &v, sizeof(v));
    }
}

const Choice* findChoice(const KeyRule& rule, const char* text) {
    for (size_t i = 0; i < rule.choiceCount; ++i) {
        if (strcmp(rule.choices[i].text, text) == 0) {
            return &rule.choices[i];
        }
    }
    return nullptr;
}

int refuseValue(TOLAAgent& agent, const KeyRule& rule, int code, const char* text) {
    if (rule.valueLog != nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR, rule.valueLog, text);
    }
    agent.SetErrorMessage("%s", rule.valueUser != nullptr ? rule.valueUser : "");
    return code;
}

}  // namespace

bool applyRule(TOLAAgent& agent, const char* key, yajl_val value, const KeyRule* rules, size_t ruleCount,
               GroupCodes codes, int* rc) {
    *rc = 0;
    const KeyRule* rule = nullptr;
    for (size_t i = 0; i < ruleCount; ++i) {
        if (strcmp(rules[i].key, key) == 0) {
            rule = &rules[i];
            break;
        }
    }
    if (rule == nullptr) {
        return false;
    }
    Slot slot = rule->slot(agent);
    if (slot.p == nullptr) {
        return true;  // the device could not give this setting: the key is skipped
    }
    bool isBool = tola_is_kind(value, yajl_t_true) || tola_is_kind(value, yajl_t_false);
    switch (rule->kind) {
        case Kind::Bool:
            if (!isBool) {
                *rc = refuse(agent, codes.typeCode, rule->typeLog, rule->typeUser);
                return true;
            }
            storeInt(slot, value->type == yajl_t_true ? 1 : 0);
            break;
        case Kind::Sounds: {
            if (!isBool) {
                *rc = refuse(agent, codes.typeCode, rule->typeLog, rule->typeUser);
                return true;
            }
            int32_t sounds = 0;
            memcpy(&sounds, slot.p, sizeof(sounds));
            uint32_t bits = static_cast<uint32_t>(sounds);
            bits = value->type == yajl_t_true ? (bits | rule->mask) : (bits & ~rule->mask);
            storeInt(slot, static_cast<int32_t>(bits));
            break;
        }
        case Kind::Text:
            if (!tola_is_kind(value, yajl_t_string)) {
                *rc = refuse(agent, codes.typeCode, rule->typeLog, rule->typeUser);
                return true;
            }
            if (rule->accept != nullptr && !rule->accept(value->u.string)) {
                *rc = refuseValue(agent, *rule, codes.valueCode, value->u.string);
                return true;
            }
            copyText(static_cast<char*>(slot.p), slot.size, value->u.string);
            break;
        case Kind::Number: {
            if (!tola_is_kind(value, yajl_t_number)) {
                *rc = refuse(agent, codes.typeCode, rule->typeLog, rule->typeUser);
                return true;
            }
            long long n = value->u.number.i;
            n = n < INT_MIN ? INT_MIN : (n > INT_MAX ? INT_MAX : n);
            if (rule->max > rule->min && (n < rule->min || n > rule->max)) {
                if (rule->valueLog != nullptr) {
                    TLOG_SYS(TOLA_LOG_ERROR, rule->valueLog, static_cast<int>(n));
                }
                agent.SetErrorMessage("%s", rule->valueUser != nullptr ? rule->valueUser : "");
                *rc = codes.valueCode;
                return true;
            }
            storeInt(slot, n);
            break;
        }
        case Kind::Enum:
        case Kind::EnumText: {
            if (!tola_is_kind(value, yajl_t_string)) {
                *rc = refuse(agent, codes.typeCode, rule->typeLog, rule->typeUser);
                return true;
            }
            const Choice* choice = findChoice(*rule, value->u.string);
            if (choice == nullptr) {
                *rc = refuseValue(agent, *rule, codes.valueCode, value->u.string);
                return true;
            }
            if (rule->kind == Kind::Enum) {
                storeInt(slot, choice->code);
            } else {
                copyText(static_cast<char*>(slot.p), slot.size, choice->storedText);
            }
            break;
        }
    }
    agent.SetPresent(rule->field);
    return true;
}

int applyRules(TOLAAgent& agent, yajl_val group, const KeyRule* rules, size_t ruleCount, GroupCodes codes) {
    if (tDescribing != nullptr) {
        tDescribing->table(rules, ruleCount, codes);
        return 0;
    }
    size_t count = tola_object_len(group);
    for (size_t i = 0; i < count; ++i) {
        int rc = 0;
        applyRule(agent, group->u.object.keys[i], group->u.object.values[i], rules, ruleCount, codes, &rc);
        if (rc != 0) {
            return rc;
        }
    }
    return 0;
}

yajl_val groupOf(yajl_val element, const char* name, yajl_type kind) {
    const char* path[] = {name, nullptr};
    return tola_tree_get(element, path, kind);
}

yajl_val openGroup(yajl_val element, const char* name, context_t* ctx, const char* absentFormat,
                   const char* handler, TOLAAgent*& agent) {
    agent = agentOf(ctx);
    if (tDescribing != nullptr && agent != nullptr) {
        // A sub-object is opened inside the described group; a top-level group was announced.
        if (element == &gDescribedGroupNode) {
            tDescribing->group(tDescribedGroup + "." + name);
        }
        gDescribedGroupNode.type = yajl_t_object;
        return &gDescribedGroupNode;
    }
    yajl_val group = groupOf(element, name, yajl_t_object);
    if (group == nullptr || agent == nullptr) {
        TLOG(TOLA_LOG_INFO, absentFormat, handler);
        return nullptr;
    }
    return group;
}

}  // namespace tola_json

// ---- The handler sequence -------------------------------------------------------------------

namespace {

struct GroupStep {
    const char* group;  // the member of a document element the handler reads
    int (*handler)(yajl_val, context_t*);
    const char* successLog;
    const char* errorLog;
};

const GroupStep kSequence[] = {
    {"BlockedDevices", handleBlockedDevicesInfo,
     "[%s]:[%s] - handling BlockedDevices Settings Info successful",
     "[%s]:[%s] - Error while handling blocked devices info : BLOCKED_DEVICES_DATA_TYPE_ERROR"},
    {"WhiteListedDevices", handleWhiteListedDevicesInfo,
     "[%s]:[%s] - handling White Listed Devices Settings Info successful",
     "[%s]:[%s] - Error while handling white list devices info :WHITE_LISTED_DEVICES_DATA_TYPE_ERROR"},
    {"WiFiNetworkSettings", handleWiFiNetworkSettingsInfo,
     "[%s]:[%s] - handling WiFi Network Settings Info successful",
     "[%s]:[%s] - Error while handling WIFI network settings info : WIFI_NETWORK_SETTINGS_DATA_TYPE_ERROR"},
    {"WiFiGuestNetworkSettings", handleWiFiGuestNetworkSettingsInfo,
     "[%s]:[%s] - handling WiFi Guest Network Settings Info successful",
     "[%s]:[%s] - Error while handling WIFI Guest Network Settings info : "
     "WIFI_GUEST_NETWORK_SETTINGS_DATA_TYPE_ERROR"},
    {"WiFiAdvancedSettings", handleWiFiAdvancedSettingsInfo,
     "[%s]:[%s] - handling WiFi Advanced Settings Info successful",
     "[%s]:[%s] - Error while handling WIFI Advanced settings info : WIFI_ADVANCED_SETTINGS_DATA_TYPE_ERROR"},
    {"AdminPasswordSettings", handleAdminPasswordSettingsInfo,
     "[%s]:[%s] - handling AdminPassword Settings Info successful",
     "[%s]:[%s] - Error while handling Admin Password Settings info : "
     "ADMIN_PASSWORD_SETTINGS_DATA_TYPE_ERROR"},
    {"DevicePreferences", handleDevicePreferencesInfo,
     "[%s]:[%s] - handling DevicePreferences Settings Info successful",
     "[%s]:[%s] - Error while handling device preferences info : DEVICE_PREFERENCES_DATA_TYPE_ERROR"},
    {"ManualDNSSettings", handleManualDNSSettingsInfo,
     "[%s]:[%s] - handling ManualDNSSettings Settings Info successful",
     "[%s]:[%s] - Error while handling manual DNS settings info : MANUAL_DNS_SETTINGS_DATA_TYPE_ERROR"},
    {"FirewallSettings", handleFirewallSettingsInfo, "[%s]:[%s] - handling Firewall Settings Info successful",
     "[%s]:[%s] - Error while handling Firewall Settings info : FIREWALL_SETTINGS_DATA_TYPE_ERROR"},
    {"MACFilterSettings", handleMacfilterSettingsInfo,
     "[%s]:[%s] - handling MAC Filter Settings Info successful",
     "[%s]:[%s] - Error while handling MAC Filter Settings info : MAC_FILTER_SETTINGS_DATA_TYPE_ERROR"},
    {"LANSettings", handleLANSettingsInfo, "[%s]:[%s] - handling LAN Settings Info successful",
     "[%s]:[%s] - Error while handling LAN settings info : LAN_SETTINGS_DATA_TYPE_ERROR"},
    {"GPSSettings", handleGPSSettingsInfo, "[%s]:[%s] - handling GPS Settings Info successful",
     "[%s]:[%s] - Error while handling GPS settings info : GPS_SETTINGS_DATA_TYPE_ERROR"},
    {"LogsSettings", handleLogsInfo, "[%s]:[%s] - handling Log Settings Info successful",
     "[%s]:[%s] - Error while handling Logs info : LOGS_DATA_TYPE_ERROR"},
    {"NetworkSettings", handleMobileNetworkSettingsInfo,
     "[%s]:[%s] - handling MobileNetwork Settings Info successful",
     "[%s]:[%s] - Error while handling mobile network settings info : "
     "MOBILE_NETWORK_SETTINGS_DATA_TYPE_ERROR"},
    {"PortFilteringSettings", handlePortFilteringSettingsInfo,
     "[%s]:[%s] - handling PortFiltering Settings Info successful",
     "[%s]:[%s] - Error while handling port filter settings info : PORT_FILTERING_SETTINGS_DATA_TYPE_ERROR"},
    {"PortForwardingSettings", handlePortForwardingSettingsInfo,
     "[%s]:[%s] - handling PortForwarding Settings Info successful",
     "[%s]:[%s] - Error while handling port forward settings info : "
     "PORT_FORWARDING_SETTINGS_DATA_TYPE_ERROR"},
    {"VornSharingSettings", handleVornSharingSettingsInfo,
     "[%s]:[%s] - handling File Sharing Settings Info successful",
     "[%s]:[%s] - Error while handling Vorn Sharing settings info : FILE_SHARING_SETTINGS_DATA_TYPE_ERROR"},
};
static_assert(sizeof(kSequence) / sizeof(kSequence[0]) == 17, "seventeen groups");

}  // namespace

int handleCompleteJSONData(yajl_val element, context_t* ctx) {
    for (const GroupStep& step : kSequence) {
        int rc = step.handler(element, ctx);
        if (rc != 0) {
            TLOG_SYS(TOLA_LOG_ERROR, step.errorLog);
            return rc;
        }
        TLOG_SYS(TOLA_LOG_INFO, step.successLog);
    }
    return 0;
}

void tola_json::describeKeyTables(TOLAAgent& agent, KeyTableSink& sink) {
    context_t ctx{};
    ctx.agent = &agent;
    tDescribing = &sink;
    for (const GroupStep& step : kSequence) {
        tDescribedGroup = step.group;
        sink.group(step.group);
        gDescribedElementNode.type = yajl_t_object;
        step.handler(&gDescribedElementNode, &ctx);
        describeNetworkKeys(step.group, sink);
        describeDeviceKeys(step.group, sink);
    }
    tDescribing = nullptr;
    // Read by the document walk, not by a handler of the sequence.
    sink.group("AccessControlSettings");
    sink.note(KeyNote{"(entry name)", "object {Lock, Hide}",
                      "one entry per name; an element that carries this group is read for it alone", 0,
                      nullptr, 0, nullptr});
    sink.note(KeyNote{"Lock", "any", "only JSON true clears the entry's write flag; other values leave it on",
                      0, nullptr, 0, nullptr});
    sink.note(KeyNote{"Hide", "any",
                      "only JSON true clears the entry's display flag; other values leave it on", 0, nullptr,
                      0, nullptr});
}

int handleAccessControlEntryInfo(const char* name, yajl_val entry, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    bool displayEnabled = true;
    bool writeEnabled = true;
    bool seen = false;
    for (size_t i = 0; i < tola_object_len(entry); ++i) {
        const char* key = entry->u.object.keys[i];
        yajl_val value = entry->u.object.values[i];
        // Only JSON true changes a flag; any other value leaves it on, without a type error.
        if (strcmp(key, "Lock") == 0) {
            seen = true;
            if (tola_is_kind(value, yajl_t_true)) {
                writeEnabled = false;
            }
        } else if (strcmp(key, "Hide") == 0) {
            seen = true;
            if (tola_is_kind(value, yajl_t_true)) {
                displayEnabled = false;
            }
        }
    }
    if (seen && ctx != nullptr && ctx->agent != nullptr && name != nullptr) {
        ctx->agent->SetPresent(TolaField::AccessControlSettings);
        ctx->agent->SetACEProperties(name, displayEnabled, writeEnabled);
    }
    return 0;
}

int handleAccessControlSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    yajl_val group = tola_json::groupOf(element, "AccessControlSettings", yajl_t_object);
    if (group == nullptr) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - NO AccessControlSettings Object in the JSON data",
             __FUNCTION__);
        return 0;
    }
    for (size_t i = 0; i < group->u.object.len; ++i) {
        if (tola_is_kind(group->u.object.values[i], yajl_t_object)) {
            handleAccessControlEntryInfo(group->u.object.keys[i], group->u.object.values[i], ctx);
        }
    }
    return 0;
}
