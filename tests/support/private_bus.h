// A private D-Bus daemon per test, and real binaries run as child processes.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace tola_test {

class ChildProcess;

// Starts a dbus-daemon of its own (a session-type bus on a unix socket in a temporary folder,
// everything allowed) and points ARDO_BUS_ADDRESS at it; on destruction stops the daemon,
// restores the variable and removes the folder. Never touches a system or session bus.
class PrivateBus {
  public:
    PrivateBus();
    // A daemon with the given configuration instead; "@DIR@" in it stands for the bus's own
    // folder (where its socket must listen, as unix:path=@DIR@/bus). The folder is open to
    // every user, so that a test may connect as another one.
    explicit PrivateBus(const std::string& config);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return mAddress; }

  private:
    std::string mDir;
    std::string mAddress;
    std::unique_ptr<ChildProcess> mDaemon;
    std::string mOldAddress;
    bool mHadAddress = false;
};

// A system bus as Debian configures it (its system.conf: the default deny rules, user
// policies and limits) with the policy files given, listening on a private socket instead of
// the machine's and leaving out the machine's own policy folders, for PrivateBus(config).
std::string SystemStyleBusConfig(const std::vector<std::string>& policyFiles,
                                 const std::string& extraPolicy = "");

// Runs a binary with the test's environment; its stdout and stderr go to outputFile.
class ChildProcess {
  public:
    ChildProcess(const std::string& binary, const std::vector<std::string>& args,
                 const std::string& outputFile);
    // Kills (SIGKILL) and reaps the process if it is still running. A sanitizer report in its
    // output (a sanitized build's race, overflow or leak) fails the running test.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int sig);
    // Waits up to timeoutMs for the process to end. true when it exited normally, with its exit
    // status in exitStatus; false on time-out or when a signal ended it (exitStatus is then
    // -1 or minus the signal number).
    bool waitForExit(int& exitStatus, int timeoutMs);

  private:
    pid_t mPid = -1;
    std::string mOutputFile;
    bool mReaped = false;
    int mStatus = 0;
};

// Runs a shell command line for at most two minutes; its exit status (-1 when it did not exit,
// 124 when it was stopped), its standard output in *output.
int runShell(const std::string& command, std::string* output = nullptr);

// Polls every 10 ms until pred() holds; false after timeoutMs.
template <typename Pred>
bool Eventually(Pred pred, int timeoutMs = 10000) {
    for (int waited = 0; !pred(); waited += 10, usleep(10000)) {
        if (waited >= timeoutMs) {
            return false;
        }
    }
    return true;
}

// Polls file until it contains text; false after timeoutMs.
bool waitForText(const std::string& file, const std::string& text, int timeoutMs = 10000);

}  // namespace tola_test
