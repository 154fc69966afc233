// main() of every test program: each test process runs with HOME pointed at
// a fresh temporary folder, removed again at exit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TempHome.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  pam_test::TempHome home;
  return RUN_ALL_TESTS();
}
