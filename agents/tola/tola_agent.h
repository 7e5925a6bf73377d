// TOLAAgent: the persisted runtime record and access-control file, the shared-memory
// access-control list, and (through TOLASettingsObject) the settings object that the
// configuration document fills.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "tola_settings.h"
#include "tola_types.h"

// Replaces a file crash-safely: the content goes to a temporary file beside it, is flushed and
// fsynced, and is renamed over the target, so a power loss leaves the old or the new file,
// never a torn one. true on success.
bool tola_write_file_atomic(const std::string& path, const std::string& content);
// Copies a text file line by line, each line followed by "\n" (so the copy carries one more
// trailing newline than a source that does not end in one), replacing the target crash-safely.
// false when the source cannot be read or the target cannot be written.
bool tola_copy_file_lines(const std::string& source, const std::string& target);

// The SDK session shared by TOLAAgent and TOLAApp, each with its own failure text (a format
// taking the tag, the level name and the result). Bring-up retries once a second until the SDK
// answers; shut-down returns whether it failed.
void tola_sdk_bring_up(const char* failureFormat);
bool tola_sdk_shut_down(const char* failureFormat);

class MsgbusHandler;

// Announces to the device's other processes that the access-control list is about to change.
#define TOLA_CHANNEL_ACL "ardo.tola.acl"

class TOLAAgent : public TOLASettingsObject {
  public:
    TOLAAgent();
    virtual ~TOLAAgent();
    TOLAAgent(const TOLAAgent&) = delete;
    TOLAAgent& operator=(const TOLAAgent&) = delete;

    // ---- Start and stop (tola_agent.cpp) ----
    bool InitializeSysInterface();
    bool UninitializeSysInterface();
    int Initialize();
    int Uninitialize();
    bool IsInitialized() const { return mInitialized; }

    // ---- Runtime record and access-control file (tola_agent_acl_file.cpp) ----
    bool GetRuntimeConfig(tolaagent_runtime_config_t& config);
    bool SetRuntimeConfig(const tolaagent_runtime_config_t& config);
    bool SerializeACL();
    bool InitializeACL();
    // The manual-factory-reset request: the next SerializeACL drops every entry.
    void SetRestoreDefaultsFlag(bool restore) { mRestoreDefaults = restore; }
    bool GetRestoreDefaultsFlag() const { return mRestoreDefaults; }

    // ---- Configuration document (tola_agent_response.cpp) ----
    // Parses a decrypted configuration document into the settings object, validates it and
    // applies it. 0 when it was parsed and validated (whatever the setters did); otherwise the
    // parse's or the validation's code, with errorMessage set to the user text.
    int ProcessResponse(const std::string& config, std::string& errorMessage);

    // ---- Validation of the filled settings object (tola_agent_validate.cpp) ----
    // Runs the group validators of the groups the document carried, in their fixed order, and
    // stops at the first failure: 0, or that group's code (the reset's own failure code when
    // resetting the settings object fails too). The error message holds the user text.
    int ValidateObjectParameters();
    int ValidateWhiteListAndBlockedDevicesObj();
    int ValidateAdminPasswordSettingsObj();
    int ValidateLANSettingsObj();
    int ValidateWiFiParametersObj();
    int ValidateGuestWifiParametersObj();
    int ValidateAdvancedWifiParametersObj();
    int ValidateManualDNSSettingsObj();
    int ValidateFirewallSettingsObj();
    int ValidateMobileNetworkSettingsObj();
    int ValidatePortForwardSettingsObj();
    int ValidatePortFilterSettingsObj();
    int ValidateReservedIPAddressSettingsObj();
    int ValidateVornSharingSettingsObj();
    int ValidateDevicePrefencesSettingsObj();
    // 0 when application `index` conflicts with none of the others of apps[0..count), else 1.
    int CheckAppConflicts(int index, sys_router_app_t* apps, int count);
    int CheckPortFilterAppConflicts(int index, sys_router_app_t* apps, int count);
    // An accepted document makes the device forget the devices it blocks; a dry run (a document
    // checked, not applied) leaves the device untouched.
    void SetValidationDryRun(bool dryRun) { mValidationDryRun = dryRun; }

    // ---- Applying an accepted document to the device (tola_agent_apply.cpp) ----
    // Initialises the bus client and publishes 1 on TOLA_CHANNEL_ACL. 0 on success.
    int PublishAclChange(MsgbusHandler& bus);
    // Runs the apply steps, in their fixed order, for the parts the document carried. A failing
    // setter is logged and skipped.
    void ApplySettings();
    // The Wi-Fi groups: enabled state, both profiles per radio, maximum clients and the display
    // settings. 0 when every write succeeded.
    int SetWiFiParameters();
    // The file-sharing group. 0 when every write succeeded, else the last failing result.
    int SetVornsharingSettings();

    // ---- Shared-memory access-control list (tola_agent_shm.cpp) ----
    bool InitializeSharedMemory();
    void SetACEProperties(const char* name, bool displayEnabled, bool writeEnabled);
    // Entries are set while a document is parsed, so other processes see them at once; a refused
    // document puts the list back as it was (every entry and the count). Saving gives null when
    // there is no list.
    std::unique_ptr<tola_acl_shm_t> SaveAclEntries() const;
    void RestoreAclEntries(const tola_acl_shm_t& saved);
    tola_acl_shm_t* AclBlock() const { return mAcl; }

  private:
    // Guards the record and its file: stored from the check-in and the bus threads alike.
    std::recursive_mutex mRecordMutex;
    tolaagent_runtime_config_t mConfig;
    bool mRestoreDefaults = false;
    bool mInitialized = false;
    tola_acl_shm_t* mAcl = nullptr;
    bool mValidationDryRun = false;
};
