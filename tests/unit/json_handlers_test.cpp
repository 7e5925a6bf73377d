// The configuration-document corpus (tests/corpus: documents and expected.json) run through the
// real parser against a simulated device, plus the list limits and generated hostile documents.
// Among the corpus cases: a number with a fraction or an exponent is no integer; its integer is
// the saturated one (towards its sign), never the digits before the point, stored clamped to int.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>

#include "../../tools/devicectl/settings_dump.h"
#include "device_state.h"
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
    // The reserved-address handler on its own (documents do not reach it).
    int handleReserved(const std::string& element) {
        yajl_val tree = tola_tree_parse(element);
        context_t ctx{};
        ctx.agent = &agent;
        int rc = handleReservedIpSettingsInfo(tree, &ctx);
        tola_tree_free(tree);
        return rc;
    }
    void SetUp() override { agent.InitializeSharedMemory(); }

    tola_test::TempRoot root;
    TOLAAgent agent;
};

std::string corpusFile(const std::string& name) {
    return tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/" + name);
}

bool hasPresent(const json& dump, const std::string& name) {
    const json& present = dump["present"];
    return std::find(present.begin(), present.end(), name) != present.end();
}

TEST_F(DocumentTest, CorpusGivesExpectedCodesMessagesAndValues) {
    json cases = json::parse(corpusFile("expected.json"));
    ASSERT_GT(cases.size(), 40u);
    for (const auto& c : cases) {
        // Each document against a fresh settings object seeded from the factory device.
        tola_test::TempRoot caseRoot;
        TOLAAgent caseAgent;
        caseAgent.InitializeSharedMemory();  // and never reset: as a freshly started agent meets it
        std::string text = c.contains("doc") ? c["doc"].get<std::string>() : corpusFile(c["file"]);
        SCOPED_TRACE(c.value("file", text));
        ASSERT_FALSE(text.empty());
        json state = c.value("state", json::object());
        for (const auto& [pointer, value] : state.items()) {
            ardo::deviceStateSet(pointer, value);
        }
        ParseResult r = parseWith(caseAgent, text);
        EXPECT_EQ(r.code, c["code"].get<int>());
        EXPECT_EQ(r.error, c.value("error", r.error));
        if (c.contains("present") && c["present"].empty()) {
            EXPECT_TRUE(r.dump["present"].empty()) << r.dump["present"].dump();
        }
        for (const auto& name : c.value("present", json::array())) {
            EXPECT_TRUE(hasPresent(r.dump, name)) << name;
        }
        for (const auto& name : c.value("absent", json::array())) {
            EXPECT_FALSE(hasPresent(r.dump, name)) << name;
        }
        json values = c.value("values", json::object());
        for (const auto& [pointer, expected] : values.items()) {
            json::json_pointer ptr(pointer);
            ASSERT_TRUE(r.dump.contains(ptr)) << pointer << " in " << r.dump.dump();
            EXPECT_EQ(r.dump[ptr], expected) << pointer;
        }
    }
}

// ---- Limits ----------------------------------------------------------------------------------

std::string devicesDocument(const char* group, int count) {
    json list = json::array();
    for (int i = 0; i < count; ++i) {
        char mac[32];
        snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", i / 256, i % 256);
        list.push_back({{"DeviceMacAddress", mac}});
    }
    return json::array({{{group, list}}}).dump();
}

TEST_F(DocumentTest, BlockedAndWhiteListedDevicesDoNotOverwriteEachOther) {
    json list = json::parse(devicesDocument("x", 99))[0]["x"];
    ParseResult r = parse(json::array({{{"BlockedDevices", list}, {"WhiteListedDevices", list}}}).dump());
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.dump["groups"]["BlockedDevices"].size(), 99u);
    EXPECT_EQ(r.dump["groups"]["WhiteListedDevices"].size(), 99u);
    EXPECT_EQ(r.dump["groups"]["BlockedDevices"][98]["macAddress"], "02:00:00:00:00:62");
}

