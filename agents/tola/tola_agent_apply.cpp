// Applying an accepted settings object to the device, group by group.
//
// Each step runs only when the document carried its part. A setter that fails is logged and
// skipped: the remaining steps still run and the document still counts as applied. Success
// depends on the call's family: system setters succeed with 0 or 1, web-UI setters with
// WEBUI_SUCCESS, device-UI setters with DEVICEUI_SUCCESS.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "deviceui.h"
#include "msgbus_handler.h"
#include "sys_settings.h"
#include "tola_agent.h"
#include "tola_log.h"
#include "webui.h"

namespace {

using F = TolaField;

enum class Family {
    System,    // 0, or 1 for "unchanged"
    WebUi,     // WEBUI_SUCCESS
    DeviceUi,  // DEVICEUI_SUCCESS
    Getter,    // 0 (a platform getter that a step calls)
    Steps,     // a step of several calls that logs its own failures
};

// A step that could not call its setter because the settings object has no value for it.
constexpr int kNotCalled = -1;

bool succeeded(Family family, int rc) {
    switch (family) {
        case Family::System:
            return rc == 0 || rc == 1;
        case Family::WebUi:
            return rc == WEBUI_SUCCESS;
        case Family::DeviceUi:
            return rc == DEVICEUI_SUCCESS;
        case Family::Getter:
        case Family::Steps:
            return rc == 0;
    }
    return false;
}

// The common failure line, naming the call (or the step's own failure text).
void logFailedCall(const char* name, int rc) {
    TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s failed with code = %d", name, rc);
}

// A system setter of several in one step: logged by name when it fails. The call's result.
int systemCall(const char* name, int rc) {
    if (!succeeded(Family::System, rc)) {
        logFailedCall(name, rc);
    }
    return rc;
}

bool anyOf(const TOLAAgent& agent, std::initializer_list<TolaField> fields) {
    for (TolaField field : fields) {
        if (agent.IsPresent(field)) {
            return true;
        }
    }
    return false;
}

// Calls a setter with a member's value, unless the member could not be had.
template <typename T, typename Setter>
int withValue(T* value, Setter setter) {
    return value != nullptr ? setter(*value) : kNotCalled;
}
template <typename T, typename Setter>
int withRecord(T* record, Setter setter) {
    return record != nullptr ? setter(record) : kNotCalled;
}

// ---- Document texts to platform values (the one place these codes are chosen) -------------

struct TextValue {
    const char* text;
    int value;
};

const TextValue kConnectionPreferences[] = {
    {"Auto-connect", SYS_DATA_CONNECT_AUTO},
    {"Auto-connect if not roaming", SYS_DATA_CONNECT_AUTO_NOT_ROAMING},
    {"Manual Connection", SYS_DATA_CONNECT_MANUAL},
};

const TextValue kRadioTechnologies[] = {
    {"Global", SYS_RAT_GLOBAL},
    {"LTE/CDMA", SYS_RAT_LTE | SYS_RAT_CDMA},
    {"LTE/GSM/UMTS/HSPA", SYS_RAT_LTE | SYS_RAT_GSM | SYS_RAT_UMTS_HSPA},
};

template <size_t N>
bool valueOf(const TextValue (&table)[N], const char* text, int* value) {
    if (text == nullptr) {
        return false;
    }
    for (const TextValue& entry : table) {
        if (std::strcmp(entry.text, text) == 0) {
            *value = entry.value;
            return true;
        }
    }
    return false;
}

// Sets a mapped text; a text without a platform value (refused by validation) calls nothing.
template <size_t N>
int setMapped(const TextValue (&table)[N], const char* text, int (*setter)(int)) {
    int value = 0;
    if (!valueOf(table, text, &value)) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - no platform value for (%s), not applied",
             text != nullptr ? text : "");
        return kNotCalled;
    }
    return setter(value);
}

// ---- Steps of several calls ---------------------------------------------------------------

// The GPS state can be changed only with the privacy agreement accepted: accept it for the
// change, then put it back as it was.
int applyGPSEnabled(TOLAAgent& agent) {
    int* enabled = agent.GetGPSEnabled();
    if (enabled == nullptr) {
        return 0;
    }
    int accepted = 1;
    if (sys_getGPSPrivacyAgreementAccepted(&accepted) != 0) {
        accepted = 1;
    }
    systemCall("sys_setGPSPrivacyAgreementAccepted", sys_setGPSPrivacyAgreementAccepted(1));
    systemCall("sys_setGPSEnabled", sys_setGPSEnabled(*enabled));
    systemCall("sys_setGPSPrivacyAgreementAccepted", sys_setGPSPrivacyAgreementAccepted(accepted));
    return 0;
}

