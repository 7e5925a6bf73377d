#include "private_bus.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "test_env.h"

extern char** environ;

namespace tola_test {

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
    size_t end = text.rfind("</busconfig>");
    if (end == std::string::npos) {
        throw std::runtime_error("no </busconfig> in /usr/share/dbus-1/system.conf");
    }
    return text.replace(end, std::string("</busconfig>").size(), ours + extraPolicy + "\n</busconfig>");
}

PrivateBus::PrivateBus()
    : PrivateBus(
          "<busconfig><type>session</type><listen>unix:path=@DIR@/bus</listen><auth>EXTERNAL</auth>"
          "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
          "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n") {}

PrivateBus::PrivateBus(const std::string& config) {
    char templ[] = "/tmp/tola-bus-XXXXXX";
    if (mkdtemp(templ) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    mDir = templ;
    chmod(mDir.c_str(), 0755);
    std::ofstream(mDir + "/bus.conf") << std::regex_replace(config, std::regex("@DIR@"), mDir);
    // The daemon prints its address on a line of its own, beside any warnings, or why it could
    // not start.
    const std::string out = mDir + "/daemon.out";
    mDaemon = std::make_unique<ChildProcess>(
        "dbus-daemon",
        std::vector<std::string>{"--nofork", "--config-file=" + mDir + "/bus.conf", "--print-address=1"},
        out);
    std::smatch address;
    std::string text;
    const std::regex addressLine("(^|\n)(unix:[^\n]*)\n");
    if (!Eventually([&] { return std::regex_search(text = readWholeFile(out), address, addressLine); })) {
        mDaemon.reset();
        std::filesystem::remove_all(mDir);
        throw std::runtime_error("dbus-daemon did not start: " + text);
    }
    mAddress = address[2].str();
    const char* old = std::getenv("ARDO_BUS_ADDRESS");
    mHadAddress = old != nullptr;
    mOldAddress = mHadAddress ? old : "";
    setenv("ARDO_BUS_ADDRESS", mAddress.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    mDaemon.reset();
    mHadAddress ? setenv("ARDO_BUS_ADDRESS", mOldAddress.c_str(), 1) : unsetenv("ARDO_BUS_ADDRESS");
    std::error_code ignored;  // a destructor must not throw
    std::filesystem::remove_all(mDir, ignored);
}

// Starts the binary (searched on PATH) with its stdout and stderr on the output file.
ChildProcess::ChildProcess(const std::string& binary, const std::vector<std::string>& args,
                           const std::string& outputFile)
    : mOutputFile(outputFile) {
    int out = open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out < 0) {
        throw std::runtime_error("cannot open " + outputFile);
    }
    std::vector<std::string> words{binary};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDERR_FILENO);
    int rc = posix_spawnp(&mPid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out);
    if (rc != 0) {
        throw std::runtime_error("cannot start " + binary + ": " + std::strerror(rc));
    }
}

ChildProcess::~ChildProcess() {
    if (!mReaped && mPid > 0) {
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
    if (!mReaped) {
        kill(mPid, sig);
    }
}

bool ChildProcess::waitForExit(int& exitStatus, int timeoutMs) {
    if (!Eventually([&] { return mReaped || (mReaped = waitpid(mPid, &mStatus, WNOHANG) == mPid); },
                    timeoutMs)) {
        exitStatus = -1;
        return false;
    }
    exitStatus = WIFEXITED(mStatus) ? WEXITSTATUS(mStatus) : WIFSIGNALED(mStatus) ? -WTERMSIG(mStatus) : -1;
    return WIFEXITED(mStatus);
}

int runShell(const std::string& command, std::string* output) {
    // A hung command (and whatever it started) is killed after two minutes, so that the test
    // fails with its output instead of waiting for the test's own time limit.
    FILE* pipe = popen(
        ("timeout -k 5 120 sh -c '" + std::regex_replace(command, std::regex("'"), "'\\''") + "'").c_str(),
        "r");
    char buffer[4096];
    for (size_t n; pipe != nullptr && (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        if (output != nullptr) {
            output->append(buffer, n);
        }
    }
    int status = pipe != nullptr ? pclose(pipe) : -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool waitForText(const std::string& file, const std::string& text, int timeoutMs) {
    return Eventually([&] { return readWholeFile(file).find(text) != std::string::npos; }, timeoutMs);
}

}  // namespace tola_test
