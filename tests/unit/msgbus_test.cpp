#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "bus_recorder.h"
#include "device_state.h"
#include "msgbus_handler.h"
#include "private_bus.h"
#include "test_env.h"

using namespace std::chrono_literals;

namespace {

using Recorder = tola_test::BusRecorder;

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

TEST_F(MsgbusTest, RefusesUnreachableBusesAndWhatDBusCannotCarry) {
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
    // What D-Bus cannot carry: a quote in a match rule, a text that is not UTF-8.
    EXPECT_NE(handler.RegisterForChannelSubscription("it's", true), 0);
    EXPECT_NE(handler.PublishData("x", std::string("\xff\xfe")), 0);

    // Scripted faults come first.
    ardo::deviceStateSet("/faults/MsgbusHandler::PublishData", ardo::json::array({4}));
    ardo::deviceStateSet("/faults/MsgbusHandler::RegisterForChannelSubscription", ardo::json::array({5}));
    EXPECT_EQ(handler.PublishData("x", 1), 4);
    EXPECT_EQ(handler.RegisterForChannelSubscription("x", true), 5);
    EXPECT_EQ(handler.PublishData("x", 1), 0);
}
