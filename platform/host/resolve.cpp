// Host name resolution. The simulated root's etc/hosts answers first (so tests resolve their
// names to loopback without a DNS server); then c-ares asks the name servers listed in the
// resolver file, and only those: the system's own resolver configuration is not consulted.
// The interfaces are not bound on the host (binding needs privileges a test does not have).
//
// Result layout: see sys_datacall.h (SYS_RESOLVE_ENTRY_SIZE-byte slots of address texts).
#include <ares.h>
#include <arpa/inet.h>
#include <netdb.h>
#include <strings.h>
#include <sys/select.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "device_state.h"
#include "host_env.h"
#include "sys_core.h"
#include "sys_datacall.h"

namespace {

std::once_flag gAresInit;

bool isAddress(const std::string& text) {
    unsigned char buf[sizeof(struct in6_addr)];
    return inet_pton(AF_INET, text.c_str(), buf) == 1 || inet_pton(AF_INET6, text.c_str(), buf) == 1;
}

// Addresses that etc/hosts under the root gives the name, in file order.
std::vector<std::string> hostsLookup(const std::string& name) {
    std::vector<std::string> found;
    std::ifstream in(sys_fsPath("/etc/hosts"));
    std::string line;
    while (std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string address, alias;
        if (!(words >> address) || !isAddress(address)) {
            continue;
        }
        while (words >> alias) {
            if (strcasecmp(alias.c_str(), name.c_str()) == 0) {
                found.push_back(address);
                break;
            }
        }
    }
    return found;
}

// "nameserver ADDRESS" lines of the resolver file, as c-ares's comma-separated server list.
std::string nameServers(const char* resolverFile) {
    std::ifstream in(sys_fsPath(resolverFile));
    std::string line, servers;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string key, address;
        if ((words >> key >> address) && key == "nameserver" && isAddress(address)) {
            if (!servers.empty()) {
                servers += ',';
            }
            // IPv6 servers are written in brackets in c-ares's list.
            servers += address.find(':') != std::string::npos ? "[" + address + "]" : address;
        }
    }
    return servers;
}

struct Lookup {
    bool done = false;
    int status = ARES_ETIMEOUT;
    std::vector<std::string> addresses;
};

void onAddrInfo(void* arg, int status, int /*timeouts*/, struct ares_addrinfo* result) {
    Lookup* lookup = static_cast<Lookup*>(arg);
    lookup->done = true;
    lookup->status = status;
    if (status == ARES_SUCCESS && result != nullptr) {
        for (struct ares_addrinfo_node* node = result->nodes; node != nullptr; node = node->ai_next) {
            char text[INET6_ADDRSTRLEN] = {0};
            const void* raw = nullptr;
            if (node->ai_family == AF_INET) {
                raw = &reinterpret_cast<struct sockaddr_in*>(node->ai_addr)->sin_addr;
            } else if (node->ai_family == AF_INET6) {
                raw = &reinterpret_cast<struct sockaddr_in6*>(node->ai_addr)->sin6_addr;
            }
            if (raw != nullptr && inet_ntop(node->ai_family, raw, text, sizeof text) != nullptr) {
                lookup->addresses.push_back(text);
            }
        }
    }
    if (result != nullptr) {
        ares_freeaddrinfo(result);
    }
}

double monotonicSeconds() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Asks the servers; false on any failure. The agent's time-outs are device time, compressed like
// every other wait, but never below kMinTimeoutMs so that a real name server can still answer.
constexpr uint64_t kMinTimeoutMs = 250;

bool dnsLookup(const std::string& name, const std::string& servers, int timeoutSeconds,
               std::vector<std::string>& out) {
    std::call_once(gAresInit, [] { ares_library_init(ARES_LIB_INIT_ALL); });
    uint64_t timeoutMs =
        std::max(kMinTimeoutMs,
                 ardo::hostScaledMilliseconds(static_cast<uint64_t>(std::max(1, timeoutSeconds)) * 1000));
    struct ares_options options {};
    options.timeout = static_cast<int>(std::min<uint64_t>(timeoutMs, 60000));
    options.tries = 1;
    char lookups[] = "b";  // DNS only, never the PC's own /etc/hosts
    options.lookups = lookups;
    options.flags = ARES_FLAG_NOSEARCH;
    ares_channel channel = nullptr;
    int optmask = ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_LOOKUPS | ARES_OPT_FLAGS;
    if (ares_init_options(&channel, &options, optmask) != ARES_SUCCESS) {
        return false;
    }
    if (ares_set_servers_csv(channel, servers.c_str()) != ARES_SUCCESS) {
        ares_destroy(channel);
        return false;
    }
    Lookup lookup;
    struct ares_addrinfo_hints hints {};
    hints.ai_family = AF_UNSPEC;
    ares_getaddrinfo(channel, name.c_str(), nullptr, &hints, onAddrInfo, &lookup);
    double deadline = monotonicSeconds() + static_cast<double>(options.timeout) / 1000.0;
    while (!lookup.done) {
        double left = deadline - monotonicSeconds();
        if (left <= 0) {
            break;
        }
        fd_set readers, writers;
        FD_ZERO(&readers);
        FD_ZERO(&writers);
        int nfds = ares_fds(channel, &readers, &writers);
        if (nfds == 0) {
            break;
        }
        struct timeval limit {
            static_cast<time_t>(left), static_cast<suseconds_t>((left - static_cast<time_t>(left)) * 1e6)
        };
        struct timeval wait {};
        struct timeval* tv = ares_timeout(channel, &limit, &wait);
        select(nfds, &readers, &writers, nullptr, tv);
        ares_process(channel, &readers, &writers);
    }
    ares_destroy(channel);  // runs the callback with ARES_EDESTRUCTION when still pending
    if (lookup.status != ARES_SUCCESS) {
        return false;
    }
    out = lookup.addresses;
    return true;
}

}  // namespace

int sys_resolveHostName(const char* hostName, const char* resolverFile, const char* /*ipv4Interface*/,
                        const char* /*ipv6Interface*/, int timeoutSeconds, char* result, int* count) {
    if (hostName == nullptr || resolverFile == nullptr || result == nullptr || count == nullptr) {
        return 1;
    }
    int rc;
    if (ardo::deviceTakeFault("sys_resolveHostName", &rc)) {
        *count = 0;
        return rc;
    }
    int wanted = std::min(*count, SYS_RESOLVE_MAX_ENTRIES);
    *count = 0;
    std::string name = hostName;
    if (name.empty() || wanted <= 0) {
        return name.empty() ? 1 : 0;
    }
    std::vector<std::string> addresses;
    if (isAddress(name)) {
        addresses.push_back(name);
    } else {
        addresses = hostsLookup(name);
    }
    if (addresses.empty()) {
        std::string servers = nameServers(resolverFile);
        if (servers.empty()) {
            return 1;  // a resolver file without servers
        }
        if (!dnsLookup(name, servers, timeoutSeconds, addresses)) {
            return 1;
        }
    }
    int written = 0;
    for (const std::string& address : addresses) {
        if (written >= wanted) {
            break;
        }
        if (address.size() >= SYS_RESOLVE_ENTRY_SIZE) {
            continue;
        }
        char* slot = result + static_cast<size_t>(written) * SYS_RESOLVE_ENTRY_SIZE;
        std::memcpy(slot, address.c_str(), address.size() + 1);
        ++written;
    }
    *count = written;
    return 0;
}
