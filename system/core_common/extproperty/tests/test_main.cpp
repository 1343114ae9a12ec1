#include <clocale>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "host/sandbox/private_root.h"

int main(int argc, char** argv) {
  // As on the device; to be loaded before the private root hides the locale's files.
  CHECK(setlocale(LC_CTYPE, "C.UTF-8") != nullptr) << "these tests need the locale C.UTF-8";
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  const auto entered = sandbox::EnterPrivateRoot({});
  CHECK(entered.ok()) << "these tests need a private root: " << entered.error().message();
  return RUN_ALL_TESTS();
}
