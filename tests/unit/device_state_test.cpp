#include "device_state.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "sys_core.h"
#include "test_env.h"

using ardo::json;

TEST(DeviceState, MissingOrUnparsableDocumentGivesFactoryDefaults) {
    tola_test::TempRoot root(true);
    EXPECT_FALSE(root.exists("/var/lib/ardo/device.json"));
    EXPECT_EQ(ardo::deviceStateRead(), ardo::deviceFactoryState());
    EXPECT_TRUE(root.exists("/var/lib/ardo/device.json"));
    root.writeFile("/var/lib/ardo/device.json", "{ not json");
    EXPECT_EQ(ardo::deviceStateRead(), ardo::deviceFactoryState());
}

TEST(DeviceState, ConcurrentUpdatesAreNotLost) {
    tola_test::TempRoot root(true);
    ardo::deviceStateSet("/test/counter", 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 25; ++i) {
                ardo::deviceStateUpdate(
                    [](json& s) { s["test"]["counter"] = s["test"]["counter"].get<int>() + 1; });
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(ardo::deviceStateValue<int>("/test/counter", -1), 100);
}

TEST(DeviceState, FaultsAreTakenInOrderThenCleared) {
    tola_test::TempRoot root(true);
    ardo::deviceStateSet("/faults/sys_x", json::array({7, 1}));
    ardo::deviceStateSet("/faults/sys_always", 3);
    int rc = 0;
    ASSERT_TRUE(ardo::deviceTakeFault("sys_x", &rc));
    EXPECT_EQ(rc, 7);
    ASSERT_TRUE(ardo::deviceTakeFault("sys_x", &rc));
    EXPECT_EQ(rc, 1);
    EXPECT_FALSE(ardo::deviceTakeFault("sys_x", &rc));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(ardo::deviceTakeFault("sys_always", &rc));
        EXPECT_EQ(rc, 3);
    }
    EXPECT_FALSE(ardo::deviceTakeFault("sys_none", &rc));
}

// `tola-devicectl fault set` refuses a call that is not in deviceFaultCalls(): the list must name
// every hook of the host platform (the literal names asked of deviceTakeFault, and the getters
// and setters the settings tables generate), and nothing else.
TEST(DeviceFaultCalls, ListsEveryHookOfTheHostPlatform) {
    std::set<std::string> hooks;
    const std::regex literal(R"re(deviceTakeFault\("([^"]+)")re");
    const std::regex generated(R"(\b((?:sys|deviceui|webui)_\w+)\b)");
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(TOLA_SOURCE_DIR) + "/platform/host")) {
        if (entry.path().extension() != ".cpp") {
            continue;
        }
        std::string file = entry.path().stem();
        std::string text = tola_test::readWholeFile(entry.path());
        for (std::sregex_iterator m(text.begin(), text.end(), literal), end; m != end; ++m) {
            hooks.insert((*m)[1]);
        }
        if (file == "settings") {
            for (std::sregex_iterator m(text.begin(), text.end(), generated), end; m != end; ++m) {
                std::string name = (*m)[1];
                if (name.size() < 2 || name.compare(name.size() - 2, 2, "_t") != 0) {
                    hooks.insert(name);
                }
            }
            hooks.erase("sys_settings");  // the header's name
        }
    }
    std::set<std::string> listed(ardo::deviceFaultCalls().begin(), ardo::deviceFaultCalls().end());
    EXPECT_EQ(listed, hooks);
}
