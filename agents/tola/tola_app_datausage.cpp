// Data usage: before a check-in the agent asks the device's data-usage service for fresh
// figures and waits (bounded) for its "ardo.dua.usage.info" notice; the service's plan lines
// then give the eight texts of the data-usage request template. Without fresh, valid figures
// the normal template is used. The record and the derivation are described in docs/data-usage.md.
#include <cerrno>
#include <cstring>

#include "dua.h"
#include "sys_core.h"
#include "tola_app.h"
#include "tola_log.h"

namespace {

template <size_t N>
std::string fieldText(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// The texts go into JSON templates verbatim, so only printable characters that need no JSON
// escaping are accepted.
bool plainText(const std::string& text) {
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7f || c == '"' || c == '\\') {
            return false;
        }
    }
    return true;
}

}  // namespace

void TOLAApp::GetUpdatedDataUsage() {
    TOLA_TRACE();
    if (RequestDataUsage()) {
        WaitForDataUsage();
    }
}

bool TOLAApp::RequestDataUsage() {
    TOLA_TRACE();
    pthread_mutex_lock(&dataUsageMutex);
    mGotDataUsageInfo = false;
    mDataUsageRequested = false;
    pthread_mutex_unlock(&dataUsageMutex);

    if (!CheckPreconditionsForRequest()) {
        return trace.Returning(false);
    }
    pthread_mutex_lock(&dataUsageMutex);
    mDataUsageRequested = true;
    pthread_mutex_unlock(&dataUsageMutex);
    int rc = dua_start_data_usage_script();
    if (rc != 0) {
        pthread_mutex_lock(&dataUsageMutex);
        mDataUsageRequested = false;
        pthread_mutex_unlock(&dataUsageMutex);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: data usage script could not be started rc [%d]", __func__,
                 rc);
        return trace.Returning(false);
    }
    return trace.Returning(true);
}

void TOLAApp::WaitForDataUsage() {
    TOLA_TRACE();
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s: waiting up to %u seconds for data usage info", __func__,
         dataUsageWaitSeconds);
    // The bus thread sets the flag and then signals under the mutex; checking the flag under the
    // mutex before every wait means neither an early notice nor a spurious wake-up is misread.
    struct timespec deadline =
        sys_deadlineAfterMilliseconds(static_cast<uint64_t>(dataUsageWaitSeconds) * 1000);
    pthread_mutex_lock(&dataUsageMutex);
    while (!mGotDataUsageInfo) {
        int waited = pthread_cond_timedwait(&dataUsageCondition, &dataUsageMutex, &deadline);
        if (waited == ETIMEDOUT) {
            break;
        }
    }
    bool got = mGotDataUsageInfo;
    mDataUsageRequested = false;
    pthread_mutex_unlock(&dataUsageMutex);
    if (got) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s: got data usage info", __func__);
    } else {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - %s: no data usage info within %u seconds", __func__,
                 dataUsageWaitSeconds);
    }
}

// Turns the service's plan lines into the eight texts. The device's own "Line" plan is
// required; a "Shared" plan, when there is one, is the plan the account is billed by, so it
// gives plan type, allowance, unit, cycle end and prepay flag, and its usage is the total
// shared usage. Without a shared plan the total is the line's own usage.
void TOLAApp::RecordDataUsageInformation() {
    TOLA_TRACE();
    pthread_mutex_lock(&dataUsageMutex);
    bool fresh = mGotDataUsageInfo;
    pthread_mutex_unlock(&dataUsageMutex);
    if (!fresh) {
        return;
    }

    dua_data_usage_info_t info;
    std::memset(&info, 0, sizeof info);
    int rc = dua_get_data_usage_info(&info);
    const dua_plan_display_info_t* line = nullptr;
    const dua_plan_display_info_t* shared = nullptr;
    if (rc == 0 && info.status == 0) {
        uint32_t plans =
            info.planCount < static_cast<uint32_t>(DUA_MAX_PLANS) ? info.planCount : DUA_MAX_PLANS;
        for (uint32_t i = 0; i < plans; ++i) {
            std::string type = fieldText(info.PlanDisplayInfo[i].planType);
            if (type == "Line" && line == nullptr) {
                line = &info.PlanDisplayInfo[i];
            } else if (type == "Shared" && shared == nullptr) {
                shared = &info.PlanDisplayInfo[i];
            }
        }
    }
    if (line == nullptr) {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - %s: no valid data usage plan (rc [%d], status [%u])", __func__,
                 rc, info.status);
        pthread_mutex_lock(&dataUsageMutex);
        mGotDataUsageInfo = false;
        pthread_mutex_unlock(&dataUsageMutex);
        return;
    }
    const dua_plan_display_info_t& billed = shared != nullptr ? *shared : *line;
    std::string texts[8] = {
        fieldText(billed.planType),
        fieldText(billed.allowance),
        fieldText(billed.unit),
        fieldText(line->usage),
        fieldText(shared != nullptr ? shared->usage : line->usage),
        fieldText(billed.cycleEndDate),
        fieldText(info.usageTimestamp),
        fieldText(billed.prePayIndicator),
    };
    for (const std::string& text : texts) {
        if (text.empty() || !plainText(text)) {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - %s: data usage plan has an empty or unusable field",
                     __func__);
            pthread_mutex_lock(&dataUsageMutex);
            mGotDataUsageInfo = false;
            pthread_mutex_unlock(&dataUsageMutex);
            return;
        }
    }
    mPlanType = texts[0];
    mAllowance = texts[1];
    mUnit = texts[2];
    mLineUsage = texts[3];
    mTotalShrUsage = texts[4];
    mCycleEndDt = texts[5];
    mUsageTimestamp = texts[6];
    mPrePayInd = texts[7];
    TLOG(TOLA_LOG_INFO,
         "[%s]:[%s] - %s: plan [%s] allowance [%s %s] line usage [%s] shared usage [%s] cycle end [%s] at "
         "[%s] "
         "prepay [%s]",
         __func__, mPlanType.c_str(), mAllowance.c_str(), mUnit.c_str(), mLineUsage.c_str(),
         mTotalShrUsage.c_str(), mCycleEndDt.c_str(), mUsageTimestamp.c_str(), mPrePayInd.c_str());
}
