// Wi-Fi groups (primary, guest, advanced) and the admin password.
#include <cstring>

#include "tola_json_handlers.h"

using namespace tola_json;

namespace {

// 1 to 32 characters; a name that both begins and ends with a space is refused (one space at
// only one end is accepted).
bool acceptSSID(const char* ssid) {
    size_t len = strlen(ssid);
    if (len < 1 || len > 32) {
        return false;
    }
    return !(ssid[0] == ' ' && ssid[len - 1] == ' ');
}
TOLA_DESCRIBE_TEXT_CHECK(acceptSSID, "1 to 32 characters, not beginning and ending with a space");

// Empty, or at most 63 characters.
bool acceptWiFiKey(const char* key) {
    return strlen(key) <= 63;
}
TOLA_DESCRIBE_TEXT_CHECK(acceptWiFiKey, "at most 63 characters");

// Fits the 255 characters the login record keeps.
bool acceptSecurityAnswer(const char* answer) {
    return strlen(answer) <= 255;
}
TOLA_DESCRIBE_TEXT_CHECK(acceptSecurityAnswer, "at most 255 characters");

const Choice kSecurityModes[] = {
    {"None", static_cast<int>(SYS_WIFI_SECURITY_NONE), nullptr},
    {"WPA2 Personal PSK (AES)", static_cast<int>(SYS_WIFI_SECURITY_WPA2_PSK_AES), nullptr},
    {"WPA/WPA2 Mixed Mode", static_cast<int>(SYS_WIFI_SECURITY_WPA_WPA2_MIXED), nullptr},
};
const Choice kBands[] = {
    {"Primary network", static_cast<int>(SYS_WIFI_BAND_PRIMARY), nullptr},
    {"Guest network", static_cast<int>(SYS_WIFI_BAND_GUEST), nullptr},
};
const Choice kModes24[] = {{"802.11bgn", static_cast<int>(SYS_WIFI_MODE_80211BGN), nullptr}};
const Choice kModes5[] = {
    {"802.11ac", static_cast<int>(SYS_WIFI_MODE_80211AC), nullptr},
    {"802.11acn", static_cast<int>(SYS_WIFI_MODE_80211ACN), nullptr},
};
const Choice kChannels24[] = {
    {"Automatic", 0, nullptr}, {"1", 1, nullptr}, {"2", 2, nullptr},   {"3", 3, nullptr},
    {"4", 4, nullptr},         {"5", 5, nullptr}, {"6", 6, nullptr},   {"7", 7, nullptr},
    {"8", 8, nullptr},         {"9", 9, nullptr}, {"10", 10, nullptr}, {"11", 11, nullptr},
};
const Choice kChannels5[] = {
    {"Automatic", 0, nullptr}, {"36", 36, nullptr},   {"40", 40, nullptr},
    {"44", 44, nullptr},       {"48", 48, nullptr},   {"149", 149, nullptr},
    {"153", 153, nullptr},     {"157", 157, nullptr}, {"161", 161, nullptr},
};
const Choice kBandwidths5[] = {{"20 MHz", 20, nullptr}, {"40 MHz", 40, nullptr}, {"80 MHz", 80, nullptr}};
const Choice kSecurityQuestions[] = {
    {"What is your date of birth? (mm/dd/yyyy)", static_cast<int>(WEBUI_QUESTION_DATE_OF_BIRTH), nullptr},
    {"What is your mother's maiden name?", static_cast<int>(WEBUI_QUESTION_MOTHERS_MAIDEN_NAME), nullptr},
    {"What is the name of the street you grew up on?", static_cast<int>(WEBUI_QUESTION_STREET), nullptr},
};

}  // namespace

int handleWiFiNetworkSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "WiFiNetworkSettings", ctx,
                  "[%s]:[%s] - %s - NO WiFiNetworkSettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        textKey("WiFiSSID", TolaField::WiFiNetworkSettings_WiFiSSID,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, ssid),
                "[%s]:[%s] - Invalid WIFI SSID parameter data type",
                "Invalid WIFI Primary Object SSID parameter data type", acceptSSID,
                "[%s]:[%s] - Invalid WIFI SSID parameter data",
                "Invalid WIFI Primary Object SSID parameter value"),
        boolKey("WiFiSSIDBroadcastEnabled", TolaField::WiFiNetworkSettings_WiFiSSIDBroadcastEnabled,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, broadcastEnabled),
                "[%s]:[%s] - Invalid WIFI BROADCAST_ENABLED parameter data type",
                "Invalid WIFI Primary Object broadcast enabled parameter data type"),
        enumKey("WiFiSecurityMode", TolaField::WiFiNetworkSettings_WiFiSecurityMode,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, securityMode),
                "[%s]:[%s] - Invalid WIFI SECURITY_MODE parameter data type",
                "Invalid WIFI Primary Object security mode parameter data type", kSecurityModes,
                "[%s]:[%s] - Invalid WIFI Security Mode parameter",
                "Invalid WIFI Primary Object security mode parameter value"),
        textKey("WiFiKey", TolaField::WiFiNetworkSettings_WiFiKey,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, key),
                "[%s]:[%s] - Invalid WIFI_KEY parameter data type",
                "Invalid WIFI Primary Object key parameter data type", acceptWiFiKey,
                "[%s]:[%s] - Invalid WIFI Security Key parameter",
                "Invalid WIFI Primary Object key parameter value"),
        boolKey("WiFiNameOnDisplay", TolaField::WiFiNetworkSettings_WiFiNameOnDisplay,
                TOLA_FIELD_SLOT(GetWiFiPrimaryDisplayInfo, nameOnDisplay),
                "[%s]:[%s] - Invalid WIFI NAME_ONDISPLAY parameter data type",
                "Invalid WIFI Primary Object name on display parameter data type"),
        boolKey("WiFiPasswordOnDisplay", TolaField::WiFiNetworkSettings_WiFiPasswordOnDisplay,
                TOLA_FIELD_SLOT(GetWiFiPrimaryDisplayInfo, passwordOnDisplay),
                "[%s]:[%s] - Invalid WIFI PASSWORD_ONDISPLAY parameter data type",
                "Invalid WIFI Primary Object password on display parameter data type"),
        boolKey("WiFiWPSEnabled", TolaField::WiFiNetworkSettings_WiFiWPSEnabled,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, wpsEnabled),
                "[%s]:[%s] - Invalid WIFI_WPS_ENABLED parameter data type",
                "Invalid WIFI Primary Object WPS enabled parameter data type"),
        boolKey("WiFiPrivacySeparationEnabled", TolaField::WiFiNetworkSettings_WiFiPrivacySeparationEnabled,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, privacySeparationEnabled),
                "[%s]:[%s] - Invalid WIFI_PRIVACY_SEPARATION_ENABLED parameter data type",
                "Invalid WIFI Primary Object Privacy separation enabled parameter data type"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{102, 151});
}

int handleWiFiGuestNetworkSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group = openGroup(element, "WiFiGuestNetworkSettings", ctx,
                               "[%s]:[%s] - %s - NO WiFiGuestNetworkSettings Object in the JSON data",
                               __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        textKey("WiFiGuestSSID", TolaField::WiFiGuestNetworkSettings_WiFiGuestSSID,
                TOLA_FIELD_SLOT(GetWiFiGuestProfile, ssid),
                "[%s]:[%s] - Invalid GUEST WIFI SSID parameter data type",
                "Invalid WIFI Guest Object SSID parameter data type", acceptSSID,
                "[%s]:[%s] - Invalid Guest WIFI SSID parameter data",
                "Invalid WIFI Guest Object SSID parameter value"),
        enumKey("WiFiGuestSecurityMode", TolaField::WiFiGuestNetworkSettings_WiFiGuestSecurityMode,
                TOLA_FIELD_SLOT(GetWiFiGuestProfile, securityMode),
                "[%s]:[%s] - Invalid GUEST WIFI SECURITY_MODE parameter data type",
                "Invalid WIFI Guest Object Security Mode parameter data type", kSecurityModes,
                "[%s]:[%s] - Invalid Guest WIFI Security Mode parameter",
                "Invalid WIFI Guest Object Security Mode parameter value"),
        textKey("WiFiGuestKey", TolaField::WiFiGuestNetworkSettings_WiFiGuestKey,
                TOLA_FIELD_SLOT(GetWiFiGuestProfile, key),
                "[%s]:[%s] - Invalid GUEST WIFI KEY parameter data type",
                "Invalid WIFI Guest Object Key parameter data type", acceptWiFiKey,
                "[%s]:[%s] - Invalid WIFI Security Key parameter",
                "Invalid WIFI Guest Object key parameter value"),
        boolKey("WiFiGuestNameOnDisplay", TolaField::WiFiGuestNetworkSettings_WiFiGuestNameOnDisplay,
                TOLA_FIELD_SLOT(GetWiFiGuestDisplayInfo, nameOnDisplay),
                "[%s]:[%s] - Invalid WIFI_GUEST_NETWORK_SETTINGS_NAME_ONDISPLAY parameter data type",
                "Invalid WIFI Guest Object name on display parameter data type"),
        boolKey("WiFiGuestPasswordOnDisplay", TolaField::WiFiGuestNetworkSettings_WiFiGuestPasswordOnDisplay,
                TOLA_FIELD_SLOT(GetWiFiGuestDisplayInfo, passwordOnDisplay),
                "[%s]:[%s] - Invalid WIFI_GUEST_NETWORK_SETTINGS_PASSWORD_ONDISPLAY parameter data type",
                "Invalid WIFI Guest Object password on display parameter data type"),
        boolKey("WiFiGuestWPSEnabled", TolaField::WiFiGuestNetworkSettings_WiFiGuestWPSEnabled,
                TOLA_FIELD_SLOT(GetWiFiGuestProfile, wpsEnabled),
                "[%s]:[%s] - Invalid WIFI_GUEST_NETWORK_SETTINGS_WPS_ENABLED parameter data type",
                "Invalid WIFI Guest Object WPS enabled parameter data type"),
        boolKey(
            "WiFiGuestPrivacySeparationEnabled",
            TolaField::WiFiGuestNetworkSettings_WiFiGuestPrivacySeparationEnabled,
            TOLA_FIELD_SLOT(GetWiFiGuestProfile, privacySeparationEnabled),
            "[%s]:[%s] - Invalid WIFI_GUEST_NETWORK_SETTINGS_PRIVACY_SEPARATION_ENABLED parameter data type",
            "Invalid WIFI Guest Object Privacy seperation enabled parameter data type"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{103, 152});
}

int handleWiFiAdvancedSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "WiFiAdvancedSettings", ctx,
                  "[%s]:[%s] - %s - NO WiFiAdvancedSettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        boolKey("WiFiEnabled", TolaField::WiFiAdvancedSettings_WiFiEnabled, TOLA_VALUE_SLOT(GetWiFiEnabled),
                "[%s]:[%s] - Invalid WIFI_ADVANCED ENABLED parameter data type",
                "Invalid WIFI Advanced Object WiFi enabled parameter data type"),
        boolKey("WiFiAllowChangesOnTouchScreen",
                TolaField::WiFiAdvancedSettings_WiFiAllowChangesOnTouchScreen,
                TOLA_VALUE_SLOT(GetWiFiDisplaySettingEnabled),
                "[%s]:[%s] - Invalid WIFI_ADVANCED ALLOW CHANGES ON TOUCH SCREEN parameter data type",
                "Invalid WIFI Advanced Object WiFi Allow Changes On Touch Screen parameter data type"),
        enumKey("WiFi24GHzBand", TolaField::WiFiAdvancedSettings_WiFi24GHzBand,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, band24Network),
                "[%s]:[%s] - Invalid WIFI_SETTINGS_ACTIVE_PROFILE parameter data type",
                "Invalid WIFI Advanced Object WiFi 2.4GHz parameter data type", kBands,
                "[%s]:[%s] - Invalid WIFI_SETTINGS_24GHZ_BAND parameter",
                "Invalid WIFI Advanced Object WiFi 2.4GHz parameter value"),
        enumKey("WiFi5GHzBand", TolaField::WiFiAdvancedSettings_WiFi5GHzBand,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, band5Network),
                "[%s]:[%s] - Invalid WIFI_SETTINGS_5GHZ_BAND parameter data type",
                "Invalid WIFI Advanced Object WiFi 5GHz parameter data type", kBands,
                "[%s]:[%s] - Invalid WIFI_SETTINGS_5GHZ_BAND parameter",
                "Invalid WIFI Advanced Object WiFi 5GHz parameter value"),
        numberKey("WiFiMaxClients", TolaField::WiFiAdvancedSettings_WiFiMaxClients,
                  TOLA_VALUE_SLOT(GetWiFiMaxClients),
                  "[%s]:[%s] - Invalid WIFI_ADVANCED MAX_CLIENTS parameter data type",
                  "Invalid WIFI Advanced Object max clients parameter data type"),
        enumKey("WiFi24GHz80211Mode", TolaField::WiFiAdvancedSettings_WiFi24GHz80211Mode,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, mode24),
                "[%s]:[%s] - Invalid WIFI_ADVANCED 80211MODE_24GHZ parameter data type",
                "Invalid WIFI Advanced Object WiFi 2.4GHz 802.11 Mode parameter data type", kModes24,
                "[%s]:[%s] - Invalid WiFi80211Mode24GHz:(%s)",
                "Invalid WIFI Advanced Object WiFi 2.4GHz 802.11 Mode parameter value"),
        enumKey("WiFi24GHzChannel", TolaField::WiFiAdvancedSettings_WiFi24GHzChannel,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, channel24),
                "[%s]:[%s] - Invalid WIFI_ADVANCED CHANNEL_24GHZ parameter data type",
                "Invalid WIFI Advanced Object 2.4GHz channel parameter data type", kChannels24,
                "[%s]:[%s] - Invalid WiFi24GHzChannel:(%s)",
                "Invalid WIFI Advanced Object 2.4GHz channel parameter value"),
        enumKey("WiFi5GHz80211Mode", TolaField::WiFiAdvancedSettings_WiFi5GHz80211Mode,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, mode5),
                "[%s]:[%s] - Invalid WIFI_ADVANCED 80211MODE_5GHZ parameter data type",
                "Invalid WIFI Advanced Object WiFi 5GHz 802.11 Mode parameter data type", kModes5,
                "[%s]:[%s] - Invalid WiFi80211Mode5GHz:(%s)",
                "Invalid WIFI Advanced Object WiFi 5GHz 802.11 Mode parameter value"),
        enumKey("WiFi5GHzChannel", TolaField::WiFiAdvancedSettings_WiFi5GHzChannel,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, channel5),
                "[%s]:[%s] - Invalid WIFI_ADVANCED CHANNEL_5GHZ parameter data type",
                "Invalid WIFI Advanced Object 5GHz channel parameter data type", kChannels5,
                "[%s]:[%s] - Invalid WiFi5GHzChannel:(%s)",
                "Invalid WIFI Advanced Object 5GHz channel parameter value"),
        enumKey("WiFi5GHzBandwidth", TolaField::WiFiAdvancedSettings_WiFi5GHzBandwidth,
                TOLA_FIELD_SLOT(GetWiFiPrimaryProfile, bandwidth5),
                "[%s]:[%s] - Invalid WIFI_ADVANCED BANDWIDTH_5GHZ parameter data type",
                "Invalid WIFI Advanced Object 5GHz bandwidth parameter data type", kBandwidths5,
                "[%s]:[%s] - Invalid WiFi5GHzBandwidth:(%s)",
                "Invalid WIFI Advanced Object 5GHz bandwidth parameter value"),
    };
    return applyRules(*agent, group, kRules, GroupCodes{104, 153});
}

