// The runtime record and the access-control list in acl_config.xml: writer, reader, backup and
// repair. The file's bytes are fixed (other tools of the device read it); every write replaces
// the file crash-safely.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>

#include "sys_core.h"
#include "tola_agent.h"
#include "tola_log.h"
#include "xmldata.h"

namespace {

const char* const kTolaPath = "/ACLConfig/TOLA";
const char* const kAclPath = "/ACLConfig/ACL";
// Flag values are short words; a longer text cannot equal "true" or "True" anyway.
constexpr unsigned int kFlagTextMax = 9;

std::string aclFilePath() {
    return sys_fsPath(TOLA_DATA_DIR "/" TOLA_ACL_FILE_NAME);
}
std::string aclBackupPath() {
    return aclFilePath() + ".bkp";
}

// -1 when the file does not exist, otherwise its size.
long long fileSize(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        return -1;
    }
    return static_cast<long long>(st.st_size);
}

void appendElement(std::string& out, const char* name, const std::string& value) {
    out += "\n<";
    out += name;
    out += '>';
    out += value;
    out += "</";
    out += name;
    out += '>';
}

const char* runtimeFlag(bool value) {
    return value ? "true" : "false";
}
const char* aceFlag(bool value) {
    return value ? "True" : "False";
}

// Reads a flag element; true only for exactly `expected`. The buffer is zeroed first, so a
// missing element reads as false.
bool readFlag(const char* xpath, const char* expected, char (&text)[kFlagTextMax + 1]) {
    std::memset(text, 0, sizeof text);
    xmldata_getstring(xpath, text, kFlagTextMax);
    return std::strcmp(text, expected) == 0;
}

// A power cut between creating a temporary file and renaming it leaves the temporary behind
// ("acl_config.xml.XXXXXX", "acl_config.xml.bkp.XXXXXX"); nothing else writes them, so at start
// they are only litter.
void removeStaleTemporaries() {
    std::string dir = sys_fsPath(TOLA_DATA_DIR);
    DIR* folder = opendir(dir.c_str());
    if (folder == nullptr) {
        return;
    }
    const std::string base = TOLA_ACL_FILE_NAME;
    while (struct dirent* entry = readdir(folder)) {
        std::string name = entry->d_name;
        size_t dot = name.rfind('.');
        if (name.compare(0, base.size() + 1, base + ".") == 0 && dot != std::string::npos &&
            name.size() - dot - 1 == 6) {
            unlink((dir + "/" + name).c_str());
        }
    }
    closedir(folder);
}

}  // namespace

