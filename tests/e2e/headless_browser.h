// A headless Chromium driven over the DevTools protocol on a pipe (--remote-debugging-pipe):
// JSON commands separated by NUL bytes on file descriptors 3 (to the browser) and 4 (from it).
// No driver library and no network port; one page, in its own profile folder.
#pragma once

#include <sys/types.h>

#include <string>

#include "device_state.h"

namespace tola_test {

class HeadlessBrowser {
  public:
    // The browser the tests use ($TOLA_CHROMIUM, else /usr/bin/chromium); "" when there is none.
    static std::string Find();

    // Starts the browser with a profile under workDir and opens one page; see ok().
    explicit HeadlessBrowser(const std::string& workDir);
    ~HeadlessBrowser();
    HeadlessBrowser(const HeadlessBrowser&) = delete;
    HeadlessBrowser& operator=(const HeadlessBrowser&) = delete;

    bool ok() const { return !mSession.empty(); }
    // Why the browser could not start or the last call failed.
    const std::string& why() const { return mWhy; }

    // Loads url and waits until the page has loaded.
    bool Navigate(const std::string& url);
    // Runs script (a click, a form's submit) and waits until the page it leads to has loaded.
    bool NavigateBy(const std::string& script);
    // The value of a JavaScript expression in the page (null when it threw).
    ardo::json Eval(const std::string& expression);
    // Waits until the expression is truthy.
    bool WaitFor(const std::string& expression, int timeoutMs = 10000);
    // Picks file for the <input type=file> that selector names, as a user would.
    bool PickFile(const std::string& selector, const std::string& file);
    // Saves the whole page as a PNG.
    bool Screenshot(const std::string& pngPath);

  private:
    // One protocol command; its "result", or null (with why()) on an error or time-out.
    ardo::json Call(const std::string& method, const ardo::json& params, bool onPage = true,
                    int timeoutMs = 15000);

    pid_t mPid = -1;
    int mToBrowser = -1;
    int mFromBrowser = -1;
    int mNextId = 1;
    std::string mBuffer;
    std::string mSession;
    std::string mWhy;
};

}  // namespace tola_test
