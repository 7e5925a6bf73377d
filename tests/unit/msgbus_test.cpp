#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device_state.h"
#include "msgbus_handler.h"
#include "private_bus.h"
#include "test_env.h"

using namespace std::chrono_literals;

namespace {

// Every notice received, flattened to "channel=int:<v>", "channel=str:<v>" or "channel=bin:<hex>".
class Recorder : public MsgbusCallbackInterface {
  public:
    void OnChannelNotify(const std::string& channel, const std::string& data) override {
        add(channel, "str:" + data);
    }
    void OnChannelNotify(const std::string& channel, const int& data) override {
        add(channel, "int:" + std::to_string(data));
    }
    void OnChannelNotify(const std::string& channel, void* data, int length) override {
        std::string hex = "bin:";
        for (int i = 0; i < length; ++i) {
            char b[3];
            std::snprintf(b, sizeof b, "%02x", static_cast<const unsigned char*>(data)[i]);
            hex += b;
        }
        add(channel, hex);
    }

    // Waits until some notice arrived on channel; real-time bound only against a hang.
    bool waitFor(const std::string& channel) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, 10s, [&] {
            return std::any_of(mReceived.begin(), mReceived.end(),
                               [&](const std::string& r) { return r.rfind(channel + "=", 0) == 0; });
        });
    }
    std::vector<std::string> received() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mReceived;
    }

    std::function<void(const std::string& channel)> onReceive;

  private:
    void add(const std::string& channel, const std::string& value) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mReceived.push_back(channel + "=" + value);
        }
        mCond.notify_all();
        if (onReceive) {
            onReceive(channel);
        }
    }

    std::mutex mMutex;
    std::condition_variable mCond;
    std::vector<std::string> mReceived;
};

class MsgbusTest : public ::testing::Test {
  protected:
    // A handler with the recorder as callback, subscribed to channels.
    void subscribe(MsgbusHandler& handler, std::initializer_list<const char*> channels) {
        ASSERT_EQ(handler.Initialize(), 0);
        for (const char* channel : channels) {
            ASSERT_EQ(handler.RegisterForChannelSubscription(channel, true), 0) << channel;
        }
    }

    tola_test::TempRoot root{true};
    tola_test::PrivateBus bus;
    Recorder rec;
};

}  // namespace

TEST_F(MsgbusTest, ValuesOfEveryKindTravelBetweenHandlersUntilUnsubscribed) {
    MsgbusHandler subscriber(&rec);
    MsgbusHandler publisher;
    subscribe(subscriber, {"t.int", "t.str", "t.bin", "t.empty", "marker"});
    ASSERT_EQ(publisher.Initialize(), 0);
    const unsigned char bytes[] = {0x00, 0x01, 0xfe, 0xff, 0x00};
    EXPECT_EQ(publisher.PublishData("t.int", -42), 0);
    EXPECT_EQ(publisher.PublishData("t.str", std::string("<TOLA><abc> é")), 0);
    EXPECT_EQ(publisher.PublishData("t.bin", bytes, sizeof bytes), 0);
    EXPECT_EQ(publisher.PublishData("t.empty", std::string()), 0);
    EXPECT_EQ(publisher.PublishData("t.unsubscribed", 1), 0);
    ASSERT_TRUE(rec.waitFor("t.empty"));
    // Unsubscribed: no more delivery. Signals arrive in order, so once the marker is in, a
    // second "t.int" would have been too.
    ASSERT_EQ(subscriber.RegisterForChannelSubscription("t.int", false), 0);
    EXPECT_EQ(subscriber.RegisterForChannelSubscription("never", false), 0);
    EXPECT_EQ(publisher.PublishData("t.int", 2), 0);
    EXPECT_EQ(publisher.PublishData("marker", 3), 0);
    ASSERT_TRUE(rec.waitFor("marker"));
    std::vector<std::string> expected = {"t.int=int:-42", "t.str=str:<TOLA><abc> é", "t.bin=bin:0001feff00",
                                         "t.empty=str:", "marker=int:3"};
    EXPECT_EQ(rec.received(), expected);
}

TEST_F(MsgbusTest, ChannelOfACallbacklessHandlerReachesTheCallbackHandler) {
    MsgbusHandler subscriber(&rec);
    MsgbusHandler publisher;
    // Both handlers on one channel, and a repeated subscription: still one delivery.
    subscribe(subscriber, {"sms.msg.tola", "both", "both"});
    ASSERT_EQ(publisher.Initialize(), 0);
    // The agent's arrangement: data-usage answers are registered on the handler without a
    // callback and must reach the binary overload of the one with.
    ASSERT_EQ(publisher.RegisterForChannelSubscription("ardo.dua.usage.info", true), 0);
    ASSERT_EQ(publisher.RegisterForChannelSubscription("both", true), 0);
    int32_t status = 0;
    EXPECT_EQ(publisher.PublishData("ardo.dua.usage.info", &status, sizeof status), 0);
    EXPECT_EQ(publisher.PublishData("both", 5), 0);
    EXPECT_EQ(publisher.PublishData("sms.msg.tola", std::string("last")), 0);
    ASSERT_TRUE(rec.waitFor("sms.msg.tola"));
    std::vector<std::string> expected = {"ardo.dua.usage.info=bin:00000000", "both=int:5",
                                         "sms.msg.tola=str:last"};
    EXPECT_EQ(rec.received(), expected);
}

