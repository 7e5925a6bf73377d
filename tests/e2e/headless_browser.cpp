#include "headless_browser.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace tola_test {

namespace {

long long nowMs() {
    struct timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000LL + ts.tv_nsec / 1000000;
}

}  // namespace

std::string HeadlessBrowser::Find() {
    const char* configured = std::getenv("TOLA_CHROMIUM");
    std::string path = configured != nullptr && *configured != '\0' ? configured : "/usr/bin/chromium";
    return access(path.c_str(), X_OK) == 0 ? path : "";
}

HeadlessBrowser::HeadlessBrowser(const std::string& workDir) {
    std::string binary = Find();
    if (binary.empty()) {
        mWhy = "no chromium";
        return;
    }
    int toBrowser[2];
    int fromBrowser[2];
    if (pipe2(toBrowser, O_CLOEXEC) != 0 || pipe2(fromBrowser, O_CLOEXEC) != 0) {
        mWhy = "pipe failed";
        return;
    }
    std::vector<std::string> args = {binary,
                                     "--headless=new",
                                     "--no-sandbox",  // tests may run as root
                                     "--disable-gpu",
                                     "--no-first-run",
                                     "--no-default-browser-check",
                                     "--disable-extensions",
                                     "--remote-debugging-pipe",
                                     "--window-size=1200,900",
                                     "--user-data-dir=" + workDir + "/profile",
                                     "about:blank"};
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    std::string logFile = workDir + "/chromium.log";
    mkdir(workDir.c_str(), 0755);
    int log = open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);  // the browser's helpers end with it (see the destructor)
        dup2(toBrowser[0], 3);
        dup2(fromBrowser[1], 4);
        if (log >= 0) {
            dup2(log, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (log >= 0) {
        close(log);
    }
    close(toBrowser[0]);
    close(fromBrowser[1]);
    mToBrowser = toBrowser[1];
    mFromBrowser = fromBrowser[0];
    if (pid < 0) {
        mWhy = "fork failed";
        return;
    }
    mPid = pid;
    ardo::json target = Call("Target.createTarget", {{"url", "about:blank"}}, false, 30000);
    if (!target.contains("targetId")) {
        mWhy = "the browser did not open a page: " + mWhy + " (see " + logFile + ")";
        return;
    }
    ardo::json attached =
        Call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}}, false);
    if (attached.contains("sessionId")) {
        mSession = attached["sessionId"].get<std::string>();
        Call("Page.enable", ardo::json::object());
    }
}

HeadlessBrowser::~HeadlessBrowser() {
    if (mPid > 0) {
        Call("Browser.close", ardo::json::object(), false, 5000);
        for (long long end = nowMs() + 5000; nowMs() < end;) {
            if (waitpid(mPid, nullptr, WNOHANG) == mPid) {
                mPid = -1;
                break;
            }
            usleep(50 * 1000);
        }
        if (mPid > 0) {
            kill(-mPid, SIGKILL);  // its own process group, made at start
            waitpid(mPid, nullptr, 0);
        }
    }
    for (int fd : {mToBrowser, mFromBrowser}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

ardo::json HeadlessBrowser::Call(const std::string& method, const ardo::json& params, bool onPage,
                                 int timeoutMs) {
    int id = mNextId++;
    ardo::json command = {{"id", id}, {"method", method}, {"params", params}};
    if (onPage) {
        command["sessionId"] = mSession;
    }
    std::string text = command.dump();
    text.push_back('\0');
    for (size_t done = 0; done < text.size();) {
        ssize_t n = write(mToBrowser, text.data() + done, text.size() - done);
        if (n <= 0) {
            mWhy = method + ": the browser's pipe is closed";
            return nullptr;
        }
        done += static_cast<size_t>(n);
    }
    // Events arrive between the answers; they are skipped.
    for (long long end = nowMs() + timeoutMs;;) {
        for (size_t nul; (nul = mBuffer.find('\0')) != std::string::npos;) {
            ardo::json message = ardo::json::parse(mBuffer.substr(0, nul), nullptr, false);
            mBuffer.erase(0, nul + 1);
            if (message.is_object() && message.value("id", -1) == id) {
                if (message.contains("error")) {
                    mWhy = method + ": " + message["error"].dump();
                    return nullptr;
                }
                return message["result"];
            }
        }
        long long left = end - nowMs();
        struct pollfd p = {mFromBrowser, POLLIN, 0};
        if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) {
            mWhy = method + ": no answer from the browser";
            return nullptr;
        }
        char chunk[65536];
        ssize_t n = read(mFromBrowser, chunk, sizeof chunk);
        if (n <= 0) {
            mWhy = method + ": the browser ended";
            return nullptr;
        }
        mBuffer.append(chunk, static_cast<size_t>(n));
    }
}

ardo::json HeadlessBrowser::Eval(const std::string& expression) {
    ardo::json result = Call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}});
    if (result.is_null() || result.contains("exceptionDetails")) {
        return nullptr;
    }
    return result["result"].value("value", ardo::json());
}

