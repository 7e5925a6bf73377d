// The portal's web console in a real browser (headless Chromium): an operator queues a document
// for a device through the page, the real agent checks in and applies it, and the receipt shows
// in the device's timeline.
#include <fcntl.h>
#include <poll.h>

#include <fstream>

#include "e2e_fixture.h"

namespace tola_test {
namespace {

// A headless Chromium driven over the DevTools protocol on a pipe (--remote-debugging-pipe):
// JSON commands separated by NUL bytes on file descriptors 3 (to the browser) and 4 (from it).
// No driver library and no network port; one page, in its own profile folder.
class HeadlessBrowser {
  public:
    // The browser the tests use ($TOLA_CHROMIUM, else /usr/bin/chromium); "" when there is none.
    static std::string Find() {
        const char* configured = std::getenv("TOLA_CHROMIUM");
        std::string path = configured != nullptr && *configured != '\0' ? configured : "/usr/bin/chromium";
        return access(path.c_str(), X_OK) == 0 ? path : "";
    }

    explicit HeadlessBrowser(const std::string& dir) {
        int to[2], from[2];
        if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0) {
            return;
        }
        // --no-sandbox: tests may run as root.
        std::string command =
            "exec '" + Find() +
            "' --headless=new --no-sandbox --disable-gpu --no-first-run --disable-extensions "
            "--remote-debugging-pipe --window-size=1200,900 --user-data-dir='" +
            dir + "' about:blank > '" + dir + ".log' 2>&1";
        if ((mPid = fork()) == 0) {
            setpgid(0, 0);  // the browser's helpers end with it (see the destructor)
            dup2(to[0], 3);
            dup2(from[1], 4);
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        mToBrowser = to[1];
        mFromBrowser = from[0];
        json target = Call("Target.createTarget", {{"url", "about:blank"}}, false, 30000);
        mSession = Call("Target.attachToTarget",
                        {{"targetId", target.value("targetId", "")}, {"flatten", true}}, false)
                       .value("sessionId", "");
        Call("Page.enable", json::object());
        mWhy += mSession.empty() ? " (see " + dir + ".log)" : "";
    }
    ~HeadlessBrowser() {
        Call("Browser.close", json::object(), false, 5000);
        for (int i = 0; mPid > 0 && waitpid(mPid, nullptr, WNOHANG) == 0; ++i, usleep(50 * 1000)) {
            if (i == 100) {
                kill(-mPid, SIGKILL);  // its own process group, made at start
            }
        }
        close(mToBrowser);
        close(mFromBrowser);
    }

    bool ok() const { return !mSession.empty(); }
    // Why the browser could not start or the last call failed.
    const std::string& why() const { return mWhy; }

    // The value of a JavaScript expression in the page (null when it threw).
    json Eval(const std::string& expression) {
        json result = Call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}});
        return result.is_null() || result.contains("exceptionDetails")
                   ? json()
                   : result["result"].value("value", json());
    }
    // Waits until the expression is truthy.
    bool WaitFor(const std::string& expression) {
        bool done = Eventually([&] { return Eval("!!(" + expression + ")") == true; });
        EXPECT_TRUE(done) << "timed out waiting for " << expression << " " << mWhy;
        return done;
    }
    // Runs script (a click, a form's submit) and waits until the page it leads to has loaded: the
    // old page is marked before, the new one has no mark.
    bool NavigateBy(const std::string& script) {
        Eval("window.__oldPage = true");
        bool ran = !Eval("(function () { " + script + "; return true; })()").is_null();
        EXPECT_TRUE(ran) << "the script failed: " << script;
        return ran && WaitFor("window.__oldPage === undefined && document.readyState === 'complete'");
    }
    std::string Text(const std::string& selector) {
        json text = Eval("document.querySelector(\"" + selector + "\").textContent");
        return text.is_string() ? text.get<std::string>() : "";
    }
    bool Navigate(const std::string& url) { return NavigateBy("location.href = " + json(url).dump()); }
    // Picks file for the <input type=file> that selector names, as a user would.
    bool PickFile(const std::string& selector, const std::string& file) {
        json node = Call("Runtime.evaluate", {{"expression", "document.querySelector('" + selector + "')"}});
        return node.is_object() && node["result"].contains("objectId") &&
               !Call("DOM.setFileInputFiles", {{"files", {file}}, {"objectId", node["result"]["objectId"]}})
                    .is_null();
    }
    // Saves the page as a PNG (docs/console.png is one).
    bool Screenshot(const std::string& png) {
        std::ofstream(png + ".b64") << Call("Page.captureScreenshot", {{"format", "png"}}).value("data", "");
        return std::system(("base64 -d '" + png + ".b64' > '" + png + "' && rm '" + png + ".b64'").c_str()) ==
               0;
    }

  private:
    // One protocol command; its "result", or null (with why()) on an error or time-out. Events
    // arrive between the answers; they are skipped.
    json Call(const std::string& method, const json& params, bool onPage = true, int timeoutMs = 15000) {
        int id = mNextId++;
        json command = {{"id", id}, {"method", method}, {"params", params}};
        if (onPage) {
            command["sessionId"] = mSession;
        }
        std::string text = command.dump() + '\0';
        if (write(mToBrowser, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            mWhy = method + ": the browser's pipe is closed";
            return nullptr;
        }
        for (;;) {
            for (size_t nul; (nul = mBuffer.find('\0')) != std::string::npos;) {
                json message = json::parse(mBuffer.substr(0, nul), nullptr, false);
                mBuffer.erase(0, nul + 1);
                if (message.is_object() && message.value("id", -1) == id) {
                    mWhy = message.contains("error") ? method + ": " + message["error"].dump() : mWhy;
                    return message.contains("error") ? json() : message["result"];
                }
            }
            char chunk[65536];
            struct pollfd p = {mFromBrowser, POLLIN, 0};
            ssize_t n = poll(&p, 1, timeoutMs) > 0 ? read(mFromBrowser, chunk, sizeof chunk) : 0;
            if (n <= 0) {
                mWhy = method + ": no answer from the browser";
                return nullptr;
            }
            mBuffer.append(chunk, static_cast<size_t>(n));
        }
    }

    pid_t mPid = -1;
    int mToBrowser = -1, mFromBrowser = -1, mNextId = 1;
    std::string mBuffer, mSession, mWhy;
};

