#include "private_bus.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "test_env.h"

namespace tola_test {

namespace {

using Clock = std::chrono::steady_clock;

// Reads the first line the daemon prints on fd, waiting at most timeoutMs.
std::string readLine(int fd, int timeoutMs) {
    std::string line;
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < deadline) {
        int left = static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        struct pollfd pfd {
            fd, POLLIN, 0
        };
        if (poll(&pfd, 1, left > 0 ? left : 0) <= 0) {
            continue;
        }
        char c;
        ssize_t n = read(fd, &c, 1);
        if (n <= 0) {
            break;  // the daemon ended before printing its address
        }
        if (c == '\n') {
            return line;
        }
        line.push_back(c);
    }
    return {};
}

void removeTree(const std::string& dir) {
    if (!dir.empty()) {
        std::string cmd = "rm -rf '" + dir + "'";
        int ignored = std::system(cmd.c_str());
        (void)ignored;
    }
}

}  // namespace

PrivateBus::PrivateBus() {
    char templ[] = "/tmp/tola-bus-XXXXXX";
    if (mkdtemp(templ) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    mDir = templ;
    std::string config = mDir + "/bus.conf";
    {
        std::ofstream out(config);
        out << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
               "<busconfig>\n"
               "  <type>session</type>\n"
               "  <listen>unix:path="
            << mDir
            << "/bus</listen>\n"
               "  <auth>EXTERNAL</auth>\n"
               "  <policy context=\"default\">\n"
               "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
               "    <allow eavesdrop=\"true\"/>\n"
               "    <allow own=\"*\"/>\n"
               "  </policy>\n"
               "</busconfig>\n";
    }
    int pipeFds[2];
    if (pipe2(pipeFds, O_CLOEXEC) != 0) {
        removeTree(mDir);
        throw std::runtime_error("pipe failed");
    }
    std::string configArg = "--config-file=" + config;
    std::string printArg = "--print-address=3";
    // The daemon's own messages go to a file beside its socket, shown if it fails to start.
    std::string logPath = mDir + "/daemon.log";
    int logFd = open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        if (pipeFds[1] == 3) {
            fcntl(3, F_SETFD, 0);
        } else {
            dup2(pipeFds[1], 3);  // the copy does not inherit close-on-exec
        }
        if (logFd >= 0) {
            dup2(logFd, STDOUT_FILENO);
            dup2(logFd, STDERR_FILENO);
        }
        execlp("dbus-daemon", "dbus-daemon", "--nofork", configArg.c_str(), printArg.c_str(),
               static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipeFds[1]);
    if (logFd >= 0) {
        close(logFd);
    }
    if (pid < 0) {
        close(pipeFds[0]);
        removeTree(mDir);
        throw std::runtime_error("fork failed");
    }
    mPid = pid;
    mAddress = readLine(pipeFds[0], 10000);
    close(pipeFds[0]);
    if (mAddress.empty()) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
        std::string log = readWholeFile(logPath);
        removeTree(mDir);
        throw std::runtime_error("dbus-daemon did not start: " + log);
    }
    const char* old = std::getenv("ARDO_BUS_ADDRESS");
    mHadAddress = old != nullptr;
    mOldAddress = mHadAddress ? old : "";
    setenv("ARDO_BUS_ADDRESS", mAddress.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    if (mPid > 0) {
        kill(mPid, SIGTERM);
        waitpid(mPid, nullptr, 0);
    }
    if (mHadAddress) {
        setenv("ARDO_BUS_ADDRESS", mOldAddress.c_str(), 1);
    } else {
        unsetenv("ARDO_BUS_ADDRESS");
    }
    removeTree(mDir);
}

ChildProcess::ChildProcess(const std::string& binary, const std::vector<std::string>& args,
                           const std::string& outputFile) {
    // Everything the child needs is prepared before fork.
    std::vector<std::string> argvStrings;
    argvStrings.push_back(binary);
    argvStrings.insert(argvStrings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& s : argvStrings) {
        argv.push_back(s.data());
    }
    argv.push_back(nullptr);
    int out = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out < 0) {
        throw std::runtime_error("cannot open " + outputFile);
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        execv(binary.c_str(), argv.data());
        _exit(127);
    }
    close(out);
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    mPid = pid;
}

ChildProcess::~ChildProcess() {
    if (mPid > 0 && !mReaped) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
}

void ChildProcess::signal(int sig) {
    if (mPid > 0 && !mReaped) {
        kill(mPid, sig);
    }
}

bool ChildProcess::waitForExit(int& exitStatus, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!mReaped) {
        pid_t r = waitpid(mPid, &mStatus, WNOHANG);
        if (r == mPid) {
            mReaped = true;
            break;
        }
        if (r < 0 || Clock::now() >= deadline) {
            exitStatus = -1;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(mStatus)) {
        exitStatus = WEXITSTATUS(mStatus);
        return true;
    }
    exitStatus = WIFSIGNALED(mStatus) ? -WTERMSIG(mStatus) : -1;
    return false;
}

bool waitForText(const std::string& file, const std::string& text, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (readWholeFile(file).find(text) != std::string::npos) {
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace tola_test
