// The configuration-document corpus (corpus/cases/documents.txt and the documents it names) run
// through the real parser against a simulated device, and generated hostile documents.
#include <gtest/gtest.h>

#include <string>

#include "document_cases.h"

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

// The reserved-address handler, called on its own, keeps what it held before a list that stores
// nothing (the corpus covers the document's lists).
TEST_F(DocumentTest, ReservedListsThatStoreNothingKeepTheirEntries) {
    *agent.GetReservedAddrListCount() = 2;
    for (const char* text : {R"({"ReservedIpSettings": {"ReservedIpList": []}})",
                             R"({"ReservedIpSettings": {"ReservedIpList": [{"Mac": "x"}]}})"}) {
        EXPECT_EQ(tola_test::handleReserved(agent, text), 0) << text;
        EXPECT_EQ(*agent.GetReservedAddrListCount(), 2) << text;
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
