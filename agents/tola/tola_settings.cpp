#include "tola_settings.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "sys_device.h"
#include "tola_log.h"

namespace {

const tola_field_info_t kFieldInfo[] = {
#define TOLA_FIELD_GROUP_INFO(group) {#group, TolaField::group, true},
#define TOLA_FIELD_INFO(group, key) {#group "." #key, TolaField::group, false},
    TOLA_PRESENT_FIELDS(TOLA_FIELD_GROUP_INFO, TOLA_FIELD_INFO)
#undef TOLA_FIELD_GROUP_INFO
#undef TOLA_FIELD_INFO
};
static_assert(sizeof(kFieldInfo) / sizeof(kFieldInfo[0]) == TOLA_FIELD_COUNT, "one entry per flag");

// Creates a device-backed member on first use: allocate, fill through the getter, keep it only
// when the getter succeeded.
template <typename T>
T* seedMember(std::unique_ptr<T>& member, const char* getterName, int (*getter)(T*)) {
    if (member) {
        return member.get();
    }
    std::unique_ptr<T> value(new (std::nothrow) T());
    if (!value) {
        return nullptr;
    }
    int rc = getter(value.get());
    if (rc >= 2) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s failed with code = %d", getterName, rc);
    }
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s failed and returned [%d]", getterName, rc);
        return nullptr;
    }
    member = std::move(value);
    return member.get();
}

// Creates a plain member zeroed on first use.
template <typename T>
T* plainMember(std::unique_ptr<T>& member) {
    if (!member) {
        member.reset(new (std::nothrow) T());
    }
    return member.get();
}

template <typename T>
T* plainArray(std::unique_ptr<T[]>& member, size_t count) {
    if (!member) {
        member.reset(new (std::nothrow) T[count]());
    }
    return member.get();
}

}  // namespace

const tola_field_info_t& tola_field_info(TolaField field) {
    size_t index = static_cast<size_t>(field);
    return kFieldInfo[index < TOLA_FIELD_COUNT ? index : 0];
}

int tola_seed_gps_enabled(int* enabled) {
    int accepted = 0;
    int rc = sys_getGPSPrivacyAgreementAccepted(&accepted);
    if (rc != 0) {
        return rc;
    }
    if (!accepted) {
        sys_setGPSPrivacyAgreementAccepted(1);
    }
    rc = sys_getGPSEnabled(enabled);
    if (!accepted) {
        sys_setGPSPrivacyAgreementAccepted(0);
    }
    return rc;
}

TOLASettingsObject::TOLASettingsObject() {
    mErrorMessage[0] = '\0';
}
TOLASettingsObject::~TOLASettingsObject() = default;

#define TOLA_DEFINE_ACCESSOR(name, type, getterName, seed)  \
    type* TOLASettingsObject::Get##name() {                 \
        return seedMember<type>(m##name, getterName, seed); \
    }
TOLA_DEVICE_SETTINGS(TOLA_DEFINE_ACCESSOR)
#undef TOLA_DEFINE_ACCESSOR

