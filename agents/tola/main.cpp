// Entry point of the agent. Takes no arguments; always exits with status 0.
//
// SIGTERM and SIGINT stop the process: platform sleeps end at once and the quit wait ends, so that
// the stop sequence runs. A signal handler may not
// lock a mutex, so the two signals are blocked before any thread starts (every thread inherits
// the mask) and one thread takes them with sigwait and signals the quit condition. A signal
// that arrives during start-up is kept and acted on as soon as start-up has finished.
#include <pthread.h>
#include <signal.h>

#include <mutex>

#include "sys_core.h"
#include "tola_app.h"
#include "tola_log.h"

namespace {

std::mutex gQuitHandoff;
TOLAApp* gRunningApp = nullptr;  // set once the app waits for the quit signal
bool gQuitRequested = false;

void* quitSignalThread(void* arg) {
    sigset_t* signals = static_cast<sigset_t*>(arg);
    for (;;) {
        int received = 0;
        if (sigwait(signals, &received) != 0) {
            continue;
        }
        // First the process stop, so that a wait in progress (the boot wait, a retry wait) ends
        // now and the check-in thread gives up instead of contacting the portal.
        sys_requestProcessStop();
        std::lock_guard<std::mutex> lock(gQuitHandoff);
        gQuitRequested = true;
        if (gRunningApp != nullptr) {
            gRunningApp->SignalQuit();
        }
    }
    return nullptr;
}

}  // namespace

int main() {
    static sigset_t quitSignals;
    sigemptyset(&quitSignals);
    sigaddset(&quitSignals, SIGTERM);
    sigaddset(&quitSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &quitSignals, nullptr);
    pthread_t signalThread;
    pthread_create(&signalThread, nullptr, quitSignalThread, &quitSignals);
    pthread_detach(signalThread);

    vorn_dbg_start();
    TLOG_SYS(TOLA_LOG_INFO, "[%s]:[%s] - Starting TOLA Agent");
    {
        TOLAApp app;
        if (app.Initialize() == 0) {
            {
                std::lock_guard<std::mutex> lock(gQuitHandoff);
                gRunningApp = &app;
                if (gQuitRequested) {
                    app.SignalQuit();
                }
            }
            app.Run();
            {
                std::lock_guard<std::mutex> lock(gQuitHandoff);
                gRunningApp = nullptr;
            }
            app.Shutdown();
        }
        TLOG_SYS(TOLA_LOG_INFO, "[%s]:[%s] - End TOLA Agent");
        vorn_dbg_stop();
    }
    return 0;
}
