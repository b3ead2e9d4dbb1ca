// Shared fixture: starts the layer for each test and records what it
// prints (through the configuration's print hook).
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kestro_lite.h"

namespace ktest {

// Everything printed through the print hook since the last Clear.
std::string Printed();
void ClearPrinted();
// The hook itself, for tests that start the layer on their own.
void PrintHook(const char *text);

// The platform table slot n of the current holder (created on demand), so a
// test can replace an operation and restore it.
ZOS_OSDEP_FUNC &Slot(uint32_t n);

// Directory for files a test writes (under the build tree, or /tmp).
std::string TempDir();

}  // namespace ktest

class ZosTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};
