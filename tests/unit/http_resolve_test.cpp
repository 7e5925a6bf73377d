// Host HTTP client and name resolution.
#include <gtest/gtest.h>

#include <cstring>

#include "canned_http.h"
#include "device_state.h"
#include "http_helper.h"
#include "sys_datacall.h"
#include "test_env.h"

using tola_test::CannedHttpServer;
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

TEST(Http, ExchangeSendsTheBodyAndReturnsTheAnswer) {
    TempRoot root;
    CannedHttpServer server({R"({"ResultCode":1})"});
    std::string port = std::to_string(server.port());
    // Directly, and by a name only the forced resolution knows, over the given interface.
    for (const std::string& url : {server.url(), "http://nowhere.tola.test:" + port + "/"}) {
        HttpHelper client;
        client.SetTimeout(5);
        client.SetInterface("lo");
        client.SetResolveEntry("nowhere.tola.test:" + port + ":127.0.0.1");
        std::string answer;
        int status = -1;
        ASSERT_EQ(client.ExecuteGetRequest(url, "{\"envelope\":1}", answer, status), 0) << url;
        EXPECT_EQ(status, 200);
        EXPECT_EQ(answer, R"({"ResultCode":1})");
    }
    EXPECT_EQ(server.bodies(), std::vector<std::string>(2, "{\"envelope\":1}"));
}

TEST(Http, FailedExchanges) {
    TempRoot root;
    CannedHttpServer huge({std::string(HttpHelper::kMaxResponseBytes + 1, 'x')});
    CannedHttpServer plain({"plain"});
    struct Case {
        std::string url, interfaceName;
    } cases[] = {
        {huge.url(), ""},                                                 // answer too large
        {"http://127.0.0.1:9/", ""},                                      // refused
        {"https://127.0.0.1:" + std::to_string(plain.port()) + "/", ""},  // not TLS
        {plain.url(), "no-such-if0"},                                     // interface missing
        {"ftp://127.0.0.1/", ""},                                         // other protocols
        {"", ""},
    };
    for (const Case& c : cases) {
        HttpHelper client;
        client.SetTimeout(5);
        client.SetInterface(c.interfaceName);
        std::string answer = "stale";
        int status = -1;
        EXPECT_NE(client.ExecuteGetRequest(c.url, "x", answer, status), 0) << c.url;
        EXPECT_EQ(status, 0);
        EXPECT_EQ(answer, "");
    }
    size_t received = plain.bodies().size();
    ardo::deviceStateSet("/faults/HttpHelper::ExecuteGetRequest", 1);
    HttpHelper client;
    std::string answer;
    int status = 0;
    EXPECT_EQ(client.ExecuteGetRequest(plain.url(), "x", answer, status), 1);
    EXPECT_EQ(plain.bodies().size(), received);
}

}  // namespace
