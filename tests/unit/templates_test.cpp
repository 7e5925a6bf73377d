// Templates and placeholders: reading files, first-occurrence replacement, and the device
// values that the request and the envelope receive.
#include "app_fixture.h"
#include "case_rows.h"
#include "sys_device.h"

using ardo::json;
using tola_test::AppTest;

namespace {

class TemplatesTest : public AppTest {
  protected:
    std::string FillOne(const std::string& text) {
        std::string checkIn = text, request = text;
        app->ProcessRequest(checkIn, request);
        return request;
    }
};

TEST_F(TemplatesTest, FilesGainOneLineBreakAndAMissingTemplateFailsItsGetter) {
    for (std::string written : {"a\nb", "a\nb\n", "", "one line"}) {
        root.writeFile("/opt/ardo/etc/tola/t.txt", written);
        std::string content = "old";
        EXPECT_EQ(app->GetFileContent("/opt/ardo/etc/tola/t.txt", content), 0);
        EXPECT_EQ(content, written + "\n");
    }
    std::string content = "kept";
    EXPECT_EQ(app->GetFileContent("/opt/ardo/etc/tola/missing.txt", content), 1);
    EXPECT_EQ(content, "kept");
    root.remove("/opt/ardo/etc/tola/tola_receipt.json");
    EXPECT_EQ(app->GetReceiptParameters(content), 1);
    EXPECT_EQ(app->GetCheckInParameters(content), 0);
    EXPECT_EQ(content, "{\"IMEI\":\"%IMEI%\",\"Request\":\"%ENCRYPTEDREQUEST%\"}\n\n");
}

TEST_F(TemplatesTest, RequestPlaceholdersFollowTheDevice) {
    const json factory = ardo::deviceStateRead();
    for (const tola_test::CaseRow& c : tola_test::readCaseRows("templates.txt")) {
        ardo::deviceStateUpdate([&](json& state) { state = factory; });
        FillOne("");  // a first reading, so that the firmware version is known
        ardo::deviceStateUpdate([&](json& state) { state.merge_patch(json::parse(c[0])); });
        EXPECT_EQ(FillOne(c[1]), c[2]) << c.where;
    }
}

TEST_F(TemplatesTest, EveryDevicePlaceholderIsFilledInBothTexts) {
    tola_copy_text(app->RuntimeConfig().version, "");  // an empty version leaves its placeholder
    EXPECT_EQ(FillOne("%VERSION%"), "%VERSION%");
    tola_copy_text(app->RuntimeConfig().version, "42");
    std::string checkIn = "%VERSION%|%MEID%|%ESN%|%MIN%|%IMEI%|%MODEL%|%FWVERSION%|%MACADDRESS%|%ISROAMING%";
    std::string request = checkIn + "|%LATITUDE%|%LONGITUDE%";
    ASSERT_TRUE(app->ProcessRequest(checkIn, request));  // the way a check-in fills them
    EXPECT_EQ(checkIn,
              "42|A0000012345678|80A1B2C3|5551234567|356938035643809|AH-5100|AH5100_V1.4.2_REL|"
              "00:1A:2B:3C:4D:5E|0");
    EXPECT_EQ(request, checkIn + "|40.712776|-74.005974");
}

// 0, 1 and the privacy-agreement answer are not failures.
TEST_F(TemplatesTest, GpsFailuresAreLoggedWithTheirCode) {
    ardo::deviceStateSet("/faults/sys_getGPSEnabled", json::array({1, SYS_GPS_PRIVACY_NOT_ACCEPTED, 2}));
    for (int i = 0; i < 3; ++i) {
        FillOne("");
    }
    EXPECT_EQ(LogCount("getGPSEnabled failed with code"), 1u);
    EXPECT_NE(Log().find("getGPSEnabled failed with code = 2"), std::string::npos);
}

}  // namespace