// The blocked devices fill the first half of the MAC list, the white-listed devices the second.
int applyMacFilterList(TOLAAgent& agent) {
    sys_mac_entry_t* list = agent.GetMacAddrList();
    if (list == nullptr) {
        return 0;
    }
    int* blocked = agent.GetMacCount();
    if (agent.IsPresent(F::BlockedDevices) && blocked != nullptr) {
        systemCall("sys_setMacFilterList", sys_setMacFilterList(0, list + TOLA_BLOCKED_MAC_FIRST, *blocked));
    }
    int* allowed = agent.GetWhiteListMacCount();
    if (agent.IsPresent(F::WhiteListedDevices) && allowed != nullptr) {
        systemCall("sys_setMacFilterList",
                   sys_setMacFilterList(1, list + TOLA_WHITE_LIST_MAC_FIRST, *allowed));
    }
    return 0;
}

// Sleep and shutdown times live in one power-save record: the device's record is read, the
// document's time put in, automatic shutdown switched with the shutdown time, and the record
// written back.
int applyPowerSave(TOLAAgent& agent, bool sleepTime) {
    sys_power_save_settings_t* wanted = agent.GetPowerSaveSettings();
    if (wanted == nullptr) {
        return 0;
    }
    if (sleepTime) {
        int rc = sys_setDeepSleepEnabled(wanted->sleepTime != 0 ? 1 : 0);
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - setDeepSleepEnabled failed and returned : [%d]", rc);
        }
    }
    sys_power_save_settings_t record{};
    int rc = sys_getPowerSaveSettings(&record);
    if (rc != 0) {
        logFailedCall("getPowerSaveSettings", rc);
        return 0;
    }
    if (sleepTime) {
        record.sleepTime = wanted->sleepTime;
    } else {
        record.shutdownTime = wanted->shutdownTime;
    }
    record.autoShutdownEnabled = record.shutdownTime != 0 ? 1 : 0;
    systemCall("setAutoShutdownEnabled",
               sys_setAutoShutdownEnabled(static_cast<int>(record.autoShutdownEnabled)));
    systemCall("setPowerSaveSettings", sys_setPowerSaveSettings(&record));
    return 0;
}

int applyDeepSleep(TOLAAgent& agent) {
    return applyPowerSave(agent, true);
}
int applyShutdownTime(TOLAAgent& agent) {
    return applyPowerSave(agent, false);
}

// USB mode: the tethering mode, and Wi-Fi kept on while tethered only in the "USB and Wi-Fi" mode.
int applyUSBMode(TOLAAgent& agent) {
    int* mode = agent.GetUSBTetheringEnabled();
    if (mode == nullptr) {
        return 0;
    }
    int current = 0;
    int rc = sys_getUSBTetheringEnabled(&current);
    if (rc != 0) {
        logFailedCall("sys_getUSBTetheringEnabled", rc);
    }
    systemCall("sys_setUSBTetheringEnabled", sys_setUSBTetheringEnabled(*mode));
    systemCall("sys_enableWifiWhileTethered",
               sys_enableWifiWhileTethered(*mode == SYS_USB_MODE_USB_AND_WIFI ? 1 : 0));
    return 0;
}

int applyNotifications(TOLAAgent& agent) {
    int* sounds = agent.GetUINotificationSettings();
    if (sounds != nullptr) {
        int rc = sys_setUINotificationSettings(*sounds);
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - sys_setUINotificationSettings failed and returned: [%d]",
                     rc);
        }
    }
    int* audio = agent.GetAudioAlertsEnabled();
    if (audio != nullptr) {
        int rc = sys_setAudioAlertsEnabled(*audio);
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  sys_setAudioAlertsEnabled failed and returned: [%d]", rc);
        }
    }
    return 0;
}

