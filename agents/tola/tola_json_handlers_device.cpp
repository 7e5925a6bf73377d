// Device groups: GPS, logs, device preferences (with USB mode, audio and display sub-objects)
// and file sharing.
#include <cstring>

#include "tola_json_handlers.h"

using namespace tola_json;

namespace {

const Choice kGPSTurnOff[] = {{"Always on", 1, nullptr}, {"Turn off on power down", 0, nullptr}};
const Choice kLogsDeletion[] = {
    {"After 1 day", 1, nullptr},
    {"After 2 days", 2, nullptr},
    {"After 3 days", 3, nullptr},
    {"After 4 days", 4, nullptr},
};
const Choice kChargeThresholds[] = {{"5%", 5, nullptr}, {"25%", 25, nullptr}, {"50%", 50, nullptr}};
const Choice kDisplayTimeouts[] = {
    {"Never", 0, nullptr},
    {"After 30 seconds", 30000, nullptr},
    {"After 1 minute", 60000, nullptr},
    {"After 5 minutes", 300000, nullptr},
    {"After 10 minutes", 600000, nullptr},
};
const Choice kSleepTimes[] = {
    {"Never", 0, nullptr},
    {"After 5 minutes", 300, nullptr},
    {"After 15 minutes", 900, nullptr},
    {"After 30 minutes", 1800, nullptr},
    {"After 60 minutes", 3600, nullptr},
};
const Choice kShutdownTimes[] = {
    {"Never", 0, nullptr},
    {"After 1 hour", 3600, nullptr},
    {"After 2 hours", 2 * 3600, nullptr},
    {"After 3 hours", 3 * 3600, nullptr},
    {"After 4 hours", 4 * 3600, nullptr},
    {"After 5 hours", 5 * 3600, nullptr},
    {"After 6 hours", 6 * 3600, nullptr},
    {"After 7 hours", 7 * 3600, nullptr},
    {"After 8 hours", 8 * 3600, nullptr},
    {"After 9 hours", 9 * 3600, nullptr},
    {"After 10 hours", 10 * 3600, nullptr},
    {"After 11 hours", 11 * 3600, nullptr},
    {"After 12 hours", 12 * 3600, nullptr},
    {"After 13 hours", 13 * 3600, nullptr},
    {"After 14 hours", 14 * 3600, nullptr},
    {"After 15 hours", 15 * 3600, nullptr},
    {"After 16 hours", 16 * 3600, nullptr},
    {"After 17 hours", 17 * 3600, nullptr},
    {"After 18 hours", 18 * 3600, nullptr},
    {"After 19 hours", 19 * 3600, nullptr},
    {"After 20 hours", 20 * 3600, nullptr},
    {"After 21 hours", 21 * 3600, nullptr},
    {"After 22 hours", 22 * 3600, nullptr},
    {"After 23 hours", 23 * 3600, nullptr},
    {"After 24 hours", 24 * 3600, nullptr},
};
const Choice kUSBModes[] = {
    {"Internet access via USB and Wi-Fi", SYS_USB_MODE_USB_AND_WIFI, nullptr},
    {"Internet access via USB only", SYS_USB_MODE_USB_ONLY, nullptr},
    {"USB charging", SYS_USB_MODE_CHARGING, nullptr},
};
const Choice kLanguages[] = {{"English", 0, "en_US"}, {"Spanish", 0, "es_MX"}};
const Choice kDateFormats[] = {{"mm/dd/yyyy", 1, nullptr}, {"dd/mm/yyyy", 2, nullptr}};
const Choice kTimeFormats[] = {{"12 hr", 1, nullptr}, {"24 hr", 2, nullptr}};
const Choice kDistanceFormats[] = {{"Feet", 1, nullptr}, {"Meters", 2, nullptr}};
const Choice kNumericSeparators[] = {{"3,234.00", 1, nullptr}, {"3.234,00", 2, nullptr}};
const Choice kContentToShare[] = {
    {"All folders and files", static_cast<int>(SYS_SAMBA_SHARE_ALL), nullptr},
    {"Specified top-level folders", static_cast<int>(SYS_SAMBA_SHARE_FOLDERS), nullptr},
};
const Choice kAccessTypes[] = {
    {"Read-only", static_cast<int>(SYS_SAMBA_READ_ONLY), nullptr},
    {"Read-write", static_cast<int>(SYS_SAMBA_READ_WRITE), nullptr},
};

}  // namespace

int handleGPSSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "GPSSettings", ctx, "[%s]:[%s] - %s - NO  GPSSettings Object in the JSON data",
                  __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("GPSEnabled", TolaField::GPSSettings_GPSEnabled, TOLA_VALUE_SLOT(GetGPSEnabled),
                "[%s]:[%s] - Invalid GPS_ENABLED parameter data type",
                "Invalid GPS Settings object enabled parameter data type"),
        boolKey("GPSNMEAOverWiFiEnabled", TolaField::GPSSettings_GPSNMEAOverWiFiEnabled,
                TOLA_VALUE_SLOT(GetNMEAOverWiFiEnabled),
                "[%s]:[%s] - Invalid GPS NMEA_OVER_WIFI_ENABLED parameter data type",
                "Invalid GPS Settings object nmea over wifi enabled parameter data type"),
        numberKey("GPSNMEAOverWiFiPortNumber", TolaField::GPSSettings_GPSNMEAOverWiFiPortNumber,
                  TOLA_VALUE_SLOT(GetNMEAOverWiFiPort),
                  "[%s]:[%s] - Invalid GPS NMEA_OVER_WIFI_PORTNUMBER parameter data type",
                  "Invalid GPS Settings object nmea over wifi port number parameter data type", 1024, 65534,
                  "[%s]:[%s] - Invalid GPS NMEA_OVER_WIFI_PORTNUMBER %d",
                  "Invalid GPS Settings object nmea over wifi port number value"),
        enumKey("GPSTurnOff", TolaField::GPSSettings_GPSTurnOff, TOLA_VALUE_SLOT(GetGPSStartupState),
                "[%s]:[%s] - Invalid GPS_SHUTDOWN parameter data type",
                "Invalid GPS Settings object shutdown parameter data type", kGPSTurnOff,
                "[%s]:[%s] - Invalid GPSSettings->GPSShutdown(%s)",
                "Invalid GPS Settings object shutdown parameter value"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{110, 159});
}

int handleLogsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group = openGroup(element, "LogsSettings", ctx,
                               "[%s]:[%s] - %s - NO Logs Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("LogsEnabled", TolaField::LogsSettings_LogsEnabled, TOLA_FIELD_SLOT(GetLogSettings, enabled),
                "[%s]:[%s] - Invalid LOGS_ENABLED parameter data type",
                "Invalid LOG Settings object enabled parameter data type"),
        enumKey("LogsDeletion", TolaField::LogsSettings_LogsDeletion,
                TOLA_FIELD_SLOT(GetLogSettings, durationDays),
                "[%s]:[%s] - Invalid LOGS_DURATION parameter data type",
                "Invalid LOG Settings object logs duration parameter data type", kLogsDeletion,
                "[%s]:[%s] - Invalid LogsSettings->LogsDuration(%s)",
                "Invalid LOG Settings object logs duration parameter value"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{111, 160});
}

int handleUSBModePreferencesInfo(yajl_val devicePreferences, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(devicePreferences, "USBModePreferences", ctx,
                  "[%s]:[%s] - %s - NO USBModePreferences Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("USBModePrompt", TolaField::USBModePreferences_USBModePrompt,
                TOLA_VALUE_SLOT(GetUSBConnectionPromptEnabled),
                "[%s]:[%s] - Invalid USBModePreferences USB_MODE_PROMPT parameter data type",
                "Invalid USB Mode Preferences Object USB Mode prompt parameter data type"),
        enumKey("USBMode", TolaField::USBModePreferences_USBMode, TOLA_VALUE_SLOT(GetUSBTetheringEnabled),
                "[%s]:[%s] - Invalid USBModePreferences USB_MODE parameter data type",
                "Invalid USB Mode Preferences Object USB Mode parameter data type", kUSBModes,
                "[%s]:[%s] - Invalid USBModePreferences->USBMode(%s)",
                "Invalid USB Mode Preferences Object USB Mode parameter value"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{114, 155});
}

