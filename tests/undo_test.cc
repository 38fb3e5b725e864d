// The replay of an undo log, entry by entry.
#include "kern/mox_res_mgr/undo.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "kern/mox_res_mgr/report.h"
#include "tests/support/error_block.h"
#include "tests/support/ipc_namespace.h"

namespace resmgr {
namespace {

class noted_op : public undo_op {
 public:
  noted_op(std::string& notes, const char* name, bool fails)
      : notes_(notes), name_(name), fails_(fails) {}
  ~noted_op() override { notes_ += '~' + name_ + ' '; }
  void undo() override {
    notes_ += name_ + ' ';
    if (fails_) throw std::bad_alloc();
  }

 private:
  std::string& notes_;
  std::string name_;
  bool fails_;
};

undo_log log_of(std::string& notes) {
  undo_log log;
  for (const char* name : {"a", "b", "c"}) {
    log.push_back(std::make_unique<noted_op>(notes, name, name[0] == 'b'));
  }
  return log;
}

TEST(Replay, GoesOnPastAnEntryThatFails) {
  std::string notes;
  undo_log log = log_of(notes);
  testing::internal::CaptureStdout();
  replay(log);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: out of memory\n");
  EXPECT_EQ(notes, "a ~a b ~b c ~c ");
  EXPECT_TRUE(log.empty());
}

TEST(Replay, LeavesTheEntriesBeforeItsStart) {
  std::string notes;
  undo_log log = log_of(notes);
  replay(log, 2);
  EXPECT_EQ(notes, "c ~c ");
  EXPECT_EQ(log.size(), 2U);
}

TEST(Announcement, IsTakenBackUnlessSomethingWasMade) {
  undo_log log;
  { const announcement<shm_undo_op> entry(log, 7); }
  EXPECT_TRUE(log.empty());
  announcement<shm_undo_op>(log, 7).made(1, nullptr);
  EXPECT_EQ(log.size(), 1U);
}

class Undo : public IpcTest {
 protected:
  // The report of the undo of one entry.
  static std::string report(undo_op& entry) {
    testing::internal::CaptureStdout();
    entry.undo();
    EXPECT_FALSE(stat.failed());
    return testing::internal::GetCapturedStdout();
  }
};

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

// Such a look-up asks for more semaphores than the set has.
TEST_F(Undo, RemovesASetWhoseLookUpIsRefused) {
  sem_undo_op entry(5, 8);
  entry.made(semget(5, 2, IPC_CREAT | 0600), Whose::OURS);
  EXPECT_EQ(report(entry), "");
  EXPECT_TRUE(set_keys().empty());
}

TEST_F(Undo, LeavesASegmentThatTookTheKey) {
  shm_undo_op entry(5);
  const int ours = shmget(5, 10, IPC_CREAT | 0600);
  entry.made(ours, static_cast<char*>(shmat(ours, nullptr, 0)));
  shmctl(ours, IPC_RMID, nullptr);
  shmget(5, 10, IPC_CREAT | 0600);
  EXPECT_EQ(report(entry), error_block(5511, 4,
                                       "Removing shared memory segment with key \"" +
                                           std::to_string(ours) + "\" failed",
                                       EIDRM) +
                               "Error: delete of shared memory segment 5 failed\n");
  EXPECT_EQ(segment_keys(), std::vector<int>{5});
}

TEST_F(Undo, GoesOnWithTheRemovalWhenNothingCanBeDetached) {
  shm_undo_op entry(5);
  const int ours = shmget(5, 10, IPC_CREAT | 0600);
  char elsewhere = 0;
  entry.made(ours, &elsewhere);
  const std::string detach =
      error_block(5513, 4, "Detaching shared memory segment with key \"\" failed", EINVAL);
  EXPECT_EQ(report(entry), detach + "Error: detach of shared memory segment key 5 segid " +
                               std::to_string(ours) + " failed\n");
  EXPECT_TRUE(segment_keys().empty());
}

}  // namespace
}  // namespace resmgr
