// Validation of a parsed configuration document against the simulated device. The cases
// (corpus/cases/validate.txt) give a document, a change of the device state (scripted faults
// included) and the code, user text and, where it tells, the log line and values that follow.
#include <gtest/gtest.h>

#include <string>

#include "device_state.h"
#include "document_cases.h"

namespace {

using nlohmann::json;

// Parses and validates a document on a fresh device; the code of the first step that refuses.
int run(TOLAAgent& agent, const std::string& doc) {
    TOLAJSONParser parser(&agent);
    int code = parser.ProcessJSONData(doc);
    return code != 0 ? code : agent.ValidateObjectParameters();
}

class ValidateTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vorn_dbg_stop();
        vorn_dbg_start();
    }
    void TearDown() override { vorn_dbg_stop(); }

    tola_test::TempRoot root{true};
};

TEST_F(ValidateTest, DocumentsGiveTheirCodeAndText) {
    tola_test::runDocumentCases("validate.txt", true);
}

// A settings object whose folder capacity cannot be had: resetting it fails with 200.
class NoFolderCountAgent : public TOLAAgent {
  public:
    int* GetSambaFolderNamesCount() override { return nullptr; }
};

TEST_F(ValidateTest, AFailingResetMasksTheValidationCode) {
    NoFolderCountAgent agent;
    EXPECT_EQ(run(agent, R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])"), 200);
    EXPECT_STREQ(agent.GetErrorMessage(), "Reset Data - Received NULL pointer for samba folder count");
    NoFolderCountAgent passing;
    EXPECT_EQ(run(passing, R"([{"LANSettings": {"DHCPLeaseTime": 60}}])"), 0);
}

TEST_F(ValidateTest, BlockedDevicesAreForgottenOnceTheDocumentIsAccepted) {
    std::string blocked = R"({"BlockedDevices": [{"DeviceMacAddress": "3C-22-FB-10-20-30"},
                                                 {"DeviceMacAddress": "02:00:00:00:00:01"}]})";
    TOLAAgent refused;
    EXPECT_EQ(run(refused, "[" + blocked + R"(, {"LANSettings": {"DHCPLeaseTime": 0}}])"), 158);
    EXPECT_EQ(root.readFile("/var/lib/ardo/calls.jsonl"), "");

    TOLAAgent dryRun;
    dryRun.SetValidationDryRun(true);
    EXPECT_EQ(run(dryRun, "[" + blocked + "]"), 0);
    EXPECT_EQ(root.readFile("/var/lib/ardo/calls.jsonl"), "");

    TOLAAgent agent;
    ASSERT_EQ(run(agent, "[" + blocked + "]"), 0);
    sys_known_device_t known[SYS_KNOWN_DEVICES_MAX];
    int count = -1;
    ASSERT_EQ(sys_getAllDevicesList(known, SYS_KNOWN_DEVICES_MAX, &count), 0);
    ASSERT_EQ(count, 3);
    for (int i = 0; i < count; ++i) {
        EXPECT_STRNE(known[i].macAddress, "3c:22:fb:10:20:30");
    }
    json line = json::parse(root.readFile("/var/lib/ardo/calls.jsonl"));
    EXPECT_EQ(line["call"], "sys_deleteKnownDevice");
    EXPECT_EQ(line["args"]["macAddress"], "3c:22:fb:10:20:30");
    EXPECT_EQ(line["result"], 0);
}

}  // namespace