int handleAudioPreferencesInfo(yajl_val devicePreferences, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(devicePreferences, "AudioPreferences", ctx,
                  "[%s]:[%s] - %s - NO AudioPreferences Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
#define TOLA_SOUND(key, mask, label)                                                          \
    soundKey(key, mask, "[%s]:[%s] - Invalid AudioPreferences " label " parameter data type", \
             "Invalid Audio Preferences Object " label " parameter data type")
    static const KeyRule kRules[] = {
        boolKey("AudioEnabled", TolaField::AudioPreferences_AudioEnabled,
                TOLA_VALUE_SLOT(GetAudioAlertsEnabled),
                "[%s]:[%s] - Invalid AudioPreferences AUDIO_ENABLED parameter data type",
                "Invalid Audio Preferences Object audio enabled parameter data type"),
        TOLA_SOUND("AudioStartupShutdown", SYS_SOUND_STARTUP | SYS_SOUND_SHUTDOWN, "startup shutdown"),
        TOLA_SOUND("AudioLowBattery", SYS_SOUND_BATTERY10, "low battery"),
        TOLA_SOUND("AudioCriticalLowBattery", SYS_SOUND_BATTERY_CRITICAL, "critical low battery"),
        TOLA_SOUND("AudioCharging", SYS_SOUND_BATTERY_CHARGING | SYS_SOUND_LOW_CHARGER, "charging"),
        TOLA_SOUND("AudioChargingComplete", SYS_SOUND_BATTERY_FULL, "charging complete"),
        TOLA_SOUND("AudioUniversalCharging",
                   SYS_SOUND_UC_OK | SYS_SOUND_UC_LOW_BATTERY | SYS_SOUND_UC_TERMINATED,
                   "universal charging"),
        TOLA_SOUND("AudioUSBComputerConnection", SYS_SOUND_USB_MODE_PROMPT, "USB computer connection"),
        TOLA_SOUND("AudioUSBMassStorage", SYS_SOUND_USB_MASS_STORAGE, "USB mass storage"),
        TOLA_SOUND("AudioSIMErrors", SYS_SOUND_SIM_ERROR | SYS_SOUND_SIM_NONE | SYS_SOUND_SIM_NON_VLT,
                   "SIM errors"),
        TOLA_SOUND("AudioPCOServiceErrors", SYS_SOUND_PCO2 | SYS_SOUND_PCO3 | SYS_SOUND_PCO5,
                   "PCO service errors"),
        TOLA_SOUND("AudioNewMessage", SYS_SOUND_SMS_RECEIVED, "new message"),
        TOLA_SOUND("AudioConnectedDeviceJoins", SYS_SOUND_DEVICE_JOIN_WIFI, "connected device joins"),
        TOLA_SOUND("AudioSoftwareUpdate", SYS_SOUND_SOFTWARE_UPDATE, "software update"),
        TOLA_SOUND("AudioRoaming", SYS_SOUND_ROAMING, "roaming"),
        TOLA_SOUND("AudioWiFiTurnOff", SYS_SOUND_WIFI_DISABLED, "WiFi turn off"),
    };
#undef TOLA_SOUND
    return applyRules(*agent, group, kRules, GroupCodes{116, 155});
}

int handleDisplaySettingsInfo(yajl_val devicePreferences, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(devicePreferences, "DisplaySettings", ctx,
                  "[%s]:[%s] - %s - NO DisplaySettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        enumTextKey("DisplayLanguage", TolaField::DisplaySettings_DisplayLanguage,
                    TOLA_FIELD_SLOT(GetI18nSettings, language),
                    "[%s]:[%s] - Invalid DISPLAY_LANGUAGE parameter data type",
                    "Invalid Display Settings Object language parameter data type", kLanguages,
                    "[%s]:[%s] - Invalid Display Language %s",
                    "Invalid Display Settings Object language parameter value"),
        enumKey("DisplayDateFormat", TolaField::DisplaySettings_DisplayDateFormat,
                TOLA_FIELD_SLOT(GetI18nSettings, dateFormat),
                "[%s]:[%s] - Invalid DISPLAY_DATE_FORMAT parameter data type",
                "Invalid Display Settings Object date format parameter data type", kDateFormats,
                "[%s]:[%s] - Invalid Display Date Format %s",
                "Invalid Display Settings Object date format parameter value"),
        enumKey("DisplayTimeFormat", TolaField::DisplaySettings_DisplayTimeFormat,
                TOLA_FIELD_SLOT(GetI18nSettings, timeFormat),
                "[%s]:[%s] - Invalid DISPLAY_TIME_FORMAT parameter data type",
                "Invalid Display Settings Object time format parameter data type", kTimeFormats,
                "[%s]:[%s] - Invalid DISPLAY_TIME_FORMAT %s",
                "Invalid Display Settings Object time format parameter value"),
        enumKey("DisplayDistanceFormat", TolaField::DisplaySettings_DisplayDistanceFormat,
                TOLA_FIELD_SLOT(GetI18nSettings, distanceFormat),
                "[%s]:[%s] - Invalid DISPLAY_DISTANCE_FORMAT parameter data type",
                "Invalid Display Settings Object distance format parameter data type", kDistanceFormats,
                "[%s]:[%s] - Invalid DISPLAY_DISTANCE_FORMAT %s",
                "Invalid Display Settings Object distance format parameter value"),
        enumKey("DisplayNumericSeparator", TolaField::DisplaySettings_DisplayNumericSeparator,
                TOLA_FIELD_SLOT(GetI18nSettings, numericSeparator),
                "[%s]:[%s] - Invalid DISPLAY_NUMERIC_SEPARATOR parameter data type",
                "Invalid Display Settings Object numeric separator parameter data type", kNumericSeparators,
                "[%s]:[%s] - Invalid DISPLAY_NUMERIC_SEPARATOR %s",
                "Invalid Display Settings Object numeric separator parameter value"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{115, 155});
}

int handleDevicePreferencesInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "DevicePreferences", ctx,
                  "[%s]:[%s] - %s - NO DevicePreferences Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("LEDEnabled", TolaField::DevicePreferences_LEDEnabled, TOLA_VALUE_SLOT(GetLEDEnabled),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES LED_ENABLED parameter data type",
                "Invalid Device preferences Object LED enabled parameter data type"),
        boolKey("StealthModeEnabled", TolaField::DevicePreferences_StealthModeEnabled,
                TOLA_VALUE_SLOT(GetUIStealthModeEnabled),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES STEALTH_MODE_ENABLED parameter data type",
                "Invalid Device preferences Object stealth mode enabled parameter data type"),
        boolKey("WakeupDisplayOnNotificationEnabled",
                TolaField::DevicePreferences_WakeupDisplayOnNotificationEnabled,
                TOLA_VALUE_SLOT(GetNotificationDisplayWakeupEnabled),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES WAKEUP_DISPLAY_ON_NOTIFICATION parameter data type",
                "Invalid Device preferences Object wakeup display on notification parameter data type"),
        boolKey("AllowHardwareReset", TolaField::DevicePreferences_AllowHardwareReset,
                TOLA_VALUE_SLOT(GetHWFactoryResetEnabled),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES ALLOW_HARDWARE_RESET parameter data type",
                "Invalid Device preferences Object allow hardware reset parameter data type"),
        boolKey(
            "AllowPreferencesChangeOnDisplay", TolaField::DevicePreferences_AllowPreferencesChangeOnDisplay,
            TOLA_VALUE_SLOT(GetDisplaySettingEnabled),
            "[%s]:[%s] - Invalid DEVICE_PREFERENCES ALLOW_PREFERENCES_CHANGE_ON_DISPLAY parameter data type",
            "Invalid Device preferences Object allow preferences change on display parameter data type"),
        textKey("LocalIPAddress", TolaField::DevicePreferences_LocalIPAddress,
                TOLA_FIELD_SLOT(GetLocalAddress, ipAddress),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES LOCAL_IP_ADDRESS parameter data type",
                "Invalid Device preferences Object local IP address parameter data type"),
        enumKey("UCAutoOffThreshold", TolaField::DevicePreferences_UCAutoOffThreshold,
                TOLA_VALUE_SLOT(GetUniversalChargingSettings),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES UC_AUTO_OFF_THRESHOLD parameter data type",
                "Invalid Device preferences Object UC auto off threshold parameter data type",
                kChargeThresholds, "[%s]:[%s] - Invalid charge value %s",
                "Invalid Device preferences Object UC auto off threshold parameter value"),
        enumKey("DisplayTimeout", TolaField::DevicePreferences_DisplayTimeout,
                TOLA_VALUE_SLOT(GetScreenTimeout),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES DISPLAY_TIMEOUT parameter data type",
                "Invalid Device preferences Object display timeout parameter data type", kDisplayTimeouts,
                "[%s]:[%s] - Invalid DisplayTimeout value %s ",
                "Invalid Device preferences Object display timeout parameter value"),
        enumKey("SleepTime", TolaField::DevicePreferences_SleepTime,
                TOLA_FIELD_SLOT(GetPowerSaveSettings, sleepTime),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES SLEEP_TIME parameter data type",
                "Invalid Device preferences Object sleep time parameter data type", kSleepTimes,
                "[%s]:[%s] - Invalid Sleep value %s",
                "Invalid Device preferences Object sleep time parameter value"),
        enumKey("ShutdownTime", TolaField::DevicePreferences_ShutdownTime,
                TOLA_FIELD_SLOT(GetPowerSaveSettings, shutdownTime),
                "[%s]:[%s] - Invalid DEVICE_PREFERENCES SHUTDOWN_TIME parameter data type",
                "Invalid Device preferences Object shutdown time parameter data type", kShutdownTimes,
                "[%s]:[%s] - Invalid Shutdown value %s",
                "Invalid Device preferences Object shutdown time parameter value"),
    };
    int rc = applyRules(*agent, group, kRules, GroupCodes{113, 155});
    if (rc == 0) {
        rc = handleUSBModePreferencesInfo(group, ctx);
    }
    if (rc == 0) {
        rc = handleAudioPreferencesInfo(group, ctx);
    }
    if (rc == 0) {
        rc = handleDisplaySettingsInfo(group, ctx);
    }
    return rc;
}

int handleVornSharingSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "VornSharingSettings", ctx,
                  "[%s]:[%s] - %s - NO File Sharing Settings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("VornSharingEnabled", TolaField::VornSharingSettings_VornSharingEnabled,
                TOLA_VALUE_SLOT(GetSambaEnabled),
                "[%s]:[%s] - Invalid FILE_SHARING ENABLED parameter data type",
                "Invalid File sharing settings Object enabled parameter data type"),
        boolKey("VornSharingOnDisplay", TolaField::VornSharingSettings_VornSharingOnDisplay,
                TOLA_VALUE_SLOT(GetFileSharingDisplayEnabled),
                "[%s]:[%s] - Invalid FILE_SHARING ON_DISPLAY parameter data type",
                "Invalid File sharing settings Object on display parameter data type"),
        boolKey("VornSharingWifiNetworkAccess", TolaField::VornSharingSettings_VornSharingWifiNetworkAccess,
                TOLA_VALUE_SLOT(GetSambaPrimaryNetworkEnabled),
                "[%s]:[%s] - Invalid FILE_SHARING WIFI_NETWORK_ACCESS parameter data type",
                "Invalid File sharing settings Object wifi network access parameter data type"),
        boolKey("VornSharingGuestWifiNetworkAccess",
                TolaField::VornSharingSettings_VornSharingGuestWifiNetworkAccess,
                TOLA_VALUE_SLOT(GetSambaGuestNetworkEnabled),
                "[%s]:[%s] - Invalid FILE_SHARING GUEST_WIFI_NETWORK_ACCESS parameter data type",
                "Invalid File sharing settings Object guest wifi network access parameter data type"),
        textKey(
            "VornSharingName", TolaField::VornSharingSettings_VornSharingName,
            [](TOLAAgent& a) -> Slot {
                char* name = a.GetSambaHostName();
                return name != nullptr ? Slot{name, TOLA_SETTINGS_TEXT_SIZE} : Slot{nullptr, 0};
            },
            "[%s]:[%s] - Invalid FILE_SHARING NAME parameter data type",
            "Invalid File sharing settings Object name parameter data type"),
        enumKey("VornSharingContentToShare", TolaField::VornSharingSettings_VornSharingContentToShare,
                TOLA_FIELD_SLOT(GetSambaSettings, contentToShare),
                "[%s]:[%s] - Invalid FILE_SHARING CONTENT_TO_SHARE parameter data type",
                "Invalid File sharing settings Object content to share parameter data type", kContentToShare,
                "[%s]:[%s] - Invalid object file sharing settings of connect to share %s",
                "Invalid File sharing settings Object content to share parameter value"),
        enumKey("VornSharingAccessType", TolaField::VornSharingSettings_VornSharingAccessType,
                TOLA_FIELD_SLOT(GetSambaSettings, accessType),
                "[%s]:[%s] - Invalid FILE_SHARING ACCESS_TYPE parameter data type",
                "Invalid File sharing settings Object access type parameter data type", kAccessTypes,
                "[%s]:[%s] - Invalid object file sharing settings of access type %s",
                "Invalid File sharing settings Object access type parameter value"),
    };
    describeTable(kRules, sizeof(kRules) / sizeof(kRules[0]), GroupCodes{120, 164});
    for (size_t i = 0; i < group->u.object.len; ++i) {
        const char* key = group->u.object.keys[i];
        yajl_val value = group->u.object.values[i];
        int rc = 0;
        if (applyRule(*agent, key, value, kRules, sizeof(kRules) / sizeof(kRules[0]), GroupCodes{120, 164},
                      &rc)) {
            if (rc != 0) {
                return rc;
            }
            continue;
        }
        if (strcmp(key, "VornSharingTopLevelFolder") != 0) {
            continue;
        }
        if (!tola_is_kind(value, yajl_t_array)) {
            return refuse(*agent, 120,
                          "[%s]:[%s] - Invalid FILE_SHARING TOP_LEVEL_FOLDER parameter data type",
                          "Invalid File sharing settings Object top level folder parameter data type");
        }
        int* capacity = agent->GetSambaFolderNamesCount();
        sys_samba_folder_t* folders = agent->GetSambaFolderNames();
        if (capacity == nullptr || folders == nullptr) {
            continue;
        }
        size_t len = value->u.array.len;
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:node->u.array.len %d", __FUNCTION__, static_cast<int>(len));
        if (len == 0) {
            TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s:node->u.array.len Empty", __FUNCTION__);
        }
        int room = *capacity < SYS_SAMBA_FOLDER_SLOTS ? *capacity : SYS_SAMBA_FOLDER_SLOTS;
        if (len > static_cast<size_t>(room < 0 ? 0 : room)) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - Folder Names are more than device to support. device supported folder name "
                     "count=%d, but received folder count is:%d",
                     *capacity, static_cast<int>(len > 0x7fffffff ? 0x7fffffff : len));
            agent->SetErrorMessage(
                "Invalid File sharing settings Object. Top level folder count is exceeded.");
            return 164;
        }
        // The document's folders replace the list (the names are kept up to the first empty
        // slot); an array that names no folder leaves the list and its flag as they were.
        int stored = 0;
        for (size_t f = 0; f < len; ++f) {
            yajl_val name = groupOf(value->u.array.values[f], "FolderName", yajl_t_any);
            if (name == nullptr) {
                continue;
            }
            if (!tola_is_kind(name, yajl_t_string)) {
                return refuse(*agent, 120, "[%s]:[%s] - Invalid FILE_SHARING FOLDER_NAME parameter data type",
                              "Invalid File sharing settings Object folder name parameter data type");
            }
            if (stored == 0) {
                memset(folders, 0, TOLA_SAMBA_FOLDER_BYTES);
            }
            copyText(folders[stored].name, 256, name->u.string);  // up to 255 characters
            ++stored;
            agent->SetPresent(TolaField::VornSharingSettings_VornSharingTopLevelFolder);
        }
    }
    return 0;
}

void tola_json::describeDeviceKeys(const std::string& group, KeyTableSink& sink) {
    if (group != "VornSharingSettings") {
        return;
    }
    sink.note(KeyNote{"VornSharingTopLevelFolder", "array of objects {FolderName}",
                      "replaces the folder list; at most as many folders as the device supports (10)", 120,
                      "Invalid File sharing settings Object top level folder parameter data type", 164,
                      "Invalid File sharing settings Object. Top level folder count is exceeded."});
    sink.group("VornSharingSettings.VornSharingTopLevelFolder[]");
    sink.note(KeyNote{"FolderName", "string", "up to 255 characters", 120,
                      "Invalid File sharing settings Object folder name parameter data type", 0, nullptr});
}
