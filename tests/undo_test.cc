// Entries of the undo log whose key another one has taken meanwhile.
#include "kern/mox_res_mgr/undo.h"

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <string>

#include "kern/mox_res_mgr/report.h"
#include "tests/support/error_block.h"
#include "tests/support/ipc_namespace.h"

namespace resmgr {
namespace {

using Undo = IpcTest;

// The report of the undo of one entry.
std::string report(undo_op& entry) {
  testing::internal::CaptureStdout();
  entry.undo();
  EXPECT_FALSE(stat.failed());
  return testing::internal::GetCapturedStdout();
}

TEST_F(Undo, LeavesASetThatTookTheKey) {
  sem_undo_op entry(5, 8);
  const int ours = semget(5, 8, IPC_CREAT | 0600);
  entry.made(ours, Whose::OURS);
  semctl(ours, 0, IPC_RMID);
  semget(5, 8, IPC_CREAT | 0600);
  EXPECT_EQ(report(entry), error_block(5522, 3, "Removing semaphore with key \"5\" failed", EIDRM) +
                               "Error: delete of semaphores with 5 failed\n");
  EXPECT_EQ(set_keys(), std::vector<int>{5});
}

TEST_F(Undo, LeavesASegmentThatTookTheKey) {
  shm_undo_op entry(5);
  const int ours = shmget(5, 10, IPC_CREAT | 0600);
  entry.made(ours, static_cast<char*>(shmat(ours, nullptr, 0)));
  shmctl(ours, IPC_RMID, nullptr);
  shmget(5, 10, IPC_CREAT | 0600);
  const std::string name = "Removing shared memory segment with key \"" + std::to_string(ours);
  EXPECT_EQ(report(entry), error_block(5511, 4, name + "\" failed", EIDRM) +
                               "Error: delete of shared memory segment 5 failed\n");
  EXPECT_EQ(segment_keys(), std::vector<int>{5});
}

}  // namespace
}  // namespace resmgr
