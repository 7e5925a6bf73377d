// Message-bus subscriptions and the three notification handlers (run on the bus thread).
#include <cstring>
#include <ctime>

#include "sys_core.h"
#include "tola_app.h"
#include "tola_log.h"

namespace {

// The device clock's UTC year; a year of 2011 or earlier means the clock was not yet set from
// the network.
int currentUtcYear() {
    time_t now = sys_time();
    struct tm broken {};
    gmtime_r(&now, &broken);
    return broken.tm_year + 1900;
}

}  // namespace

void TOLAApp::SubscribeForChannels(bool subscribe) {
    TOLA_TRACE();
    msgbusSubscriber.RegisterForChannelSubscription(TOLA_CHANNEL_SMS, subscribe);
    // Registered on the handler without a callback; the bus delivers the answers to the
    // binary-data handler of this object all the same.
    msgbusPublisher.RegisterForChannelSubscription(TOLA_CHANNEL_DATA_USAGE, subscribe);
    // Clock-change notices matter only while the clock is unset.
    if (currentUtcYear() <= 2011) {
        msgbusSubscriber.RegisterForChannelSubscription(TOLA_CHANNEL_TIME_CHANGE, subscribe);
    }
}

void TOLAApp::OnChannelNotify(const std::string& channel, const int& data) {
    TOLA_TRACE();
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - received int data [%d] on channel %s", data, channel.c_str());
}

void TOLAApp::OnChannelNotify(const std::string& channel, const std::string& data) {
    TOLA_TRACE();
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - received string data [%s] on channel %s", data.c_str(), channel.c_str());
    if (channel == TOLA_CHANNEL_SMS) {
        HandleSmsCommand(data);
    } else {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Unmapped channel-category detected! Channel is %s",
             channel.c_str());
    }
}

void TOLAApp::OnChannelNotify(const std::string& channel, void* data, int length) {
    TOLA_TRACE();
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s:received binary data of len [%d] on channel %s", trace.Signature(),
         length, channel.c_str());
    if (channel == TOLA_CHANNEL_TIME_CHANGE) {
        // Acted on once: the first notice that comes with a valid clock.
        if (currentUtcYear() >= 2012 && !timeChangeHandled) {
            TLOG_SYS(TOLA_LOG_INFO, "[%s]:[%s] - Got Valid Time info from Channel %s\n", channel.c_str());
            long long unsigned int remainingSeconds = 0;
            getRemainingSeconds(remainingSeconds);
            if (remainingSeconds != 0) {
                TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s:remainingSeconds %llu\n", trace.Signature(),
                     remainingSeconds);
                checkInTimer.Shutdown();
                checkInTimer.WaitForCompletion();
                checkInTimer.SetInterval(static_cast<uint32_t>(remainingSeconds));
                checkInTimer.Run();
            } else {
                agent.GetRuntimeConfig(runtimeConfig);
                if (runtimeConfig.checkInFlag) {
                    TLOG_SYS(
                        TOLA_LOG_NOTICE,
                        "[%s]:[%s] - Network is updated and timer expired, so performing check-in Now\n");
                    checkInTimer.SignalTimerThread();
                } else {
                    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s: CheckIn Flag false, No need to Check-in ",
                         trace.Signature());
                }
            }
            timeChangeHandled = true;
        }
    } else if (channel == TOLA_CHANNEL_DATA_USAGE) {
        // The first 32-bit word is the status; 0 means fresh figures are ready.
        int32_t status = -1;
        if (data != nullptr && length >= static_cast<int>(sizeof status)) {
            std::memcpy(&status, data, sizeof status);
        }
        if (status == 0) {
            // Only a check-in that is waiting takes the figures: a notice that comes after its
            // wait ran out must not switch that check-in to the data-usage template.
            // The flag is read for the log line under the same lock: the check-in thread writes it.
            pthread_mutex_lock(&dataUsageMutex);
            if (mDataUsageRequested) {
                mGotDataUsageInfo = true;
            }
            pthread_cond_signal(&dataUsageCondition);
            TLOG(TOLA_LOG_DEBUG,
                 "[%s]:[%s] - Got updated data usage info from server, mGotDataUsageInfo = %d\n",
                 mGotDataUsageInfo ? 1 : 0);
            pthread_mutex_unlock(&dataUsageMutex);
        }
    }
}
