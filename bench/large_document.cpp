#include "large_document.h"

#include <cstdio>

namespace {

std::string mac(int group, int i) {
    char text[32];
    std::snprintf(text, sizeof text, "0%d:AB:CD:EF:%02X:%02X", group, (i >> 8) & 0xff, i & 0xff);
    return text;
}

std::string deviceList(const char* group, int count, int macGroup) {
    std::string out = std::string("\"") + group + "\": [";
    for (int i = 0; i < count; ++i) {
        out += (i ? ", " : "") + std::string("{\"DeviceMacAddress\": \"") + mac(macGroup, i) + "\"}";
    }
    return out + "]";
}

}  // namespace

std::string makeLargeDocument(int blockedDevices, int whiteListed, int filterApps, int forwardApps,
                              int aces) {
    std::string doc = "[\n  {\n    ";
    doc += deviceList("BlockedDevices", blockedDevices, 1) + ",\n    ";
    doc += deviceList("WhiteListedDevices", whiteListed, 2) + ",\n    ";
    doc += R"doc("WiFiNetworkSettings": {"WiFiSSID": "Fleet-Primary", "WiFiSSIDBroadcastEnabled": true,
      "WiFiSecurityMode": "WPA/WPA2 Mixed Mode", "WiFiKey": "supersecret1", "WiFiNameOnDisplay": false,
      "WiFiPasswordOnDisplay": true, "WiFiWPSEnabled": false, "WiFiPrivacySeparationEnabled": true},
    "WiFiGuestNetworkSettings": {"WiFiGuestSSID": "Fleet-Guest", "WiFiGuestSecurityMode": "None", "WiFiGuestKey": "",
      "WiFiGuestNameOnDisplay": true, "WiFiGuestPasswordOnDisplay": false, "WiFiGuestWPSEnabled": false,
      "WiFiGuestPrivacySeparationEnabled": true},
    "WiFiAdvancedSettings": {"WiFiEnabled": true, "WiFiAllowChangesOnTouchScreen": false,
      "WiFi24GHzBand": "Guest network", "WiFi5GHzBand": "Primary network", "WiFiMaxClients": 10,
      "WiFi24GHz80211Mode": "802.11bgn", "WiFi24GHzChannel": "11", "WiFi5GHz80211Mode": "802.11acn",
      "WiFi5GHzChannel": "149", "WiFi5GHzBandwidth": "40 MHz"},
    "AdminPasswordSettings": {"AdminPassword": "NewAdmin99", "AdminPasswordOnDisplay": true,
      "AdminPasswordSecurityQuestion": "What is your date of birth? (mm/dd/yyyy)",
      "AdminPasswordSecurityAnswer": "01/02/1990", "AdminPasswordTurnONPasswordProtection": true,
      "AdminPasswordOnGPS": true, "AdminPasswordOnNetworkSettings": false},
    "DevicePreferences": {"LEDEnabled": false, "StealthModeEnabled": true, "WakeupDisplayOnNotificationEnabled": false,
      "AllowHardwareReset": false, "AllowPreferencesChangeOnDisplay": true, "LocalIPAddress": "192.168.1.1",
      "UCAutoOffThreshold": "50%", "DisplayTimeout": "After 5 minutes", "SleepTime": "After 30 minutes",
      "ShutdownTime": "After 7 hours",
      "USBModePreferences": {"USBModePrompt": false, "USBMode": "Internet access via USB only"},
      "AudioPreferences": {"AudioEnabled": true, "AudioStartupShutdown": true, "AudioLowBattery": true,
        "AudioCriticalLowBattery": true, "AudioCharging": false, "AudioChargingComplete": true,
        "AudioUniversalCharging": true, "AudioUSBComputerConnection": true, "AudioUSBMassStorage": false,
        "AudioSIMErrors": true, "AudioPCOServiceErrors": true, "AudioNewMessage": true,
        "AudioConnectedDeviceJoins": false, "AudioSoftwareUpdate": true, "AudioRoaming": false,
        "AudioWiFiTurnOff": true},
      "DisplaySettings": {"DisplayLanguage": "Spanish", "DisplayDateFormat": "dd/mm/yyyy", "DisplayTimeFormat": "24 hr",
        "DisplayDistanceFormat": "Meters", "DisplayNumericSeparator": "3.234,00"}},
    "ManualDNSSettings": {"ManualDNSEnabled": true, "ManualDNSAddress1": "8.8.8.8", "ManualDNSAddress2": "8.8.4.4"},
    "FirewallSettings": {"VPNPassthroughEnabled": false, "IPv6TransparentModeEnabled": true, "DMZEnabled": false,
      "DMZIpAddress": "192.168.1.50"},
    "MACFilterSettings": {"MACFilterEnabled": true},
    "LANSettings": {"RouterIPv4Address": "192.168.1.1", "RouterSubnetMask": "255.255.255.0", "DHCPEnabled": true,
      "DHCPAddressRangeStart": "192.168.1.20", "DHCPLeaseTime": 720, "IPv6Enabled": false},
    "GPSSettings": {"GPSEnabled": true, "GPSNMEAOverWiFiEnabled": true, "GPSNMEAOverWiFiPortNumber": 11000,
      "GPSTurnOff": "Turn off on power down"},
    "LogsSettings": {"LogsEnabled": false, "LogsDeletion": "After 3 days"},
    "NetworkSettings": {"CellularDataEnabled": true, "ConnectionPreference": "Auto-connect",
      "LTEAPN": "lte.fleet", "HSPAAPN": "hspa.fleet", "NonVeltraAPN": "other.fleet"},
    "VornSharingSettings": {"VornSharingEnabled": true, "VornSharingOnDisplay": false,
      "VornSharingWifiNetworkAccess": true, "VornSharingGuestWifiNetworkAccess": false,
      "VornSharingName": "fleetshare", "VornSharingContentToShare": "Specified top-level folders",
      "VornSharingAccessType": "Read-write",
      "VornSharingTopLevelFolder": [{"FolderName": "Music"}, {"FolderName": "Photos"}]},
    "PortFilteringSettings": {"PortFilteringEnabled": true, "PortFilteringEmail": true, "PortFilteringFTP": true,
      "PortFilteringHTTP": true, "PortFilteringHTTPS": true, "PortFilteringTelnet": true,
      "PortFilteringCustomApplications": [)doc";
    for (int i = 0; i < filterApps; ++i) {
        char app[200];
        std::snprintf(app, sizeof app,
                      "%s{\"AppName\": \"Filter%02d\", \"AppEnabled\": true, \"AppStartPortNumber\": %d, "
                      "\"AppEndPortNumber\": %d, \"AppType\": \"TCP\"}",
                      i ? ", " : "", i, 3000 + 10 * i, 3005 + 10 * i);
        doc += app;
    }
    doc += R"doc(]},
    "PortForwardingSettings": {"PortForwardingEnabled": true, "PortForwardingDNS": true,
      "PortForwardingDNSIpAddress": "192.168.1.9", "PortForwardingHTTP": true,
      "PortForwardingHTTPIpAddress": "192.168.1.10", "PortForwardingCustomApplications": [)doc";
    for (int i = 0; i < forwardApps; ++i) {
        char app[260];
        std::snprintf(app, sizeof app,
                      "%s{\"AppName\": \"Forward%02d\", \"AppEnabled\": true, \"AppPortType\": \"Range\", "
                      "\"AppStartPortNumber\": %d, \"AppEndPortNumber\": %d, \"AppType\": \"TCP/UDP\", "
                      "\"AppIpAddress\": \"192.168.1.%d\"}",
                      i ? ", " : "", i, 20000 + 10 * i, 20005 + 10 * i, 100 + i);
        doc += app;
    }
    doc += "]}\n  },\n  {\"AccessControlSettings\": {";
    for (int i = 0; i < aces; ++i) {
        char ace[96];
        std::snprintf(ace, sizeof ace, "%s\"Setting%03d\": {\"Lock\": %s, \"Hide\": %s}", i ? ", " : "", i,
                      i % 2 ? "true" : "false", i % 3 ? "false" : "true");
        doc += ace;
    }
    return doc + "}}\n]\n";
}
