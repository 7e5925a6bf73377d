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

bool TOLAAgent::InitializeSysInterface() {
    TOLA_TRACE();
    // The SDK daemon may come up after the agent at boot: keep trying, once a second.
    int rc;
    do {
        sys_sleepSeconds(1);
        rc = sys_sdkInitialize();
        if (rc != 0) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  sdkInitialize returned %d", rc);
        }
    } while (rc != 0);
    return trace.Returning(true);
}

bool TOLAAgent::UninitializeSysInterface() {
    TOLA_TRACE();
    int rc = sys_sdkShutdown();
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  sdkShutdown returned %d", rc);
    }
    return trace.Returning(rc != 0);
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