int applyPortFiltering(TOLAAgent& agent) {
    int* enabled = agent.GetPortFilteringEnabled();
    if (agent.IsPresent(F::PortFilteringSettings_PortFilteringEnabled) && enabled != nullptr) {
        systemCall("sys_setPortFilteringEnabled", sys_setPortFilteringEnabled(*enabled));
    }
    int* count = agent.GetPortFilteringAppsCount();
    sys_router_app_t* apps = agent.GetPortFilteringApplications();
    if (agent.IsPresent(F::PortFilteringSettings_PortFilteringApplications) && count != nullptr &&
        apps != nullptr) {
        systemCall("sys_setPortFilteringApplicationList", sys_setPortFilteringApplicationList(apps, *count));
    }
    return 0;
}

int applyPortForwarding(TOLAAgent& agent) {
    int* enabled = agent.GetPortForwardingEnabled();
    if (agent.IsPresent(F::PortForwardingSettings_PortForwardingEnabled) && enabled != nullptr) {
        systemCall("sys_setPortForwardingEnabled", sys_setPortForwardingEnabled(*enabled));
    }
    int* count = agent.GetPortForwardingAppsCount();
    sys_router_app_t* apps = agent.GetPortForwardingApplications();
    if (agent.IsPresent(F::PortForwardingSettings_PortForwardingApplications) && count != nullptr &&
        apps != nullptr) {
        systemCall("sys_setPortForwardingApplicationList",
                   sys_setPortForwardingApplicationList(apps, *count));
    }
    return 0;
}

// Modem profiles that take an APN text of the mobile-network group: the first APN part (LTE) goes
// to the Veltra profiles, the second (NonVeltraAPN) to the partner profiles.
struct ModemTarget {
    int type;
    int index;
    const char* failure;
};
const ModemTarget kFirstApnProfiles[] = {
    {SYS_MODEM_PROFILE_3GPP, 3, "setModemProfile  for veltra profile and  index 3 failed "},
    {SYS_MODEM_PROFILE_3GPP2, 103, "setModemProfile  for veltra profile and  index 103 failed "},
    {SYS_MODEM_PROFILE_3GPP, 13, "setModemProfile  for veltra profile and  index 13 failed "},
};
const ModemTarget kSecondApnProfiles[] = {
    {SYS_MODEM_PROFILE_3GPP, 21, "setModemProfile  for veltra profile and  index 21 failed "},
    {SYS_MODEM_PROFILE_3GPP, 23, "setModemProfile  for veltra profile and  index 23 failed "},
};

// Reads each profile whole, puts the APN in and writes it back; a profile that cannot be read is
// left alone. The result of the last write (0 when none was made).
template <size_t N>
int writeApn(const ModemTarget (&targets)[N], const char* apn, int last) {
    for (const ModemTarget& target : targets) {
        sys_modem_profile_t profile;
        std::memset(&profile, 0, sizeof profile);
        int rc = sys_getModemProfile(target.type, target.index, &profile);
        if (rc != 0) {
            TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - modem profile %d:%d not read (%d), left alone", target.type,
                 target.index, rc);
            continue;
        }
        std::snprintf(profile.apn, sizeof profile.apn, "%s", apn);
        last = sys_setModemProfile(target.type, target.index, &profile);
        if (!succeeded(Family::System, last)) {
            logFailedCall(target.failure, last);
        }
    }
    return last;
}

int applyModemProfiles(TOLAAgent& agent) {
    int last = 0;
    const char* first = agent.GetNetworkText(TOLA_NET_LTE_APN);
    if (agent.IsPresent(F::NetworkSettings_LTEAPN) && first != nullptr) {
        last = writeApn(kFirstApnProfiles, first, last);
    }
    const char* second = agent.GetNetworkText(TOLA_NET_NON_VELTRA_APN);
    if (agent.IsPresent(F::NetworkSettings_NonVeltraAPN) && second != nullptr) {
        last = writeApn(kSecondApnProfiles, second, last);
    }
    // This model has no custom modem profile: the document carries none ("blank"), and the step
    // only reports a failed write before it.
    if (last > 1) {
        logFailedCall("SKIP CustomModemProfile in QUILL ", last);
    }
    return 0;
}

int applyFileSharing(TOLAAgent& agent) {
    return agent.SetVornsharingSettings();
}

int applyAccessControl(TOLAAgent& agent) {
    return agent.SerializeACL() ? 0 : 1;
}

int applyWiFi(TOLAAgent& agent) {
    int rc = agent.SetWiFiParameters();
    if (rc == 0) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - successfully set the new wifi parameters");
    }
    return 0;  // failures are logged inside
}

