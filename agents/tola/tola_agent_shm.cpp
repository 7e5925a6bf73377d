// The access-control list in a System V shared-memory segment that the device's other
// processes read by its fixed key. No lock guards it: entries are written before the count
// is raised, so a reader that trusts the count never sees an unfilled entry.
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "sys_core.h"
#include "tola_agent.h"
#include "tola_log.h"

bool TOLAAgent::InitializeSharedMemory() {
    TOLA_TRACE();
    if (mAcl != nullptr) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Access Control List database already initialized");
        return trace.Returning(true);
    }
    key_t key = sys_getACLSharedMemoryKey();
    int id = shmget(key, sizeof(tola_acl_shm_t), IPC_CREAT | IPC_EXCL | 0666);
    if (id >= 0) {
        void* address = shmat(id, nullptr, 0);
        if (address == reinterpret_cast<void*>(-1)) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - shared memory attach failed, errno = %d", errno);
            return trace.Returning(false);
        }
        mAcl = static_cast<tola_acl_shm_t*>(address);
        std::memset(mAcl, 0, sizeof *mAcl);
        mAcl->header = TOLA_ACL_HEADER_FRESH;
        return trace.Returning(true);
    }
    // The segment exists already (an earlier run or another process filled it): attach and
    // keep its contents. A segment of another size makes shmget fail here.
    id = shmget(key, sizeof(tola_acl_shm_t), IPC_CREAT | 0666);
    if (id < 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - share memory get failed, errno = %d", errno);
        return trace.Returning(false);
    }
    void* address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - shared memory attach failed, errno = %d", errno);
        return trace.Returning(false);
    }
    mAcl = static_cast<tola_acl_shm_t*>(address);
    return trace.Returning(true);
}

void TOLAAgent::SetACEProperties(const char* name, bool displayEnabled, bool writeEnabled) {
    TOLA_TRACE();
    trace.Silence();  // this method's END line has a trailing blank of its own
    if (mAcl == nullptr) {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Access Control List Database is NULL\n");
    } else if (name != nullptr && !tola_storable_text(name, TOLA_ACL_NAME_SIZE)) {
        // The list is saved in acl_config.xml as it stands; such a name would make the file
        // unreadable at the next start.
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Access control entry %s refused, its name cannot be stored\n",
                 name);
    } else if (name != nullptr) {
        uint32_t flags =
            (displayEnabled ? TOLA_ACE_DISPLAY_ENABLED : 0u) | (writeEnabled ? TOLA_ACE_WRITE_ENABLED : 0u);
        int count = mAcl->count;
        int scan = count < 0 ? 0 : (count > TOLA_ACL_MAX_ENTRIES ? TOLA_ACL_MAX_ENTRIES : count);
        bool found = false;
        for (int i = 0; i < scan && !found; ++i) {
            tola_ace_t& entry = mAcl->entries[i];
            // A stored name of 100 characters has no terminator: compare within the field.
            if (std::strncmp(entry.name, name, TOLA_ACL_NAME_SIZE) == 0) {
                TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s item found in database, updating it", name);
                entry.flags = flags;
                found = true;
            }
        }
        if (!found) {
            if (count >= TOLA_ACL_MAX_ENTRIES) {
                TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Access Control Entitties count reached to max");
            } else {
                if (count < 0) {
                    count = 0;
                }
                tola_ace_t& entry = mAcl->entries[count];
                std::memset(entry.name, 0, sizeof entry.name);
                std::memcpy(entry.name, name, strnlen(name, TOLA_ACL_NAME_SIZE));
                entry.flags = flags;
                // Publish the entry before the count that makes it visible.
                __atomic_store_n(&mAcl->count, count + 1, __ATOMIC_RELEASE);
                TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Added new item %s", name);
            }
        }
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END ", trace.Signature());
}

std::unique_ptr<tola_acl_shm_t> TOLAAgent::SaveAclEntries() const {
    if (mAcl == nullptr) {
        return nullptr;
    }
    std::unique_ptr<tola_acl_shm_t> saved(new (std::nothrow) tola_acl_shm_t);
    if (saved) {
        std::memcpy(saved.get(), mAcl, sizeof *mAcl);
    }
    return saved;
}

void TOLAAgent::RestoreAclEntries(const tola_acl_shm_t& saved) {
    if (mAcl == nullptr) {
        return;
    }
    // The list only grew during the parse: lowering the count first hides the added entries
    // before their slots are put back, then the count is stored once more after the entries.
    __atomic_store_n(&mAcl->count, saved.count, __ATOMIC_RELEASE);
    std::memcpy(mAcl->entries, saved.entries, sizeof mAcl->entries);
    __atomic_store_n(&mAcl->count, saved.count, __ATOMIC_RELEASE);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Access Control List restored, count = %d", saved.count);
}
