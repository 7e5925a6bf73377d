// The portal's web console in a real browser (headless Chromium): an operator queues a document
// for a device through the page, the real agent checks in and applies it, and the receipt shows
// in the device's timeline.
#include <unistd.h>

#include <cstdlib>

#include "e2e_fixture.h"
#include "headless_browser.h"

using ardo::json;
using tola_test::HeadlessBrowser;
using tola_test::waitForText;

namespace {

const char* const kImei = "356938035643809";

class ConsoleE2E : public tola_test::E2ETest {
  protected:
    void SetUp() override {
        if (HeadlessBrowser::Find().empty()) {
            GTEST_SKIP() << "chromium is not installed (apt-get install chromium, or set TOLA_CHROMIUM): "
                            "the console's browser test is skipped";
        }
    }
    void TearDown() override { unsetenv("ARDO_CA_FILE"); }

    // One check-in of the real agent; with a configuration it applies it, confirms and reboots.
    void CheckIn(bool untilReboot) {
        ardo::deviceStateSet("/power/end_process_on_reboot", untilReboot);
        tola_test::StoreRecord("https://portal.tola.test:" + httpsPort, true);
        StartAgent();
        if (untilReboot) {
            int status = -1;
            ASSERT_TRUE(agent->waitForExit(status, 30000)) << tola_test::readWholeFile(agentOut);
            agent.reset();
        } else {
            ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << tola_test::readWholeFile(agentOut);
            StopAgent();
        }
    }
    int Queued() {
        json devices = json::parse(Admin("/admin/devices", ""), nullptr, false);
        return devices.contains(kImei) ? devices[kImei].value("queued", -1) : 0;
    }
    // Sets a form field of the page.
    static std::string Fill(const std::string& id, const std::string& value) {
        return "document.getElementById('" + id + "').value = " + json(value).dump() + ";";
    }
};

TEST_F(ConsoleE2E, DocumentQueuedInTheBrowserIsConfirmedInTheTimeline) {
    StartPortal(true);
    setenv("ARDO_CA_FILE", caFile.c_str(), 1);
    CheckIn(false);  // the console lists devices that have checked in

    HeadlessBrowser browser(root.dir() + "/browser");
    ASSERT_TRUE(browser.ok()) << browser.why();
    ASSERT_TRUE(browser.Navigate(portalUrl + "/")) << browser.why();
    EXPECT_EQ(browser.Eval("document.querySelector('#devices td:nth-child(4)').textContent"), "1");
    ASSERT_TRUE(browser.NavigateBy("document.querySelector('#devices a').click()")) << browser.why();
    EXPECT_EQ(browser.Eval("document.getElementById('f-imei').value"), kImei);

    // A document the device would refuse: the parser's code and text in the page, nothing queued,
    // the fields kept.
    const std::string refused = R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])";
    ASSERT_TRUE(browser.NavigateBy(Fill("f-code", "0") + Fill("f-document", refused) +
                                   "document.getElementById('f-submit').click()"))
        << browser.why();
    json errors = browser.Eval("document.getElementById('errors').textContent");
    ASSERT_TRUE(errors.is_string()) << browser.Eval("document.body.innerText");
    EXPECT_NE(errors.get<std::string>().find("code 158"), std::string::npos) << errors;
    EXPECT_NE(errors.get<std::string>().find("Invalid Private IP address"), std::string::npos) << errors;
    EXPECT_EQ(browser.Eval("document.getElementById('f-document').value"), refused);
    EXPECT_EQ(Queued(), 0);

    // An accepted one, picked from a file.
    root.writeFile("/document.json", R"([{"DevicePreferences": {"LEDEnabled": false}}])");
    ASSERT_TRUE(browser.PickFile("#f-file", root.path("/document.json"))) << browser.why();
    ASSERT_TRUE(browser.WaitFor("document.getElementById('f-document').value.indexOf('LEDEnabled') >= 0"))
        << browser.why();
    ASSERT_TRUE(browser.NavigateBy(Fill("f-version", "7") + "document.getElementById('f-submit').click()"))
        << browser.why();
    EXPECT_EQ(browser.Eval("!!document.getElementById('notice')"), true)
        << browser.Eval("document.body.innerText");
    EXPECT_EQ(Queued(), 1);

    CheckIn(true);
    EXPECT_EQ(ardo::deviceStateValue<int>("/settings/ledEnabled", -1), 0);

    ASSERT_TRUE(browser.Navigate(portalUrl + "/device?imei=" + kImei)) << browser.why();
    // Newest first: the receipt, then the answer that carried the document and its check-in.
    json kinds =
        browser.Eval("Array.from(document.querySelectorAll('#timeline .entry')).map(e => e.dataset.kind)");
    ASSERT_TRUE(kinds.is_array());
    EXPECT_EQ(kinds, json({"receipt", "answer", "checkin", "answer", "checkin"})) << kinds;
    json receipt = browser.Eval("document.querySelector('#timeline .entry').textContent");
    EXPECT_NE(receipt.get<std::string>().find("ErrorCode 0"), std::string::npos) << receipt;
    // The answer decrypted beside its wire form.
    json answer = browser.Eval(
        "Array.from(document.querySelectorAll('#timeline .entry[data-kind=answer] pre'))"
        ".slice(0, 2).map(p => p.textContent)");
    ASSERT_EQ(answer.size(), 2u);
    EXPECT_NE(answer[0].get<std::string>().find("\"LEDEnabled\": false"), std::string::npos) << answer[0];
    EXPECT_NE(answer[1].get<std::string>().find("EncryptedConfiguration"), std::string::npos) << answer[1];
    EXPECT_EQ(answer[1].get<std::string>().find("LEDEnabled"), std::string::npos) << answer[1];
    EXPECT_NE(
        browser.Eval("document.getElementById('summary').textContent").get<std::string>().find("ErrorCode 0"),
        std::string::npos);

    std::string shot = std::string(TOLA_BIN_DIR) + "/../console.png";
    EXPECT_TRUE(browser.Screenshot(shot)) << browser.why();
    std::printf("console screenshot: %s\n", shot.c_str());
}

}  // namespace