bool HeadlessBrowser::WaitFor(const std::string& expression, int timeoutMs) {
    for (long long end = nowMs() + timeoutMs; nowMs() < end; usleep(100 * 1000)) {
        ardo::json value = Eval("!!(" + expression + ")");
        if (value.is_boolean() && value.get<bool>()) {
            return true;
        }
    }
    mWhy = "timed out waiting for " + expression;
    return false;
}

// The old page is marked before the action: the new one has no mark once it has loaded.
bool HeadlessBrowser::NavigateBy(const std::string& script) {
    Eval("window.__oldPage = true");
    if (Eval("(function () { " + script + "; return true; })()").is_null()) {
        mWhy = "the script failed: " + script;
        return false;
    }
    return WaitFor("window.__oldPage === undefined && document.readyState === 'complete'");
}

bool HeadlessBrowser::Navigate(const std::string& url) {
    return NavigateBy("location.href = " + ardo::json(url).dump());
}

bool HeadlessBrowser::PickFile(const std::string& selector, const std::string& file) {
    ardo::json node = Call("Runtime.evaluate",
                           {{"expression", "document.querySelector(" + ardo::json(selector).dump() + ")"}});
    if (node.is_null() || !node["result"].contains("objectId")) {
        mWhy = "no element " + selector;
        return false;
    }
    return !Call("DOM.setFileInputFiles", {{"files", {file}}, {"objectId", node["result"]["objectId"]}})
                .is_null();
}

bool HeadlessBrowser::Screenshot(const std::string& pngPath) {
    // The whole page, cut at a height that keeps the picture readable.
    ardo::json metrics = Call("Page.getLayoutMetrics", ardo::json::object());
    double width = 1200;
    double height = 900;
    if (metrics.contains("cssContentSize")) {
        width = metrics["cssContentSize"].value("width", width);
        height = std::min(metrics["cssContentSize"].value("height", height), 1400.0);
    }
    ardo::json clip = {{"x", 0}, {"y", 0}, {"width", width}, {"height", height}, {"scale", 1}};
    ardo::json shot =
        Call("Page.captureScreenshot", {{"format", "png"}, {"captureBeyondViewport", true}, {"clip", clip}});
    if (shot.is_null() || !shot["data"].is_string()) {
        return false;
    }
    std::string base64 = shot["data"].get<std::string>();
    std::vector<unsigned char> png(base64.size() / 4 * 3 + 3);
    int n = EVP_DecodeBlock(png.data(), reinterpret_cast<const unsigned char*>(base64.data()),
                            static_cast<int>(base64.size()));
    if (n < 0) {
        return false;
    }
    size_t padding =
        base64.size() >= 2 ? (base64[base64.size() - 1] == '=') + (base64[base64.size() - 2] == '=') : 0;
    std::ofstream out(pngPath, std::ios::binary);
    out.write(reinterpret_cast<const char*>(png.data()), n - static_cast<int>(padding));
    return static_cast<bool>(out);
}

}  // namespace tola_test
