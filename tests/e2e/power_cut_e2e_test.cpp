// Power cuts: the real agent stores its record again and again (key commands on the bus, and a
// check-in whose answer hands out a new key every time) and is killed with SIGKILL at a random
// moment, then started again. After every cut the record must be whole (never a mix of two, never
// empty without a whole backup), hold a key that was sent (never one older than before the
// burst), and be kept by the next start. TOLA_SOAK_KILLS cuts (50; scripts/soak runs 1,000) at
// moments drawn from TOLA_SOAK_SEED.
#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "canned_http.h"
#include "e2e_fixture.h"

namespace tola_test {
namespace {

const std::string kBackup = kAclFile + ".bkp";

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
    bool whole = std::regex_match(text, m, kRecord);
    key = whole ? m[1].str() : "";
    return whole;
}

using PowerCutE2E = E2ETest;

TEST_F(PowerCutE2E, TheRecordSurvivesEveryCut) {
    const int kills = EnvNumber("TOLA_SOAK_KILLS", 50), burst = 12;
    std::mt19937 random(static_cast<unsigned>(EnvNumber("TOLA_SOAK_SEED", 1)));
    // The moment of the cut, from the first command of the burst on: mostly during the key
    // commands, one time in four as late as the check-in's answer.
    std::uniform_int_distribution<int> moment(0, 300), lateMoment(300, 2000), quarter(0, 3);
    // Each check-in's answer hands out the next key, "portal-N".
    std::vector<std::string> answers;
    for (int i = 0; i < kills * 4 + 16; ++i) {
        answers.push_back(R"({"ResultCode":94,"Version":"1","DeviceEncryptionKey":"portal-)" +
                          std::to_string(i) + "\"}");
    }
    CannedHttpServer server(answers);
    auto fromPortal = [](const std::string& key) { return key.rfind("portal-", 0) == 0; };

    long reads = 0;      // versions read under the bursts
    std::string before;  // the key stored before the burst
    // Every key sent, by its place in the sequence (the key stored at the start first).
    std::map<std::string, int> order;
    size_t starts = 1;
    ASSERT_NO_FATAL_FAILURE(StartAgent(starts));
    ASSERT_TRUE(RecordKey(Acl(), before)) << Acl();
    order[before] = 0;
    const std::string sms = "'" + kBin + "tola-devicectl' sms send ";

    for (int cut = 0; cut < kills; ++cut) {
        SCOPED_TRACE("cut " + std::to_string(cut));
        std::set<std::string> sent;
        // The check-in URL first: it starts a check-in, which runs beside the key commands.
        std::string script = sms + "'<102>" + server.url() + "/checkin' || exit 1; ";
        for (int i = 0; i < burst; ++i) {
            std::string key = "soak-" + std::to_string(cut) + "-" + std::to_string(i);
            sent.insert(key);
            order[key] = static_cast<int>(order.size());
            script += sms + "'<101>" + key + "' || exit 1; ";
        }
        ChildProcess sender("/bin/sh", {"-c", script}, root.dir() + "/sender.out");
        // Under the burst (key commands on the bus thread beside the check-in thread), every
        // version of the record and of its backup that a reader finds is whole.
        std::atomic<bool> cutDone{false};
        std::string torn;
        std::thread reader([&] {
            for (std::string ignored; !cutDone.load() && torn.empty(); ++reads) {
                for (const std::string& file : {kAclFile, kBackup}) {
                    std::string text = root.readFile(file);
                    torn = !text.empty() && !RecordKey(text, ignored) ? file + ":\n" + text : torn;
                }
            }
        });
        usleep(static_cast<useconds_t>(quarter(random) == 0 ? lateMoment(random) : moment(random)) * 1000);
        cutDone = true;
        reader.join();
        ASSERT_EQ(torn, "");
        agent.reset();  // SIGKILL
        int status = 0;
        ASSERT_TRUE(sender.waitForExit(status, 20000));

        // What the power cut left on the disk.
        std::string key, backupKey, text = Acl(), backup = root.readFile(kBackup);
        bool backupWhole = RecordKey(backup, backupKey);
        if (!backup.empty()) {
            ASSERT_TRUE(backupWhole) << "backup:\n" << backup;
            // The backup follows the record: it may lag behind it, never run ahead.
            ASSERT_TRUE(order.count(backupKey) == 1 || fromPortal(backupKey)) << backupKey;
        }
        if (text.empty()) {
            ASSERT_TRUE(backupWhole) << "an empty record and no whole backup";
            key = backupKey;
        } else {
            ASSERT_TRUE(RecordKey(text, key)) << "record:\n" << text;
            ASSERT_TRUE(key == before || sent.count(key) == 1 || fromPortal(key))
                << "key " << key << " before " << before;
            if (backupWhole && order.count(key) == 1 && order.count(backupKey) == 1) {
                ASSERT_LE(order[backupKey], order[key]) << "backup " << backupKey << ", record " << key;
            }
        }

        // The agent starts again and keeps that record, unless it holds a downloaded answer still
        // to be handled (status 1: the cut came between storing the answer and acting on it),
        // whose key the start then stores, or the check-in made at start has already stored the
        // key of an answer the portal sent after this start.
        std::smatch pending;
        const std::string downloaded = root.readFile("/opt/ardo/data/tola/tola_downloaded_config");
        const bool answerPending =
            (text.empty() ? backup : text).find("<AclConfigStatus>1<") != std::string::npos &&
            std::regex_search(downloaded, pending, std::regex(R"re("DeviceEncryptionKey":"([^"]*)")re"));
        const size_t requestsBefore = server.bodies().size();
        ASSERT_NO_FATAL_FAILURE(StartAgent(++starts));
        ASSERT_TRUE(RecordKey(Acl(), before)) << "record after the start:\n" << Acl();
        if (before != key && !(answerPending && before == pending[1].str())) {
            ASSERT_TRUE(fromPortal(before)) << "key " << key << " became " << before;
            ASSERT_GE(std::stoul(before.substr(7)), requestsBefore) << "key " << key << " became " << before;
        }
    }
    StopAgent();
    std::printf("power cuts: %d, check-ins %zu, %ld reads of both files under the bursts, all whole\n", kills,
                server.bodies().size(), reads);
}

}  // namespace
}  // namespace tola_test