// ---- The steps, in the order they are applied ---------------------------------------------

struct ApplyStep {
    bool (*present)(TOLAAgent& agent);
    Family family;
    int (*apply)(TOLAAgent& agent);  // the call's result, or kNotCalled
    const char* name;                // logged as "<name> failed with code = <rc>", or
    const char* failureFormat;       // a line of the step's own taking the result
};

#define TOLA_ANY(...) [](TOLAAgent& a) { return anyOf(a, {__VA_ARGS__}); }
#define TOLA_CALL(expr) [](TOLAAgent& a) -> int { return expr; }

const ApplyStep kApplySteps[] = {
    // 1
    {TOLA_ANY(F::WiFiNetworkSettings, F::WiFiGuestNetworkSettings, F::WiFiAdvancedSettings), Family::Steps,
     applyWiFi, nullptr, nullptr},
    // 2, 3
    {TOLA_ANY(F::ManualDNSSettings_ManualDNSAddress1, F::ManualDNSSettings_ManualDNSAddress2), Family::System,
     TOLA_CALL(withRecord(a.GetManualDNSSettings(), sys_setManualDNSSettings)), "sys_setManualDNSSettings",
     nullptr},
    {TOLA_ANY(F::ManualDNSSettings_ManualDNSEnabled), Family::System,
     TOLA_CALL(withValue(a.GetManualDNSEnabled(), sys_setManualDNSEnabled)), "sys_setManualDNSEnabled",
     nullptr},
    // 4, 5: the display settings are read back into the document's record
    {TOLA_ANY(F::WiFiNetworkSettings_WiFiNameOnDisplay, F::WiFiNetworkSettings_WiFiPasswordOnDisplay),
     Family::Getter,
     TOLA_CALL(withRecord(a.GetWiFiPrimaryDisplayInfo(), deviceui_get_primary_wifi_info_display_settings)),
     nullptr, "[%s]:[%s] - deviceui_get_primary_wifi_info_display_settings failed and returned: [%d]"},
    {TOLA_ANY(F::WiFiGuestNetworkSettings_WiFiGuestNameOnDisplay,
              F::WiFiGuestNetworkSettings_WiFiGuestPasswordOnDisplay),
     Family::Getter,
     TOLA_CALL(withRecord(a.GetWiFiGuestDisplayInfo(), deviceui_get_guest_wifi_info_display_settings)),
     nullptr, "[%s]:[%s] - deviceui_get_guest_wifi_info_display_settings failed and returned: [%d]"},
    // 6
    {TOLA_ANY(F::WiFiAdvancedSettings_WiFiMaxClients), Family::System,
     TOLA_CALL(withValue(a.GetWiFiMaxClients(), sys_setWiFiMaxClients)), "setWiFiMaxClients", nullptr},
    // 7 - 10
    {TOLA_ANY(F::GPSSettings_GPSEnabled), Family::Steps, applyGPSEnabled, nullptr, nullptr},
    {TOLA_ANY(F::GPSSettings_GPSNMEAOverWiFiEnabled), Family::System,
     TOLA_CALL(withValue(a.GetNMEAOverWiFiEnabled(), sys_setNMEAOverWiFiEnabled)), "setNMEAOverWiFiEnabled",
     nullptr},
    {TOLA_ANY(F::GPSSettings_GPSTurnOff), Family::System,
     TOLA_CALL(withValue(a.GetGPSStartupState(), sys_setGPSStartupState)), "setGPSStartupState", nullptr},
    {TOLA_ANY(F::GPSSettings_GPSNMEAOverWiFiPortNumber), Family::System,
     TOLA_CALL(withValue(a.GetNMEAOverWiFiPort(), sys_setNMEAOverWiFiSettings)), "setNMEAOverWiFiSettings",
     nullptr},
    // 11 - 15
    {TOLA_ANY(F::FirewallSettings_IPv6TransparentModeEnabled), Family::System,
     TOLA_CALL(withValue(a.GetIPv6TransparentModeEnabled(), sys_setIPv6TransparentModeEnabled)),
     "sys_setIPv6TransparentModeEnabled", nullptr},
    {TOLA_ANY(F::FirewallSettings_VPNPassthroughEnabled), Family::System,
     TOLA_CALL(withValue(a.GetVPNPassthroughEnabled(), sys_setVPNPassthroughEnabled)),
     "sys_setVPNPassthroughEnabled", nullptr},
    {TOLA_ANY(F::FirewallSettings_DMZIpAddress), Family::System,
     TOLA_CALL(withRecord(a.GetDMZSettings(), sys_setDMZSettings)), "sys_setDMZSettings", nullptr},
    {TOLA_ANY(F::FirewallSettings_DMZEnabled), Family::System,
     TOLA_CALL(withValue(a.GetDMZEnabled(), sys_setDMZEnabled)), "sys_setDMZEnabled", nullptr},
    {TOLA_ANY(F::MACFilterSettings_MACFilterEnabled), Family::System,
     TOLA_CALL(withValue(a.GetMacFilterWhiteListEnabled(), sys_setMacFilterWhiteListEnabled)),
     "sys_setMacFilterWhiteListEnabled", nullptr},
    // 16, 17
    {TOLA_ANY(F::LANSettings_RouterIPv4Address, F::LANSettings_RouterSubnetMask, F::LANSettings_DHCPEnabled,
              F::LANSettings_DHCPAddressRangeStart, F::LANSettings_DHCPLeaseTime),
     Family::System, TOLA_CALL(withRecord(a.GetLANSettings(), sys_setLANSettings)), "sys_setLANSettings",
     nullptr},
    {TOLA_ANY(F::LANSettings_IPv6Enabled), Family::System,
     TOLA_CALL(withValue(a.GetIPv6Enabled(), sys_setIPv6Enabled)), "sys_setIPv6Enabled", nullptr},
    // 18, 19
    {TOLA_ANY(F::LogsSettings), Family::WebUi,
     TOLA_CALL(withRecord(a.GetLogSettings(), webui_set_log_settings)), "webui_set_log_settings", nullptr},
    {TOLA_ANY(F::BlockedDevices, F::WhiteListedDevices), Family::Steps, applyMacFilterList, nullptr, nullptr},
    // 20 - 22
    {TOLA_ANY(F::AdminPasswordSettings_AdminPassword, F::AdminPasswordSettings_AdminPasswordOnDisplay,
              F::AdminPasswordSettings_AdminPasswordSecurityQuestion,
              F::AdminPasswordSettings_AdminPasswordSecurityAnswer),
     Family::WebUi, TOLA_CALL(withRecord(a.GetLoginSettings(), webui_set_login_settings)), nullptr,
     "[%s]:[%s] - Error in webui_set_login_settings, returned : [%d]"},
    {TOLA_ANY(F::AdminPasswordSettings_AdminPasswordTurnONPasswordProtection,
              F::AdminPasswordSettings_AdminPasswordOnGPS,
              F::AdminPasswordSettings_AdminPasswordOnNetworkSettings),
     Family::WebUi, TOLA_CALL(withRecord(a.GetAdvancedSettings(), webui_set_advanced_settings)), nullptr,
     "[%s]:[%s] - Error in webui_set_advanced_settings, returned : [%d]"},
    {TOLA_ANY(F::AdminPasswordSettings_AdminPasswordOnDisplay), Family::DeviceUi,
     TOLA_CALL(a.GetLoginSettings() != nullptr ? deviceui_set_admin_password_enabled(static_cast<int>(
                                                     a.GetLoginSettings()->passwordOnDisplay))
                                               : kNotCalled),
     nullptr, "[%s]:[%s] - Failed devui set admin password enabled and returned: [%d]"},
    // 23 - 29
    {TOLA_ANY(F::DevicePreferences_AllowHardwareReset), Family::System,
     TOLA_CALL(withValue(a.GetHWFactoryResetEnabled(), sys_setHWFactoryResetEnabled)), nullptr,
     "[%s]:[%s] - setHWFactoryResetEnabled failed and returned: [%d]"},
    {TOLA_ANY(F::DevicePreferences_DisplayTimeout), Family::DeviceUi,
     TOLA_CALL(withValue(a.GetScreenTimeout(), deviceui_set_screen_timeout_settings)), nullptr,
     "[%s]:[%s] - deviceui_set_screen_timeout_settings failed and returned: [%d]"},
    {TOLA_ANY(F::DevicePreferences_SleepTime), Family::Steps, applyDeepSleep, nullptr, nullptr},
    {TOLA_ANY(F::DevicePreferences_ShutdownTime), Family::Steps, applyShutdownTime, nullptr, nullptr},
    {TOLA_ANY(F::DevicePreferences_LEDEnabled), Family::System,
     TOLA_CALL(withValue(a.GetLEDEnabled(), sys_setLEDEnabled)), nullptr,
     "[%s]:[%s] - sys_setLEDEnabled failed and returned: [%d]"},
    {TOLA_ANY(F::DevicePreferences_StealthModeEnabled), Family::System,
     TOLA_CALL(withValue(a.GetUIStealthModeEnabled(), sys_setUIStealthModeEnabled)), nullptr,
     "[%s]:[%s] - sys_setUIStealthModeEnabled failed and returned: [%d]"},
    {TOLA_ANY(F::DevicePreferences_WakeupDisplayOnNotificationEnabled), Family::DeviceUi,
     TOLA_CALL(withValue(a.GetNotificationDisplayWakeupEnabled(),
                         deviceui_set_notification_display_wakeup_setting_enabled)),
     nullptr,
     "[%s]:[%s] - deviceui_set_notification_display_wakeup_setting_enabled failed and returned [%d]"},
    // 30 - 32
    {TOLA_ANY(F::DevicePreferences_LocalIPAddress), Family::System,
     TOLA_CALL(withRecord(a.GetLocalAddress(), sys_setLANSettings)), "sys_setLANSettings", nullptr},
    {TOLA_ANY(F::DevicePreferences_AllowPreferencesChangeOnDisplay), Family::DeviceUi,
     TOLA_CALL(withValue(a.GetDisplaySettingEnabled(), deviceui_set_display_setting_enabled)), nullptr,
     "[%s]:[%s] - deviceui_set_display_setting_enabled failed and returned: [%d]"},
    {TOLA_ANY(F::DevicePreferences_UCAutoOffThreshold), Family::System,
     TOLA_CALL(withValue(a.GetUniversalChargingSettings(), sys_setUniversalChargingSettings)),
     "sys_setUniversalChargingSettings", nullptr},
    // 33 - 36
    {TOLA_ANY(F::USBModePreferences_USBMode), Family::Steps, applyUSBMode, nullptr, nullptr},
    {TOLA_ANY(F::USBModePreferences_USBModePrompt), Family::DeviceUi,
     TOLA_CALL(withValue(a.GetUSBConnectionPromptEnabled(), deviceui_set_usb_connection_prompt_enabled)),
     nullptr, "[%s]:[%s] -  deviceui_set_usb_connection_prompt_enabled failed and returned: [%d]"},
    {TOLA_ANY(F::AudioPreferences), Family::Steps, applyNotifications, nullptr, nullptr},
    {TOLA_ANY(F::DisplaySettings), Family::WebUi,
     TOLA_CALL(withRecord(a.GetI18nSettings(), webui_set_i18n_settings)), nullptr,
     "[%s]:[%s] -  webui_set_i18n_settings failed and returned: [%d]"},
    // 37, 38
    {TOLA_ANY(F::PortFilteringSettings), Family::Steps, applyPortFiltering, nullptr, nullptr},
    {TOLA_ANY(F::PortForwardingSettings), Family::Steps, applyPortForwarding, nullptr, nullptr},
    // 39 - 42
    {TOLA_ANY(F::NetworkSettings_CellularDataEnabled), Family::System,
     TOLA_CALL(withValue(a.GetCellularDataEnabled(), sys_setCellularDataEnabled)), "setCellularDataEnabled",
     nullptr},
    {TOLA_ANY(F::NetworkSettings_ConnectionPreference), Family::System,
     TOLA_CALL(setMapped(kConnectionPreferences, a.GetNetworkText(TOLA_NET_CONNECTION_PREFERENCE),
                         sys_setCellularDataConnectionPreference)),
     "sys_setCellularDataConnectionPreference", nullptr},
    // No document key fills the preferred technology: the step runs when the text is set.
    {[](TOLAAgent& a) {
         char* text = a.GetNetworkText(TOLA_NET_PREFERRED_TECHNOLOGY);
         return text != nullptr && text[0] != '\0';
     },
     Family::System,
     TOLA_CALL(setMapped(kRadioTechnologies, a.GetNetworkText(TOLA_NET_PREFERRED_TECHNOLOGY),
                         sys_setEnabledRadioTechnologies)),
     "setEnabledRadioTechnologies", nullptr},
    {TOLA_ANY(F::NetworkSettings_LTEAPN, F::NetworkSettings_NonVeltraAPN), Family::Steps, applyModemProfiles,
     nullptr, nullptr},
    // 43 - 45
    {TOLA_ANY(F::ReservedIpSettings), Family::System,
     TOLA_CALL(a.GetReservedAddrList() != nullptr && a.GetReservedAddrListCount() != nullptr
                   ? sys_setDHCPReservedAddrList(a.GetReservedAddrList(), *a.GetReservedAddrListCount())
                   : kNotCalled),
     "sys_setDHCPReservedAddrList : set Reserved IP List failed.", nullptr},
    {TOLA_ANY(F::VornSharingSettings), Family::Steps, applyFileSharing,
     "SetVornsharingSettings : set File sharing failed.", nullptr},
    {TOLA_ANY(F::AccessControlSettings), Family::Steps, applyAccessControl, nullptr,
     "[%s]:[%s] - Failed to serialize Access Control List to file"},
};
static_assert(sizeof(kApplySteps) / sizeof(kApplySteps[0]) == 45, "45 apply steps");

