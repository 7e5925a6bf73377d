// Power cuts: the real agent stores its record again and again (a burst of key commands on the
// bus, and a check-in whose answer hands out a new key every time) and is killed with SIGKILL at a random
// moment, then started again. After every cut the stored record must be whole (one record as the agent writes
// it, never a mix of two, never empty without a whole backup), hold a key that was sent (never an older one
// than the record before the burst), and the agent must start and keep that record. TOLA_SOAK_KILLS sets the
// number of cuts (50 here; scripts/soak runs 1,000), TOLA_SOAK_SEED the random moments.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <thread>

#include "canned_http.h"
#include "private_bus.h"
#include "test_env.h"

using tola_test::ChildProcess;

namespace {

const std::string kLog = "/var/log/tola.log";
const std::string kAcl = "/opt/ardo/data/tola/acl_config.xml";
const std::string kBackup = kAcl + ".bkp";

// One record exactly as the agent writes it; group 1 is the key. The backup is copied line by
// line and so ends with a line break.
const std::regex kRecord(
    R"(<\?xml version="1\.0" encoding="UTF-8"\?>\n<ACLConfig>\n<TOLA>)"
    R"(\n<CheckInFlag>(?:true|false)</CheckInFlag>\n<FactoryResetFlag>(?:true|false)</FactoryResetFlag>)"
    R"(\n<CheckInIntervalOverrideFlag>(?:true|false)</CheckInIntervalOverrideFlag>)"
    R"(\n<CheckInInterval>\d+</CheckInInterval>\n<CheckInURL>[^<]*</CheckInURL>)"
    R"(\n<PayloadEncryptionKey>([^<]*)</PayloadEncryptionKey>\n<LastCommand>[^<]*</LastCommand>)"
    R"(\n<Version>[^<]*</Version>\n<AclConfigStatus>-?\d+</AclConfigStatus>)"
    R"(\n<LastCheckInDate>[^<]*</LastCheckInDate>\n</TOLA>\n<ACL>)"
    R"((?:\n<ACE>\n<Name>[^<]*</Name>\n<DisplayEnabled>(?:True|False)</DisplayEnabled>)"
    R"(\n<WriteEnabled>(?:True|False)</WriteEnabled>\n</ACE>)*\n</ACL>\n</ACLConfig>\n?)");

int EnvNumber(const char* name, int fallback) {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::atoi(text) : fallback;
}

// The key of a whole record; false when the text is not one.
bool RecordKey(const std::string& text, std::string& key) {
    std::smatch m;
    if (!std::regex_match(text, m, kRecord)) {
        return false;
    }
    key = m[1].str();
    return true;
}

class PowerCutE2E : public ::testing::Test {
  protected:
    // Starts the agent and waits for its start line (the n-th in the log).
    bool StartAgent(size_t starts) {
        agent = std::make_unique<ChildProcess>(std::string(TOLA_BIN_DIR) + "/tola_agent",
                                               std::vector<std::string>{}, root.dir() + "/agent.out");
        for (int waited = 0; waited < 20000; waited += 10) {
            if (Count(root.readFile(kLog), "TOLA started") >= starts) {
                return true;
            }
            usleep(10000);
        }
        return false;
    }
    static size_t Count(const std::string& text, const std::string& what) {
        size_t n = 0;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
            ++n;
        }
        return n;
    }

    tola_test::TempRoot root;
    tola_test::PrivateBus bus;
    std::unique_ptr<ChildProcess> agent;
};