// Members keep the order they are written in: the custom array's count check depends on it.
using ordered = nlohmann::ordered_json;

std::string filteringDocument(int predefinedOn, int custom, bool customFirst = false) {
    static const char* kPredefined[] = {"PortFilteringEmail", "PortFilteringFTP", "PortFilteringHTTP",
                                        "PortFilteringHTTPS", "PortFilteringTelnet"};
    ordered apps = ordered::array();
    for (int i = 0; i < custom; ++i) {
        apps.push_back({{"AppName", "app" + std::to_string(i)},
                        {"AppEnabled", true},
                        {"AppStartPortNumber", 5000 + i},
                        {"AppEndPortNumber", 5000 + i},
                        {"AppType", "TCP/UDP"}});
    }
    ordered group = ordered::object();
    if (customFirst) {
        group["PortFilteringCustomApplications"] = apps;
    }
    for (int i = 0; i < 5; ++i) {
        group[kPredefined[i]] = i < predefinedOn;
    }
    if (!customFirst) {
        group["PortFilteringCustomApplications"] = apps;
    }
    return ordered::array({{{"PortFilteringSettings", group}}}).dump();
}

// `dnsAt`: -1 without the predefined DNS service, 0 before the custom array, 1 after it.
std::string forwardingDocument(int custom, int dnsAt = -1) {
    ordered apps = ordered::array();
    for (int i = 0; i < custom; ++i) {
        apps.push_back({{"AppName", "fwd" + std::to_string(i)},
                        {"AppPortType", "Range"},
                        {"AppIpAddress", "192.168.1.5"}});
    }
    ordered group = ordered::object();
    if (dnsAt == 0) {
        group["PortForwardingDNS"] = true;
    }
    group["PortForwardingCustomApplications"] = apps;
    if (dnsAt == 1) {
        group["PortForwardingDNS"] = true;
    }
    return ordered::array({{{"PortForwardingSettings", group}}}).dump();
}

TEST_F(DocumentTest, ListLimits) {
    const char* kBlocked = "Invalid Blocked list devices object mac adress count is exceeded";
    const char* kWhite = "Invalid White list devices object mac adress count is exceeded";
    const char* kFiltering = "Invalid Port filter Object custom applications count is exceeded";
    const char* kForwarding = "Invalid Port forward Object. Custom application count is exceeded.";
    struct Case {
        std::string doc;
        int code;
        const char* error;
        int* (TOLAAgent::*count)();
        int stored;  // refused device lists store nothing; refused application lists stay stored
    } cases[] = {
        {devicesDocument("BlockedDevices", 99), 0, "", &TOLAAgent::GetMacCount, 99},
        {devicesDocument("BlockedDevices", 100), 150, kBlocked, &TOLAAgent::GetMacCount, 0},
        {devicesDocument("WhiteListedDevices", 99), 0, "", &TOLAAgent::GetWhiteListMacCount, 99},
        {devicesDocument("WhiteListedDevices", 100), 150, kWhite, &TOLAAgent::GetWhiteListMacCount, 0},
        {filteringDocument(5, 20), 0, "", &TOLAAgent::GetPortFilteringAppsCount, 25},
        {filteringDocument(5, 21), 162, kFiltering, &TOLAAgent::GetPortFilteringAppsCount, 26},
        {filteringDocument(0, 26), 162, kFiltering, &TOLAAgent::GetPortFilteringAppsCount, 26},
        {filteringDocument(0, 150), 162, kFiltering, &TOLAAgent::GetPortFilteringAppsCount, 100},
        // The count is checked where the array stands: entries that follow it are not counted.
        {filteringDocument(5, 21, true), 0, "", &TOLAAgent::GetPortFilteringAppsCount, 26},
        {forwardingDocument(23), 0, "", &TOLAAgent::GetPortForwardingAppsCount, 23},
        {forwardingDocument(24), 163, kForwarding, &TOLAAgent::GetPortForwardingAppsCount, 24},
        {forwardingDocument(23, 0), 163, kForwarding, &TOLAAgent::GetPortForwardingAppsCount, 24},
        {forwardingDocument(23, 1), 0, "", &TOLAAgent::GetPortForwardingAppsCount, 24},
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
}

TEST_F(DocumentTest, SharingFoldersAreBoundedByTheDeviceCapacity) {
    auto sharing = [](const json& folders) {
        return json::array({{{"VornSharingSettings", {{"VornSharingTopLevelFolder", folders}}}}}).dump();
    };
    const char* kExceeded = "Invalid File sharing settings Object. Top level folder count is exceeded.";
    json folders = json::array();
    for (int i = 0; i < 11; ++i) {
        folders.push_back({{"FolderName", std::string(300, 'a' + i)}});
    }
    ParseResult r = parse(sharing(folders));
    EXPECT_EQ(r.code, 164);
    EXPECT_EQ(r.error, kExceeded);
    folders.erase(folders.end() - 1);
    agent.ResetObjectData();
    r = parse(sharing(folders));
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.dump["groups"]["VornSharingSettings"]["folders"].size(), 10u);
    EXPECT_EQ(r.dump["groups"]["VornSharingSettings"]["folders"][0].get<std::string>().size(), 255u);
}