bool tola_write_file_atomic(const std::string& path, const std::string& content) {
    // A fresh temporary name each time, created exclusively (never through a planted symlink,
    // never shared by two writers) and readable by the owner alone: the record holds keys.
    std::string temporary = path + ".XXXXXX";
    int fd = mkstemp(&temporary[0]);
    if (fd < 0) {
        return false;
    }
    bool ok = true;
    for (size_t done = 0; ok && done < content.size();) {
        ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        ok = n > 0;
        done += ok ? static_cast<size_t>(n) : 0;
    }
#ifndef TOLA_SKIP_FSYNC
    // Flush to the disk before the rename, so that the new name never points at missing data.
    ok = ok && fsync(fd) == 0;
#endif
    ok = close(fd) == 0 && ok;
    if (!ok || std::rename(temporary.c_str(), path.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

bool tola_copy_file_lines(const std::string& source, const std::string& target) {
    std::ifstream in(source, std::ios::binary);
    if (!in.is_open()) {
        return false;
    }
    std::string content;
    std::string line;
    while (std::getline(in, line)) {
        content += line;
        content += '\n';
    }
    return tola_write_file_atomic(target, content);
}

bool TOLAAgent::GetRuntimeConfig(tolaagent_runtime_config_t& config) {
    TOLA_TRACE();
    std::lock_guard<std::recursive_mutex> lock(mRecordMutex);
    std::memcpy(&config, &mConfig, sizeof config);
    // The result carries no meaning; callers do not test it.
    return trace.Returning(false);
}

bool TOLAAgent::SetRuntimeConfig(const tolaagent_runtime_config_t& config) {
    TOLA_TRACE();
    // The SMS commands (bus thread) and the check-ins store the record at the same time: the
    // file and its backup are written by one of them at a time.
    std::lock_guard<std::recursive_mutex> lock(mRecordMutex);
    if (&config != &mConfig) {
        std::memcpy(&mConfig, &config, sizeof mConfig);
    }
    bool result = SerializeACL();
    // Refresh the backup from a non-empty main file, whatever the write returned.
    std::string path = aclFilePath();
    if (fileSize(path) > 0 && !tola_copy_file_lines(path, aclBackupPath())) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to write %s\n", aclBackupPath().c_str());
    }
    return trace.Returning(result);
}

bool TOLAAgent::SerializeACL() {
    TOLA_TRACE();
    std::lock_guard<std::recursive_mutex> lock(mRecordMutex);
    std::string path = aclFilePath();
    if (mAcl == nullptr) {
        // Without the list the file is left empty; the next start repairs it from the backup.
        tola_write_file_atomic(path, std::string());
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Access Control List Database is NULL\n");
        return trace.Returning(false);
    }

    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    text += "\n<ACLConfig>\n<TOLA>";
    appendElement(text, "CheckInFlag", runtimeFlag(mConfig.checkInFlag));
    appendElement(text, "FactoryResetFlag", runtimeFlag(mConfig.factoryResetFlag));
    appendElement(text, "CheckInIntervalOverrideFlag", runtimeFlag(mConfig.checkInIntervalOverrideFlag));
    appendElement(text, "CheckInInterval", std::to_string(mConfig.checkInInterval));
    // Texts are written as they stand, without escaping: the reader rejects a file whose
    // texts hold "<" or "&", and then recreates it from the record in memory.
    appendElement(text, "CheckInURL",
                  std::string(mConfig.checkInURL, strnlen(mConfig.checkInURL, TOLA_TEXT_MAX)));
    appendElement(
        text, "PayloadEncryptionKey",
        std::string(mConfig.payloadEncryptionKey, strnlen(mConfig.payloadEncryptionKey, TOLA_TEXT_MAX)));
    appendElement(text, "LastCommand",
                  std::string(mConfig.lastCommand, strnlen(mConfig.lastCommand, TOLA_TEXT_MAX)));
    appendElement(text, "Version", std::string(mConfig.version, strnlen(mConfig.version, TOLA_TEXT_MAX)));
    appendElement(text, "AclConfigStatus", std::to_string(mConfig.aclConfigStatus));
    appendElement(text, "LastCheckInDate",
                  std::string(mConfig.lastCheckInDate, strnlen(mConfig.lastCheckInDate, TOLA_TEXT_MAX)));
    text += "\n</TOLA>";
    text += "\n<ACL>";

    if (!mRestoreDefaults) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Add Access Control Entitties\n");
        // The count lives in memory other processes can write: never trust it past the table.
        int count = mAcl->count;
        if (count > TOLA_ACL_MAX_ENTRIES) {
            count = TOLA_ACL_MAX_ENTRIES;
        }
        for (int i = 0; i < count; ++i) {
            const tola_ace_t& entry = mAcl->entries[i];
            std::string name(entry.name, strnlen(entry.name, TOLA_ACL_NAME_SIZE));
            // Any process may write the segment; a name the reader would reject is left out
            // rather than costing the whole file at the next start.
            if (!tola_storable_text(name.c_str(), TOLA_ACL_NAME_SIZE)) {
                TLOG_SYS(TOLA_LOG_ERROR,
                         "[%s]:[%s] - Access control entry %s left out, its name cannot be stored\n",
                         name.c_str());
                continue;
            }
            text += "\n<ACE>";
            appendElement(text, "Name", name);
            appendElement(text, "DisplayEnabled", aceFlag((entry.flags & TOLA_ACE_DISPLAY_ENABLED) != 0));
            appendElement(text, "WriteEnabled", aceFlag((entry.flags & TOLA_ACE_WRITE_ENABLED) != 0));
            text += "\n</ACE>";
        }
    } else {
        std::memset(mAcl, 0, sizeof *mAcl);
        mRestoreDefaults = false;
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - FactoryReset Remove Access Control Entities\n");
    }
    text += "\n</ACL>\n</ACLConfig>";

    bool written = tola_write_file_atomic(path, text);
    if (!written) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to write %s\n", path.c_str());
    }
    return trace.Returning(written);
}

