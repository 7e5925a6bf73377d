// Linux modem profiles: the 3GPP profiles of a modem with ModemManager's profile manager are the
// modem's own (Modem3gpp.ProfileManager, by profile id); every other profile, and every profile
// of a modem without one, lives in the settings store ("modem" section of the device state) as
// on the simulator. The active profile index is the store's.
#include <cstring>
#include <string>

#include "device_state.h"
#include "settings_records.h"
#include "sys_settings.h"
#include "system_bus.h"

using ardo_linux::json;

namespace {

constexpr int kNoSuchProfile = 3;
constexpr int kFailure = 2;
// ModemManager's IP families and authentication methods.
constexpr uint32_t kIpV4 = 1, kIpV6 = 2, kIpV4V6 = 4;
constexpr uint32_t kAuthNone = 1, kAuthPap = 2, kAuthChap = 4;

std::string storeKey(int type, int index) {
    return std::to_string(type) + ":" + std::to_string(index);
}

// The modem's path when its 3GPP profiles are managed by ModemManager.
bool profileManager(int type, std::string& modem) {
    if (type != SYS_MODEM_PROFILE_3GPP) {
        return false;
    }
    json ifaces;
    return ardo_linux::findModem(modem, ifaces) && ifaces.contains(ardo_linux::kMMProfiles);
}

template <size_t N>
void copyField(char (&field)[N], const std::string& text) {
    size_t n = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), n);
    field[n] = '\0';
}

std::string fieldText(const char* field, size_t size) {
    return std::string(field, strnlen(field, size));
}

void profileFromModem(const json& in, sys_modem_profile_t& out) {
    std::memset(&out, 0, sizeof out);
    copyField(out.apn, in.value("apn", std::string()));
    copyField(out.userName, in.value("user", std::string()));
    copyField(out.password, in.value("password", std::string()));
    copyField(out.name, in.value("profile-name", std::string()));
    uint32_t auth = in.value("allowed-auth", 0u);
    out.authType = (auth & kAuthChap)  ? SYS_MODEM_AUTH_CHAP
                   : (auth & kAuthPap) ? SYS_MODEM_AUTH_PAP
                                       : SYS_MODEM_AUTH_NONE;
    uint32_t ip = in.value("ip-type", 0u);
    out.pdpType = ip == kIpV4 ? SYS_MODEM_PDP_IPV4 : ip == kIpV6 ? SYS_MODEM_PDP_IPV6 : SYS_MODEM_PDP_IPV4V6;
}

}  // namespace

int sys_getActiveModemProfileIndex(int* index) {
    if (index == nullptr) {
        return kFailure;
    }
    *index = ardo::deviceStateValue<int>("/modem/active_profile_index", 1);
    return 0;
}

int sys_getModemProfile(int type, int index, sys_modem_profile_t* profile) {
    if (profile == nullptr) {
        return kFailure;
    }
    std::string modem;
    if (profileManager(type, modem)) {
        json reply;
        std::string error;
        if (!ardo_linux::callMethod(ardo_linux::kMMService, modem, ardo_linux::kMMProfiles, "List", nullptr,
                                    &reply, &error) ||
            reply.empty() || !reply[0].is_array()) {
            ardo_linux::logFault("listing the modem's profiles failed (%s)", error.c_str());
            return kFailure;
        }
        for (const json& entry : reply[0]) {
            if (entry.is_object() && entry.value("profile-id", -1) == index) {
                profileFromModem(entry, *profile);
                return 0;
            }
        }
        return kNoSuchProfile;
    }
    std::shared_ptr<const json> state = ardo::deviceStateSnapshot();
    json::json_pointer ptr("/modem/profiles");
    if (!state->contains(ptr) || !state->at(ptr).is_object()) {
        return kNoSuchProfile;
    }
    const json& profiles = state->at(ptr);
    auto it = profiles.find(storeKey(type, index));
    if (it == profiles.end() || !it->is_object()) {
        return kNoSuchProfile;
    }
    sys_modem_profile_t value{};
    ardo::recordFromJson(*it, value);
    *profile = value;
    return 0;
}

int sys_setModemProfile(int type, int index, const sys_modem_profile_t* profile) {
    if (profile == nullptr) {
        return kFailure;
    }
    std::string modem;
    if (profileManager(type, modem)) {
        std::string apn = fieldText(profile->apn, sizeof profile->apn);
        std::string user = fieldText(profile->userName, sizeof profile->userName);
        std::string password = fieldText(profile->password, sizeof profile->password);
        std::string name = fieldText(profile->name, sizeof profile->name);
        uint32_t auth = profile->authType == SYS_MODEM_AUTH_CHAP  ? kAuthChap
                        : profile->authType == SYS_MODEM_AUTH_PAP ? kAuthPap
                                                                  : kAuthNone;
        uint32_t ip = profile->pdpType == SYS_MODEM_PDP_IPV4   ? kIpV4
                      : profile->pdpType == SYS_MODEM_PDP_IPV6 ? kIpV6
                                                               : kIpV4V6;
        std::string error;
        bool ok = ardo_linux::callMethod(
            ardo_linux::kMMService, modem, ardo_linux::kMMProfiles, "Set",
            [&](sd_bus_message* m) {
                return sd_bus_message_append(m, "a{sv}", 7, "profile-id", "i", index, "apn", "s", apn.c_str(),
                                             "user", "s", user.c_str(), "password", "s", password.c_str(),
                                             "profile-name", "s", name.c_str(), "allowed-auth", "u", auth,
                                             "ip-type", "u", ip);
            },
            nullptr, &error);
        if (!ok) {
            ardo_linux::logFault("storing modem profile %d failed (%s)", index, error.c_str());
            return kFailure;
        }
        return 0;
    }
    json record = ardo::recordToJson(*profile);
    bool ok = ardo::deviceStateUpdate(
        [&](json& state) { state["modem"]["profiles"][storeKey(type, index)] = record; });
    ardo::deviceJournal("sys_setModemProfile", {{"type", type}, {"index", index}, {"profile", record}},
                        ok ? 0 : kFailure);
    return ok ? 0 : kFailure;
}
