// Test environment: a temporary simulated device root per test (ARDO_ROOT), with its own ACL
// segment key and compressed time.
#pragma once

#include <memory>
#include <string>

namespace tola_test {

// Creates a fresh root (laid out by scripts/mkroot unless bare) and points ARDO_ROOT,
// ARDO_SHM_KEY and ARDO_TIME_SCALE (unless timeScale is 0) at it; restores the environment and
// removes the root, the device state and the ACL segment on destruction.
class TempRoot {
  public:
    explicit TempRoot(bool bare = false, double timeScale = 1000.0);
    ~TempRoot();
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    const std::string& dir() const { return mDir; }
    int shmKey() const { return mShmKey; }
    // The host path of one of the device's fixed paths.
    std::string path(const std::string& devicePath) const { return mDir + devicePath; }
    void writeFile(const std::string& devicePath, const std::string& content) const;
    std::string readFile(const std::string& devicePath) const;
    bool exists(const std::string& devicePath) const;
    void remove(const std::string& devicePath) const;

  private:
    std::string mDir;
    int mShmKey;
    // ARDO_ROOT, ARDO_SHM_KEY and ARDO_TIME_SCALE as they were (nullptr: unset).
    std::unique_ptr<std::string> mOld[3];
};

// Reads a whole file; "" when it cannot be read.
std::string readWholeFile(const std::string& path);

// How often what occurs in text, occurrences not overlapping.
size_t countOf(const std::string& text, const std::string& what);

}  // namespace tola_test