class ConsoleE2E : public E2ETest {
  protected:
    void SetUp() override {
        E2ETest::SetUp();
        if (HeadlessBrowser::Find().empty()) {
            GTEST_SKIP() << "chromium is not installed (apt-get install chromium, or set TOLA_CHROMIUM): "
                            "the console's browser test is skipped";
        }
    }
};

TEST_F(ConsoleE2E, DocumentQueuedInTheBrowserIsConfirmedInTheTimeline) {
    StartPortal(true);
    StoreRecord(httpsUrl, true);  // the console lists devices that have checked in
    StartAgent();
    ASSERT_TRUE(waitForText(portalOut, "check-in from", 20000)) << readWholeFile(agentOut);
    StopAgent();

    HeadlessBrowser browser(root.dir() + "/browser");
    ASSERT_TRUE(browser.ok()) << browser.why();
    ASSERT_TRUE(browser.Navigate(portalUrl + "/"));
    EXPECT_EQ(browser.Text("#devices td:nth-child(4)"), "1");
    ASSERT_TRUE(browser.NavigateBy("document.querySelector('#devices a').click()"));
    EXPECT_EQ(browser.Eval("document.getElementById('f-imei').value"), kImei);

    // A document picked from a file (what the form does with a refused one is the portal table's).
    root.writeFile("/document.json", R"([{"DevicePreferences": {"LEDEnabled": false}}])");
    ASSERT_TRUE(browser.PickFile("#f-file", root.path("/document.json"))) << browser.why();
    ASSERT_TRUE(browser.WaitFor("document.getElementById('f-document').value.indexOf('LEDEnabled') >= 0"));
    ASSERT_TRUE(
        browser.NavigateBy("document.getElementById('f-code').value = '0';"
                           "document.getElementById('f-version').value = '7';"
                           "document.getElementById('f-submit').click()"));
    EXPECT_EQ(browser.Eval("!!document.getElementById('notice')"), true);
    EXPECT_EQ(Queued(kImei), 1);

    // The agent's next check-in applies it, confirms it and reboots.
    ardo::deviceStateSet("/power/end_process_on_reboot", true);
    StartAgent();
    AgentEnds();
    EXPECT_EQ(ardo::deviceStateValue<int>("/settings/ledEnabled", -1), 0);

    ASSERT_TRUE(browser.Navigate(portalUrl + "/device?imei=" + kImei));
    // Newest first: the receipt, then the answer that carried the document and its check-in.
    json kinds =
        browser.Eval("Array.from(document.querySelectorAll('#timeline .entry')).map(e => e.dataset.kind)");
    EXPECT_EQ(kinds, json({"receipt", "answer", "checkin", "answer", "checkin"})) << kinds;
    EXPECT_HAS(browser.Text("#timeline .entry"), "ErrorCode 0");
    // The answer decrypted beside its wire form: which texts each of the two shows.
    json shown = browser.Eval(
        "Array.from(document.querySelectorAll('#timeline .entry[data-kind=answer] pre')).slice(0, 2).map(p "
        "=> "
        "['\"LEDEnabled\": false', 'LEDEnabled', 'EncryptedConfiguration'].map(t => "
        "p.textContent.includes(t)))");
    EXPECT_EQ(shown, json({{true, true, false}, {false, false, true}}));
    EXPECT_HAS(browser.Text("#summary"), "ErrorCode 0");
    EXPECT_TRUE(browser.Screenshot(std::string(TOLA_BIN_DIR) + "/../console.png")) << browser.why();
}

}  // namespace
}  // namespace tola_test