#undef TOLA_ANY
#undef TOLA_CALL

}  // namespace

void TOLAAgent::ApplySettings() {
    FnTrace trace("void TOLAAgent::ApplySettings()");
    for (const ApplyStep& step : kApplySteps) {
        if (!step.present(*this)) {
            continue;
        }
        int rc = step.apply(*this);
        if (rc == kNotCalled || succeeded(step.family, rc)) {
            continue;
        }
        if (step.failureFormat != nullptr) {
            TLOG_SYS(TOLA_LOG_ERROR, step.failureFormat, rc);
        } else if (step.name != nullptr) {
            logFailedCall(step.name, rc);
        }
    }
}

int TOLAAgent::PublishAclChange(MsgbusHandler& bus) {
    FnTrace trace("int TOLAAgent::PublishAclChange(MsgbusHandler&)");
    int rc = bus.Initialize();
    if (rc != 0) {
        // The publication is still attempted (and fails): the settings are applied regardless.
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Msgbus initialize failed with code = %d", rc);
    }
    rc = bus.PublishData(TOLA_CHANNEL_ACL, 1);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to publish on %s, returned %d", TOLA_CHANNEL_ACL, rc);
    }
    return trace.Returning(rc);
}

int TOLAAgent::SetWiFiParameters() {
    FnTrace trace("int TOLAAgent::SetWiFiParameters()");
    int* carrier = getWiFiCarrierEnabled();
    int* enabledNow = getWiFiEnabled();
    sys_wifi_profile_t* current = getWiFiProfile();
    if (carrier == nullptr || enabledNow == nullptr || current == nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - get primary wifi profile or get wifi settings or get wifi enabled are failed");
        return trace.Returning(1);
    }
    if (*carrier == 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  wifi carrier is disabled, so unable to set it.");
        return trace.Returning(1);
    }
    int result = 0;
    auto note = [&result](int rc) {
        if (!succeeded(Family::System, rc) && rc != kNotCalled) {
            result = rc;
        }
        return rc;
    };
    if (*enabledNow == 0) {
        // Profiles of a switched-off radio are not touched; only the switch itself is set.
        TLOG(TOLA_LOG_INFO,
             "[%s]:[%s] -  as wifi is disabled, wifi and guest profiles are not going to be changed");
    }
    int rc = note(withValue(GetWiFiEnabled(), sys_setWiFiEnabled));
    if (rc != kNotCalled && !succeeded(Family::System, rc)) {
        logFailedCall("setWiFiEnabled", rc);
    }
    if (*enabledNow == 0) {
        return trace.Returning(result);
    }

    sys_wifi_profile_t* primary = GetWiFiPrimaryProfile();
    if (primary != nullptr) {
        rc = note(sys_setWiFiPrimaryProfileForRadio(SYS_WIFI_RADIO_24GHZ, primary));
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  set wifi profile for 2.4GHz failed and returned:%d", rc);
        }
        rc = note(sys_setWiFiPrimaryProfileForRadio(SYS_WIFI_RADIO_5GHZ, primary));
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  set wifi profile for 5GHz failed and returned:%d", rc);
        }
    }
    int* guestCarrier = getGuestWiFiCarrierEnabled();
    sys_wifi_profile_t* guest = GetWiFiGuestProfile();
    if (guestCarrier == nullptr || *guestCarrier == 0) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  wifi guest carrier disabled");
    } else if (guest != nullptr) {
        rc = note(sys_setWiFiGuestProfileForRadio(SYS_WIFI_RADIO_24GHZ, guest));
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  set wifi guest profile for 2.4GHz failed and returned:%d",
                     rc);
        }
        rc = note(sys_setWiFiGuestProfileForRadio(SYS_WIFI_RADIO_5GHZ, guest));
        if (!succeeded(Family::System, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  set wifi guest profile for 5GHz failed and returned:%d",
                     rc);
        }
    }
    rc = note(withValue(GetWiFiMaxClients(), sys_setWiFiMaxClients));
    if (!succeeded(Family::System, rc) && rc != kNotCalled) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  set wifi max clients failed and returned:%d", rc);
    }

    // Device-UI calls: their own success value.
    auto uiCall = [&result](int rc2, const char* format) {
        if (rc2 != kNotCalled && !succeeded(Family::DeviceUi, rc2)) {
            result = rc2;
            TLOG_SYS(TOLA_LOG_ERROR, format, rc2);
        }
    };
    uiCall(withValue(GetWiFiDisplaySettingEnabled(), deviceui_set_wifi_display_setting_enabled),
           "[%s]:[%s] - set wifi allow changes on touch screen failed and returned:%d");
    uiCall(withRecord(GetWiFiPrimaryDisplayInfo(), deviceui_set_primary_wifi_info_display_settings),
           "[%s]:[%s] -  set wifi information on display failed and returned:%d");
    uiCall(withRecord(GetWiFiGuestDisplayInfo(), deviceui_set_guest_wifi_info_display_settings),
           "[%s]:[%s] -  set guest wifi information on display failed and returned:%d");
    return trace.Returning(result);
}

