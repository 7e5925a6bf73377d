// Applying an accepted document: the publication before any setter, the fixed order of the
// setters, leniency towards failing setters, modem and Wi-Fi profiles (cases in
// corpus/cases/apply.txt), and what a refused document leaves alone. The calls are read from the
// device's journal (calls.jsonl).
#include <sys/stat.h>

#include <map>

#include "app_fixture.h"
#include "bus_recorder.h"
#include "case_rows.h"
#include "msgbus_handler.h"
#include "private_bus.h"

using ardo::json;

namespace {

// Every group the apply steps know, with values that every validator accepts on the factory
// device (LAN unchanged, addresses inside it, sharing off on the device).
std::string wideDocument() {
    return tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/apply_wide.json");
}

class ApplyTest : public tola_test::RootTest {
  protected:
    void SetUp() override {
        RootTest::SetUp();
        agent = std::make_unique<TOLAAgent>();
        ASSERT_EQ(agent->Initialize(), 0);
        root.remove("/var/lib/ardo/calls.jsonl");
    }
    void TearDown() override {
        agent.reset();
        RootTest::TearDown();
    }

    int Apply(const std::string& document) {
        lastMessage.clear();
        return agent->ProcessResponse(document, lastMessage);
    }
    std::vector<std::string> Calls() const {
        std::vector<std::string> names;
        for (const json& line : JournalLines()) {
            names.push_back(line["call"].get<std::string>());
        }
        return names;
    }

    tola_test::PrivateBus bus;
    std::unique_ptr<TOLAAgent> agent;
    std::string lastMessage;
};

TEST_F(ApplyTest, PublicationFirstThenTheSettersInTheirFixedOrder) {
    ASSERT_EQ(Apply(wideDocument()), 0);
    EXPECT_EQ(lastMessage, "");
    std::vector<std::string> expected = {"MsgbusHandler::PublishData"};
    for (const tola_test::CaseRow& row : tola_test::readCaseRows("apply.txt", "order")) {
        std::istringstream calls(row[0]);
        for (std::string call; calls >> call;) {
            expected.push_back(call);
        }
    }
    EXPECT_EQ(Calls(), expected);
    EXPECT_NE(root.readFile("/opt/ardo/data/tola/acl_config.xml").find("WiFiSSID"), std::string::npos);
}

TEST_F(ApplyTest, OtherProcessesHearOfAnAcceptedDocumentOnly) {
    tola_test::BusRecorder listener;  // another process of the device
    MsgbusHandler subscriber(&listener);
    ASSERT_EQ(subscriber.Initialize(), 0);
    ASSERT_EQ(subscriber.RegisterForChannelSubscription(TOLA_CHANNEL_ACL, true), 0);
    EXPECT_NE(Apply(R"([{"LANSettings": {"DHCPLeaseTime": "long"}}])"), 0);
    EXPECT_EQ(Apply(R"([{"DevicePreferences": {"LEDEnabled": false}}])"), 0);
    ASSERT_TRUE(listener.waitFor(TOLA_CHANNEL_ACL));
    EXPECT_EQ(listener.received(), std::vector<std::string>{"ardo.tola.acl=int:1"});
    subscriber.Uninitialize();
}

// Each case on a fresh device: what the setters were called, the device holds and the log says.
TEST_F(ApplyTest, DocumentsLeaveTheirCallsValuesAndLogs) {
    for (const tola_test::CaseRow& c : tola_test::readCaseRows("apply.txt", "apply")) {
        SCOPED_TRACE(c.where);
        for (const char* file :
             {"/var/lib/ardo/device.json", "/var/lib/ardo/calls.jsonl", "/var/log/tola.log"}) {
            root.remove(file);
        }
        vorn_dbg_stop();  // the log reopens, new, at its next line
        ardo::deviceStateUpdate([&](json& state) { state.merge_patch(json::parse(c[0])); });
        agent = std::make_unique<TOLAAgent>();
        agent->Initialize();
        const std::string acl = root.readFile("/opt/ardo/data/tola/acl_config.xml");
        EXPECT_EQ(Apply(c[1] == "wide" ? wideDocument() : c[1]), c.num(2));
        if (c.num(2) != 0) {  // a refused document changes nothing, not even the access control
            EXPECT_EQ(root.readFile("/opt/ardo/data/tola/acl_config.xml"), acl);
        }
        EXPECT_EQ(lastMessage, c[3]);
        std::vector<json> journal = JournalLines();
        std::map<std::string, size_t> counts;
        std::string profiles;  // type:index of each modem profile set, in order
        for (const json& line : journal) {
            ++counts[line["call"].get<std::string>()];
            if (line["call"] == "sys_setModemProfile") {
                profiles += (profiles.empty() ? "" : ",") + line["args"]["type"].dump() + ":" +
                            line["args"]["index"].dump();
            }
        }
        std::istringstream checks(c[4]);
        for (std::string check; checks >> check;) {
            std::string name = check.substr(0, check.find('='));
            std::string got = name == "profiles"
                                  ? profiles
                                  : std::to_string(name == "calls" ? journal.size() : counts[name]);
            EXPECT_EQ(name + "=" + got, check);
        }
        json values = c[5].empty() ? json::object() : json::parse(c[5]);
        json device = ardo::deviceStateRead();
        for (const auto& [pointer, value] : values.items()) {
            EXPECT_EQ(device.value(json::json_pointer(pointer), json()), value) << pointer;
        }
        for (size_t i = 6; i < c.cols.size(); ++i) {
            bool absent = c[i][0] == '!';
            EXPECT_EQ(Log().find(c[i].substr(absent ? 1 : 0)) == std::string::npos, absent) << c[i];
        }
    }
}

// Without access-control entries the ACL file is not even replaced by an equal copy.
TEST_F(ApplyTest, AfterARefusedDocumentTheNextStartsFromTheDevice) {
    const std::string acl = "/opt/ardo/data/tola/acl_config.xml";
    std::string before = root.readFile(acl);
    ASSERT_FALSE(before.empty());
    struct stat was {};
    ASSERT_EQ(stat(root.path(acl).c_str(), &was), 0);
    ASSERT_EQ(Apply(R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"},
                          "WiFiNetworkSettings": {"WiFiSSID": "Refused-SSID"}}])"),
              158);
    EXPECT_EQ(Apply(R"([{"LANSettings": {"DHCPLeaseTime": 600},
                          "WiFiNetworkSettings": {"WiFiKey": "another-key"}}])"),
              0);
    EXPECT_EQ(ardo::deviceStateRead()["settings"]["lan"]["ipAddress"], "192.168.1.1");
    EXPECT_EQ(ardo::deviceStateRead()["settings"]["wifiPrimaryProfile"]["ssid"], "Ardo-Hotspot-1234");
    std::vector<std::string> calls = Calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "sys_setLANSettings"), 1);
    struct stat now {};
    ASSERT_EQ(stat(root.path(acl).c_str(), &now), 0);
    EXPECT_EQ(root.readFile(acl), before);
    EXPECT_EQ(now.st_ino, was.st_ino);
    EXPECT_EQ(now.st_mtim.tv_nsec, was.st_mtim.tv_nsec);
}

}  // namespace
