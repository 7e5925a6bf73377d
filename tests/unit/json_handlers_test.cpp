// The configuration-document corpus (corpus/cases/documents.txt and the documents it names) run
// through the real parser against a simulated device, plus lists that store nothing and generated
// hostile documents.
#include <gtest/gtest.h>

#include <string>

#include "../../tools/devicectl/settings_dump.h"
#include "device_state.h"
#include "document_cases.h"
#include "test_env.h"
#include "tola_agent.h"
#include "tola_json_parser.h"

namespace {

using nlohmann::json;

class DocumentTest : public ::testing::Test {
  protected:
    int parse(const std::string& text) {
        TOLAJSONParser parser(&agent);
        return parser.ProcessJSONData(text);
    }
    void SetUp() override { agent.InitializeSharedMemory(); }

    tola_test::TempRoot root;
    TOLAAgent agent;
};

TEST_F(DocumentTest, CorpusGivesExpectedCodesMessagesAndValues) {
    tola_test::runDocumentCases("documents.txt", false);
}

TEST_F(DocumentTest, ListsThatStoreNothingKeepTheirEntriesAndSetNoFlag) {
    agent.ResetObjectData();
    ASSERT_EQ(parse(R"([{"BlockedDevices": [{"DeviceMacAddress": "02:00:00:00:00:01"}],
        "WhiteListedDevices": [{"DeviceMacAddress": "02:00:00:00:00:02"}],
        "PortFilteringSettings": {"PortFilteringCustomApplications": [{"AppName": "a"}]},
        "PortForwardingSettings": {"PortForwardingCustomApplications": [{"AppName": "b"}]},
        "VornSharingSettings": {"VornSharingTopLevelFolder": [{"FolderName": "music"}]}}])"),
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
        EXPECT_EQ(parse(doc), 0);
        EXPECT_EQ(settings_dump::dump(agent)["present"], json::array());
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
        EXPECT_EQ(tola_test::handleReserved(agent, text), 0);
        EXPECT_EQ(*agent.GetReservedAddrListCount(), 2);
        EXPECT_FALSE(agent.IsPresent(TolaField::ReservedIpSettings));
    }
}

TEST_F(DocumentTest, HostileDocumentsTakeTheErrorPath) {
    // Deep nesting is the value-tree builder's (json_tree_test) and malformed input the corpus's.
    std::string longString =
        R"([{"WiFiNetworkSettings": {"WiFiKey": ")" + std::string(1 << 20, 'k') + "\"}}]";
    std::string longAcl =
        R"([{"AccessControlSettings": {")" + std::string(5000, 'n') + R"(": {"Lock": true}}}])";
    EXPECT_EQ(parse(longString), 151);
    EXPECT_EQ(parse("[" + std::string(200000, '0').replace(0, 1, "1")), 1);  // unterminated
    EXPECT_EQ(parse(json(300, json::object()).dump()), 0);                   // 300 empty elements
    EXPECT_EQ(parse(longAcl), 0);
    // The ACL entry name is cut to the list's 100 bytes.
    json acl = settings_dump::aclEntries(agent);
    ASSERT_FALSE(acl.empty());
    EXPECT_EQ(acl.back()["name"].get<std::string>().size(), TOLA_ACL_NAME_SIZE);
}

}  // namespace
