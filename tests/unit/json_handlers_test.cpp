// The configuration-document corpus (tests/corpus: documents and expected.json) run through the
// real parser against a simulated device, plus the list limits and generated hostile documents.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
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

class DocumentTest : public ::testing::Test {
protected:
    ParseResult parse(const std::string& text) {
        TOLAJSONParser parser(&agent);
        int code = parser.ProcessJSONData(text);
        json dump = settings_dump::dump(agent);
        dump["acl"] = settings_dump::aclEntries(agent);
        return {code, agent.GetErrorMessage(), dump};
    }
    void SetUp() override { agent.InitializeSharedMemory(); }

    tola_test::TempRoot root;
    TOLAAgent agent;
};

std::string corpusFile(const std::string& name) {
    return tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/" + name);
}

bool hasPresent(const json& dump, const std::string& name) {
    for (const auto& item : dump["present"]) {
        if (item == name) {
            return true;
        }
    }
    return false;
}

TEST_F(DocumentTest, CorpusGivesExpectedCodesMessagesAndValues) {
    json cases = json::parse(corpusFile("expected.json"));
    ASSERT_GT(cases.size(), 40u);
    for (const auto& c : cases) {
        // Each document against a fresh settings object seeded from the factory device.
        tola_test::TempRoot caseRoot;
        TOLAAgent caseAgent;
        caseAgent.InitializeSharedMemory();
        std::string file = c["file"];
        SCOPED_TRACE(file);
        std::string text = corpusFile(file);
        ASSERT_FALSE(text.empty());
        TOLAJSONParser parser(&caseAgent);
        int code = parser.ProcessJSONData(text);
        json dump = settings_dump::dump(caseAgent);
        dump["acl"] = settings_dump::aclEntries(caseAgent);
        EXPECT_EQ(code, c["code"].get<int>());
        if (c.contains("error")) {
            EXPECT_EQ(std::string(caseAgent.GetErrorMessage()), c["error"].get<std::string>());
        }
        if (c.contains("present")) {
            if (c["present"].empty()) {
                EXPECT_TRUE(dump["present"].empty()) << dump["present"].dump();
            }
            for (const auto& name : c["present"]) {
                EXPECT_TRUE(hasPresent(dump, name)) << name;
            }
        }
        json absent = c.value("absent", json::array());
        for (const auto& name : absent) {
            EXPECT_FALSE(hasPresent(dump, name)) << name;
        }
        json values = c.value("values", json::object());
        for (const auto& [pointer, expected] : values.items()) {
            json::json_pointer ptr(pointer);
            ASSERT_TRUE(dump.contains(ptr)) << pointer << " in " << dump.dump();
            EXPECT_EQ(dump[ptr], expected) << pointer;
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

TEST_F(DocumentTest, DeviceListsHoldNinetyNineAndRefuseAHundred) {
    struct Case {
        const char* group;
        int count;
        int code;
        const char* error;
    } cases[] = {
        {"BlockedDevices", 99, 0, ""},
        {"BlockedDevices", 100, 150, "Invalid Blocked list devices object mac adress count is exceeded"},
        {"WhiteListedDevices", 99, 0, ""},
        {"WhiteListedDevices", 100, 150, "Invalid White list devices object mac adress count is exceeded"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.group) + " " + std::to_string(c.count));
        agent.ResetObjectData();
        agent.ClearErrorMessage();
        ParseResult r = parse(devicesDocument(c.group, c.count));
        EXPECT_EQ(r.code, c.code);
        EXPECT_EQ(r.error, c.error);
        int stored = std::string(c.group) == "BlockedDevices" ? *agent.GetMacCount() : *agent.GetWhiteListMacCount();
        EXPECT_EQ(stored, c.code == 0 ? c.count : 0);  // refused before any element is stored
    }
}

TEST_F(DocumentTest, BlockedAndWhiteListedDevicesDoNotOverwriteEachOther) {
    std::string doc =
        json::array({{{"BlockedDevices", json::parse(devicesDocument("x", 99))[0]["x"]},
                      {"WhiteListedDevices", json::parse(devicesDocument("x", 99))[0]["x"]}}})
            .dump();
    ParseResult r = parse(doc);
    ASSERT_EQ(r.code, 0);
    EXPECT_EQ(r.dump["groups"]["BlockedDevices"].size(), 99u);
    EXPECT_EQ(r.dump["groups"]["WhiteListedDevices"].size(), 99u);
    EXPECT_EQ(r.dump["groups"]["BlockedDevices"][98]["macAddress"], "02:00:00:00:00:62");
}

std::string filteringDocument(int predefinedOn, int custom) {
    static const char* kPredefined[] = {"PortFilteringEmail", "PortFilteringFTP", "PortFilteringHTTP",
                                        "PortFilteringHTTPS", "PortFilteringTelnet"};
    json group = json::object();
    for (int i = 0; i < 5; ++i) {
        group[kPredefined[i]] = i < predefinedOn;
    }
    json apps = json::array();
    for (int i = 0; i < custom; ++i) {
        apps.push_back({{"AppName", "app" + std::to_string(i)},
                        {"AppEnabled", true},
                        {"AppStartPortNumber", 5000 + i},
                        {"AppEndPortNumber", 5000 + i},
                        {"AppType", "TCP/UDP"}});
    }
    group["PortFilteringCustomApplications"] = apps;
    return json::array({{{"PortFilteringSettings", group}}}).dump();
}

std::string forwardingDocument(int custom) {
    json apps = json::array();
    for (int i = 0; i < custom; ++i) {
        apps.push_back({{"AppName", "fwd" + std::to_string(i)}, {"AppPortType", "Range"}, {"AppIpAddress", "192.168.1.5"}});
    }
    return json::array({{{"PortForwardingSettings", {{"PortForwardingCustomApplications", apps}}}}}).dump();
}

TEST_F(DocumentTest, ApplicationListsCountThePredefinedOnes) {
    struct Case {
        std::string doc;
        int code;
        int stored;
        const char* error;
    } cases[] = {
        {filteringDocument(5, 20), 0, 25, ""},
        {filteringDocument(5, 21), 162, 26, "Invalid Port filter Object custom applications count is exceeded"},
        {filteringDocument(0, 26), 162, 26, "Invalid Port filter Object custom applications count is exceeded"},
        {filteringDocument(0, 150), 162, 100, "Invalid Port filter Object custom applications count is exceeded"},
        {forwardingDocument(23), 0, 23, ""},
        {forwardingDocument(24), 163, 24, "Invalid Port forward Object. Custom application count is exceeded."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.doc.substr(0, 60));
        agent.ResetObjectData();
        agent.ClearErrorMessage();
        ParseResult r = parse(c.doc);
        EXPECT_EQ(r.code, c.code);
        EXPECT_EQ(r.error, c.error);
        bool filtering = c.doc.find("PortFilteringSettings") != std::string::npos;
        int stored = filtering ? *agent.GetPortFilteringAppsCount() : *agent.GetPortForwardingAppsCount();
        EXPECT_EQ(stored, c.stored);  // refused lists stay stored
    }
}

TEST_F(DocumentTest, SharingFoldersAreBoundedByTheDeviceCapacity) {
    for (int count : {10, 11}) {
        json folders = json::array();
        for (int i = 0; i < count; ++i) {
            folders.push_back({{"FolderName", std::string(300, 'a' + i)}});
        }
        agent.ResetObjectData();
        ParseResult r = parse(json::array({{{"VornSharingSettings", {{"VornSharingTopLevelFolder", folders}}}}}).dump());
        if (count == 10) {
            ASSERT_EQ(r.code, 0);
            EXPECT_EQ(r.dump["groups"]["VornSharingSettings"]["folders"].size(), 10u);
            EXPECT_EQ(r.dump["groups"]["VornSharingSettings"]["folders"][0].get<std::string>().size(), 255u);
        } else {
            EXPECT_EQ(r.code, 164);
            EXPECT_EQ(r.error, "Invalid File sharing settings Object. Top level folder count is exceeded.");
        }
    }
}

TEST_F(DocumentTest, ReservedAddressHandlerRefusesMoreThanItsCapacity) {
    json list = json::array();
    for (int i = 0; i < SYS_DHCP_RESERVATION_MAX + 1; ++i) {
        list.push_back({{"ReservedIpMAC", "AA:BB:CC:DD:EE:FF"}, {"ReservedIpAddress", "192.168.1.2"}});
    }
    yajl_val element = tola_tree_parse(json({{"ReservedIpSettings", {{"ReservedIpList", list}}}}).dump());
    context_t ctx{};
    ctx.agent = &agent;
    EXPECT_EQ(handleReservedIpSettingsInfo(element, &ctx), 121);
    EXPECT_STREQ(agent.GetErrorMessage(), "Invalid Reserved IP settings Object. List count is exceeded.");
    tola_tree_free(element);

    list.erase(list.begin());
    element = tola_tree_parse(json({{"ReservedIpSettings", {{"ReservedIpList", list}}}}).dump());
    EXPECT_EQ(handleReservedIpSettingsInfo(element, &ctx), 0);
    EXPECT_EQ(*agent.GetReservedAddrListCount(), SYS_DHCP_RESERVATION_MAX);
    tola_tree_free(element);
}

TEST_F(DocumentTest, AGroupWhoseDeviceValueIsMissingSkipsThatKey) {
    // The device cannot give the LED setting: the key is ignored, even with a wrong kind.
    ardo::deviceStateSet("/faults/sys_getLEDEnabled", 3);
    ParseResult r = parse(R"([{"DevicePreferences": {"LEDEnabled": "bad", "StealthModeEnabled": true}}])");
    EXPECT_EQ(r.code, 0);
    EXPECT_FALSE(hasPresent(r.dump, "DevicePreferences.LEDEnabled"));
    EXPECT_TRUE(hasPresent(r.dump, "DevicePreferences.StealthModeEnabled"));
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
    std::string longString = R"([{"WiFiNetworkSettings": {"WiFiKey": ")" + std::string(1 << 20, 'k') + "\"}}]";
    std::string longAcl = R"([{"AccessControlSettings": {")" + std::string(5000, 'n') + R"(": {"Lock": true}}}])";
    std::string longArray = "[" + std::string(200000, '0').replace(0, 1, "1");
    json many = json::array();
    for (int i = 0; i < 300; ++i) {
        many.push_back(json::object());
    }
    struct Case {
        const char* name;
        const std::string& doc;
        int code;
    } cases[] = {
        {"deep arrays", deepArrays, 0},
        {"deep objects", deepObjects, 0},
        {"deep unclosed", deepUnclosed, 1},
        {"long string", longString, 151},
        {"long ACL name", longAcl, 0},
        {"unterminated long array", longArray, 1},
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
