// Address, port and text checks used by the settings validators.
//
// Their return conventions differ on purpose and callers rely on each: IsValidIP,
// IsValidIPWithPrivateAddressRange, IsvalidIpWithBroadcastRange, IsValidDhcpRange and
// IsNetworkOrBroadcastIp return 1 for a value that is NOT acceptable; CheckSubnetMatch,
// validateIpWithDhcpRange, IsValidIpWithDhcp, CheckForSameSubnet, isValidDateFormat and
// IsValidMacAddress return 1/true for an acceptable one. The comparisons read addresses with
// "%d.%d.%d.%d" and do not reject malformed text themselves.
#include <arpa/inet.h>
#include <regex.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "tola_log.h"
#include "tola_settings.h"

namespace {

struct Octets {
    int count;  // how many of the four numbers were read
    int v[4];
};

Octets scanOctets(const char* ip) {
    Octets o{0, {0, 0, 0, 0}};
    if (ip != nullptr) {
        o.count = sscanf(ip, "%d.%d.%d.%d", &o.v[0], &o.v[1], &o.v[2], &o.v[3]);
        if (o.count < 0) {
            o.count = 0;
        }
    }
    return o;
}

uint32_t toInt32(const char* ip) {
    Octets o = scanOctets(ip);
    return (static_cast<uint32_t>(o.v[0]) << 24) | (static_cast<uint32_t>(o.v[1]) << 16) |
           (static_cast<uint32_t>(o.v[2]) << 8) | static_cast<uint32_t>(o.v[3]);
}

// Logs why a pattern did not match, as regerror explains it.
void logRegexFailure(const char* function, regex_t* regex, const char* text, int rc) {
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - regexec(%s) returned %d", function, text, rc);
    char message[1000];
    message[0] = '\0';
    if (regerror(rc, regex, message, sizeof(message)) > 0 && message[0] != '\0') {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - regerror said: %s", function, message);
    } else {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - regerror failed", function);
    }
}

}  // namespace

int TOLASettingsObject::IsValidIP(char* ip) {
    struct in_addr addr {};
    if (ip == nullptr) {
        return 1;
    }
    return inet_pton(AF_INET, ip, &addr) == 0 ? 1 : 0;
}

int TOLASettingsObject::IsValidIPWithPrivateAddressRange(char* ip) {
    if (ip == nullptr || ip[0] == '\0') {
        return 1;
    }
    Octets o = scanOctets(ip);
    if (o.count != 4) {
        return 1;
    }
    bool privateRange =
        o.v[0] == 10 || (o.v[0] == 172 && o.v[1] >= 16 && o.v[1] <= 31) || (o.v[0] == 192 && o.v[1] == 168);
    return privateRange && o.v[2] <= 255 && o.v[3] <= 255 ? 0 : 1;
}

int TOLASettingsObject::IsvalidIpWithBroadcastRange(const char* ip) {
    if (ip == nullptr || ip[0] == '\0') {
        return 1;
    }
    Octets o = scanOctets(ip);
    if (o.count != 4 || o.v[0] == 0 || o.v[3] == 0 || o.v[3] == 255) {
        return 1;
    }
    size_t len = strlen(ip);
    static const char* const kReserved[] = {"10.0.0.0", "192.168.0.0", "172.16.0.0"};
    for (const char* reserved : kReserved) {
        if (strncmp(ip, reserved, len) == 0) {
            return 1;
        }
    }
    return 0;
}

uint32_t TOLASettingsObject::IPToInt32(char* ip) {
    return toInt32(ip);
}

int TOLASettingsObject::IsNetworkOrBroadcastIp(const char* ip) {
    Octets o = scanOctets(ip);
    return o.v[3] == 0 || o.v[3] == 255 ? 1 : 0;
}

int TOLASettingsObject::CheckSubnetMatch(const char* ipA, const char* mask, const char* ipB) {
    uint32_t m = toInt32(mask);
    if ((toInt32(ipA) & m) == (toInt32(ipB) & m)) {
        return 1;
    }
    TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - IpAddress is not matched with subnet");
    return 0;
}

bool TOLASettingsObject::validateIpWithDhcpRange(const char* ip, const char* start, const char* end) {
    uint32_t value = toInt32(ip);
    return toInt32(start) <= value && value <= toInt32(end);
}

int TOLASettingsObject::IsValidIpWithDhcp(const char* a, const char* b) {
    return toInt32(a) < toInt32(b) ? 1 : 0;
}

