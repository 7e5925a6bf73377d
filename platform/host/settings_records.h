// JSON form of the settings records: each record's fields listed once, used to keep the records in
// the simulated device state (section "settings") and to print them (tola-devicectl parse).
// Texts become JSON strings (bounded by their field when read back), numbers JSON numbers.
#pragma once

#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "deviceui.h"
#include "sys_settings.h"
#include "webui.h"

namespace ardo {

// Lists a record's fields to a visitor: v(name, field) for every field.
template <typename V>
void visitRecord(V& v, sys_lan_settings_t& r) {
    v("ipAddress", r.ipAddress);
    v("subnetMask", r.subnetMask);
    v("dhcpStart", r.dhcpStart);
    v("dhcpEnd", r.dhcpEnd);
    v("dhcpEnabled", r.dhcpEnabled);
    v("dhcpLeaseTime", r.dhcpLeaseTime);
    v("dhcpAddressCount", r.dhcpAddressCount);
}
template <typename V>
void visitRecord(V& v, sys_manual_dns_t& r) {
    v("dns1", r.dns1);
    v("dns2", r.dns2);
}
template <typename V>
void visitRecord(V& v, sys_dmz_settings_t& r) {
    v("ipAddress", r.ipAddress);
}
template <typename V>
void visitRecord(V& v, sys_wifi_profile_t& r) {
    v("ssid", r.ssid);
    v("key", r.key);
    v("securityMode", r.securityMode);
    v("broadcastEnabled", r.broadcastEnabled);
    v("wpsEnabled", r.wpsEnabled);
    v("privacySeparationEnabled", r.privacySeparationEnabled);
    v("mode24", r.mode24);
    v("channel24", r.channel24);
    v("mode5", r.mode5);
    v("channel5", r.channel5);
    v("bandwidth5", r.bandwidth5);
    v("band24Network", r.band24Network);
    v("band5Network", r.band5Network);
    v("band24Enabled", r.band24Enabled);
    v("band5Enabled", r.band5Enabled);
}
template <typename V>
void visitRecord(V& v, sys_power_save_settings_t& r) {
    v("sleepTime", r.sleepTime);
    v("shutdownTime", r.shutdownTime);
    v("autoShutdownEnabled", r.autoShutdownEnabled);
}
template <typename V>
void visitRecord(V& v, sys_samba_settings_t& r) {
    v("contentToShare", r.contentToShare);
    v("accessType", r.accessType);
}
template <typename V>
void visitRecord(V& v, sys_router_app_t& r) {
    v("name", r.name);
    v("ipAddress", r.ipAddress);
    v("enabled", r.enabled);
    v("startPort", r.startPort);
    v("endPort", r.endPort);
    v("protocol", r.protocol);
    v("portType", r.portType);
}
template <typename V>
void visitRecord(V& v, sys_dhcp_reservation_t& r) {
    v("macAddress", r.macAddress);
    v("ipAddress", r.ipAddress);
}
template <typename V>
void visitRecord(V& v, sys_mac_entry_t& r) {
    v("macAddress", r.macAddress);
}
template <typename V>
void visitRecord(V& v, sys_samba_folder_t& r) {
    v("name", r.name);
}
template <typename V>
void visitRecord(V& v, deviceui_wifi_info_display_t& r) {
    v("nameOnDisplay", r.nameOnDisplay);
    v("passwordOnDisplay", r.passwordOnDisplay);
}
template <typename V>
void visitRecord(V& v, webui_login_settings_t& r) {
    v("password", r.password);
    v("questionType", r.questionType);
    v("question", r.question);
    v("answer", r.answer);
    v("passwordOnDisplay", r.passwordOnDisplay);
}
template <typename V>
void visitRecord(V& v, webui_advanced_settings_t& r) {
    v("passwordProtectionEnabled", r.passwordProtectionEnabled);
    v("passwordOnGPS", r.passwordOnGPS);
    v("passwordOnNetworkSettings", r.passwordOnNetworkSettings);
}
template <typename V>
void visitRecord(V& v, webui_log_settings_t& r) {
    v("enabled", r.enabled);
    v("durationDays", r.durationDays);
}
template <typename V>
void visitRecord(V& v, webui_i18n_settings_t& r) {
    v("language", r.language);
    v("dateFormat", r.dateFormat);
    v("timeFormat", r.timeFormat);
    v("distanceFormat", r.distanceFormat);
    v("numericSeparator", r.numericSeparator);
}

template <typename V>
void visitRecord(V& v, sys_modem_profile_t& r) {
    v("apn", r.apn);
    v("userName", r.userName);
    v("password", r.password);
    v("authType", r.authType);
    v("pdpType", r.pdpType);
    v("name", r.name);
}

template <typename V>
void visitRecord(V& v, sys_known_device_t& r) {
    v("macAddress", r.macAddress);
    v("hostName", r.hostName);
    v("ipAddress", r.ipAddress);
    v("connected", r.connected);
    v("network", r.network);
}

namespace detail {

struct ToJson {
    nlohmann::json& out;
    template <size_t N>
    void operator()(const char* name, char (&text)[N]) {
        out[name] = std::string(text, strnlen(text, N));
    }
    template <typename T>
    void operator()(const char* name, T& number) {
        out[name] = number;
    }
};

struct FromJson {
    const nlohmann::json& in;
    template <size_t N>
    void operator()(const char* name, char (&text)[N]) {
        auto it = in.find(name);
        if (it != in.end() && it->is_string()) {
            const std::string& s = it->template get_ref<const std::string&>();
            size_t n = s.size() < N - 1 ? s.size() : N - 1;
            memcpy(text, s.data(), n);
            text[n] = '\0';
        }
    }
    template <typename T>
    void operator()(const char* name, T& number) {
        auto it = in.find(name);
        if (it != in.end() && it->is_number()) {
            number = static_cast<T>(it->template get<long long>());
        }
    }
};

}  // namespace detail

// A record as a JSON object.
template <typename R>
nlohmann::json recordToJson(const R& record) {
    nlohmann::json out = nlohmann::json::object();
    detail::ToJson v{out};
    R copy = record;
    visitRecord(v, copy);
    return out;
}
// Fills the fields that the JSON object names (others keep their value).
template <typename R>
void recordFromJson(const nlohmann::json& in, R& record) {
    if (!in.is_object()) {
        return;
    }
    detail::FromJson v{in};
    visitRecord(v, record);
}

inline nlohmann::json recordToJson(const int& value) {
    return value;
}
inline void recordFromJson(const nlohmann::json& in, int& value) {
    if (in.is_number()) {
        value = static_cast<int>(in.get<long long>());
    } else if (in.is_boolean()) {
        value = in.get<bool>() ? 1 : 0;
    }
}

}  // namespace ardo
