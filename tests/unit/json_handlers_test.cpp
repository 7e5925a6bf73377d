// The configuration-document corpus (corpus/cases/documents.txt and the documents it names) run
// through the real parser against a simulated device, plus the list limits and generated hostile
// documents.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>

#include "../../tools/devicectl/settings_dump.h"
#include "device_state.h"
#include "document_cases.h"
#include "test_env.h"
#include "tola_agent.h"
#include "tola_json_parser.h"

namespace {

using nlohmann::json;

struct ParseResult {
    int code;
    std::string error;
    json dump;
};

ParseResult parseWith(TOLAAgent& agent, const std::string& text) {
    TOLAJSONParser parser(&agent);
    int code = parser.ProcessJSONData(text);
    json dump = settings_dump::dump(agent);
    dump["acl"] = settings_dump::aclEntries(agent);
    return {code, agent.GetErrorMessage(), dump};
}

class DocumentTest : public ::testing::Test {
  protected:
    ParseResult parse(const std::string& text) { return parseWith(agent, text); }
    int handleReserved(const std::string& element) { return tola_test::handleReserved(agent, element); }
    void SetUp() override { agent.InitializeSharedMemory(); }

    tola_test::TempRoot root;
    TOLAAgent agent;
};

TEST_F(DocumentTest, CorpusGivesExpectedCodesMessagesAndValues) {
    tola_test::runDocumentCases("documents.txt", false);
}

// n copies of item joined by commas, each "#" replaced by the copy's index (two hex digits).
std::string items(int n, const std::string& item) {
    std::string out;
    for (int i = 0; i < n; ++i) {
        char index[8];
        snprintf(index, sizeof index, "%02x", i);
        std::string one = item;
        for (size_t at; (at = one.find('#')) != std::string::npos;) {
            one.replace(at, 1, index);
        }
        out += (i == 0 ? "" : ",") + one;
    }
    return out;
}

const std::string kMacs = R"({"DeviceMacAddress": "02:00:00:00:00:#"})";

std::string devices(const char* group, int count) {
    return std::string("[{\"") + group + "\": [" + items(count, kMacs) + "]}]";
}

// Members keep the order they are written in: the custom array's count check depends on it.
std::string filtering(bool predefinedOn, int custom, bool customFirst = false) {
    std::string predefined;
    for (const char* name : {"Email", "FTP", "HTTP", "HTTPS", "Telnet"}) {
        predefined += std::string(", \"PortFiltering") + name + "\": " + (predefinedOn ? "true" : "false");
    }
    std::string apps = R"("PortFilteringCustomApplications": [)" +
                       items(custom, R"({"AppName": "app#", "AppEnabled": true, "AppStartPortNumber": 5000,
                                        "AppEndPortNumber": 5000, "AppType": "TCP/UDP"})") +
                       "]";
    std::string group = customFirst ? apps + predefined : predefined.substr(2) + ", " + apps;
    return "[{\"PortFilteringSettings\": {" + group + "}}]";
}

