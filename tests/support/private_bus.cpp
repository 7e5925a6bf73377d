#include "private_bus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <thread>

#include "test_env.h"

namespace tola_test {

namespace {

using Clock = std::chrono::steady_clock;

// The first line the daemon prints on fd (it writes its address in one piece), or "" when
// nothing comes within timeoutMs or the daemon ends first.
std::string readLine(int fd, int timeoutMs) {
    pollfd pfd{fd, POLLIN, 0};
    char buffer[512];
    ssize_t n = poll(&pfd, 1, timeoutMs) > 0 ? read(fd, buffer, sizeof buffer) : 0;
    std::string text(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    size_t end = text.find('\n');
    return end == std::string::npos ? std::string() : text.substr(0, end);
}

void removeTree(const std::string& dir) {
    if (!dir.empty()) {
        std::string cmd = "rm -rf '" + dir + "'";
        int ignored = std::system(cmd.c_str());
        (void)ignored;
    }
}

}  // namespace

std::string SystemStyleBusConfig(const std::vector<std::string>& policyFiles,
                                 const std::string& extraPolicy) {
    std::string text = readWholeFile("/usr/share/dbus-1/system.conf");
    // The machine's socket, pid file, user, service helpers and policy folders stay out.
    static const std::regex kMachineOnly(
        R"(<(user|pidfile|listen|servicehelper)>[^<]*</\1>|<(fork|syslog|standard_system_servicedirs)/>)"
        R"(|<includedir>[^<]*</includedir>|<include [^>]*>[^<]*</include>)");
    text = std::regex_replace(text, kMachineOnly, "");
    std::string ours = "<listen>unix:path=@DIR@/bus</listen>\n";
    for (const std::string& file : policyFiles) {
        ours += "<include>" + file + "</include>\n";
    }
    ours += extraPolicy + "\n</busconfig>";
    size_t end = text.rfind("</busconfig>");
    if (end == std::string::npos) {
        throw std::runtime_error("no </busconfig> in /usr/share/dbus-1/system.conf");
    }
    return text.replace(end, std::string("</busconfig>").size(), ours);
}

PrivateBus::PrivateBus() {
    start(
        "<busconfig><type>session</type><listen>unix:path=@DIR@/bus</listen><auth>EXTERNAL</auth>"
        "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
        "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n");
}

PrivateBus::PrivateBus(const std::string& config) {
    start(config);
}

void PrivateBus::start(const std::string& config) {
    char templ[] = "/tmp/tola-bus-XXXXXX";
    if (mkdtemp(templ) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    mDir = templ;
    chmod(mDir.c_str(), 0755);
    std::string configArg = "--config-file=" + mDir + "/bus.conf";
    std::string text = config;
    for (size_t at = text.find("@DIR@"); at != std::string::npos; at = text.find("@DIR@", at)) {
        text.replace(at, 5, mDir);
    }
    std::ofstream(mDir + "/bus.conf") << text;
    // The address comes back on stdout; the daemon's own messages go to a file beside its socket,
    // shown if it fails to start.
    int pipeFds[2] = {-1, -1};
    std::string logPath = mDir + "/daemon.log";
    int logFd = open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    pid_t pid = pipe2(pipeFds, O_CLOEXEC) == 0 ? fork() : -1;
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        dup2(pipeFds[1], STDOUT_FILENO);
        dup2(logFd, STDERR_FILENO);
        execlp("dbus-daemon", "dbus-daemon", "--nofork", configArg.c_str(), "--print-address=1",
               static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipeFds[1]);
    close(logFd);
    mPid = pid;
    mAddress = pid > 0 ? readLine(pipeFds[0], 10000) : "";
    close(pipeFds[0]);
    if (mAddress.empty()) {
        if (mPid > 0) {
            kill(mPid, SIGKILL);
            waitpid(mPid, nullptr, 0);
        }
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
    mOutputFile = outputFile;
}

ChildProcess::~ChildProcess() {
    if (mPid > 0 && !mReaped) {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    std::string output = readWholeFile(mOutputFile);
    for (const char* mark : {"WARNING: ThreadSanitizer:", "ERROR: AddressSanitizer:", "ERROR: LeakSanitizer:",
                             "runtime error:"}) {
        size_t at = output.find(mark);
        if (at != std::string::npos) {
            ADD_FAILURE() << "sanitizer report from " << mOutputFile << ":\n" << output.substr(at, 8000);
            break;
        }
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
