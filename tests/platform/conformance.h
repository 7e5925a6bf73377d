// Shared by the conformance cases: every case runs on a fresh device of the backend under test.
#pragma once

#include <gtest/gtest.h>

#include "backend_fixture.h"
#include "case_rows.h"

class DeviceTest : public ::testing::Test {
  protected:
    void SetUp() override { backend::setUp(); }
    void TearDown() override { backend::tearDown(); }
};
