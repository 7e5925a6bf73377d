// TOLASettingsObject: the settings object that the configuration document fills group by
// group (one member per device setting, created on first use and seeded from the device), its
// present flags and error message, and the address, port and text checks. TOLAAgent derives
// from it, so the agent itself is the settings object.
#pragma once

class TOLASettingsObject {
public:
    TOLASettingsObject();
    virtual ~TOLASettingsObject();
    TOLASettingsObject(const TOLASettingsObject&) = delete;
    TOLASettingsObject& operator=(const TOLASettingsObject&) = delete;
};