// `dnsAt`: -1 without the predefined DNS service, 0 before the custom array, 1 after it.
std::string forwarding(int custom, int dnsAt = -1) {
    std::string group =
        R"("PortForwardingCustomApplications": [)" +
        items(custom, R"({"AppName": "fwd#", "AppPortType": "Range", "AppIpAddress": "192.168.1.5"})") + "]";
    const std::string dns = R"("PortForwardingDNS": true)";
    group = dnsAt == 0 ? dns + ", " + group : dnsAt == 1 ? group + ", " + dns : group;
    return "[{\"PortForwardingSettings\": {" + group + "}}]";
}

TEST_F(DocumentTest, ListLimits) {
    const char* kBlocked = "Invalid Blocked list devices object mac adress count is exceeded";
    const char* kWhite = "Invalid White list devices object mac adress count is exceeded";
    const char* kFiltering = "Invalid Port filter Object custom applications count is exceeded";
    const char* kForwarding = "Invalid Port forward Object. Custom application count is exceeded.";
    const auto macs = &TOLAAgent::GetMacCount, white = &TOLAAgent::GetWhiteListMacCount,
               filters = &TOLAAgent::GetPortFilteringAppsCount,
               forwards = &TOLAAgent::GetPortForwardingAppsCount;
    struct Case {
        std::string doc;
        int code;
        const char* error;
        int* (TOLAAgent::*count)();
        int stored;  // refused device lists store nothing; refused application lists stay stored
    } cases[] = {
        {devices("BlockedDevices", 99), 0, "", macs, 99},
        {devices("BlockedDevices", 100), 150, kBlocked, macs, 0},
        {devices("WhiteListedDevices", 99), 0, "", white, 99},
        {devices("WhiteListedDevices", 100), 150, kWhite, white, 0},
        {filtering(true, 20), 0, "", filters, 25},
        {filtering(true, 21), 162, kFiltering, filters, 26},
        {filtering(false, 26), 162, kFiltering, filters, 26},
        {filtering(false, 150), 162, kFiltering, filters, 100},
        // The count is checked where the array stands: entries that follow it are not counted.
        {filtering(true, 21, true), 0, "", filters, 26},
        {forwarding(23), 0, "", forwards, 23},
        {forwarding(24), 163, kForwarding, forwards, 24},
        {forwarding(23, 0), 163, kForwarding, forwards, 24},
        {forwarding(23, 1), 0, "", forwards, 24},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.doc.substr(0, 60) + " " + std::to_string(c.doc.size()));
        agent.ResetObjectData();
        agent.ClearErrorMessage();
        ParseResult r = parse(c.doc);
        EXPECT_EQ(r.code, c.code);
        EXPECT_EQ(r.error, c.error);
        EXPECT_EQ(*(agent.*c.count)(), c.stored);
    }
    // The blocked and white-listed devices do not overwrite each other.
    agent.ResetObjectData();
    std::string both = items(99, kMacs);
    ParseResult r = parse("[{\"BlockedDevices\": [" + both + "], \"WhiteListedDevices\": [" + both + "]}]");
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.dump["groups"]["BlockedDevices"].size(), 99u);
    EXPECT_EQ(r.dump["groups"]["WhiteListedDevices"].size(), 99u);
    EXPECT_EQ(r.dump["groups"]["BlockedDevices"][98]["macAddress"], "02:00:00:00:00:62");
}

TEST_F(DocumentTest, SharingFoldersAndReservedAddressesAreBoundedByTheDeviceCapacity) {
    const std::string folder = R"({"FolderName": "#)" + std::string(298, 'f') + "\"}";
    ParseResult r =
        parse(R"([{"VornSharingSettings": {"VornSharingTopLevelFolder": [)" + items(11, folder) + "]}}]");
    EXPECT_EQ(r.code, 164);
    EXPECT_EQ(r.error, "Invalid File sharing settings Object. Top level folder count is exceeded.");
    agent.ResetObjectData();
    r = parse(R"([{"VornSharingSettings": {"VornSharingTopLevelFolder": [)" + items(10, folder) + "]}}]");
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.dump["groups"]["VornSharingSettings"]["folders"].size(), 10u);
    EXPECT_EQ(r.dump["groups"]["VornSharingSettings"]["folders"][0].get<std::string>().size(), 255u);

    auto reserved = [](int n) {
        return R"({"ReservedIpSettings": {"ReservedIpList": [)" +
               items(n, R"({"ReservedIpMAC": "AA:BB:CC:DD:EE:FF", "ReservedIpAddress": "192.168.1.2"})") +
               "]}}";
    };
    EXPECT_EQ(handleReserved(reserved(SYS_DHCP_RESERVATION_MAX + 1)), 121);
    EXPECT_STREQ(agent.GetErrorMessage(), "Invalid Reserved IP settings Object. List count is exceeded.");
    EXPECT_EQ(handleReserved(reserved(SYS_DHCP_RESERVATION_MAX)), 0);
    EXPECT_EQ(*agent.GetReservedAddrListCount(), SYS_DHCP_RESERVATION_MAX);
}

