// The shared-memory access-control list: header values, updates in place, the capacity, long
// names, and attaching to a segment that already exists.
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>
#include <string>

#include "app_fixture.h"

namespace {

using SharedAclTest = tola_test::RootTest;

TEST_F(SharedAclTest, HeaderTellsFreshLoadedAndWiped) {
    TOLAAgent agent;
    ASSERT_TRUE(agent.InitializeSharedMemory());
    tola_acl_shm_t* acl = agent.AclBlock();
    EXPECT_EQ(TOLA_ACL_HEADER_FRESH, acl->header);
    EXPECT_EQ(0, acl->count);
    // The segment has the size other processes expect.
    struct shmid_ds info {};
    ASSERT_EQ(0, shmctl(shmget(root.shmKey(), 0, 0), IPC_STAT, &info));
    EXPECT_EQ(20808u, info.shm_segsz);
    // Attaching twice keeps the same block.
    EXPECT_TRUE(agent.InitializeSharedMemory());
    EXPECT_EQ(acl, agent.AclBlock());

    EXPECT_TRUE(agent.InitializeACL());
    EXPECT_EQ(TOLA_ACL_HEADER_LOADED, acl->header);

    agent.SetACEProperties("A", true, true);
    agent.SetRestoreDefaultsFlag(true);
    agent.SerializeACL();
    EXPECT_EQ(TOLA_ACL_HEADER_WIPED, acl->header);
    EXPECT_EQ(0, acl->count);
}

TEST_F(SharedAclTest, ExistingNameIsUpdatedInPlace) {
    TOLAAgent agent;
    agent.Initialize();
    tola_acl_shm_t* acl = agent.AclBlock();
    agent.SetACEProperties("WiFiSSID", false, false);
    agent.SetACEProperties("wifissid", true, false);  // names are case-sensitive
    ASSERT_EQ(2, acl->count);
    struct Case {
        bool display, write;
        uint32_t flags;
    } cases[] = {{true, false, 1}, {false, true, 2}, {true, true, 3}, {false, false, 0}};
    for (const Case& c : cases) {
        agent.SetACEProperties("WiFiSSID", c.display, c.write);
        EXPECT_EQ(2, acl->count);
        EXPECT_EQ(c.flags, acl->entries[0].flags);
        EXPECT_EQ(1u, acl->entries[1].flags);
    }
}

TEST_F(SharedAclTest, TableHoldsTwoHundredNames) {
    TOLAAgent agent;
    agent.Initialize();
    tola_acl_shm_t* acl = agent.AclBlock();
    for (int i = 0; i < TOLA_ACL_MAX_ENTRIES; ++i) {
        agent.SetACEProperties(("item" + std::to_string(i)).c_str(), false, false);
    }
    ASSERT_EQ(200, acl->count);
    agent.SetACEProperties("one too many", true, true);
    EXPECT_EQ(200, acl->count);
    EXPECT_EQ(1u, LogCount("Access Control Entitties count reached to max"));
    // Known names are still updated.
    agent.SetACEProperties("item199", true, true);
    EXPECT_EQ(3u, acl->entries[199].flags);
    EXPECT_EQ(1u, LogCount("Access Control Entitties count reached to max"));
}

TEST_F(SharedAclTest, HundredCharacterNamesHaveNoTerminatorAndAreStillFound) {
    TOLAAgent agent;
    agent.Initialize();
    tola_acl_shm_t* acl = agent.AclBlock();
    const std::string exact(100, 'a');
    const std::string longer = std::string(100, 'b') + "tail";
    agent.SetACEProperties(exact.c_str(), true, false);
    agent.SetACEProperties(longer.c_str(), true, false);
    agent.SetACEProperties("next", false, false);
    ASSERT_EQ(3, acl->count);
    EXPECT_EQ(0, std::memcmp(exact.data(), acl->entries[0].name, 100));
    EXPECT_EQ(0, std::memcmp(longer.data(), acl->entries[1].name, 100));
    // The field is full; the next entry's name follows at once.
    EXPECT_STREQ("next", acl->entries[2].name);

    agent.SetACEProperties(exact.c_str(), false, true);
    agent.SetACEProperties(longer.substr(0, 100).c_str(), true, true);
    EXPECT_EQ(3, acl->count);
    EXPECT_EQ(TOLA_ACE_WRITE_ENABLED, acl->entries[0].flags);
    EXPECT_EQ(3u, acl->entries[1].flags);
    // A shorter prefix is another name.
    agent.SetACEProperties(exact.substr(0, 99).c_str(), true, true);
    EXPECT_EQ(4, acl->count);
}

TEST_F(SharedAclTest, SecondStartAttachesWithoutClearing) {
    TOLAAgent first;
    first.Initialize();
    first.SetACEProperties("Kept", true, true);  // not yet in the file
    TOLAAgent second;
    ASSERT_TRUE(second.InitializeSharedMemory());
    ASSERT_NE(first.AclBlock(), second.AclBlock());
    EXPECT_EQ(TOLA_ACL_HEADER_LOADED, second.AclBlock()->header);
    ASSERT_EQ(1, second.AclBlock()->count);
    EXPECT_STREQ("Kept", second.AclBlock()->entries[0].name);
    // Each attachment sees the other's writes.
    second.SetACEProperties("Kept", false, false);
    EXPECT_EQ(0u, first.AclBlock()->entries[0].flags);
}

}  // namespace
