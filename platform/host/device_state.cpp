#include "device_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>

#include "host_env.h"
#include "sys_core.h"

extern const char* const kFactoryFragments[];
extern const std::size_t kFactoryFragmentCount;

namespace ardo {

namespace {

std::mutex gCacheMutex;
struct Cache {
    std::string path;
    ino_t ino = 0;
    struct timespec mtime {};
    off_t size = -1;
    std::shared_ptr<const json> doc;
} gCache;

std::string dirOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// Holds an exclusive flock on the state's lock file for the life of the object. flock locks
// belong to the open file description, so threads of one process exclude each other too.
class StateLock {
  public:
    explicit StateLock(const std::string& statePath) {
        hostMakeDirs(dirOf(statePath));
        mFd = open((statePath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (mFd >= 0) {
            while (flock(mFd, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~StateLock() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

  private:
    int mFd = -1;
};

bool parseFile(const std::string& path, json& out) {
    std::ifstream in(path);
    if (!in) {
        return false;
    }
    json doc = json::parse(in, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        return false;
    }
    out = std::move(doc);
    return true;
}

bool writeDoc(const std::string& path, const json& doc) {
    hostMakeDirs(dirOf(path));
    // Record texts are cut at their field's bound, possibly inside a UTF-8 sequence: such bytes
    // are kept as U+FFFD rather than failing the write.
    return hostWriteFileAtomic(path, doc.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
}

// Reads the document without taking the lock (the file is only ever replaced by rename, so a
// reader sees the old or the new version). Creates it from the defaults when missing.
std::shared_ptr<const json> readUnlocked(const std::string& path, bool createIfMissing) {
    struct stat st {};
    std::lock_guard<std::mutex> guard(gCacheMutex);
    if (stat(path.c_str(), &st) == 0) {
        if (gCache.doc && gCache.path == path && gCache.ino == st.st_ino && gCache.size == st.st_size &&
            gCache.mtime.tv_sec == st.st_mtim.tv_sec && gCache.mtime.tv_nsec == st.st_mtim.tv_nsec) {
            return gCache.doc;
        }
        json doc;
        if (parseFile(path, doc)) {
            gCache.path = path;
            gCache.ino = st.st_ino;
            gCache.size = st.st_size;
            gCache.mtime = st.st_mtim;
            gCache.doc = std::make_shared<const json>(std::move(doc));
            return gCache.doc;
        }
    }
    auto doc = std::make_shared<const json>(deviceFactoryState());
    if (createIfMissing) {
        writeDoc(path, *doc);
    }
    gCache = Cache{};
    return doc;
}

}  // namespace

std::string deviceStatePath() {
    return sys_fsPath("/var/lib/ardo/device.json");
}

const json& deviceFactoryState() {
    static const json factory = [] {
        json merged = json::object();
        for (std::size_t i = 0; i < kFactoryFragmentCount; ++i) {
            json fragment = json::parse(kFactoryFragments[i], nullptr, false);
            if (fragment.is_object()) {
                merged.merge_patch(fragment);
            }
        }
        return merged;
    }();
    return factory;
}

std::shared_ptr<const json> deviceStateSnapshot() {
    std::string path = deviceStatePath();
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        // Create under the lock so that two first readers do not race.
        StateLock lock(path);
        return readUnlocked(path, true);
    }
    return readUnlocked(path, false);
}

json deviceStateRead() {
    json doc = *deviceStateSnapshot();
    // The watchdog's keep-alives live in a record of their own (see deviceKeepAlive); shown here
    // in the section they belong to.
    json keepAlives = deviceKeepAlives();
    for (const char* section : {"keepalives", "last_keepalive"}) {
        auto entries = keepAlives.find(section);
        if (entries != keepAlives.end() && entries->is_object()) {
            for (auto it = entries->begin(); it != entries->end(); ++it) {
                doc["watchdog"][section][it.key()] = it.value();
            }
        }
    }
    return doc;
}

std::string deviceKeepAlivePath() {
    return sys_fsPath("/run/ardo/watchdog.json");
}

json deviceKeepAlives() {
    // The record is rewritten in place: read its first line only, so that the tail of a longer
    // predecessor (until the writer truncates it) is never taken for part of it.
    std::ifstream in(deviceKeepAlivePath());
    std::string line;
    if (!std::getline(in, line)) {
        return json::object();
    }
    json record = json::parse(line, nullptr, false);
    return record.is_object() ? record : json::object();
}

bool deviceKeepAlive(const char* name, long long time, int pid) {
    std::string path = deviceKeepAlivePath();
    StateLock lock(path);
    json record = deviceKeepAlives();
    json& count = record["keepalives"][name];
    count = count.is_number_integer() ? count.get<long long>() + 1 : 1;
    record["last_keepalive"][name] = {{"time", time}, {"pid", pid}};
    // Written in place rather than replaced: a keep-alive must not cost the device more than
    // the timer's own wake-up (a rename blocks on the directory), and the record is as volatile
    // as the watchdog's memory, so it is not synced either. One write of a few dozen bytes.
    std::string text = record.dump() + "\n";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    bool written = pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
                   ftruncate(fd, static_cast<off_t>(text.size())) == 0;
    close(fd);
    return written;
}

bool deviceStateUpdate(const std::function<void(json& state)>& change) {
    std::string path = deviceStatePath();
    StateLock lock(path);
    json doc = *readUnlocked(path, false);
    change(doc);
    if (!writeDoc(path, doc)) {
        return false;
    }
    // What was just written is the current document: cache it as the file now stands, so that
    // the next reading in this process does not parse it again. Other writers wait for the lock.
    struct stat st {};
    if (stat(path.c_str(), &st) == 0) {
        std::lock_guard<std::mutex> guard(gCacheMutex);
        gCache.path = path;
        gCache.ino = st.st_ino;
        gCache.size = st.st_size;
        gCache.mtime = st.st_mtim;
        gCache.doc = std::make_shared<const json>(std::move(doc));
    }
    return true;
}

bool deviceStateSet(const std::string& pointer, const json& value) {
    return deviceStateUpdate([&](json& state) { state[json::json_pointer(pointer)] = value; });
}

bool deviceTakeFault(const char* call, int* result) {
    std::shared_ptr<const json> state = deviceStateSnapshot();
    auto faults = state->find("faults");
    if (faults == state->end() || !faults->is_object() || !faults->contains(call)) {
        return false;
    }
    bool taken = false;
    deviceStateUpdate([&](json& doc) {
        json& entry = doc["faults"][call];
        if (entry.is_number_integer()) {
            *result = entry.get<int>();
            taken = true;
        } else if (entry.is_array() && !entry.empty() && entry.front().is_number_integer()) {
            *result = entry.front().get<int>();
            entry.erase(entry.begin());
            taken = true;
        }
        if (entry.is_array() && entry.empty()) {
            doc["faults"].erase(call);
        }
    });
    return taken;
}

void deviceJournal(const char* call, const json& args, int result, const char* journal) {
    std::string path = sys_fsPath((std::string("/var/lib/ardo/") + journal).c_str());
    hostMakeDirs(dirOf(path));
    json line = {{"call", call}, {"args", args}, {"result", result}};
    // A text cut inside a UTF-8 sequence (a record field's bound) is journalled with U+FFFD.
    std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    // One write with O_APPEND keeps concurrent lines whole.
    ssize_t ignored = write(fd, text.data(), text.size());
    (void)ignored;
    close(fd);
}

}  // namespace ardo