int TOLAAgent::SetVornsharingSettings() {
    FnTrace trace("int TOLAAgent::SetVornsharingSettings()");
    int result = 0;
    auto call = [&result](const char* name, int rc) {
        if (rc != kNotCalled && !succeeded(Family::System, rc)) {
            logFailedCall(name, rc);
            result = rc;
        }
    };
    if (IsPresent(F::VornSharingSettings_VornSharingEnabled)) {
        call("sys_setSambaEnabled", withValue(GetSambaEnabled(), sys_setSambaEnabled));
    }
    if (anyOf(*this, {F::VornSharingSettings_VornSharingContentToShare,
                      F::VornSharingSettings_VornSharingAccessType})) {
        call("sys_setSambaSettings", withRecord(GetSambaSettings(), sys_setSambaSettings));
    }
    if (IsPresent(F::VornSharingSettings_VornSharingGuestWifiNetworkAccess)) {
        call("sys_setSambaGuestNetworkEnabled",
             withValue(GetSambaGuestNetworkEnabled(), sys_setSambaGuestNetworkEnabled));
    }
    if (IsPresent(F::VornSharingSettings_VornSharingWifiNetworkAccess)) {
        call("sys_setSambaPrimaryNetworkEnabled",
             withValue(GetSambaPrimaryNetworkEnabled(), sys_setSambaPrimaryNetworkEnabled));
    }
    sys_samba_folder_t* folders = GetSambaFolderNames();
    if (IsPresent(F::VornSharingSettings_VornSharingTopLevelFolder) && folders != nullptr) {
        // The document's folders fill the list from the start, up to the first empty slot.
        int count = 0;
        while (count < SYS_SAMBA_FOLDER_SLOTS && folders[count].name[0] != '\0') {
            ++count;
        }
        call("sys_setSambaFolderSettings", sys_setSambaFolderSettings(folders, count));
    }
    char* hostName = GetSambaHostName();
    if (IsPresent(F::VornSharingSettings_VornSharingName) && hostName != nullptr) {
        call("sys_setSambaHostname", sys_setSambaHostname(hostName));
    }
    int* onDisplay = GetFileSharingDisplayEnabled();
    if (IsPresent(F::VornSharingSettings_VornSharingOnDisplay) && onDisplay != nullptr) {
        int rc = deviceui_set_file_sharing_display_setting_enabled(*onDisplay);
        if (!succeeded(Family::DeviceUi, rc)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to set Filsharing on display enabled parameter.");
            result = rc;
        }
    }
    return trace.Returning(result);
}
