// The agent's fixed-size records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Texts inside the records: NUL-terminated, filled with at most 127 characters.
constexpr size_t TOLA_TEXT_SIZE = 128;
constexpr size_t TOLA_TEXT_MAX = TOLA_TEXT_SIZE - 1;

// Copies at most TOLA_TEXT_MAX characters of src and always terminates the 128-byte field.
void tola_copy_text(char (&dst)[TOLA_TEXT_SIZE], const char* src);
// Whether the first `limit` bytes of text (what a 128-byte field or a 100-byte access-control
// name keeps of it) can be written to acl_config.xml and read back unchanged. The file is written
// without escaping, so "<", "&" and "]]>" would make the whole file unreadable, and so would a
// control character or bytes that are not UTF-8 (a multi-byte character cut at the limit
// included); the reader then resets the record and the device forgets its portal.
bool tola_storable_text(const char* text, size_t limit);

// A record's text field as a string (bounded by the field, terminated or not).
std::string tola_record_text(const char (&field)[TOLA_TEXT_SIZE]);
// Removes every leading and trailing blank, tab, carriage return, line feed, backspace and
// vertical tab: the white space that templates and hand-edited files carry around their text.
void tola_trim_blanks(std::string& text);

// The read-only agent configuration (config.xml).
struct tolaagent_config_t {
    uint32_t checkInInterval;       // hours; 0 keeps the built-in 24 hours
    uint32_t checkInRetryInterval;  // seconds between failed attempts
    uint32_t checkInFailedRetries;  // extra attempts after a failed one
    uint32_t requestTimeout;        // HTTP time-out, seconds
    char reserved128[TOLA_TEXT_SIZE];
    char baseEncryptionKey[TOLA_TEXT_SIZE];
    char requestTemplate[TOLA_TEXT_SIZE];
    char requestDataUsageTemplate[TOLA_TEXT_SIZE];
    char checkInTemplate[TOLA_TEXT_SIZE];
    char receiptTemplate[TOLA_TEXT_SIZE];
    uint32_t dataUsageResponseWaitTime;  // seconds; 0 means 15
    char sms104CheckInTemplate[TOLA_TEXT_SIZE];
    uint32_t dataCallType;  // 0 apps-APN call, otherwise the Internet call
};
static_assert(offsetof(tolaagent_config_t, reserved128) == 16, "config layout");
static_assert(offsetof(tolaagent_config_t, dataUsageResponseWaitTime) == 784, "config layout");
static_assert(offsetof(tolaagent_config_t, dataCallType) == 916, "config layout");
static_assert(sizeof(tolaagent_config_t) == 920, "config layout");

// The runtime record persisted in acl_config.xml (all but bootupWaitDone); copied whole.
struct tolaagent_runtime_config_t {
    bool checkInFlag;
    bool factoryResetFlag;
    char version[TOLA_TEXT_SIZE];
    char checkInURL[TOLA_TEXT_SIZE];
    char payloadEncryptionKey[TOLA_TEXT_SIZE];
    char lastCommand[TOLA_TEXT_SIZE];
    int32_t aclConfigStatus;
    char lastCheckInDate[TOLA_TEXT_SIZE];
    bool checkInIntervalOverrideFlag;
    uint32_t checkInInterval;  // hours
    bool bootupWaitDone;       // kept in memory only
};
static_assert(sizeof(bool) == 1, "flags are one byte");
static_assert(offsetof(tolaagent_runtime_config_t, version) == 2, "runtime layout");
static_assert(offsetof(tolaagent_runtime_config_t, aclConfigStatus) == 516, "runtime layout");
static_assert(offsetof(tolaagent_runtime_config_t, checkInInterval) == 652, "runtime layout");
static_assert(sizeof(tolaagent_runtime_config_t) == 660, "runtime layout");

// The access-control list shared with the device's other processes (System V segment).
constexpr int TOLA_ACL_MAX_ENTRIES = 200;
constexpr size_t TOLA_ACL_NAME_SIZE = 100;
constexpr uint32_t TOLA_ACE_DISPLAY_ENABLED = 1u << 0;
constexpr uint32_t TOLA_ACE_WRITE_ENABLED = 1u << 1;

// Header word values.
constexpr uint32_t TOLA_ACL_HEADER_WIPED = 0;
constexpr uint32_t TOLA_ACL_HEADER_LOADED = 1;
constexpr uint32_t TOLA_ACL_HEADER_FRESH = 2;

struct tola_ace_t {
    char name[TOLA_ACL_NAME_SIZE];  // NUL-terminated only when shorter than 100 characters
    uint32_t flags;                 // bit 0 display enabled, bit 1 write enabled
};
static_assert(offsetof(tola_ace_t, flags) == 100, "ACE layout");
static_assert(sizeof(tola_ace_t) == 104, "ACE layout");

struct tola_acl_shm_t {
    uint32_t header;  // 2 fresh, 1 loaded from the file, 0 wiped
    int32_t count;
    tola_ace_t entries[TOLA_ACL_MAX_ENTRIES];
};
static_assert(offsetof(tola_acl_shm_t, count) == 4, "ACL layout");
static_assert(offsetof(tola_acl_shm_t, entries) == 8, "ACL layout");
static_assert(sizeof(tola_acl_shm_t) == 20808, "ACL layout");

// Fixed places of the agent.
#define TOLA_DATA_DIR "/opt/ardo/data/tola"
#define TOLA_ETC_DIR "/opt/ardo/etc/"
#define TOLA_AGENT_DIR_NAME "tola"
#define TOLA_CONFIG_FILE "/opt/ardo/etc/tola/config.xml"
#define TOLA_ACL_FILE_NAME "acl_config.xml"
#define TOLA_RESTORE_ACE_DEFAULTS_FILE_NAME "restore_ace_defaults"
#define TOLA_DOWNLOADED_CONFIG_FILE_NAME "tola_downloaded_config"
#define TOLA_RESOLVER_FILE "/opt/ardo/tmp/router2/resolv_data_usage.conf"
