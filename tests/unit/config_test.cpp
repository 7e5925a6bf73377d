// The config.xml reader: element order, the first failure stops the reading, text bounds.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "test_env.h"
#include "tola_config.h"
#include "xmldata.h"

namespace {

const std::string kConfigFile = "/opt/ardo/etc/tola/config.xml";

struct Element {
    std::string name;
    std::string value;
};

std::vector<Element> sampleElements() {
    return {{"RequestTemplate", "req.json"},
            {"CheckInTemplate", "checkin.json"},
            {"ReceiptTemplate", "receipt.json"},
            {"requestDataUsageTemplate", "usage.json"},
            {"BaseEncryptionKey", "FactoryKey"},
            {"CheckInInterval", "24"},
            {"CheckInRetryInterval", "60"},
            {"CheckInFailedRetries", "2"},
            {"RequestTimeout", "30"},
            {"DataUsageResponseWaitTime", "15"},
            {"SMS104CheckInTemplate", "sms104.json"},
            {"DataCallType", "1"}};
}

std::string configXml(const std::vector<Element>& elements, const std::string& skip = "") {
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Config>\n";
    for (const Element& e : elements) {
        if (e.name != skip) {
            xml += "  <" + e.name + ">" + e.value + "</" + e.name + ">\n";
        }
    }
    return xml + "</Config>\n";
}

class ConfigReaderTest : public ::testing::Test {
  protected:
    // Reads the given text as config.xml into a zeroed record; the reader's result.
    int read(const std::string& xml, tolaagent_config_t& config) {
        root.writeFile(kConfigFile, xml);
        std::memset(&config, 0, sizeof config);
        std::string path = root.path(kConfigFile);
        EXPECT_EQ(0, xmldata_initialize(path.c_str(), path.c_str()));
        int rc = get_tolaagent_configuration(&config);
        xmldata_shutdown();
        return rc;
    }
    tola_test::TempRoot root{true};
};

TEST_F(ConfigReaderTest, ReadsEveryElementAndCutsLongTextsTo127Characters) {
    std::vector<Element> elements = sampleElements();
    elements[0].value = std::string(200, 'r');
    elements[4].value = std::string(127, 'k');
    tolaagent_config_t config;
    ASSERT_EQ(0, read(configXml(elements), config));
    EXPECT_EQ(std::string(127, 'r'), config.requestTemplate);
    EXPECT_STREQ("checkin.json", config.checkInTemplate);
    EXPECT_STREQ("receipt.json", config.receiptTemplate);
    EXPECT_STREQ("usage.json", config.requestDataUsageTemplate);
    EXPECT_EQ(std::string(127, 'k'), config.baseEncryptionKey);
    EXPECT_STREQ("sms104.json", config.sms104CheckInTemplate);
    EXPECT_STREQ("", config.reserved128);
    EXPECT_EQ(24u, config.checkInInterval);
    EXPECT_EQ(60u, config.checkInRetryInterval);
    EXPECT_EQ(2u, config.checkInFailedRetries);
    EXPECT_EQ(30u, config.requestTimeout);
    EXPECT_EQ(15u, config.dataUsageResponseWaitTime);
    EXPECT_EQ(1u, config.dataCallType);
}

TEST_F(ConfigReaderTest, FirstFailureStopsTheReading) {
    // The missing element, a text field read before the failure ("" if none), whether the
    // data-usage wait was read before it.
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"RequestTemplate", "", false},
        {"ReceiptTemplate", "checkin.json", false},
        {"BaseEncryptionKey", "checkin.json", false},
        {"CheckInInterval", "FactoryKey", false},
        {"SMS104CheckInTemplate", "FactoryKey", true},
        {"DataCallType", "FactoryKey", true},
    };
    for (auto [missing, lastFilledText, dataUsageWaitFilled] : cases) {
        SCOPED_TRACE(missing);
        tolaagent_config_t config;
        EXPECT_NE(0, read(configXml(sampleElements(), missing), config));
        EXPECT_EQ(0u, config.dataCallType);
        EXPECT_EQ(dataUsageWaitFilled ? 15u : 0u, config.dataUsageResponseWaitTime);
        std::string filled = std::string(config.checkInTemplate) + config.baseEncryptionKey;
        if (*lastFilledText == '\0') {
            EXPECT_EQ("", filled);
        } else {
            EXPECT_NE(std::string::npos, filled.find(lastFilledText));
        }
    }
}

}  // namespace