TEST_F(MsgbusTest, StandardToolsInjectAndOddSignalsAreIgnored) {
    MsgbusHandler subscriber(&rec);
    // Not the SMS channel: busctl leaves the bus before the receiver can ask for its user.
    subscribe(subscriber, {"any.text", "modem2.time_change"});
    std::string busctl = "busctl --address='" + bus.address() + "' emit ";
    std::string emit = busctl + "/com/ardo/Msgbus com.ardo.Msgbus1 Notify ";
    // A variant kind that is not ours, a wrong signature and a wrong path: all dropped.
    for (const std::string& args :
         {emit + "sv any.text u 7", emit + "ss any.text x",
          busctl + "/other com.ardo.Msgbus1 Notify sv any.text s wrongpath",
          emit + "sv modem2.time_change ay 2 1 2", emit + "sv any.text s '<TOLA><x>'"}) {
        ASSERT_EQ(std::system(args.c_str()), 0) << args;
    }
    // Separate tool runs are separate connections: wait for both rather than rely on order.
    ASSERT_TRUE(rec.waitFor("any.text"));
    ASSERT_TRUE(rec.waitFor("modem2.time_change"));
    std::vector<std::string> got = rec.received();
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, (std::vector<std::string>{"any.text=str:<TOLA><x>", "modem2.time_change=bin:0102"}));
}

TEST_F(MsgbusTest, CallbacksMayPublishAndUninitialiseWhileOthersDeliver) {
    Recorder other;
    MsgbusHandler echoHandler(&rec);
    auto otherHandler = std::make_unique<MsgbusHandler>(&other);
    subscribe(echoHandler, {"ping", "pong"});
    ASSERT_EQ(otherHandler->Initialize(), 0);
    ASSERT_EQ(otherHandler->RegisterForChannelSubscription("ping", true), 0);

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

TEST_F(MsgbusTest, UninitialiseWaitsForItsOwnCallbackAndTheConnectionReopensAfterwards) {
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
    ASSERT_EQ(again.Initialize(), 0);
    ASSERT_EQ(again.RegisterForChannelSubscription("again", true), 0);
    ASSERT_EQ(again.PublishData("again", 2), 0);
    ASSERT_TRUE(fresh.waitFor("again"));
}

TEST_F(MsgbusTest, RefusesWhatItCannotDo) {
    {
        tola_test::PrivateBus restoresTheAddress;
        for (const char* address :
             {"unix:path=/nonexistent/tola/bus", "tcp:host=127.0.0.1,port=1", "garbage"}) {
            SCOPED_TRACE(address);
            setenv("ARDO_BUS_ADDRESS", address, 1);
            MsgbusHandler handler;
            EXPECT_NE(handler.Initialize(), 0);
            EXPECT_NE(handler.PublishData("x", 1), 0);
            EXPECT_NE(handler.RegisterForChannelSubscription("x", true), 0);
        }
    }
    MsgbusHandler handler;
    ASSERT_EQ(handler.Initialize(), 0);
    EXPECT_NE(handler.RegisterForChannelSubscription("it's", true), 0);
    EXPECT_NE(handler.RegisterForChannelSubscription("", true), 0);
    EXPECT_NE(handler.PublishData("x", nullptr, 4), 0);
    EXPECT_NE(handler.PublishData("x", "abc", -1), 0);
    EXPECT_NE(handler.PublishData("x", std::string("a\0b", 3)), 0);
    EXPECT_NE(handler.PublishData("x", std::string("\xff\xfe")), 0);  // not UTF-8
    EXPECT_EQ(handler.PublishData("x", nullptr, 0), 0);

    // Scripted faults come first.
    ardo::deviceStateSet("/faults/MsgbusHandler::PublishData", ardo::json::array({4}));
    ardo::deviceStateSet("/faults/MsgbusHandler::RegisterForChannelSubscription", ardo::json::array({5}));
    EXPECT_EQ(handler.PublishData("x", 1), 4);
    EXPECT_EQ(handler.RegisterForChannelSubscription("x", true), 5);
    EXPECT_EQ(handler.PublishData("x", 1), 0);
}