TEST_F(DocumentTest, ListsThatStoreNothingKeepTheirEntriesAndSetNoFlag) {
    agent.ResetObjectData();
    ASSERT_EQ(parse(R"([{"BlockedDevices": [{"DeviceMacAddress": "02:00:00:00:00:01"}],
        "WhiteListedDevices": [{"DeviceMacAddress": "02:00:00:00:00:02"}],
        "PortFilteringSettings": {"PortFilteringCustomApplications": [{"AppName": "a"}]},
        "PortForwardingSettings": {"PortForwardingCustomApplications": [{"AppName": "b"}]},
        "VornSharingSettings": {"VornSharingTopLevelFolder": [{"FolderName": "music"}]}}])")
                  .code,
              0);
    auto lists = [this] {
        json out = json::array();
        for (TolaField group :
             {TolaField::BlockedDevices, TolaField::WhiteListedDevices, TolaField::PortFilteringSettings,
              TolaField::PortForwardingSettings, TolaField::VornSharingSettings}) {
            out.push_back(settings_dump::groupValues(agent, group));
        }
        return out;
    };
    const json before = lists();
    const char* docs[] = {
        R"([{"BlockedDevices": [], "WhiteListedDevices": []}])",
        R"([{"BlockedDevices": [{"MacAddress": "x"}, 7], "WhiteListedDevices": [{}]}])",
        R"([{"PortFilteringSettings": {"PortFilteringCustomApplications": []}}])",
        R"([{"PortFilteringSettings": {"PortFilteringCustomApplications": [{"Name": "x"}, "app"]}}])",
        R"([{"PortForwardingSettings": {"PortForwardingCustomApplications": []}}])",
        R"([{"PortForwardingSettings": {"PortForwardingCustomApplications": [{}, null]}}])",
        R"([{"VornSharingSettings": {"VornSharingTopLevelFolder": []}}])",
        R"([{"VornSharingSettings": {"VornSharingTopLevelFolder": [{"Name": "x"}]}}])",
    };
    for (const char* doc : docs) {
        SCOPED_TRACE(doc);
        agent.ClearPresentFlags();
        ParseResult r = parse(doc);
        EXPECT_EQ(r.code, 0);
        EXPECT_TRUE(r.dump["present"].empty()) << r.dump["present"].dump();
        EXPECT_EQ(lists(), before);
    }
    EXPECT_EQ(*agent.GetMacCount(), 1);
    EXPECT_EQ(*agent.GetPortFilteringAppsCount(), 1);

    // The reserved-address handler, called on its own, follows the same rule.
    *agent.GetReservedAddrListCount() = 2;
    for (const char* text : {R"({"ReservedIpSettings": {"ReservedIpList": []}})",
                             R"({"ReservedIpSettings": {"ReservedIpList": [{"Mac": "x"}]}})"}) {
        SCOPED_TRACE(text);
        agent.ClearPresentFlags();
        EXPECT_EQ(handleReserved(text), 0);
        EXPECT_EQ(*agent.GetReservedAddrListCount(), 2);
        EXPECT_FALSE(agent.IsPresent(TolaField::ReservedIpSettings));
    }
}

// ---- Hostile documents -----------------------------------------------------------------------

TEST_F(DocumentTest, HostileDocumentsTakeTheErrorPath) {
    // Deep nesting is the value-tree builder's (json_tree_test) and malformed input the corpus's.
    std::string longString =
        R"([{"WiFiNetworkSettings": {"WiFiKey": ")" + std::string(1 << 20, 'k') + "\"}}]";
    std::string longAcl =
        R"([{"AccessControlSettings": {")" + std::string(5000, 'n') + R"(": {"Lock": true}}}])";
    EXPECT_EQ(parse(longString).code, 151);
    EXPECT_EQ(parse("[" + std::string(200000, '0').replace(0, 1, "1")).code, 1);  // unterminated
    EXPECT_EQ(parse(json(300, json::object()).dump()).code, 0);                   // 300 empty elements
    EXPECT_EQ(parse(longAcl).code, 0);
    // The ACL entry name is cut to the list's 100 bytes.
    json acl = settings_dump::aclEntries(agent);
    ASSERT_FALSE(acl.empty());
    EXPECT_EQ(acl.back()["name"].get<std::string>().size(), TOLA_ACL_NAME_SIZE);
}

}  // namespace
