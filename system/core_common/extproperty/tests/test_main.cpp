#include <clocale>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "host/sandbox/private_root.h"

int main(int argc, char** argv) {
  // As on the device; to be loaded before the private root hides the locale's files.
  if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
    fputs("these tests need the locale C.UTF-8\n", stderr);
    return EXIT_FAILURE;
  }
  testing::InitGoogleTest(&argc, argv);
  if (!GTEST_FLAG_GET(list_tests)) {
    const auto entered = sandbox::EnterPrivateRoot({});
    if (!entered.ok()) {
      fprintf(stderr, "these tests need a private root: %s\n", entered.error().message().c_str());
      return EXIT_FAILURE;
    }
  }
  return RUN_ALL_TESTS();
}
