// Each flow runs once on a good device, then again for every platform call its journal shows,
// with that occurrence failing with 1 and with -1. The flow must come back, the failure
// must have been met, and the stored record must read back whole at the next start.
#include <map>

#include "app_fixture.h"
#include "canned_http.h"
#include "private_bus.h"

using ardo::json;

namespace {

// One device per run: its own root, config.xml read, agent state initialised, portal URL stored.
class Device : public tola_test::AppTest {
  public:
    Device(const json& faults, const std::string& url) {
        ardo::deviceStateSet("/faults", faults);
        Start();
        Activate(url);
        root.remove("/var/lib/ardo/calls.jsonl");
    }
    ~Device() override { vorn_dbg_stop(); }
    void TestBody() override {}

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
    using AppTest::app;
    using AppTest::JournalLines;  // the calls of the run so far, with their results
};

TEST(FaultSweep, EveryPlatformCallOfEveryFlowMayFail) {
    tola_test::PrivateBus bus;
    tola_test::CannedHttpServer portal({R"({"ResultCode":1,"Version":"7"})"});
    // Every group but file sharing and port forwarding, whose checks depend on the device's disk
    // and address ranges, with a guest key the device accepts: the document is applied, so that
    // every setter is swept.
    const std::string document =
        tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/fault_sweep.json");
    ASSERT_TRUE(json::accept(document));

    // A flow: a check-in, the document applied or an SMS command (its plain text).
    auto run = [&](TOLAApp& app, const std::string& flow) {
        std::string message;
        if (flow == "check-in") {
            app.PerformCheckIn();
        } else if (flow == "document") {
            app.Agent().ProcessResponse(document, message);
        } else {
            app.HandleSmsCommand(tola_test::Sms(flow));
        }
    };
    const std::string flows[] = {
        "check-in",       "document", "<101>swept-key", "<102>" + portal.url() + "/next",
        "<150>apn.swept", "<200>1",   "<200>0"};

    for (const std::string& flow : flows) {
        SCOPED_TRACE(flow);
        std::vector<json> good;
        {
            Device device(json::object(), portal.url());
            run(*device.app, flow);
            good = device.JournalLines();
            // SMS 101 and 102 only change the stored record; every other flow calls the platform.
            EXPECT_TRUE(!good.empty() || flow.rfind("<10", 0) == 0);
            ASSERT_TRUE(device.RecordReadsBack());
        }
        std::map<std::string, int> seen;
        for (const json& line : good) {
            const std::string call = line["call"].get<std::string>();
            int occurrence = seen[call]++;
            for (int failure : {1, -1}) {
                SCOPED_TRACE(call + " #" + std::to_string(occurrence) + " -> " + std::to_string(failure));
                // The calls before this one answer 0 (they succeed, changing nothing); this one fails.
                json script = std::vector<int>(occurrence, 0);
                script.push_back(failure);
                Device device(json{{call, script}}, portal.url());
                run(*device.app, flow);
                bool met = false;
                for (const json& made : device.JournalLines()) {
                    met = met || (made["call"] == call && made["result"] == failure);
                }
                EXPECT_TRUE(met) << "the scripted failure was not reached";
                EXPECT_TRUE(device.RecordReadsBack());
            }
        }
    }
}

}  // namespace