TEST_F(PowerCutE2E, TheRecordSurvivesEveryCut) {
    const int kills = EnvNumber("TOLA_SOAK_KILLS", 50);
    std::mt19937 random(static_cast<unsigned>(EnvNumber("TOLA_SOAK_SEED", 1)));
    // The moment of the cut, from the first command of the burst on: mostly during the key
    // commands, one time in four as late as the check-in's answer.
    std::uniform_int_distribution<int> moment(0, 300);
    std::uniform_int_distribution<int> lateMoment(300, 2000);
    std::uniform_int_distribution<int> quarter(0, 3);
    const int burst = 12;
    // Each check-in's answer hands out the next key.
    std::vector<std::string> answers;
    std::set<std::string> portalKeys;
    for (int i = 0; i < kills * 4 + 16; ++i) {
        std::string key = "portal-" + std::to_string(i);
        portalKeys.insert(key);
        answers.push_back(R"({"ResultCode":94,"Version":"1","DeviceEncryptionKey":")" + key + "\"}");
    }
    tola_test::CannedHttpServer portal(answers);

    int latest = 0, earlier = 0, unchanged = 0, fromBackup = 0, fromPortal = 0;
    long reads = 0;      // versions read under the bursts
    std::string before;  // the key stored before the burst
    // Every key sent, by its place in the sequence (the key stored at the start first).
    std::map<std::string, int> order;
    size_t starts = 1;
    ASSERT_TRUE(StartAgent(starts));
    {
        std::string text = root.readFile(kAcl);
        ASSERT_TRUE(RecordKey(text, before)) << text;
        order[before] = 0;
    }

    for (int cut = 0; cut < kills; ++cut) {
        SCOPED_TRACE("cut " + std::to_string(cut));
        std::set<std::string> sent;
        // The check-in URL first: it starts a check-in, which runs beside the key commands.
        std::string script = "'" + std::string(TOLA_BIN_DIR) + "/tola-devicectl' sms send '<102>" +
                             portal.url() + "/checkin' || exit 1; ";
        for (int i = 0; i < burst; ++i) {
            std::string key = "soak-" + std::to_string(cut) + "-" + std::to_string(i);
            sent.insert(key);
            order[key] = static_cast<int>(order.size());
            script +=
                "'" + std::string(TOLA_BIN_DIR) + "/tola-devicectl' sms send '<101>" + key + "' || exit 1; ";
        }
        ChildProcess sender("/bin/sh", {"-c", script}, root.dir() + "/sender.out");
        // Under the burst (key commands on the bus thread beside the check-in thread), every
        // version of the record and of its backup that a reader finds is whole.
        std::atomic<bool> cutDone{false};
        std::string torn;
        std::thread reader([&] {
            while (!cutDone.load() && torn.empty()) {
                for (const std::string& file : {kAcl, kBackup}) {
                    std::string text = root.readFile(file), ignored;
                    if (!text.empty() && !RecordKey(text, ignored)) {
                        torn = file + ":\n" + text;
                    }
                }
                ++reads;
            }
        });
        int wait = quarter(random) == 0 ? lateMoment(random) : moment(random);
        usleep(static_cast<useconds_t>(wait) * 1000);
        cutDone = true;
        reader.join();
        ASSERT_EQ(torn, "");
        agent->signal(SIGKILL);
        int status = 0;
        agent->waitForExit(status, 10000);
        agent.reset();
        ASSERT_TRUE(sender.waitForExit(status, 20000));

        // What the power cut left on the disk.
        std::string key, backupKey;
        std::string text = root.readFile(kAcl);
        std::string backup = root.readFile(kBackup);
        bool backupWhole = RecordKey(backup, backupKey);
        if (root.exists(kBackup) && !backup.empty()) {
            ASSERT_TRUE(backupWhole) << "backup:\n" << backup;
            // The backup follows the record: it may lag behind it, never run ahead.
            ASSERT_TRUE(order.count(backupKey) == 1 || portalKeys.count(backupKey) == 1) << backupKey;
        }
        std::string expected;
        if (text.empty()) {
            ASSERT_TRUE(backupWhole) << "an empty record and no whole backup";
            expected = backupKey;
            ++fromBackup;
        } else {
            ASSERT_TRUE(RecordKey(text, key)) << "record:\n" << text;
            ASSERT_TRUE(key == before || sent.count(key) == 1 || portalKeys.count(key) == 1)
                << "key " << key << " before " << before;
            if (backupWhole && order.count(key) == 1 && order.count(backupKey) == 1) {
                ASSERT_LE(order[backupKey], order[key]) << "backup " << backupKey << ", record " << key;
            }
            expected = key;
            if (key == before) {
                ++unchanged;
            } else if (portalKeys.count(key) == 1) {
                ++fromPortal;
            } else if (key == "soak-" + std::to_string(cut) + "-" + std::to_string(burst - 1)) {
                ++latest;
            } else {
                ++earlier;
            }
        }

        // The agent starts again and keeps that record.
        ASSERT_TRUE(StartAgent(++starts)) << "the agent did not start after cut " << cut;
        text = root.readFile(kAcl);
        ASSERT_TRUE(RecordKey(text, key)) << "record after the start:\n" << text;
        ASSERT_EQ(key, expected);
        before = key;
    }
    agent->signal(SIGTERM);
    int status = -1;
    EXPECT_TRUE(agent->waitForExit(status, 10000));
    EXPECT_EQ(status, 0);
    std::printf(
        "power cuts: %d; record after the cut: last key of the burst %d, an earlier key %d, "
        "a check-in's key %d, unchanged %d, empty and taken from the backup %d; check-ins %zu; "
        "%ld reads of both files under the bursts, all whole\n",
        kills, latest, earlier, fromPortal, unchanged, fromBackup, portal.bodies().size(), reads);
}

}  // namespace
