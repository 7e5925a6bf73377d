// The message bus: subscriptions, the three value kinds, and the device's own notices.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bus_recorder.h"
#include "conformance.h"
#include "msgbus_handler.h"

using namespace std::chrono_literals;

namespace {

using Recorder = tola_test::BusRecorder;

class BusTest : public DeviceTest {
  protected:
    void subscribe(MsgbusHandler& handler, std::initializer_list<const char*> channels) {
        ASSERT_EQ(handler.Initialize(), 0);
        for (const char* channel : channels) {
            ASSERT_EQ(handler.RegisterForChannelSubscription(channel, true), 0) << channel;
        }
    }

    Recorder rec;
};

}  // namespace

TEST_F(BusTest, ValuesOfEveryKindTravelBetweenHandlersUntilUnsubscribed) {
    MsgbusHandler subscriber(&rec);
    MsgbusHandler publisher;
    // A repeated subscription, and a channel both handlers take: still one delivery.
    subscribe(subscriber, {"t.int", "t.int", "t.str", "t.bin", "t.empty", "both", "sms.msg.tola", "marker"});
    // The agent's arrangement: data-usage answers are registered on the handler without a
    // callback and must reach the binary overload of the one with.
    subscribe(publisher, {"ardo.dua.usage.info", "both"});
    const unsigned char bytes[] = {0x00, 0x01, 0xfe, 0xff, 0x00};
    int32_t status = 0;
    EXPECT_EQ(publisher.PublishData("t.int", -42), 0);
    EXPECT_EQ(publisher.PublishData("t.str", std::string("<TOLA><abc> é")), 0);
    EXPECT_EQ(publisher.PublishData("t.bin", bytes, sizeof bytes), 0);
    EXPECT_EQ(publisher.PublishData("t.empty", std::string()), 0);
    EXPECT_EQ(publisher.PublishData("t.unsubscribed", 1), 0);
    EXPECT_EQ(publisher.PublishData("ardo.dua.usage.info", &status, sizeof status), 0);
    EXPECT_EQ(publisher.PublishData("both", 5), 0);
    EXPECT_EQ(publisher.PublishData("sms.msg.tola", std::string("last")), 0);
    ASSERT_TRUE(rec.waitFor("sms.msg.tola"));
    // Unsubscribed: no more delivery. Notices arrive in order, so once the marker is in, a
    // second "t.int" would have been too.
    ASSERT_EQ(subscriber.RegisterForChannelSubscription("t.int", false), 0);
    EXPECT_EQ(subscriber.RegisterForChannelSubscription("never", false), 0);
    EXPECT_EQ(publisher.PublishData("t.int", 2), 0);
    EXPECT_EQ(publisher.PublishData("marker", 3), 0);
    ASSERT_TRUE(rec.waitFor("marker"));
    std::vector<std::string> expected = {"t.int=int:-42",
                                         "t.str=str:<TOLA><abc> é",
                                         "t.bin=bin:0001feff00",
                                         "t.empty=str:",
                                         "ardo.dua.usage.info=bin:00000000",
                                         "both=int:5",
                                         "sms.msg.tola=str:last",
                                         "marker=int:3"};
    EXPECT_EQ(rec.received(), expected);
}

// What the device's own services announce: an incoming SMS as text, a network time change.
TEST_F(BusTest, TheDeviceAnnouncesSmsAndTimeChanges) {
    MsgbusHandler subscriber(&rec);
    subscribe(subscriber, {"sms.msg.tola", "modem2.time_change"});
    const std::string sms = "<TOLA><Command>CheckIn</Command></TOLA>";
    if (!backend::receiveSms(sms) || !backend::changeNetworkTime()) {
        GTEST_SKIP() << "the backend cannot stage an SMS or a time change";
    }
    ASSERT_TRUE(rec.waitFor("sms.msg.tola"));
    ASSERT_TRUE(rec.waitFor("modem2.time_change"));
    std::vector<std::string> got = rec.received();
    EXPECT_NE(std::find(got.begin(), got.end(), "sms.msg.tola=str:" + sms), got.end());
}

TEST_F(BusTest, CallbacksMayPublishAndUninitialiseWhileOthersDeliver) {
    Recorder other;
    MsgbusHandler echoHandler(&rec);
    auto otherHandler = std::make_unique<MsgbusHandler>(&other);
    subscribe(echoHandler, {"ping", "pong"});
    subscribe(*otherHandler, {"ping"});

    // The callback publishes from the delivery thread and holds it until released, while
    // the test thread tears down the other handler.
    std::promise<void> inCallback;
    std::promise<void> release;
    std::shared_future<void> released(release.get_future());
    std::atomic<bool> first{true};
    rec.onReceive = [&](const std::string& channel) {
        if (channel == "ping" && first.exchange(false)) {
            echoHandler.PublishData("pong", 1);
            inCallback.set_value();
            released.wait();
        }
    };
    ASSERT_EQ(echoHandler.PublishData("ping", 0), 0);
    ASSERT_EQ(inCallback.get_future().wait_for(10s), std::future_status::ready);
    auto destroyed = std::async(std::launch::async, [&] { otherHandler.reset(); });
    EXPECT_EQ(destroyed.wait_for(10s), std::future_status::ready);
    release.set_value();
    ASSERT_TRUE(rec.waitFor("pong"));
}

TEST_F(BusTest, UninitialiseWaitsForItsOwnCallbackAndTheConnectionReopensAfterwards) {
    std::promise<void> started;
    std::atomic<bool> finished{false};
    rec.onReceive = [&](const std::string&) {
        started.set_value();
        std::this_thread::sleep_for(50ms);
        finished = true;
    };
    MsgbusHandler handler(&rec);
    subscribe(handler, {"slow"});
    ASSERT_EQ(handler.PublishData("slow", 1), 0);
    ASSERT_EQ(started.get_future().wait_for(10s), std::future_status::ready);
    EXPECT_EQ(handler.Uninitialize(), 0);
    EXPECT_TRUE(finished);

    // That was the last handler: the next one opens the connection again.
    Recorder fresh;
    MsgbusHandler again(&fresh);
    subscribe(again, {"again"});
    ASSERT_EQ(again.PublishData("again", 2), 0);
    ASSERT_TRUE(fresh.waitFor("again"));
}

TEST_F(BusTest, RefusesWhatItCannotCarry) {
    MsgbusHandler handler;
    ASSERT_EQ(handler.Initialize(), 0);
    EXPECT_NE(handler.RegisterForChannelSubscription("", true), 0);
    EXPECT_NE(handler.PublishData("x", nullptr, 4), 0);
    EXPECT_NE(handler.PublishData("x", "abc", -1), 0);
    EXPECT_NE(handler.PublishData("x", std::string("a\0b", 3)), 0);
    EXPECT_EQ(handler.PublishData("x", nullptr, 0), 0);
}
