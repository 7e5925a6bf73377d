#include "host_env.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace ardo {

std::string hostRoot() {
    const char* root = std::getenv("ARDO_ROOT");
    if (root == nullptr) {
        return {};
    }
    std::string r(root);
    while (r.size() > 1 && r.back() == '/') {
        r.pop_back();
    }
    return r == "/" ? std::string() : r;
}

double hostTimeScale() {
    const char* text = std::getenv("ARDO_TIME_SCALE");
    if (text == nullptr || *text == '\0') {
        return 1.0;
    }
    char* end = nullptr;
    double scale = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(scale) || scale <= 0.0) {
        return 1.0;
    }
    return scale;
}

uint64_t hostScaledMilliseconds(uint64_t deviceMilliseconds) {
    double scaled = static_cast<double>(deviceMilliseconds) / hostTimeScale();
    if (scaled >= 1.8e19) {
        return UINT64_MAX;
    }
    return static_cast<uint64_t>(std::llround(scaled));
}

bool hostMakeDirs(const std::string& dir) {
    if (dir.empty()) {
        return true;
    }
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        partial = dir.substr(0, pos);
        if (partial.empty()) {
            continue;
        }
        if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

bool hostWriteFileAtomic(const std::string& path, const std::string& content) {
    std::string tmp = path + ".tmp." + std::to_string(getpid());
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return false;
    }
    const char* p = content.data();
    size_t left = content.size();
    while (left > 0) {
        ssize_t n = write(fd, p, left);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            close(fd);
            unlink(tmp.c_str());
            return false;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    // fsync before rename: otherwise a power loss can leave the new name with no data behind it.
    // (Fuzz builds may leave it out for speed; see TOLA_FUZZ_SKIP_FSYNC.)
#ifdef TOLA_SKIP_FSYNC
    const bool synced = true;
#else
    const bool synced = fsync(fd) == 0;
#endif
    if (close(fd) != 0 || !synced) {
        unlink(tmp.c_str());
        return false;
    }
    if (rename(tmp.c_str(), path.c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

}  // namespace ardo