int TOLASettingsObject::IsValidDhcpRange(const char* start, int minClients) {
    struct in_addr addr {};
    if (start == nullptr || inet_pton(AF_INET, start, &addr) != 1) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s - inet_pton is failed. DHCP start address is not a valid IP",
                 __FUNCTION__);
        return 1;
    }
    // The fourth octet is the last byte in network order. 255 itself counts as a client address:
    // the LAN limits rely on it.
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&addr.s_addr);
    if (255 - static_cast<int>(bytes[3]) < minClients) {
        TLOG_SYS(
            TOLA_LOG_ERROR,
            "[%s]:[%s] - DHCP start address does not contain a minimum number of clients address to serve.");
        return 1;
    }
    return 0;
}

bool TOLASettingsObject::CheckPortRanges(int start1, int end1, int start2, int end2) {
    bool overlap = (start1 >= start2 && start1 <= end2) || (start2 >= start1 && start2 <= end1);
    return !overlap;
}

int TOLASettingsObject::CheckIsFullURL(std::string site) {
    if (site.find('/') != std::string::npos) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - site name is: [%s].", __FUNCTION__, site.c_str());
        return 1;
    }
    return 0;
}

int TOLASettingsObject::CheckForValidSiteName(std::string site) {
    regex_t regex;
    if (regcomp(&regex, "^[A-Za-z0-9-]+(\\.[A-Za-z0-9-]+)*(\\.[A-Za-z]{2,})$", REG_EXTENDED) != 0) {
        return 1;
    }
    int rc = regexec(&regex, site.c_str(), 0, nullptr, 0);
    int result = 0;
    if (rc != 0) {
        logRegexFailure(__FUNCTION__, &regex, site.c_str(), rc);
        result = 1;
    } else if (site.compare(0, 3, "ftp") == 0 || site.compare(0, 3, "FTP") == 0) {
        result = 1;
    }
    regfree(&regex);
    return result;
}

bool TOLASettingsObject::isValidDateFormat(const char* date) {
    regex_t regex;
    int rc = regcomp(&regex, "^(1[0-2]|0[1-9])[/-](3[01]|[12][0-9]|0[1-9])[/-][0-9]{4}$", REG_EXTENDED);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - regcomp  returned %d", __FUNCTION__, rc);
    if (rc != 0) {
        return false;
    }
    const char* text = date != nullptr ? date : "";
    rc = regexec(&regex, text, 0, nullptr, 0);
    bool valid = rc == 0;
    if (valid) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - regexec(%s) returned %d", __FUNCTION__, text, rc);
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - regexec() results: SUCCESS ", __FUNCTION__);
    } else {
        logRegexFailure(__FUNCTION__, &regex, text, rc);
    }
    regfree(&regex);
    return valid;
}

bool TOLASettingsObject::CheckForSameSubnet(ip4_address_t address) {
    sys_lan_settings_t* lan = getLANSettings();
    if (lan == nullptr) {
        return false;
    }
    char ip[SYS_IP_TEXT_SIZE];
    char mask[SYS_IP_TEXT_SIZE];
    snprintf(ip, sizeof(ip), "%.*s", static_cast<int>(sizeof(ip) - 1), lan->ipAddress);
    snprintf(mask, sizeof(mask), "%.*s", static_cast<int>(sizeof(mask) - 1), lan->subnetMask);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - Vorn IP Address = %s", __FUNCTION__, ip);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - Vorn Subnet Mask = %s", __FUNCTION__, mask);
    struct in_addr deviceAddr {};
    struct in_addr maskAddr {};
    if (inet_pton(AF_INET, ip, &deviceAddr) != 1) {
        deviceAddr.s_addr = 0;
    }
    if (inet_pton(AF_INET, mask, &maskAddr) != 1) {
        maskAddr.s_addr = 0;
    }
    uint32_t vornSubnet = deviceAddr.s_addr & maskAddr.s_addr;
    uint32_t userSubnet = address & maskAddr.s_addr;
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - Vorn Subnet = %d", __FUNCTION__, static_cast<int>(vornSubnet));
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - User Subnet = %d", __FUNCTION__, static_cast<int>(userSubnet));
    return vornSubnet == userSubnet;
}

bool TOLASettingsObject::IsValidMacAddress(const char* mac) {
    if (mac == nullptr || mac[0] == '\0') {
        return false;
    }
    int hexDigits = 0;
    int separators = 0;
    bool otherCharacter = false;
    for (const char* p = mac; *p != '\0'; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (isxdigit(c)) {
            ++hexDigits;
        } else if (c == ':' || c == '-') {
            if (hexDigits == 0) {
                return false;
            }
            // A separator belongs after each full pair: after 2, 4, 6, ... digits.
            if (hexDigits / 2 != separators + 1) {
                break;
            }
            ++separators;
        } else {
            otherCharacter = true;
        }
    }
    return !otherCharacter && hexDigits == 12 && (separators == 0 || separators == 5);
}

bool TOLASettingsObject::HasNonPrintableChars(const char* text) {
    if (text == nullptr) {
        return false;
    }
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; ++p) {
        if (*p < 32 || *p > 126) {
            return true;
        }
    }
    return false;
}
