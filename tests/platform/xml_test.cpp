// The XML reader.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "conformance.h"
#include "xmldata.h"

namespace {

// Opens documents written to a scratch file of its own.
class XmlTest : public DeviceTest {
  protected:
    void TearDown() override {
        xmldata_close();
        std::remove(mPath.c_str());
        DeviceTest::TearDown();
    }
    std::string write(const std::string& xml) {
        std::ofstream(mPath, std::ios::binary | std::ios::trunc) << xml;
        return mPath;
    }
    void open(const std::string& xml) { ASSERT_EQ(xmldata_initialize(write(xml).c_str(), mPath.c_str()), 0); }

  private:
    const std::string mPath = "/tmp/tola-xml-" + std::to_string(getpid()) + ".xml";
};

// The document of the reader's cases (platform_xml_texts.tsv).
void openDoc() {
    const char* doc = TOLA_SOURCE_DIR "/tests/corpus/cases/platform_xml_doc.xml";
    ASSERT_EQ(xmldata_initialize(doc, doc), 0);
}

}  // namespace

TEST_F(XmlTest, ReadsTextsAndCountsMatchingNodes) {
    openDoc();
    for (const std::vector<std::string>& c : tola_test::readCases("platform_xml_texts.tsv", 5)) {
        char buffer[64];
        std::strcpy(buffer, "unchanged");
        EXPECT_EQ(xmldata_getstring(c[0].c_str(), buffer, std::stoi(c[4])) != 0, c[1] != "0") << c[0];
        EXPECT_EQ(buffer, c[2]) << c[0];
        int count = -1;
        int rc = xmldata_getcount(c[0].c_str(), &count);
        EXPECT_EQ(rc != 0 ? "refused" : std::to_string(count), c[3]) << c[0];
    }
}

TEST_F(XmlTest, TextCopyIsBoundedToMaxChars) {
    std::string huge(3 * 1024 * 1024, 'x');
    open("<A><Big>" + huge + "</Big></A>");
    char buffer[129];
    std::memset(buffer, '#', sizeof buffer);
    ASSERT_EQ(xmldata_getstring("/A/Big", buffer, 127), 0);
    EXPECT_EQ(std::strlen(buffer), 127u);
    EXPECT_EQ(buffer[128], '#');  // nothing written past maxChars + 1
}

TEST_F(XmlTest, NumbersAcceptOnlyDecimalsThatFit) {
    for (const std::vector<std::string>& c : tola_test::readCases("platform_xml_numbers.tsv", 3)) {
        SCOPED_TRACE("\"" + c[0] + "\"");
        open("<A><V>" + c[0] + "</V></A>");
        uint32_t u = 12345;
        EXPECT_EQ(xmldata_getuint32("/A/V", &u) != 0, c[1] == "refused");
        EXPECT_EQ(u, c[1] == "refused" ? 12345u : std::stoul(c[1]));
        int32_t i = 0;
        EXPECT_EQ(xmldata_getint32_default("/A/V", &i, -99), 0);
        EXPECT_EQ(i, c[2] == "refused" ? -99 : std::stol(c[2]));
    }
    uint32_t u = 1;
    EXPECT_NE(xmldata_getuint32("/A/Missing", &u), 0);
    int32_t i = 0;
    EXPECT_EQ(xmldata_getint32_default("/A/Missing", &i, 77), 0);
    EXPECT_EQ(i, 77);
}

TEST_F(XmlTest, UnreadableFilesFailToOpen) {
    for (const tola_test::CaseRow& row : tola_test::readCaseRows("platform_xml_unreadable.txt")) {
        const std::string text = row[0];
        std::string path = write(text);
        EXPECT_NE(xmldata_initialize(path.c_str(), nullptr), 0) << text;
        char buffer[16];
        EXPECT_NE(xmldata_getstring("/A", buffer, 15), 0) << "no document stays open after " << text;
    }
    EXPECT_NE(xmldata_initialize("/nonexistent/tola/doc.xml", nullptr), 0);
    EXPECT_NE(xmldata_initialize(nullptr, nullptr), 0);
}

// A hand-edited file with an entity bomb: it opens or fails, but reading stays small.
TEST_F(XmlTest, NestedEntitiesAreNotExpanded) {
    if (xmldata_initialize(TOLA_SOURCE_DIR "/tests/corpus/cases/platform_xml_entity_bomb.xml", nullptr) ==
        0) {
        char buffer[64];
        ASSERT_EQ(xmldata_getstring("/A/V", buffer, 63), 0);
        EXPECT_STREQ(buffer, "xy");
    }
}

TEST_F(XmlTest, OperationsFailWithoutAnOpenDocument) {
    openDoc();
    EXPECT_EQ(xmldata_close(), 0);
    char buffer[8];
    uint32_t u = 0;
    int count = 0;
    EXPECT_NE(xmldata_getstring("/Config/Name", buffer, 7), 0);
    EXPECT_NE(xmldata_getuint32("/Config/Num", &u), 0);
    EXPECT_NE(xmldata_getcount("/Config/Item", &count), 0);
    EXPECT_EQ(xmldata_shutdown(), 0);
    // Opening a second document replaces the first.
    open("<Other><Name>second</Name></Other>");
    open("<Third><Name>third</Name></Third>");
    ASSERT_EQ(xmldata_getstring("/Third/Name", buffer, 7), 0);
    EXPECT_STREQ(buffer, "third");
    EXPECT_NE(xmldata_getstring("/Other/Name", buffer, 7), 0);
}
