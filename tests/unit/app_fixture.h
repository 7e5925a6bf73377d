// A fresh simulated device for the agent's unit tests (RootTest), and a TOLAApp on it with
// config.xml read, agent state initialised and the debug log opened under the root (AppTest).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "device_state.h"
#include "sealed_text.h"
#include "test_env.h"
#include "tola_app.h"
#include "vorn_dbg.h"

namespace tola_test {

// A fresh root; the debug log reopens under it at its first line.
class RootTest : public ::testing::Test {
  protected:
    void SetUp() override { vorn_dbg_stop(); }
    void TearDown() override { vorn_dbg_stop(); }
    std::string Log() const { return root.readFile("/var/log/tola.log"); }
    static size_t Count(const std::string& text, const std::string& what) { return countOf(text, what); }
    size_t LogCount(const std::string& what) const { return countOf(Log(), what); }
    // The device's calls in order ({"call", "args", "result"} each), then its waits if asked.
    std::vector<ardo::json> JournalLines(bool waits = false) const {
        std::vector<ardo::json> lines;
        std::istringstream in(root.readFile("/var/lib/ardo/calls.jsonl") +
                              (waits ? root.readFile("/var/lib/ardo/waits.jsonl") : ""));
        for (std::string text; std::getline(in, text);) {
            ardo::json j = ardo::json::parse(text, nullptr, false);
            if (j.is_object()) {
                lines.push_back(j);
            }
        }
        return lines;
    }

    TempRoot root;
};

class AppTest : public RootTest {
  protected:
    void SetUp() override { Start(); }
    void TearDown() override { Stop(); }

    void Start() {
        vorn_dbg_stop();  // a log left open by an earlier test reopens under this test's root
        vorn_dbg_start();
        app = std::make_unique<TOLAApp>();
        ASSERT_TRUE(app->ReadSettings());
        ASSERT_EQ(app->Agent().Initialize(), 0);
        app->Agent().GetRuntimeConfig(app->RuntimeConfig());
    }
    void Stop() {
        if (app) {
            app->Agent().Uninitialize();
            app.reset();
        }
        vorn_dbg_stop();
    }

    // Replaces one element of config.xml and reads it again (a new app).
    void SetConfigValue(const std::string& element, const std::string& value) {
        std::string xml = root.readFile("/opt/ardo/etc/tola/config.xml");
        size_t open = xml.find("<" + element + ">");
        size_t close = xml.find("</" + element + ">");
        ASSERT_NE(open, std::string::npos) << element;
        open += element.size() + 2;
        xml.replace(open, close - open, value);
        root.writeFile("/opt/ardo/etc/tola/config.xml", xml);
        Stop();
        Start();
    }

    // Stores the runtime record with the portal URL (and optionally a key) set.
    void Activate(const std::string& url, const std::string& key = "") {
        tolaagent_runtime_config_t& rc = app->RuntimeConfig();
        tola_copy_text(rc.checkInURL, url.c_str());
        tola_copy_text(rc.payloadEncryptionKey, key.c_str());
        rc.checkInFlag = true;
        app->Agent().SetRuntimeConfig(rc);
    }

    tolaagent_runtime_config_t Stored() {
        tolaagent_runtime_config_t rc{};
        app->Agent().GetRuntimeConfig(rc);
        return rc;
    }

    // Journal lines of one platform call (device changes and waits), optionally only those with
    // the given result.
    std::vector<ardo::json> Journal(const std::string& call, int result = -1000) const {
        std::vector<ardo::json> lines;
        for (const ardo::json& j : JournalLines(true)) {
            if (j.value("call", "") == call && (result == -1000 || j.value("result", 0) == result)) {
                lines.push_back(j);
            }
        }
        return lines;
    }

    std::unique_ptr<TOLAApp> app;
};

}  // namespace tola_test
