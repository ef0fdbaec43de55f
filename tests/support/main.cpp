// SPDX-License-Identifier: MIT
// main.cpp - test entry: each test process gets a private IPC namespace, so
// the region (segment 14) and the semaphore (key 4656) belong to it alone.
#include <sched.h>

#include <cstdio>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
  if (unshare(CLONE_NEWIPC) != 0) {
    std::fprintf(stderr, "note: no private IPC namespace; tests share the system's IPC\n");
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
