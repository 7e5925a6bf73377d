// TOLAAgent: construction, SDK session, start and stop.
#include "tola_agent.h"

#include <cstring>

#include "sys_core.h"
#include "tola_log.h"

TOLAAgent::TOLAAgent() {
    TOLA_TRACE();
    std::memset(&mConfig, 0, sizeof mConfig);
    tola_copy_text(mConfig.version, "0");
    InitializeSysInterface();
}

TOLAAgent::~TOLAAgent() {
    TOLA_TRACE();
}

void tola_sdk_bring_up(const char* failureFormat) {
    // The SDK daemon may come up after the agent at boot: keep trying, once a second.
    int rc;
    do {
        sys_sleepSeconds(1);
        rc = sys_sdkInitialize();
        if (rc != 0) {
            TLOG_SYS(TOLA_LOG_ERROR, failureFormat, rc);
        }
    } while (rc != 0);
}

bool tola_sdk_shut_down(const char* failureFormat) {
    int rc = sys_sdkShutdown();
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, failureFormat, rc);
    }
    return rc != 0;
}

bool TOLAAgent::InitializeSysInterface() {
    TOLA_TRACE();
    tola_sdk_bring_up("[%s]:[%s] -  sdkInitialize returned %d");
    return trace.Returning(true);
}

bool TOLAAgent::UninitializeSysInterface() {
    TOLA_TRACE();
    return trace.Returning(tola_sdk_shut_down("[%s]:[%s] -  sdkShutdown returned %d"));
}

int TOLAAgent::Initialize() {
    TOLA_TRACE();
    if (InitializeSharedMemory() && InitializeACL()) {
        mInitialized = true;
    }
    return trace.Returning(0);
}

int TOLAAgent::Uninitialize() {
    TOLA_TRACE();
    mInitialized = false;
    UninitializeSysInterface();
    return trace.Returning(0);
}
