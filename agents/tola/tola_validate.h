// Shared by the settings validators (tola_agent_validate*.cpp): the limits they apply where the
// device sets them, and small helpers for texts kept in fixed records.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

#include "sys_settings.h"

// ---- Limits of the device (docs/validation.md) -----------------------------------------------
struct tola_port_range_t {
    int min;
    int max;
    bool contains(int port) const { return port >= min && port <= max; }
};
struct tola_validation_limits_t {
    tola_port_range_t filterStartPorts;  // a filtered application's first port
    tola_port_range_t filterEndPorts;    // its last port
    tola_port_range_t forwardPorts;      // both ports of a forwarded custom application
    int sharingFolderNameMax;            // longest shared top-level folder name
    int localPoolLastOctet;              // last host a derived DHCP pool may reach
    int minDhcpClients;                  // addresses a DHCP pool must leave for clients
};
constexpr tola_validation_limits_t TOLA_VALIDATION_LIMITS = {
    {1, 65534}, {0, 65534}, {1, 65534}, SYS_SAMBA_FOLDER_NAME_MAX, 254, 16,
};

// Fallbacks when the web interface's application configuration cannot be read.
constexpr int TOLA_DEFAULT_MIN_PASSCODE_LENGTH = 6;
constexpr long long TOLA_DEFAULT_DHCP_LEASE_MAX = 71582788;

// A refusal inside a validator (a TOLAAgent member): sets the user text, gives the code.
//   return TOLA_REFUSE(151, "Invalid WiFi Primary SSID. Contains non printable characters.");
#define TOLA_REFUSE(code, ...) (SetErrorMessage(__VA_ARGS__), (code))

// A text field of a record, made safe to print: ends at the field's last byte at the latest.
template <size_t N>
char* tola_field_text(char (&field)[N]) {
    field[N - 1] = '\0';
    return field;
}

// A MAC address reduced to its hex digits in lower case, so that two spellings of one address
// ("AA-BB-..." and "aa:bb:...") compare equal.
std::string tola_mac_key(const char* mac);

// Reads one integer of the web interface's application configuration; fallback when the read
// fails or the value is not a positive number.
long long tola_app_configuration(const char* section, const char* key, long long fallback);
