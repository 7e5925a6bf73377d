// acl_config.xml (bytes written, backup, repairs at start-up, hand-edited files) and the shared
// memory segment holding the list.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "app_fixture.h"
#include "case_rows.h"

namespace {

const std::string kAclFile = "/opt/ardo/data/tola/acl_config.xml";
const std::string kBackupFile = kAclFile + ".bkp";

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ACLConfig>\n<TOLA>";
std::string caseFile(const char* name) {
    return tola_test::readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/" + name);
}
// The file a first start writes (no final newline), and its record lines.
const std::string kDefaultFile = caseFile("acl_config_default.xml");
const std::string kDefaultRecord =
    kDefaultFile.substr(kHead.size(), kDefaultFile.find("\n</TOLA>") - kHead.size());

std::string ace(const std::string& name, const char* display, const char* write) {
    return "\n<ACE>\n<Name>" + name + "</Name>\n<DisplayEnabled>" + display +
           "</DisplayEnabled>\n<WriteEnabled>" + write + "</WriteEnabled>\n</ACE>";
}

// A file as the writer produces it, with the given record lines and ACE groups.
std::string aclFile(const std::string& record, const std::string& aces) {
    return kHead + record + "\n</TOLA>\n<ACL>" + aces + "\n</ACL>\n</ACLConfig>";
}

tolaagent_runtime_config_t recordOf(TOLAAgent& agent) {
    tolaagent_runtime_config_t record;
    agent.GetRuntimeConfig(record);
    return record;
}

using AclFileTest = tola_test::RootTest;

TEST_F(AclFileTest, WriterSpellsFlagsPerKindAndTheBackupGainsOneNewline) {
    TOLAAgent agent;
    agent.Initialize();
    agent.SetACEProperties("WiFiSSID", true, false);
    agent.SetACEProperties("AdminPassword", false, true);
    tolaagent_runtime_config_t record = recordOf(agent);
    record.checkInFlag = true;
    record.checkInIntervalOverrideFlag = true;
    record.checkInInterval = 4294967295u;
    tola_copy_text(record.checkInURL, "https://portal.tola.test/checkin?a=1");
    tola_copy_text(record.payloadEncryptionKey, "k3y");
    tola_copy_text(record.lastCommand, "<102>");  // written as it stands
    tola_copy_text(record.version, "17");
    record.aclConfigStatus = -2;
    tola_copy_text(record.lastCheckInDate, "2017-03-09T14:05:00");
    EXPECT_TRUE(agent.SetRuntimeConfig(record));

    const std::string expected = caseFile("acl_config_written.xml");
    EXPECT_EQ(expected, root.readFile(kAclFile));
    EXPECT_EQ(expected + "\n", root.readFile(kBackupFile));
    EXPECT_FALSE(root.exists(kAclFile + ".tmp"));
    EXPECT_FALSE(root.exists(kBackupFile + ".tmp"));
}

TEST_F(AclFileTest, FlagSpellingsAndBadNumbers) {
    for (const auto& c : tola_test::readCases("acl_flag_spellings.tsv", 7)) {
        SCOPED_TRACE(c[0] + "/" + c[1] + "/" + c[2]);
        root.writeFile(kAclFile, aclFile("\n<CheckInFlag>" + c[0] +
                                             "</CheckInFlag>\n<CheckInIntervalOverrideFlag>true"
                                             "</CheckInIntervalOverrideFlag>\n<CheckInInterval>" +
                                             c[2] + "</CheckInInterval>",
                                         ace("A", c[1].c_str(), "True")));
        TOLAAgent agent;
        agent.Initialize();
        tolaagent_runtime_config_t r = recordOf(agent);
        // Elements missing from the file (version, status) keep the defaults.
        EXPECT_EQ(std::make_tuple(r.checkInFlag, r.checkInIntervalOverrideFlag, r.checkInInterval,
                                  std::string(r.version), r.aclConfigStatus),
                  std::make_tuple(c[3] == "1", c[5] == "1", std::stoul(c[6]), std::string("0"), 0));
        ASSERT_EQ(1, agent.AclBlock()->count);
        EXPECT_EQ(std::stoul(c[4]) | TOLA_ACE_WRITE_ENABLED, agent.AclBlock()->entries[0].flags);
    }
}

TEST_F(AclFileTest, RepairsAtStart) {
    const std::string saved =
        aclFile("\n<CheckInFlag>true</CheckInFlag>\n<Version>9</Version>", ace("Saved", "True", "True"));
    const std::string corruptedLine = "looks like file got corrupted and reset the acl_config.xml";
    const std::string absent = "<absent>";
    struct Case {
        const char* name;
        std::string main, backup;
        bool restored, corrupted;  // the backup restored, the main file reported corrupted
    } cases[] = {
        {"first start", absent, absent, false, false},
        {"missing main, backup ignored", absent, saved, false, false},
        {"empty main, good backup", "", saved + "\n", true, false},
        {"empty main, empty backup", "", "", false, false},
        {"empty main, no backup", "", absent, false, false},
        {"not XML", "garbage", absent, false, true},
        {"'<' in a text", aclFile("\n<CheckInURL>http://a/<b</CheckInURL>", ""), absent, false, true},
        {"'&' in a text", aclFile("\n<CheckInURL>http://a/?x=1&y=2</CheckInURL>", ""), absent, false, true},
        {"truncated", saved.substr(0, saved.size() / 2), absent, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto& [path, content] : {std::pair(kAclFile, c.main), std::pair(kBackupFile, c.backup)}) {
            root.remove(path);
            if (content != absent) {
                root.writeFile(path, content);
            }
        }
        vorn_dbg_stop();
        root.remove("/var/log/tola.log");
        {
            TOLAAgent agent;
            EXPECT_EQ(0, agent.Initialize());
            EXPECT_STREQ(c.restored ? "9" : "0", recordOf(agent).version);
            EXPECT_TRUE(agent.IsInitialized());
            // The segment outlives the agent: start each case from an empty list.
            std::memset(agent.AclBlock(), 0, sizeof(tola_acl_shm_t));
        }
        // Byte-exact, no final newline; a start writes no backup.
        EXPECT_EQ(c.restored ? saved + "\n" : kDefaultFile, root.readFile(kAclFile));
        EXPECT_EQ(c.backup != absent, root.exists(kBackupFile));
        EXPECT_EQ(c.corrupted, Log().find(corruptedLine) != std::string::npos);
    }
}

// A hand-edited file gives at most 200 entries (this one holds 201), names cut to 100 bytes; the
// full list takes no new name but still updates known ones.
TEST_F(AclFileTest, ListIsBoundedFromTheFileAndTheSetter) {
    std::string aces;
    for (int i = 0; i < 200; ++i) {
        aces += ace("item" + std::to_string(i), "True", "False");
    }
    root.writeFile(kAclFile, aclFile("", ace(std::string(150, 'L'), "False", "True") + aces));
    TOLAAgent agent;
    agent.Initialize();
    tola_acl_shm_t* acl = agent.AclBlock();
    ASSERT_EQ(TOLA_ACL_MAX_ENTRIES, acl->count);
    EXPECT_EQ(0, std::memcmp(std::string(100, 'L').data(), acl->entries[0].name, 100));
    EXPECT_EQ(TOLA_ACE_WRITE_ENABLED, acl->entries[0].flags);
    EXPECT_STREQ("item198", acl->entries[199].name);
    agent.SetACEProperties("one too many", true, true);
    EXPECT_EQ(200, acl->count);
    agent.SetACEProperties("item198", true, true);
    EXPECT_EQ(3u, acl->entries[199].flags);
    EXPECT_EQ(1u, LogCount("Access Control Entitties count reached to max"));
}

TEST_F(AclFileTest, WithoutTheSharedListTheFileIsLeftEmpty) {
    // A segment of another size under the agent's key: the agent cannot attach it.
    ASSERT_GE(shmget(root.shmKey(), 64, IPC_CREAT | IPC_EXCL | 0666), 0);
    root.writeFile(kAclFile, aclFile(kDefaultRecord, ace("Kept", "True", "True")));
    root.writeFile(kBackupFile, "previous backup");
    TOLAAgent agent;
    EXPECT_EQ(0, agent.Initialize());
    EXPECT_FALSE(agent.IsInitialized());
    EXPECT_EQ(nullptr, agent.AclBlock());

    EXPECT_FALSE(agent.SetRuntimeConfig(recordOf(agent)));
    EXPECT_TRUE(root.exists(kAclFile));
    EXPECT_EQ("", root.readFile(kAclFile));
    EXPECT_EQ("previous backup", root.readFile(kBackupFile));
    EXPECT_FALSE(agent.InitializeACL());
}

TEST_F(AclFileTest, OnlyTextsTheReaderGivesBackAreStorable) {
    for (const auto& c : tola_test::readCases("storable_texts.tsv", 2)) {
        SCOPED_TRACE(c[0]);
        ASSERT_EQ(tola_storable_text(c[0].c_str(), TOLA_TEXT_MAX), c[1] == "1");
        if (c[1] == "0") {
            continue;
        }
        // What is storable comes back unchanged after a restart.
        {
            TOLAAgent writer;
            writer.Initialize();
            tolaagent_runtime_config_t record = recordOf(writer);
            tola_copy_text(record.payloadEncryptionKey, c[0].c_str());
            writer.SetRuntimeConfig(record);
        }
        TOLAAgent agent;
        agent.Initialize();
        EXPECT_EQ(tola_record_text(recordOf(agent).payloadEncryptionKey), c[0].substr(0, TOLA_TEXT_MAX));
    }
    EXPECT_EQ(Log().find("looks like file got corrupted"), std::string::npos);
}

TEST_F(AclFileTest, WritesCarryOnlyStorableNamesNeverFollowALinkAndNeverTear) {
    TOLAAgent agent;
    agent.Initialize();
    agent.SetACEProperties("Good", true, true);
    agent.SetACEProperties("Bad&Name", true, true);  // from a document: refused at once
    ASSERT_EQ(agent.AclBlock()->count, 1);
    // Another process writes a bad name straight into the segment: left out of the file.
    tola_ace_t& planted = agent.AclBlock()->entries[1];
    std::memset(&planted, 0, sizeof planted);
    std::memcpy(planted.name, "Planted<", 8);
    agent.AclBlock()->count = 2;
    // A link where a fixed temporary name would be: the write must not go through it.
    root.writeFile("/victim", "untouched");
    ASSERT_EQ(symlink(root.path("/victim").c_str(), root.path(kAclFile + ".tmp").c_str()), 0);
    agent.SetRuntimeConfig(recordOf(agent));
    EXPECT_EQ(root.readFile(kAclFile), aclFile(kDefaultRecord, ace("Good", "True", "True")));
    EXPECT_EQ(root.readFile("/victim"), "untouched");

    // The bus thread and the check-in thread store the record at once; a reader beside them
    // only ever sees whole files, main and backup alike.
    std::atomic<bool> done{false};
    auto writer = [&](const char* prefix) {
        for (int i = 0; i < 300; ++i) {
            tolaagent_runtime_config_t mine = recordOf(agent);
            tola_copy_text(mine.payloadEncryptionKey, (prefix + std::to_string(i)).c_str());
            agent.SetRuntimeConfig(mine);
        }
    };
    int torn = 0;
    std::thread reader([&] {
        while (!done.load()) {
            for (const std::string& file : {kAclFile, kBackupFile}) {
                std::string text = root.readFile(file);
                torn += text.rfind(kHead, 0) != 0 || text.find("\n</ACL>\n</ACLConfig>") == std::string::npos;
            }
        }
    });
    std::thread a(writer, "bus-"), b(writer, "checkin-");
    a.join();
    b.join();
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(AclFileTest, SharedHeaderTellsFreshLoadedAndWiped) {
    TOLAAgent agent;
    ASSERT_TRUE(agent.InitializeSharedMemory());
    tola_acl_shm_t* acl = agent.AclBlock();
    EXPECT_EQ(TOLA_ACL_HEADER_FRESH, acl->header);
    EXPECT_EQ(0, acl->count);
    // The segment has the size other processes expect.
    struct shmid_ds info {};
    ASSERT_EQ(0, shmctl(shmget(root.shmKey(), 0, 0), IPC_STAT, &info));
    EXPECT_EQ(20808u, info.shm_segsz);
    EXPECT_TRUE(agent.InitializeSharedMemory());
    EXPECT_EQ(acl, agent.AclBlock());
    EXPECT_TRUE(agent.InitializeACL());
    EXPECT_EQ(TOLA_ACL_HEADER_LOADED, acl->header);

    // A second start attaches without clearing, and each attachment sees the other's writes.
    agent.SetACEProperties("Kept", true, true);  // not yet in the file
    TOLAAgent second;
    ASSERT_TRUE(second.InitializeSharedMemory());
    ASSERT_NE(acl, second.AclBlock());
    EXPECT_EQ(TOLA_ACL_HEADER_LOADED, second.AclBlock()->header);
    ASSERT_EQ(1, second.AclBlock()->count);
    EXPECT_STREQ("Kept", second.AclBlock()->entries[0].name);
    second.SetACEProperties("Kept", false, false);
    EXPECT_EQ(0u, acl->entries[0].flags);

    agent.SetRestoreDefaultsFlag(true);
    agent.SerializeACL();
    EXPECT_EQ(TOLA_ACL_HEADER_WIPED, acl->header);
    EXPECT_EQ(0, acl->count);
}

// Names are case-sensitive and compared within the field's 100 bytes, where a name of 100
// characters has no terminator; a known name is updated in place.
TEST_F(AclFileTest, NamesAreFoundWithinTheirHundredBytes) {
    TOLAAgent agent;
    agent.Initialize();
    tola_acl_shm_t* acl = agent.AclBlock();
    const std::string exact(100, 'a'), longer = std::string(100, 'b') + "tail";
    for (const std::string& name :
         {std::string("WiFiSSID"), std::string("wifissid"), exact, longer, std::string("next")}) {
        agent.SetACEProperties(name.c_str(), true, false);
    }
    ASSERT_EQ(5, acl->count);
    EXPECT_EQ(0, std::memcmp(exact.data(), acl->entries[2].name, 100));
    EXPECT_EQ(0, std::memcmp(longer.data(), acl->entries[3].name, 100));
    EXPECT_STREQ("next", acl->entries[4].name);  // the full field is followed at once
    for (uint32_t flags : {2u, 3u, 0u, 1u}) {    // bit 0 display, bit 1 write
        agent.SetACEProperties("WiFiSSID", flags & 1, flags & 2);
        EXPECT_EQ(flags, acl->entries[0].flags);
    }
    agent.SetACEProperties(exact.c_str(), false, true);
    agent.SetACEProperties(longer.substr(0, 100).c_str(), true, true);
    EXPECT_EQ((std::vector<uint32_t>{acl->entries[1].flags, acl->entries[2].flags, acl->entries[3].flags}),
              (std::vector<uint32_t>{1, 2, 3}));
    // A shorter prefix is another name.
    agent.SetACEProperties(exact.substr(0, 99).c_str(), true, true);
    EXPECT_EQ(6, acl->count);
}

}  // namespace
