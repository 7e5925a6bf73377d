// Shared by the conformance cases: every case runs on a fresh device of the backend under test.
#pragma once

#include <gtest/gtest.h>

#include <csignal>

#include "backend_fixture.h"
#include "case_rows.h"

// The test servers write to sockets that a refusing client has closed: SIGPIPE must not end the run.
class DeviceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN);
        backend::setUp();
    }
    void TearDown() override { backend::tearDown(); }
};
