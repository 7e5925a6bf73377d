#include "test_env.h"

#ifndef TOLA_NO_GTEST
#include <gtest/gtest.h>
#endif
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "host_env.h"

namespace tola_test {

namespace {

std::atomic<int> gCounter{0};

const char* const kVariables[] = {"ARDO_ROOT", "ARDO_SHM_KEY", "ARDO_TIME_SCALE"};

#ifndef TOLA_NO_GTEST
// Every test binary runs against a simulated device of its own, even in tests that make no
// TempRoot: nothing a test does may reach the machine's real /var or /opt, or the device's
// real ACL segment key.
class ProcessRootEnvironment : public ::testing::Environment {
    void SetUp() override { mRoot = std::make_unique<TempRoot>(true, 0.0); }
    void TearDown() override { mRoot.reset(); }
    std::unique_ptr<TempRoot> mRoot;
};

::testing::Environment* const gProcessRoot = ::testing::AddGlobalTestEnvironment(new ProcessRootEnvironment);
#endif

}  // namespace

TempRoot::TempRoot(bool bare, double timeScale) {
    // TMPDIR lets a long fuzzing run keep its device on a RAM disk.
    const char* tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/tola-test-XXXXXX";
    if (mkdtemp(templ.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    mDir = templ;
    // A key per test process and root, away from the device's 9999.
    mShmKey = 0x70000000 | ((getpid() & 0xffff) << 8) | (gCounter++ & 0xff);
    for (int i = 0; i < 3; ++i) {
        const char* value = std::getenv(kVariables[i]);
        mOld[i].reset(value != nullptr ? new std::string(value) : nullptr);
    }
    setenv("ARDO_ROOT", mDir.c_str(), 1);
    setenv("ARDO_SHM_KEY", std::to_string(mShmKey).c_str(), 1);
    if (timeScale > 0) {
        setenv("ARDO_TIME_SCALE", std::to_string(timeScale).c_str(), 1);
    }
    // A simulated device starts as a running process, whatever an earlier test stopped.
    ardo::hostResetProcessStop();
    std::string mkroot =
        std::string("TOLA_BIN_DIR=/nonexistent '") + TOLA_SOURCE_DIR + "/scripts/mkroot' '" + mDir + "'";
    if (!bare && std::system(mkroot.c_str()) != 0) {
        throw std::runtime_error("command failed: " + mkroot);
    }
}

TempRoot::~TempRoot() {
    int id = shmget(static_cast<key_t>(mShmKey), 0, 0);
    if (id >= 0) {
        shmctl(id, IPC_RMID, nullptr);
    }
    std::error_code ignored;
    std::filesystem::remove_all(mDir, ignored);
    for (int i = 0; i < 3; ++i) {
        mOld[i] ? setenv(kVariables[i], mOld[i]->c_str(), 1) : unsetenv(kVariables[i]);
    }
    ardo::hostResetProcessStop();
}

void TempRoot::writeFile(const std::string& devicePath, const std::string& content) const {
    std::string full = path(devicePath);
    std::filesystem::create_directories(full.substr(0, full.rfind('/')));
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string TempRoot::readFile(const std::string& devicePath) const {
    return readWholeFile(path(devicePath));
}

bool TempRoot::exists(const std::string& devicePath) const {
    return access(path(devicePath).c_str(), F_OK) == 0;
}

void TempRoot::remove(const std::string& devicePath) const {
    ::unlink(path(devicePath).c_str());
}

std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

size_t countOf(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++n;
    }
    return n;
}

}  // namespace tola_test
