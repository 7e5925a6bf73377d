// What the end-to-end tests share: the real agent, tola-portal and tola-devicectl under a
// temporary root on a private bus.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "device_state.h"
#include "http_helper.h"
#include "private_bus.h"
#include "sealed_text.h"
#include "test_env.h"
#include "tola_agent.h"

#define EXPECT_HAS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (part) << " in " << (text)
#define EXPECT_LACKS(text, part) EXPECT_EQ((text).find(part), std::string::npos) << (part) << " in " << (text)

namespace tola_test {

using ardo::json;

const std::string kBin = std::string(TOLA_BIN_DIR) + "/";
const std::string kAgentBinary = kBin + "tola_agent";
const std::string kCtl = "'" + kBin + "tola-devicectl' ";
const std::string kAclFile = "/opt/ardo/data/tola/acl_config.xml";
const std::string kLogFile = "/var/log/tola.log";
const std::string kImei = "356938035643809";

struct Outcome {
    int status;
    std::string out, err;
};

// Runs a shell command line; its exit status, standard output and standard error.
inline Outcome Shell(const std::string& command) {
    char errFile[] = "/tmp/tola-e2e-err-XXXXXX";
    close(mkstemp(errFile));
    Outcome run{-1, "", ""};
    run.status = runShell(command + " 2>" + errFile, &run.out);
    run.err = readWholeFile(errFile);
    unlink(errFile);
    return run;
}

inline std::string Replace(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
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
    void SetUp() override { unsetenv("ARDO_CA_FILE"); }
    void TearDown() override { unsetenv("ARDO_CA_FILE"); }

    // Starts tola-portal, over HTTP and HTTPS (its certificate trusted by the agent) or over
    // HTTP alone.
    void StartPortal(bool https) {
        portalOut = root.dir() + "/portal.out";
        std::vector<std::string> args = {"--dir", root.dir() + "/portal", "--no-https"};
        if (https) {
            root.writeFile("/scenario.json", "{}");
            args.back() = "--scenario";
            args.push_back(root.path("/scenario.json"));
        }
        portal = std::make_unique<ChildProcess>(kBin + "tola-portal", args, portalOut);
        ASSERT_TRUE(waitForText(portalOut, "ready "));
        std::smatch m;
        std::string text = readWholeFile(portalOut);
        ASSERT_TRUE(std::regex_search(text, m, std::regex("http=(\\d+)(?: https=(\\d+) ca=(\\S+))?")));
        portalUrl = "http://127.0.0.1:" + m[1].str();
        httpsUrl = "https://portal.tola.test:" + m[2].str();
        if (https) {
            setenv("ARDO_CA_FILE", m[3].str().c_str(), 1);
        }
    }
    // A request to the portal's admin interface; its answer (its HTTP status in adminStatus).
    std::string Admin(const std::string& path, const std::string& body) {
        HttpHelper client;
        client.SetTimeout(5);
        std::string answer;
        client.ExecuteGetRequest(portalUrl + path, body, answer, adminStatus);
        return answer;
    }
    // Everything the portal received, oldest first.
    json Received() {
        json j = json::parse(Admin("/admin/received", ""), nullptr, false);
        return j.is_array() ? j : json::array();
    }
    // The answers the portal holds for a device.
    int Queued(const std::string& imei) {
        json devices = json::parse(Admin("/admin/devices", ""), nullptr, false);
        return devices.contains(imei) ? devices[imei].value("queued", -1) : 0;
    }

    // Starts the agent; with starts, waits for the log's starts-th start line.
    void StartAgent(size_t starts = 0, const std::string& binary = kAgentBinary) {
        agentOut = root.dir() + "/agent.out";
        agent = std::make_unique<ChildProcess>(binary, std::vector<std::string>{}, agentOut);
        if (starts > 0) {
            ASSERT_TRUE(WaitForLog("TOLA started", starts, 20000)) << readWholeFile(agentOut);
        }
    }
    void StopAgent() {
        agent->signal(SIGTERM);
        EXPECT_EQ(AgentEnds(10000), 0);
    }
    // Waits for the agent to end (on a stop, or a reboot); its exit status.
    int AgentEnds(int timeoutMs = 30000) {
        int status = -1;
        EXPECT_TRUE(agent->waitForExit(status, timeoutMs)) << status << readWholeFile(agentOut);
        agent.reset();
        return status;
    }
    // Waits until the agent's log holds the text count times.
    bool WaitForLog(const std::string& text, size_t count = 1, int timeoutMs = 10000) {
        return Eventually([&] { return countOf(Log(), text) >= count; }, timeoutMs);
    }
    std::string Log() const { return root.readFile(kLogFile); }
    std::string Acl() const { return root.readFile(kAclFile); }

    TempRoot root;
    PrivateBus bus;
    std::unique_ptr<ChildProcess> portal, agent;
    std::string portalOut, agentOut, portalUrl, httpsUrl;
    int adminStatus = 0;
};

}  // namespace tola_test
