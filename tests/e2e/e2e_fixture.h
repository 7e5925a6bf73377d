// What the end-to-end tests share: the real agent, tola-portal and tola-devicectl under a
// temporary root on a private bus.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "device_state.h"
#include "http_helper.h"
#include "private_bus.h"
#include "test_env.h"
#include "tola_agent.h"

namespace tola_test {

const std::string kAgentBinary = std::string(TOLA_BIN_DIR) + "/tola_agent";
const std::string kAclFile = "/opt/ardo/data/tola/acl_config.xml";

// tola-devicectl's standard output for the arguments and standard input; its exit status in
// *status.
inline std::string Devicectl(const std::string& args, const std::string& input = "/dev/null",
                             int* status = nullptr) {
    std::string command =
        "'" + std::string(TOLA_BIN_DIR) + "/tola-devicectl' " + args + " < '" + input + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    std::string out;
    char buffer[4096];
    for (size_t n; pipe != nullptr && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        out.append(buffer, n);
    }
    int rc = pipe != nullptr ? pclose(pipe) : -1;
    if (status != nullptr) {
        *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    }
    return out;
}

// Stores the runtime record with the portal URL, key and check-in flag, as an earlier run of the
// agent (or the factory) left it.
inline void StoreRecord(const std::string& url, bool checkIn, const std::string& key = "",
                        int aclConfigStatus = 0) {
    TOLAAgent state;
    ASSERT_EQ(state.Initialize(), 0);
    tolaagent_runtime_config_t rc{};
    state.GetRuntimeConfig(rc);
    tola_copy_text(rc.checkInURL, url.c_str());
    tola_copy_text(rc.payloadEncryptionKey, key.c_str());
    rc.checkInFlag = checkIn;
    rc.aclConfigStatus = aclConfigStatus;
    state.SetRuntimeConfig(rc);
    state.Uninitialize();
}

class E2ETest : public ::testing::Test {
  protected:
    // Starts tola-portal, over HTTP and HTTPS or over HTTP alone.
    void StartPortal(bool https) {
        portalOut = root.dir() + "/portal.out";
        std::vector<std::string> args = {"--dir", root.dir() + "/portal", "--no-https"};
        if (https) {
            root.writeFile("/scenario.json", "{}");
            args.back() = "--scenario";
            args.push_back(root.path("/scenario.json"));
        }
        portal = std::make_unique<ChildProcess>(std::string(TOLA_BIN_DIR) + "/tola-portal", args, portalOut);
        ASSERT_TRUE(waitForText(portalOut, "ready "));
        std::smatch m;
        std::string text = readWholeFile(portalOut);
        ASSERT_TRUE(std::regex_search(text, m, std::regex("http=(\\d+)(?: https=(\\d+) ca=(\\S+))?")));
        portalUrl = "http://127.0.0.1:" + m[1].str();
        httpsPort = m[2];
        caFile = m[3];
    }
    // A request to the portal's admin interface; its answer.
    std::string Admin(const std::string& path, const std::string& body, int* status = nullptr) {
        HttpHelper client;
        client.SetTimeout(5);
        std::string answer;
        int code = 0;
        client.ExecuteGetRequest(portalUrl + path, body, answer, code);
        if (status != nullptr) {
            *status = code;
        }
        return answer;
    }
    // Everything the portal received, oldest first.
    ardo::json Received() {
        ardo::json j = ardo::json::parse(Admin("/admin/received", ""), nullptr, false);
        return j.is_array() ? j : ardo::json::array();
    }

    void StartAgent() {
        agentOut = root.dir() + "/agent.out";
        agent = std::make_unique<ChildProcess>(kAgentBinary, std::vector<std::string>{}, agentOut);
    }
    void StopAgent() {
        agent->signal(SIGTERM);
        int status = -1;
        EXPECT_TRUE(agent->waitForExit(status, 10000)) << status << readWholeFile(agentOut);
        agent.reset();
    }
    std::string Log() const { return root.readFile("/var/log/tola.log"); }
    std::string Acl() const { return root.readFile(kAclFile); }

    TempRoot root;
    PrivateBus bus;
    std::unique_ptr<ChildProcess> portal;
    std::unique_ptr<ChildProcess> agent;
    std::string portalOut, agentOut, portalUrl, httpsPort, caFile;
};

}  // namespace tola_test
