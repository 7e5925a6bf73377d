// Host modem profiles: the device state's "modem" section holds the active profile index and the
// profiles the modem has, keyed "TYPE:INDEX". A profile that is not listed does not exist, so
// reading it fails as on a modem without that slot. Writes are journalled.
#include <string>

#include "device_state.h"
#include "settings_records.h"
#include "sys_settings.h"

using ardo::json;

namespace {

// What the modem answers for a profile slot it does not have.
constexpr int kNoSuchProfile = 3;
constexpr int kFailure = 2;

std::string profileKey(int type, int index) {
    return std::to_string(type) + ":" + std::to_string(index);
}

}  // namespace

int sys_getActiveModemProfileIndex(int* index) {
    int rc;
    if (ardo::deviceTakeFault("sys_getActiveModemProfileIndex", &rc)) {
        return rc;
    }
    if (index == nullptr) {
        return kFailure;
    }
    *index = ardo::deviceStateValue<int>("/modem/active_profile_index", 1);
    return 0;
}

int sys_getModemProfile(int type, int index, sys_modem_profile_t* profile) {
    int rc;
    if (ardo::deviceTakeFault("sys_getModemProfile", &rc)) {
        return rc;
    }
    if (profile == nullptr) {
        return kFailure;
    }
    std::shared_ptr<const json> state = ardo::deviceStateSnapshot();
    json::json_pointer ptr("/modem/profiles");
    if (!state->contains(ptr)) {
        return kNoSuchProfile;
    }
    const json& profiles = state->at(ptr);
    auto it = profiles.is_object() ? profiles.find(profileKey(type, index)) : profiles.end();
    if (it == profiles.end() || !it->is_object()) {
        return kNoSuchProfile;
    }
    sys_modem_profile_t value{};
    ardo::recordFromJson(*it, value);
    *profile = value;
    return 0;
}

int sys_setModemProfile(int type, int index, const sys_modem_profile_t* profile) {
    json args = {{"type", type}, {"index", index}};
    int rc;
    if (ardo::deviceTakeFault("sys_setModemProfile", &rc)) {
        ardo::deviceJournal("sys_setModemProfile", args, rc);
        return rc;
    }
    if (profile == nullptr) {
        ardo::deviceJournal("sys_setModemProfile", args, kFailure);
        return kFailure;
    }
    json record = ardo::recordToJson(*profile);
    args["profile"] = record;
    bool ok = ardo::deviceStateUpdate(
        [&](json& state) { state["modem"]["profiles"][profileKey(type, index)] = record; });
    rc = ok ? 0 : kFailure;
    ardo::deviceJournal("sys_setModemProfile", args, rc);
    return rc;
}
