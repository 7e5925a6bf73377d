// Each flow runs once on a good device, then again for every platform call its journal shows,
// with that occurrence failing with each result in kResults. The flow must come back, the failure
// must have been met, and the stored record must read back whole at the next start.
#include <cstdio>
#include <functional>
#include <map>

#include "app_fixture.h"
#include "canned_http.h"
#include "private_bus.h"

using ardo::json;

namespace {

const int kResults[] = {1, -1};

using tola_test::Sms;

struct Flow {
    const char* name;
    std::function<void(TOLAApp&, const std::string& portalUrl)> run;
};

// One device per run: its own root, config.xml read, agent state initialised, portal URL stored.
class Device : public tola_test::AppTest {
  public:
    Device(const json& faults, const std::string& url) {
        if (!faults.empty()) {
            ardo::deviceStateSet("/faults", faults);
        }
        Start();
        Activate(url);
        root.remove("/var/lib/ardo/calls.jsonl");
    }
    ~Device() override { vorn_dbg_stop(); }
    void TestBody() override {}

    // The calls of the run so far, with their results.
    std::vector<std::pair<std::string, int>> Calls() const {
        std::vector<std::pair<std::string, int>> calls;
        for (const json& line : JournalLines()) {
            calls.emplace_back(line.value("call", ""), line.value("result", 0));
        }
        return calls;
    }
    // Ends the app and reads the stored record again as a new start does: true when it was whole.
    bool RecordReadsBack() {
        app->Agent().Uninitialize();
        app.reset();
        size_t before = Log().size();
        TOLAAgent again;
        again.Initialize();
        again.Uninitialize();
        return !root.readFile("/opt/ardo/data/tola/acl_config.xml").empty() &&
               Log().find("looks like file got corrupted", before) == std::string::npos;
    }
    TOLAApp& App() { return *app; }
};

TEST(FaultSweep, EveryPlatformCallOfEveryFlowMayFail) {
    tola_test::PrivateBus bus;
    tola_test::CannedHttpServer portal({R"({"ResultCode":1,"Version":"7"})"});
    // Every group but file sharing and port forwarding, whose checks depend on the device's disk
    // and address ranges, with a guest key the device accepts: the document is applied, so that
    // every setter is swept.
    json groups =
        json::parse(tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/full_valid.json"),
                    nullptr, false, true);
    ASSERT_TRUE(groups.is_array());
    for (json& element : groups) {
        element.erase("VornSharingSettings");
        element.erase("PortForwardingSettings");
        if (element.contains("WiFiGuestNetworkSettings")) {
            element["WiFiGuestNetworkSettings"]["WiFiGuestKey"] = "guest-key-1";
        }
    }
    const std::string document = groups.dump();

    const Flow flows[] = {
        {"check-in", [](TOLAApp& app, const std::string&) { app.PerformCheckIn(); }},
        {"document",
         [&](TOLAApp& app, const std::string&) {
             std::string message;
             app.Agent().ProcessResponse(document, message);
         }},
        {"sms 101", [](TOLAApp& app, const std::string&) { app.HandleSmsCommand(Sms("<101>swept-key")); }},
        {"sms 102",
         [](TOLAApp& app, const std::string& url) { app.HandleSmsCommand(Sms("<102>" + url + "/next")); }},
        {"sms 150", [](TOLAApp& app, const std::string&) { app.HandleSmsCommand(Sms("<150>apn.swept")); }},
        {"sms 200 1", [](TOLAApp& app, const std::string&) { app.HandleSmsCommand(Sms("<200>1")); }},
        {"sms 200 0", [](TOLAApp& app, const std::string&) { app.HandleSmsCommand(Sms("<200>0")); }},
    };

    int swept = 0;
    for (const Flow& flow : flows) {
        SCOPED_TRACE(flow.name);
        std::vector<std::pair<std::string, int>> good;
        {
            Device device(json::object(), portal.url());
            flow.run(device.App(), portal.url());
            good = device.Calls();
            // SMS 101 and 102 only change the stored record; every other flow calls the platform.
            EXPECT_TRUE(!good.empty() || std::string(flow.name).rfind("sms 10", 0) == 0);
            ASSERT_TRUE(device.RecordReadsBack());
        }
        std::map<std::string, int> seen;
        for (const auto& [call, result] : good) {
            int occurrence = seen[call]++;
            for (int failure : kResults) {
                SCOPED_TRACE(call + " #" + std::to_string(occurrence) + " -> " + std::to_string(failure));
                // The calls before this one answer 0 (they succeed, changing nothing); this one fails.
                json script = std::vector<int>(occurrence, 0);
                script.push_back(failure);
                Device device(json{{call, script}}, portal.url());
                flow.run(device.App(), portal.url());
                bool met = false;
                for (const auto& [name, rc] : device.Calls()) {
                    met = met || (name == call && rc == failure);
                }
                EXPECT_TRUE(met) << "the scripted failure was not reached";
                EXPECT_TRUE(device.RecordReadsBack());
                ++swept;
            }
        }
    }
    std::printf("fault sweep: %d runs with one failing call\n", swept);
    EXPECT_GT(swept, 0);
}

}  // namespace
