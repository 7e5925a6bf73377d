// Entry point of the agent. Run without arguments it always exits with status 0. --help (or -h)
// prints what it is and the files it uses and exits 0 before anything starts; any other argument
// is refused with status 2, also before anything starts.
//
// SIGTERM and SIGINT stop the process: platform sleeps end at once and the quit wait ends, so that
// the stop sequence runs. A signal handler may not
// lock a mutex, so the two signals are blocked before any thread starts (every thread inherits
// the mask) and one thread takes them with sigwait and signals the quit condition. A signal
// that arrives during start-up is kept and acted on as soon as start-up has finished.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <mutex>

#include "sys_core.h"
#include "tola_app.h"
#include "tola_log.h"
#include "tola_types.h"

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

void printHelp() {
    std::printf(
        "usage: tola_agent [--help]\n\n"
        "The TOLA device-management agent: checks in with the portal on a timer, applies the\n"
        "configuration documents it answers with and acts on encrypted SMS commands. It takes no\n"
        "arguments; stop it with SIGTERM or SIGINT. Exit status 0 (also when the configuration or\n"
        "the message bus is missing: see the debug log), 2 for an argument it does not know.\n\n"
        "Files (on a simulated device ARDO_ROOT is prefixed to each):\n"
        "  configuration  %s\n"
        "  state folder   %s\n"
        "  debug log      %s\n",
        sys_fsPath(TOLA_CONFIG_FILE).c_str(), sys_fsPath(TOLA_DATA_DIR).c_str(),
        sys_fsPath("/var/log/tola.log").c_str());
    if (sys_fsPath("/") == "/") {
        std::fprintf(stderr, "tola_agent: note: ARDO_ROOT is not set: these are this machine's real paths\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
        if (help && argc == 2) {
            printHelp();
            return 0;
        }
        const char* refused = help ? argv[2] : argv[1];
        std::fprintf(stderr, "tola_agent: unknown %s '%s' (tola_agent takes no arguments; see --help)\n",
                     refused[0] == '-' ? "option" : "argument", refused);
        return 2;
    }
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
