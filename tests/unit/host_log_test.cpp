// The debug log's level threshold (ARDO_LOG_LEVEL): lines above it are dropped before they are
// formatted, anything but a level 0..7 leaves every line in.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "test_env.h"
#include "vorn_dbg.h"

namespace {

// Logs one line at each level under the given ARDO_LOG_LEVEL (nullptr: unset) and returns the
// levels that reached the log, as digits.
std::string levelsWritten(const tola_test::TempRoot& root, const char* setting) {
    if (setting != nullptr) {
        setenv("ARDO_LOG_LEVEL", setting, 1);
    } else {
        unsetenv("ARDO_LOG_LEVEL");
    }
    root.remove("/var/log/tola.log");
    vorn_dbg_stop();
    vorn_dbg_start();
    for (int level : {3, 5, 6, 7}) {
        vorn_dbg_log(level, "[%s]:[%s] - line at %d", "TOLA", vorn_dbg_get_level_name(level), level);
    }
    vorn_dbg_stop();
    std::string log = root.readFile("/var/log/tola.log");
    std::string written;
    for (char level : {'3', '5', '6', '7'}) {
        if (log.find(std::string("line at ") + level) != std::string::npos) {
            written += level;
        }
    }
    return written;
}

TEST(HostLog, LevelThresholdKeepsTheLinesAtOrBelowIt) {
    tola_test::TempRoot root(true);
    struct Case {
        const char* setting;
        const char* written;
    } cases[] = {
        {nullptr, "3567"}, {"7", "3567"}, {"6", "356"},   {"5", "35"},    {"3", "3"},        {"0", ""},
        {"", "3567"},      {"8", "3567"}, {"-1", "3567"}, {"6x", "3567"}, {"debug", "3567"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.written, levelsWritten(root, c.setting)) << (c.setting ? c.setting : "(unset)");
    }

    // A dropped line is never formatted: an argument that would fault when read is harmless.
    setenv("ARDO_LOG_LEVEL", "6", 1);
    vorn_dbg_start();
    vorn_dbg_log(7, "%s", reinterpret_cast<const char*>(16));
    vorn_dbg_stop();

    unsetenv("ARDO_LOG_LEVEL");
    vorn_dbg_start();
    vorn_dbg_stop();
}

TEST(HostLog, TheLogIsItsOwnersAloneNewOrOld) {
    tola_test::TempRoot root(true);
    for (bool existing : {false, true}) {
        SCOPED_TRACE(existing);
        vorn_dbg_stop();
        root.remove("/var/log/tola.log");
        if (existing) {
            root.writeFile("/var/log/tola.log", "older lines\n");
            chmod(root.path("/var/log/tola.log").c_str(), 0644);
        }
        vorn_dbg_start();
        vorn_dbg_log(3, "[%s]:[%s] - a line", "TOLA", vorn_dbg_get_level_name(3));
        vorn_dbg_stop();
        struct stat st {};
        ASSERT_EQ(stat(root.path("/var/log/tola.log").c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
        EXPECT_EQ(root.readFile("/var/log/tola.log").find("older lines") == 0, existing);
    }
}

}  // namespace

// Each line of the debug log starts with its time (ISO 8601 UTC, milliseconds) and then the text
// as the agent wrote it. Under systemd (JOURNAL_STREAM) errors and notices, and only those, also
// go to stderr with journald's level prefix.
TEST(HostLog, LinesCarryTheirTimeAndReachTheJournalUpToNotices) {
    tola_test::TempRoot root(true);
    unsetenv("ARDO_LOG_LEVEL");
    unsetenv("ARDO_LOG_STDERR");
    setenv("JOURNAL_STREAM", "8:12345", 1);
    root.remove("/var/log/tola.log");
    testing::internal::CaptureStderr();
    vorn_dbg_stop();
    vorn_dbg_start();
    for (int level : {3, 5, 6}) {
        vorn_dbg_log(level, "[%s]:[%s] - line at %d", "TOLA", "f", level);
    }
    vorn_dbg_stop();
    std::string mirrored = testing::internal::GetCapturedStderr();
    unsetenv("JOURNAL_STREAM");
    vorn_dbg_start();
    vorn_dbg_stop();

    EXPECT_EQ(mirrored, "<3>[TOLA]:[f] - line at 3\n<5>[TOLA]:[f] - line at 5\n");
    std::string log = root.readFile("/var/log/tola.log");
    const std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \[TOLA\]:\[f\] - line at (\d)\n)");
    std::string levels;
    for (std::sregex_iterator m(log.begin(), log.end(), line), end; m != end; ++m) {
        levels += (*m)[1];
    }
    EXPECT_EQ(levels, "356") << log;
}