sys_mac_entry_t* TOLASettingsObject::GetMacAddrList() {
    return plainArray(mMacAddrList, TOLA_MAC_LIST_ENTRIES);
}
int* TOLASettingsObject::GetMacCount() {
    return plainMember(mMacCount);
}
int* TOLASettingsObject::GetWhiteListMacCount() {
    return plainMember(mWhiteListMacCount);
}
sys_router_app_t* TOLASettingsObject::GetPortFilteringApplications() {
    return plainArray(mPortFilteringApps, SYS_ROUTER_APP_MAX);
}
int* TOLASettingsObject::GetPortFilteringAppsCount() {
    return plainMember(mPortFilteringAppsCount);
}
sys_router_app_t* TOLASettingsObject::GetPortForwardingApplications() {
    return plainArray(mPortForwardingApps, SYS_ROUTER_APP_MAX);
}
int* TOLASettingsObject::GetPortForwardingAppsCount() {
    return plainMember(mPortForwardingAppsCount);
}
sys_dhcp_reservation_t* TOLASettingsObject::GetReservedAddrList() {
    return plainArray(mReservedAddrList, SYS_DHCP_RESERVATION_MAX);
}
int* TOLASettingsObject::GetReservedAddrListCount() {
    return plainMember(mReservedAddrListCount);
}
sys_samba_folder_t* TOLASettingsObject::GetSambaFolderNames() {
    return plainArray(mSambaFolderNames, SYS_SAMBA_FOLDER_SLOTS);
}
int* TOLASettingsObject::GetSambaFolderNamesCount() {
    // Created holding the device's capacity: a freshly started agent (every document follows a
    // reboot) must accept folders before any ResetObjectData has run.
    if (!mSambaFolderNamesCount) {
        mSambaFolderNamesCount.reset(new (std::nothrow) int(TOLA_SAMBA_FOLDER_CAPACITY));
    }
    return mSambaFolderNamesCount.get();
}
char* TOLASettingsObject::GetNetworkText(int which) {
    if (which < 0 || which >= TOLA_NET_TEXT_COUNT) {
        return nullptr;
    }
    char* texts = plainArray(mNetworkTexts, TOLA_NET_TEXT_COUNT * TOLA_SETTINGS_TEXT_SIZE);
    return texts != nullptr ? texts + which * TOLA_SETTINGS_TEXT_SIZE : nullptr;
}
char* TOLASettingsObject::GetSambaHostName() {
    return plainArray(mSambaHostName, TOLA_SETTINGS_TEXT_SIZE);
}

// A device-state cache entry: the record read once; a failed read is logged and not kept, so
// the next reader asks the device again.
template <typename T>
T* cachedRecord(std::unique_ptr<T>& entry, const char* logName, int (*getter)(T*)) {
    if (entry) {
        return entry.get();
    }
    std::unique_ptr<T> value(new (std::nothrow) T());
    if (!value) {
        return nullptr;
    }
    int rc = getter(value.get());
    if (rc == 1) {
        TLOG(TOLA_LOG_ERROR, "[%s]:[%s] - %s returned : [%d]", logName, rc);
        return nullptr;
    }
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s failed with code = %d", logName, rc);
        return nullptr;
    }
    entry = std::move(value);
    return entry.get();
}