int handleAdminPasswordSettingsInfo(yajl_val element, context_t* ctx) {
    FnTrace trace(__FUNCTION__);
    TOLAAgent* agent = nullptr;
    yajl_val group =
        openGroup(element, "AdminPasswordSettings", ctx,
                  "[%s]:[%s] - %s - NO AdminPasswordSettings Object in the JSON data", __FUNCTION__, agent);
    if (group == nullptr) {
        return 0;
    }
    static const KeyRule kRules[] = {
        textKey("AdminPassword", TolaField::AdminPasswordSettings_AdminPassword,
                TOLA_FIELD_SLOT(GetLoginSettings, password),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD parameter data type",
                "Invalid Admin Password Settings Object password parameter data type"),
        boolKey("AdminPasswordOnDisplay", TolaField::AdminPasswordSettings_AdminPasswordOnDisplay,
                TOLA_FIELD_SLOT(GetLoginSettings, passwordOnDisplay),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD ON_DISPLAY parameter data type",
                "Invalid Admin Password Settings Object password on display parameter data type"),
        enumKey("AdminPasswordSecurityQuestion",
                TolaField::AdminPasswordSettings_AdminPasswordSecurityQuestion,
                TOLA_FIELD_SLOT(GetLoginSettings, questionType),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD SECURITY_QUESTION parameter data type",
                "Invalid Admin Password Settings Object security question parameter data type",
                kSecurityQuestions, "[%s]:[%s] - Invalid ADMIN_PASSWORD_SECURITY_QUESTION %s",
                "Invalid Admin Password Settings Object security question parameter value"),
        textKey("AdminPasswordSecurityAnswer", TolaField::AdminPasswordSettings_AdminPasswordSecurityAnswer,
                TOLA_FIELD_SLOT(GetLoginSettings, answer),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD SECURITY_ANSWER parameter data type",
                "Invalid Admin Password Settings Object security answer parameter data type",
                acceptSecurityAnswer, "[%s]:[%s] - Invalid ADMIN_PASSWORD_SECURITY_ANSWER %s",
                "Invalid Admin Password Settings Object security answer parameter value"),
        boolKey("AdminPasswordTurnONPasswordProtection",
                TolaField::AdminPasswordSettings_AdminPasswordTurnONPasswordProtection,
                TOLA_FIELD_SLOT(GetAdvancedSettings, passwordProtectionEnabled),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD TURN ON PASSWORD PROTECTION parameter data type",
                "Invalid Admin Password Settings Object turn on password protection parameter data type"),
        boolKey("AdminPasswordOnGPS", TolaField::AdminPasswordSettings_AdminPasswordOnGPS,
                TOLA_FIELD_SLOT(GetAdvancedSettings, passwordOnGPS),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD ON GPS parameter data type",
                "Invalid Admin Password Settings Object on GPS parameter data type"),
        boolKey("AdminPasswordOnNetworkSettings",
                TolaField::AdminPasswordSettings_AdminPasswordOnNetworkSettings,
                TOLA_FIELD_SLOT(GetAdvancedSettings, passwordOnNetworkSettings),
                "[%s]:[%s] - Invalid ADMIN_PASSWORD ON NETWORK SETTINGS parameter data type",
                "Invalid Admin Password Settings Object on network settings parameter data type"),
    };
    int rc = applyRules(*agent, group, kRules, GroupCodes{105, 154});
    // Keep the question's text beside its type, as the web interface shows it.
    webui_login_settings_t* login = agent->GetLoginSettings();
    if (rc == 0 && login != nullptr &&
        agent->IsPresent(TolaField::AdminPasswordSettings_AdminPasswordSecurityQuestion) &&
        login->questionType < sizeof(kSecurityQuestions) / sizeof(kSecurityQuestions[0])) {
        copyText(login->question, sizeof(login->question), kSecurityQuestions[login->questionType].text);
    }
    return rc;
}
