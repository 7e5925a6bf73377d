// acl: dumps the shared-memory access-control list the way another process of the device sees
// it: attached read-only by its key, never created, every count and name bounded.
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "devicectl.h"
#include "sys_core.h"
#include "tola_types.h"

namespace {

const char* const kAclUsage = "acl   (dump the shared-memory access-control list)";

int runAcl(const devicectl::Args& args) {
    if (!args.empty()) {
        return devicectl::refuseArgument("acl", args[0], kAclUsage);
    }
    key_t key = sys_getACLSharedMemoryKey();
    int id = shmget(key, 0, 0);
    if (id < 0) {
        std::fprintf(stderr, "tola-devicectl: no ACL segment with key %d (%s)\n", static_cast<int>(key),
                     std::strerror(errno));
        return 1;
    }
    struct shmid_ds info {};
    if (shmctl(id, IPC_STAT, &info) != 0 || info.shm_segsz < sizeof(tola_acl_shm_t)) {
        std::fprintf(stderr, "tola-devicectl: the segment with key %d is not an ACL (%zu bytes)\n",
                     static_cast<int>(key), static_cast<size_t>(info.shm_segsz));
        return 1;
    }
    void* address = shmat(id, nullptr, SHM_RDONLY);
    if (address == reinterpret_cast<void*>(-1)) {
        std::fprintf(stderr, "tola-devicectl: cannot attach the ACL segment (%s)\n", std::strerror(errno));
        return 1;
    }
    const tola_acl_shm_t* acl = static_cast<const tola_acl_shm_t*>(address);
    int count = acl->count;
    std::printf("header: %u\ncount: %d\n", acl->header, count);
    if (count < 0) {
        count = 0;
    }
    if (count > TOLA_ACL_MAX_ENTRIES) {
        count = TOLA_ACL_MAX_ENTRIES;
    }
    for (int i = 0; i < count; ++i) {
        const tola_ace_t& entry = acl->entries[i];
        std::printf("%d name=%.*s display=%d write=%d\n", i, static_cast<int>(TOLA_ACL_NAME_SIZE), entry.name,
                    (entry.flags & TOLA_ACE_DISPLAY_ENABLED) ? 1 : 0,
                    (entry.flags & TOLA_ACE_WRITE_ENABLED) ? 1 : 0);
    }
    shmdt(address);
    return 0;
}

}  // namespace

DEVICECTL_VERB("acl", kAclUsage, runAcl);
