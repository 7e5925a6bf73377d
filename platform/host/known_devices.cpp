// Host known devices: the device state's "known_devices" section is the list of devices the
// hotspot remembers, one record each (factory list: share/device/factory/40-known-devices.json).
// Deleting a device is journaled; both calls take scripted faults under their names.
#include <cctype>
#include <string>

#include "device_state.h"
#include "settings_records.h"
#include "sys_settings.h"

using ardo::json;

namespace {

constexpr int kFailure = 2;
// What the device answers for a MAC address it does not know.
constexpr int kNotKnown = 3;

// A MAC address reduced to its hex digits in lower case, so that "AA-BB-..." finds "aa:bb:...".
std::string macKey(const std::string& mac) {
    std::string key;
    for (char c : mac) {
        if (isxdigit(static_cast<unsigned char>(c))) {
            key.push_back(static_cast<char>(tolower(static_cast<unsigned char>(c))));
        }
    }
    return key;
}

}  // namespace

int sys_getAllDevicesList(sys_known_device_t* devices, int capacity, int* count) {
    int rc;
    if (ardo::deviceTakeFault("sys_getAllDevicesList", &rc)) {
        return rc;
    }
    if (devices == nullptr || count == nullptr || capacity < 0) {
        return kFailure;
    }
    std::shared_ptr<const json> state = ardo::deviceStateSnapshot();
    auto list = state->find("known_devices");
    int filled = 0;
    if (list != state->end() && list->is_array()) {
        for (const json& item : *list) {
            if (filled >= capacity) {
                break;
            }
            sys_known_device_t device{};
            ardo::recordFromJson(item, device);
            devices[filled++] = device;
        }
    }
    *count = filled;
    return 0;
}

int sys_deleteKnownDevice(const char* macAddress) {
    json args = {{"macAddress", macAddress != nullptr ? macAddress : ""}};
    int rc;
    if (ardo::deviceTakeFault("sys_deleteKnownDevice", &rc)) {
        ardo::deviceJournal("sys_deleteKnownDevice", args, rc);
        return rc;
    }
    std::string key = macAddress != nullptr ? macKey(macAddress) : std::string();
    if (key.empty()) {
        ardo::deviceJournal("sys_deleteKnownDevice", args, kFailure);
        return kFailure;
    }
    bool found = false;
    bool written = ardo::deviceStateUpdate([&](json& state) {
        auto it = state.find("known_devices");
        if (it == state.end() || !it->is_array()) {
            return;
        }
        json& list = *it;
        json kept = json::array();
        for (const json& item : list) {
            bool same = item.is_object() && item.contains("macAddress") && item["macAddress"].is_string() &&
                        macKey(item["macAddress"].get<std::string>()) == key;
            found = found || same;
            if (!same) {
                kept.push_back(item);
            }
        }
        list = std::move(kept);
    });
    rc = !written ? kFailure : (found ? 0 : kNotKnown);
    ardo::deviceJournal("sys_deleteKnownDevice", args, rc);
    return rc;
}
