// Host name resolution (the HTTP client is checked by the platform conformance suite).
#include <gtest/gtest.h>

#include <cstring>

#include "device_state.h"
#include "sys_datacall.h"
#include "test_env.h"

using tola_test::TempRoot;

namespace {

constexpr const char* kResolver = "/opt/ardo/tmp/router2/resolv_data_usage.conf";

struct Resolved {
    int rc;
    std::vector<std::string> addresses;
};

Resolved Resolve(const char* host, int wanted = 20) {
    char buffer[SYS_RESOLVE_BUFFER_SIZE];
    std::memset(buffer, 0, sizeof buffer);
    int count = wanted;
    Resolved r{sys_resolveHostName(host, kResolver, "lo", "lo", 2, buffer, &count), {}};
    for (int i = 0; i < count; ++i) {
        r.addresses.emplace_back(buffer + i * SYS_RESOLVE_ENTRY_SIZE);
    }
    return r;
}

TEST(Resolve, HostsFileAnswersFirst) {
    TempRoot root;
    root.writeFile("/etc/hosts",
                   "# test names\n127.0.0.1 portal.tola.test other\n::1 portal.tola.test\n"
                   "not-an-address bad.tola.test\n10.0.0.7\tOTHER.tola.test # comment\n");
    struct Case {
        const char* host;
        int wanted;
        std::vector<std::string> addresses;
    } cases[] = {
        {"portal.tola.test", 20, {"127.0.0.1", "::1"}},
        {"PORTAL.tola.test", 1, {"127.0.0.1"}},
        {"other.tola.test", 20, {"10.0.0.7"}},
        {"192.0.2.5", 20, {"192.0.2.5"}},
    };
    for (const Case& c : cases) {
        Resolved r = Resolve(c.host, c.wanted);
        EXPECT_EQ(r.rc, 0) << c.host;
        EXPECT_EQ(r.addresses, c.addresses) << c.host;
    }
}

TEST(Resolve, FailuresAreReportedNotHidden) {
    TempRoot root;
    root.writeFile(kResolver, "# no servers here\nsearch tola.test\nnameserver not-an-ip\n");
    EXPECT_EQ(Resolve("unknown.tola.test").rc, 1);
    root.writeFile(kResolver, "nameserver 127.0.0.1\n");  // nothing listens on port 53
    Resolved r = Resolve("unknown.tola.test");
    EXPECT_NE(r.rc, 0);
    EXPECT_TRUE(r.addresses.empty());
    ardo::deviceStateSet("/faults/sys_resolveHostName", 3);
    EXPECT_EQ(Resolve("portal.tola.test").rc, 3);
    EXPECT_EQ(Resolve("").rc, 3);
}

}  // namespace