#define TOLA_DEFINE_CACHE_GETTER(name, type, logName, getter)      \
    type* TOLASettingsObject::name() {                             \
        return cachedRecord<type>(mCache_##name, logName, getter); \
    }
TOLA_DEVICE_STATE_CACHE(TOLA_DEFINE_CACHE_GETTER)
#undef TOLA_DEFINE_CACHE_GETTER

int tola_read_wifi24_profile(int* network) {
    sys_wifi_profile_t profile{};
    int rc = sys_getWiFiPrimaryProfile(&profile);
    if (rc == 0 && network != nullptr) {
        *network = static_cast<int>(profile.band24Network);
    }
    return rc;
}

int tola_read_wifi5_profile(int* network) {
    sys_wifi_profile_t profile{};
    int rc = sys_getWiFiPrimaryProfile(&profile);
    if (rc == 0 && network != nullptr) {
        *network = static_cast<int>(profile.band5Network);
    }
    return rc;
}

void TOLASettingsObject::SetPresent(TolaField field) {
    mPresent.set(static_cast<size_t>(field));
    mPresent.set(static_cast<size_t>(tola_field_info(field).group));
}

void TOLASettingsObject::SetErrorMessage(const char* format, ...) {
    char buffer[TOLA_ERROR_MESSAGE_SIZE];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    if (n < 0) {
        buffer[0] = '\0';
    }
    memcpy(mErrorMessage, buffer, sizeof(mErrorMessage));
    mErrorMessage[sizeof(mErrorMessage) - 1] = '\0';
}

void TOLASettingsObject::DropDocumentValues() {
#define TOLA_DROP_MEMBER(name, type, getterName, seed) m##name.reset();
    TOLA_DEVICE_SETTINGS(TOLA_DROP_MEMBER)
#undef TOLA_DROP_MEMBER
    if (mNetworkTexts) {
        memset(mNetworkTexts.get(), 0, TOLA_NET_TEXT_COUNT * TOLA_SETTINGS_TEXT_SIZE);
    }
    if (mSambaHostName) {
        memset(mSambaHostName.get(), 0, TOLA_SETTINGS_TEXT_SIZE);
    }
    if (mSambaFolderNames) {
        memset(mSambaFolderNames.get(), 0, TOLA_SAMBA_FOLDER_BYTES);
    }
}

int TOLASettingsObject::ResetObjectData() {
    static const char* const kFunction = "int TOLAAgent::ResetObjectData()";
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - BEGIN", kFunction);
    int rc = 0;

    int* macCount = GetMacCount();
    int* whiteListCount = GetWhiteListMacCount();
    sys_mac_entry_t* macList = GetMacAddrList();
    if (macCount != nullptr && whiteListCount != nullptr && macList != nullptr) {
        *macCount = 0;
        *whiteListCount = 0;
        memset(macList, 0, TOLA_MAC_LIST_BYTES);
    } else {
        rc = 200;
        TLOG_SYS(
            TOLA_LOG_ERROR,
            "[%s]:[%s] - %s:%d Reset Data - NULL pointer encountered for GetMacCount() or GetMacAddrList()  "
            "or GetWhiteListMacCount()",
            __FUNCTION__, __LINE__);
        SetErrorMessage("Reset Data - Received NULL pointer for mac count or mac list");
    }

    int* forwardCount = GetPortForwardingAppsCount();
    sys_router_app_t* forwardApps = GetPortForwardingApplications();
    if (forwardCount != nullptr && forwardApps != nullptr) {
        *forwardCount = 0;
        memset(forwardApps, 0, TOLA_ROUTER_APPS_BYTES);
    } else {
        rc = 200;
        TLOG_SYS(
            TOLA_LOG_ERROR,
            "[%s]:[%s] - %s:%d Reset Data - NULL pointer encountered for GetPortForwardingAppsCount() or "
            "GetPortForwardingApplications()  ",
            __FUNCTION__, __LINE__);
        SetErrorMessage("Reset Data - Received NULL pointer for port forward count or port forward app list");
    }

    int* filterCount = GetPortFilteringAppsCount();
    sys_router_app_t* filterApps = GetPortFilteringApplications();
    if (filterCount != nullptr && filterApps != nullptr) {
        *filterCount = 0;
        memset(filterApps, 0, TOLA_ROUTER_APPS_BYTES);
    } else {
        rc = 200;
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s:%d Reset Data - NULL pointer encountered for GetPortFilteringAppsCount() or "
                 "GetPortFilteringApplications()  ",
                 __FUNCTION__, __LINE__);
        SetErrorMessage(
            "Reset Data - Received NULL pointer for port filtering count or port filtering app list");
    }

    int* reservedCount = GetReservedAddrListCount();
    sys_dhcp_reservation_t* reserved = GetReservedAddrList();
    if (reservedCount != nullptr && reserved != nullptr) {
        *reservedCount = 0;
        memset(reserved, 0, TOLA_RESERVED_ADDR_BYTES);
    } else {
        rc = 200;
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s:%d Reset Data - NULL pointer encountered for GetReservedAddrListCount() or "
                 "GetReservedAddrList()  ",
                 __FUNCTION__, __LINE__);
        SetErrorMessage("Reset Data - Received NULL pointer for reserved ip count or reserved ip list");
    }

    int* folderCount = GetSambaFolderNamesCount();
    if (folderCount != nullptr) {
        *folderCount = TOLA_SAMBA_FOLDER_CAPACITY;
    } else {
        rc = 200;
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s:%d Reset Data - NULL pointer encountered for GetSambaFolderNamesCount()  ",
                 __FUNCTION__, __LINE__);
        SetErrorMessage("Reset Data - Received NULL pointer for samba folder count");
    }

    // The device may have changed since the cached records were read.
#define TOLA_EMPTY_CACHE(name, type, logName, getter) mCache_##name.reset();
    TOLA_DEVICE_STATE_CACHE(TOLA_EMPTY_CACHE)
#undef TOLA_EMPTY_CACHE

    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END rc [%d]", kFunction, rc);
    return rc;
}