bool TOLAAgent::InitializeACL() {
    TOLA_TRACE();
    std::lock_guard<std::recursive_mutex> lock(mRecordMutex);
    std::string path = aclFilePath();
    std::string backup = aclBackupPath();
    removeStaleTemporaries();

    if (fileSize(path) < 0) {
        SerializeACL();
    }
    if (fileSize(path) == 0) {
        if (fileSize(backup) > 0) {
            tola_copy_file_lines(backup, path);
        } else {
            SerializeACL();
        }
    }
    if (mAcl == nullptr) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Access Control List Database is empty\n");
        return trace.Returning(false);
    }
    if (fileSize(path) < 0 || xmldata_initialize(path.c_str(), path.c_str()) != 0) {
        TLOG_SYS(
            TOLA_LOG_ERROR,
            "[%s]:[%s] - Initialize settings failed for %s, so looks like file got corrupted and reset the "
            "acl_config.xml\n",
            path.c_str());
        xmldata_close();
        SerializeACL();
        return trace.Returning(true);
    }

    char xpath[256];
    char flag[kFlagTextMax + 1];
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "CheckInFlag");
    mConfig.checkInFlag = readFlag(xpath, "true", flag);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - mConfig.checkInFlag = %s", flag);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "FactoryResetFlag");
    mConfig.factoryResetFlag = readFlag(xpath, "true", flag);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - mConfig.factoryResetFlag = %s", flag);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "Version");
    xmldata_getstring(xpath, mConfig.version, TOLA_TEXT_MAX);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "CheckInURL");
    xmldata_getstring(xpath, mConfig.checkInURL, TOLA_TEXT_MAX);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "CheckInIntervalOverrideFlag");
    mConfig.checkInIntervalOverrideFlag = readFlag(xpath, "true", flag);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - mConfig.checkInIntervalOverrideFlag = %s", flag);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "CheckInInterval");
    if (xmldata_getuint32(xpath, &mConfig.checkInInterval) != 0) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - unable to retrive runtime check in interval.");
        mConfig.checkInIntervalOverrideFlag = false;
        mConfig.checkInInterval = 0;
    }
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "PayloadEncryptionKey");
    xmldata_getstring(xpath, mConfig.payloadEncryptionKey, TOLA_TEXT_MAX);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "LastCommand");
    xmldata_getstring(xpath, mConfig.lastCommand, TOLA_TEXT_MAX);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "AclConfigStatus");
    xmldata_getint32_default(xpath, &mConfig.aclConfigStatus, 0);
    std::snprintf(xpath, sizeof xpath, "%s/%s", kTolaPath, "LastCheckInDate");
    xmldata_getstring(xpath, mConfig.lastCheckInDate, TOLA_TEXT_MAX);

    TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  mConfig.payloadEncryptionKey = %s", mConfig.payloadEncryptionKey);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  mConfig.checkInURLOverride = %s", mConfig.checkInURL);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  mConfig.version = %s", mConfig.version);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  mConfig.lastCommand = %s", mConfig.lastCommand);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  mConfig.aclConfigStatus = %d", mConfig.aclConfigStatus);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] -  mConfig.lastCheckInDate = %s", mConfig.lastCheckInDate);

    std::snprintf(xpath, sizeof xpath, "%s/%s", kAclPath, "ACE");
    int count = 0;
    if (xmldata_getcount(xpath, &count) != 0 || count < 0) {
        count = 0;
    }
    // A hand-edited file may list more entries than the table holds: load the first 200.
    if (count > TOLA_ACL_MAX_ENTRIES) {
        count = TOLA_ACL_MAX_ENTRIES;
    }
    mAcl->header = TOLA_ACL_HEADER_LOADED;
    mAcl->count = count;
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - ACE count = %d", count);

    for (int i = 1; i <= count; ++i) {
        tola_ace_t& entry = mAcl->entries[i - 1];
        entry.flags = 0;
        // One byte more than the field, so that a 100-character name survives the round trip
        // (stored without terminator, as SetACEProperties stores it).
        char name[TOLA_ACL_NAME_SIZE + 1];
        std::memset(name, 0, sizeof name);
        std::snprintf(xpath, sizeof xpath, "%s/%s[%d]/%s", kAclPath, "ACE", i, "Name");
        if (xmldata_getstring(xpath, name, TOLA_ACL_NAME_SIZE) == 0) {
            std::memset(entry.name, 0, sizeof entry.name);
            std::memcpy(entry.name, name, strnlen(name, TOLA_ACL_NAME_SIZE));
        }
        std::snprintf(xpath, sizeof xpath, "%s/%s[%d]/%s", kAclPath, "ACE", i, "DisplayEnabled");
        if (readFlag(xpath, "True", flag)) {
            entry.flags |= TOLA_ACE_DISPLAY_ENABLED;
        }
        std::snprintf(xpath, sizeof xpath, "%s/%s[%d]/%s", kAclPath, "ACE", i, "WriteEnabled");
        if (readFlag(xpath, "True", flag)) {
            entry.flags |= TOLA_ACE_WRITE_ENABLED;
        }
        std::memcpy(name, entry.name, TOLA_ACL_NAME_SIZE);
        name[TOLA_ACL_NAME_SIZE] = '\0';
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Item name = %s, display enabled = %d, write enabled = %d", name,
             (entry.flags & TOLA_ACE_DISPLAY_ENABLED) ? 1 : 0,
             (entry.flags & TOLA_ACE_WRITE_ENABLED) ? 1 : 0);
    }
    xmldata_close();
    return trace.Returning(true);
}
