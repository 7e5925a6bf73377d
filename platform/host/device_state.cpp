#include "device_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <mutex>
#include <sstream>

#include "host_env.h"
#include "sys_core.h"

extern const char* const kFactoryFragments[];
extern const std::size_t kFactoryFragmentCount;

namespace ardo {

namespace {

std::mutex gCacheMutex;
struct Cache {
    std::string path;
    ino_t ino = 0;
    struct timespec mtime {};
    off_t size = -1;
    std::shared_ptr<const json> doc;
} gCache;

std::string dirOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// Holds an exclusive flock on the state's lock file for the life of the object. flock locks
// belong to the open file description, so threads of one process exclude each other too.
class StateLock {
  public:
    explicit StateLock(const std::string& statePath) {
        hostMakeDirs(dirOf(statePath));
        mFd = open((statePath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (mFd >= 0) {
            while (flock(mFd, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~StateLock() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

  private:
    int mFd = -1;
};

bool parseFile(const std::string& path, json& out) {
    std::ifstream in(path);
    if (!in) {
        return false;
    }
    json doc = json::parse(in, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        return false;
    }
    out = std::move(doc);
    return true;
}

bool writeDoc(const std::string& path, const json& doc) {
    hostMakeDirs(dirOf(path));
    // Record texts are cut at their field's bound, possibly inside a UTF-8 sequence: such bytes
    // are kept as U+FFFD rather than failing the write.
    return hostWriteFileAtomic(path, doc.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
}

// Reads the document without taking the lock (the file is only ever replaced by rename, so a
// reader sees the old or the new version). Creates it from the defaults when missing.
std::shared_ptr<const json> readUnlocked(const std::string& path, bool createIfMissing) {
    struct stat st {};
    std::lock_guard<std::mutex> guard(gCacheMutex);
    if (stat(path.c_str(), &st) == 0) {
        if (gCache.doc && gCache.path == path && gCache.ino == st.st_ino && gCache.size == st.st_size &&
            gCache.mtime.tv_sec == st.st_mtim.tv_sec && gCache.mtime.tv_nsec == st.st_mtim.tv_nsec) {
            return gCache.doc;
        }
        json doc;
        if (parseFile(path, doc)) {
            gCache.path = path;
            gCache.ino = st.st_ino;
            gCache.size = st.st_size;
            gCache.mtime = st.st_mtim;
            gCache.doc = std::make_shared<const json>(std::move(doc));
            return gCache.doc;
        }
    }
    auto doc = std::make_shared<const json>(deviceFactoryState());
    if (createIfMissing) {
        writeDoc(path, *doc);
    }
    gCache = Cache{};
    return doc;
}

}  // namespace

std::string deviceStatePath() {
    return sys_fsPath("/var/lib/ardo/device.json");
}

const json& deviceFactoryState() {
    static const json factory = [] {
        json merged = json::object();
        for (std::size_t i = 0; i < kFactoryFragmentCount; ++i) {
            json fragment = json::parse(kFactoryFragments[i], nullptr, false);
            if (fragment.is_object()) {
                merged.merge_patch(fragment);
            }
        }
        return merged;
    }();
    return factory;
}

std::shared_ptr<const json> deviceStateSnapshot() {
    std::string path = deviceStatePath();
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        // Create under the lock so that two first readers do not race.
        StateLock lock(path);
        return readUnlocked(path, true);
    }
    return readUnlocked(path, false);
}

json deviceStateRead() {
    json doc = *deviceStateSnapshot();
    // The watchdog's keep-alives live in a record of their own (see deviceKeepAlive); shown here
    // in the section they belong to.
    json keepAlives = deviceKeepAlives();
    for (const char* section : {"keepalives", "last_keepalive"}) {
        auto entries = keepAlives.find(section);
        if (entries != keepAlives.end() && entries->is_object()) {
            for (auto it = entries->begin(); it != entries->end(); ++it) {
                doc["watchdog"][section][it.key()] = it.value();
            }
        }
    }
    return doc;
}

std::string deviceKeepAlivePath() {
    return sys_fsPath("/run/ardo/watchdog.json");
}

json deviceKeepAlives() {
    // The record is rewritten in place: read its first line only, so that the tail of a longer
    // predecessor (until the writer truncates it) is never taken for part of it.
    std::ifstream in(deviceKeepAlivePath());
    std::string line;
    if (!std::getline(in, line)) {
        return json::object();
    }
    json record = json::parse(line, nullptr, false);
    return record.is_object() ? record : json::object();
}

bool deviceKeepAlive(const char* name, long long time, int pid) {
    std::string path = deviceKeepAlivePath();
    StateLock lock(path);
    json record = deviceKeepAlives();
    json& count = record["keepalives"][name];
    count = count.is_number_integer() ? count.get<long long>() + 1 : 1;
    record["last_keepalive"][name] = {{"time", time}, {"pid", pid}};
    // Written in place rather than replaced: a keep-alive must not cost the device more than
    // the timer's own wake-up (a rename blocks on the directory), and the record is as volatile
    // as the watchdog's memory, so it is not synced either. One write of a few dozen bytes.
    std::string text = record.dump() + "\n";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    bool written = pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
                   ftruncate(fd, static_cast<off_t>(text.size())) == 0;
    close(fd);
    return written;
}

bool deviceStateUpdate(const std::function<void(json& state)>& change) {
    std::string path = deviceStatePath();
    StateLock lock(path);
    json doc = *readUnlocked(path, false);
    change(doc);
    if (!writeDoc(path, doc)) {
        return false;
    }
    // What was just written is the current document: cache it as the file now stands, so that
    // the next reading in this process does not parse it again. Other writers wait for the lock.
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) {
        std::lock_guard<std::mutex> guard(gCacheMutex);
        gCache.path = path;
        gCache.ino = st.st_ino;
        gCache.size = st.st_size;
        gCache.mtime = st.st_mtim;
        gCache.doc = std::make_shared<const json>(std::move(doc));
    }
    return true;
}

bool deviceStateSet(const std::string& pointer, const json& value) {
    return deviceStateUpdate([&](json& state) { state[json::json_pointer(pointer)] = value; });
}

bool deviceTakeFault(const char* call, int* result) {
    std::shared_ptr<const json> state = deviceStateSnapshot();
    auto faults = state->find("faults");
    if (faults == state->end() || !faults->is_object() || !faults->contains(call)) {
        return false;
    }
    bool taken = false;
    deviceStateUpdate([&](json& doc) {
        json& entry = doc["faults"][call];
        if (entry.is_number_integer()) {
            *result = entry.get<int>();
            taken = true;
        } else if (entry.is_array() && !entry.empty() && entry.front().is_number_integer()) {
            *result = entry.front().get<int>();
            entry.erase(entry.begin());
            taken = true;
        }
        if (entry.is_array() && entry.empty()) {
            doc["faults"].erase(call);
        }
    });
    return taken;
}

const std::vector<const char*>& deviceFaultCalls() {
    static const std::vector<const char*> calls = {
        "GetDhcpEndAddress",
        "HttpHelper::ExecuteGetRequest",
        "MsgbusHandler::Initialize",
        "MsgbusHandler::PublishData",
        "MsgbusHandler::RegisterForChannelSubscription",
        "deviceui_get_admin_password_enabled",
        "deviceui_get_display_setting_enabled",
        "deviceui_get_file_sharing_display_setting_enabled",
        "deviceui_get_guest_wifi_info_display_settings",
        "deviceui_get_notification_display_wakeup_setting_enabled",
        "deviceui_get_primary_wifi_info_display_settings",
        "deviceui_get_screen_timeout_settings",
        "deviceui_get_usb_connection_prompt_enabled",
        "deviceui_get_wifi_display_setting_enabled",
        "deviceui_set_admin_password_enabled",
        "deviceui_set_display_setting_enabled",
        "deviceui_set_file_sharing_display_setting_enabled",
        "deviceui_set_guest_wifi_info_display_settings",
        "deviceui_set_notification_display_wakeup_setting_enabled",
        "deviceui_set_primary_wifi_info_display_settings",
        "deviceui_set_screen_timeout_settings",
        "deviceui_set_usb_connection_prompt_enabled",
        "deviceui_set_wifi_display_setting_enabled",
        "dua_get_data_usage_info",
        "dua_start_data_usage_script",
        "sys_cellularDataConnect",
        "sys_cellularDataDisconnect",
        "sys_cellularDataUsageAPNCallConnect",
        "sys_cellularDataUsageAPNCallDisconnect",
        "sys_deleteKnownDevice",
        "sys_enableWifiWhileTethered",
        "sys_getActiveModemProfileIndex",
        "sys_getAllDevicesList",
        "sys_getAudioAlertsEnabled",
        "sys_getCellularDataConnectionPreference",
        "sys_getCellularDataConnectionStatus",
        "sys_getCellularDataEnabled",
        "sys_getCellularServiceStats",
        "sys_getCellularServiceStatus",
        "sys_getDMZEnabled",
        "sys_getDMZSettings",
        "sys_getEnabledRadioTechnologies",
        "sys_getGPSEnabled",
        "sys_getGPSFixData",
        "sys_getGPSPrivacyAgreementAccepted",
        "sys_getGPSStartupState",
        "sys_getHWFactoryResetEnabled",
        "sys_getHardwareInfo",
        "sys_getIPv6Enabled",
        "sys_getIPv6TransparentModeEnabled",
        "sys_getLANSettings",
        "sys_getLEDEnabled",
        "sys_getMacFilterWhiteListEnabled",
        "sys_getManualDNSEnabled",
        "sys_getManualDNSSettings",
        "sys_getModemProfile",
        "sys_getNMEAOverWiFiEnabled",
        "sys_getNMEAOverWiFiSettings",
        "sys_getNetworkTime",
        "sys_getPortFilteringEnabled",
        "sys_getPortForwardingEnabled",
        "sys_getPowerSaveSettings",
        "sys_getSIMCarrier",
        "sys_getSambaEnabled",
        "sys_getSambaGuestNetworkEnabled",
        "sys_getSambaPrimaryNetworkEnabled",
        "sys_getSambaSettings",
        "sys_getSubscriberInfo",
        "sys_getSystemVersion",
        "sys_getUINotificationSettings",
        "sys_getUIStealthModeEnabled",
        "sys_getUSBTetheringEnabled",
        "sys_getUniversalChargingSettings",
        "sys_getVPNPassthroughEnabled",
        "sys_getWatchdogInterval",
        "sys_getWiFiCarrierEnabled",
        "sys_getWiFiEnabled",
        "sys_getWiFiGuestCarrierEnabled",
        "sys_getWiFiGuestProfile",
        "sys_getWiFiMaxClients",
        "sys_getWiFiPrimaryProfile",
        "sys_rebootSystem",
        "sys_resolveHostName",
        "sys_restoreFactoryDefaults",
        "sys_sdkInitialize",
        "sys_sdkShutdown",
        "sys_setAudioAlertsEnabled",
        "sys_setAutoShutdownEnabled",
        "sys_setCellularDataConnectionPreference",
        "sys_setCellularDataEnabled",
        "sys_setDHCPReservedAddrList",
        "sys_setDMZEnabled",
        "sys_setDMZSettings",
        "sys_setDeepSleepEnabled",
        "sys_setEnabledRadioTechnologies",
        "sys_setGPSEnabled",
        "sys_setGPSPrivacyAgreementAccepted",
        "sys_setGPSStartupState",
        "sys_setHWFactoryResetEnabled",
        "sys_setIPv6Enabled",
        "sys_setIPv6TransparentModeEnabled",
        "sys_setLANSettings",
        "sys_setLEDEnabled",
        "sys_setMacFilterList",
        "sys_setMacFilterWhiteListEnabled",
        "sys_setManualDNSEnabled",
        "sys_setManualDNSSettings",
        "sys_setModemProfile",
        "sys_setNMEAOverWiFiEnabled",
        "sys_setNMEAOverWiFiSettings",
        "sys_setPortFilteringApplicationList",
        "sys_setPortFilteringEnabled",
        "sys_setPortForwardingApplicationList",
        "sys_setPortForwardingEnabled",
        "sys_setPowerSaveSettings",
        "sys_setSambaEnabled",
        "sys_setSambaFolderSettings",
        "sys_setSambaGuestNetworkEnabled",
        "sys_setSambaHostname",
        "sys_setSambaPrimaryNetworkEnabled",
        "sys_setSambaSettings",
        "sys_setUINotificationSettings",
        "sys_setUIStealthModeEnabled",
        "sys_setUSBTetheringEnabled",
        "sys_setUniversalChargingSettings",
        "sys_setVPNPassthroughEnabled",
        "sys_setWiFiEnabled",
        "sys_setWiFiGuestProfile",
        "sys_setWiFiGuestProfileForRadio",
        "sys_setWiFiMaxClients",
        "sys_setWiFiPrimaryProfile",
        "sys_setWiFiPrimaryProfileForRadio",
        "sys_validateHomeNetwork",
        "sys_watchdogApplicationKeepAlive",
        "sys_watchdogApplicationRegister",
        "webui_get_advanced_settings",
        "webui_get_app_configurations",
        "webui_get_i18n_settings",
        "webui_get_log_settings",
        "webui_get_login_settings",
        "webui_set_advanced_settings",
        "webui_set_i18n_settings",
        "webui_set_log_settings",
        "webui_set_login_settings",
        "xmldata_getcount",
        "xmldata_getstring",
        "xmldata_getuint32",
        "xmldata_initialize",
    };
    return calls;
}

std::string deviceTimestamp() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc {};
    gmtime_r(&now.tv_sec, &utc);
    char text[40];
    size_t n = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    snprintf(text + n, sizeof text - n, ".%03ldZ", now.tv_nsec / 1000000L);
    return text;
}

void deviceJournal(const char* call, const json& args, int result, const char* journal) {
    std::string path = sys_fsPath((std::string("/var/lib/ardo/") + journal).c_str());
    hostMakeDirs(dirOf(path));
    json line = {{"call", call}, {"args", args}, {"result", result}, {"time", deviceTimestamp()}};
    // A text cut inside a UTF-8 sequence (a record field's bound) is journalled with U+FFFD.
    std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    // One write with O_APPEND keeps concurrent lines whole.
    ssize_t ignored = write(fd, text.data(), text.size());
    (void)ignored;
    close(fd);
}

}  // namespace ardo
