// The end-to-end fixture's child processes: a sanitizer report in a child's output fails the
// test that started it, however the child ended; a clean output does not.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "private_bus.h"

namespace {

void RunChild(const char* script) {
    static int counter = 0;
    std::string output = "/tmp/tola-child-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
    {
        tola_test::ChildProcess child("/bin/sh", {"-c", script}, output);
        int status = 0;
        child.waitForExit(status, 10000);
    }
    std::remove(output.c_str());
}

TEST(ChildProcessTest, ASanitizerReportInTheOutputFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(RunChild("echo 'WARNING: ThreadSanitizer: data race (pid=1)' >&2"),
                            "sanitizer report");
    EXPECT_NONFATAL_FAILURE(RunChild("echo '==1==ERROR: AddressSanitizer: heap-use-after-free'; kill -9 $$"),
                            "sanitizer report");
    EXPECT_NONFATAL_FAILURE(RunChild("echo 'x.cpp:3:5: runtime error: signed integer overflow'"),
                            "sanitizer report");
    RunChild("echo 'TOLA started'");  // a clean output: no failure
}

}  // namespace