TEST_F(DocumentTest, ReservedAddressHandlerRefusesMoreThanItsCapacity) {
    json list = json::array();
    for (int i = 0; i < SYS_DHCP_RESERVATION_MAX + 1; ++i) {
        list.push_back({{"ReservedIpMAC", "AA:BB:CC:DD:EE:FF"}, {"ReservedIpAddress", "192.168.1.2"}});
    }
    EXPECT_EQ(handleReserved(json({{"ReservedIpSettings", {{"ReservedIpList", list}}}}).dump()), 121);
    EXPECT_STREQ(agent.GetErrorMessage(), "Invalid Reserved IP settings Object. List count is exceeded.");
    list.erase(list.begin());
    EXPECT_EQ(handleReserved(json({{"ReservedIpSettings", {{"ReservedIpList", list}}}}).dump()), 0);
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
    const int depth = 20000;
    std::string deepArrays = std::string(depth, '[') + std::string(depth, ']');
    std::string deepObjects;
    for (int i = 0; i < depth; ++i) {
        deepObjects += "{\"a\":";
    }
    deepObjects = "[" + deepObjects + "1" + std::string(depth, '}') + "]";
    std::string deepUnclosed = "[" + std::string(depth, '{');
    std::string longString =
        R"([{"WiFiNetworkSettings": {"WiFiKey": ")" + std::string(1 << 20, 'k') + "\"}}]";
    std::string longAcl =
        R"([{"AccessControlSettings": {")" + std::string(5000, 'n') + R"(": {"Lock": true}}}])";
    std::string longArray = "[" + std::string(200000, '0').replace(0, 1, "1");
    json many(300, json::object());  // an array of 300 empty elements
    struct Case {
        const char* name;
        const std::string& doc;
        int code;
    } cases[] = {
        // Nesting past the builder's bound is malformed input.
        {"deep arrays", deepArrays, 1},     {"deep objects", deepObjects, 1},
        {"deep unclosed", deepUnclosed, 1}, {"long string", longString, 151},
        {"long ACL name", longAcl, 0},      {"unterminated long array", longArray, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(parse(c.doc).code, c.code);
    }
    EXPECT_EQ(parse(many.dump()).code, 0);
    // The ACL entry name is cut to the list's 100 bytes.
    json acl = settings_dump::aclEntries(agent);
    ASSERT_FALSE(acl.empty());
    EXPECT_EQ(acl.back()["name"].get<std::string>().size(), TOLA_ACL_NAME_SIZE);
}

}  // namespace
