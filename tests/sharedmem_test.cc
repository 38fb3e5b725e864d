// The layer over System V shared memory and semaphores, against the kernel.
#include "common/sharedmem.h"

#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>

#include <algorithm>

#include "common/lockmem.h"
#include "tests/support/ipc_namespace.h"
#include "utl/semops.h"

// This program's own hook, as a server has one, in the place of the runtime's.
static Moxstatus_e locking_fails = MOX_NORMAL;

void incLockMem(const void* /*address*/, unsigned size, Status& status) {
  if (locking_fails != MOX_NORMAL) status.set(SEV_SYSTEMERR, locking_fails, ENOMEM, {size});
}

namespace {

class SharedMemory : public IpcTest {
 protected:
  // "number/severity/os error/parameter", or "ok".
  std::string outcome() {
    if (!status.failed()) return "ok";
    return std::to_string(status.number) + "/" + std::to_string(status.severity) + "/" +
           std::to_string(status.os_error) + "/" + (status.param_count > 0 ? status.params : "");
  }
  // What a call has returned, in front of that.
  std::string outcome(int returned) { return std::to_string(returned) + ": " + outcome(); }

  Status status;
  char* address = nullptr;
};

class Semaphores : public SharedMemory {
 protected:
  // What ucksem returns, the state and the index.
  std::tuple<int, int, int> checked() {
    int state = -1, index = -1;
    const int returned = ucksem(&status, &state, &index);
    return {returned, state, index};
  }

  MutexHandle handle{};
};

TEST_F(SharedMemory, CreatesExclusivelyAndLeavesStrangersAlone) {
  const int shmid = sharedCreateIfNotExists(41, 5000, address, status);
  const std::vector<std::string> ours = {"41 660 5000 1"};
  EXPECT_EQ(kernel_segments(), ours);

  char* other = nullptr;
  EXPECT_EQ(sharedCreateIfNotExists(41, 5000, other, status), shmid);
  EXPECT_EQ(outcome(), "5515/4/0/41");
  EXPECT_EQ(other, nullptr);
  // A status that holds a failure stops the next operation before it begins.
  EXPECT_EQ(sharedCreateIfNotExists(42, 5000, other, status), -1);
  EXPECT_EQ(kernel_segments(), ours);

  EXPECT_EQ(sharedDetach(address, status), 0);
  EXPECT_EQ(outcome(sharedDetach(address, status)), "-1: 5513/4/22/");
  sharedRemove(shmid, status);
  sharedRemove(41, 0U, status);
  EXPECT_EQ(outcome(), "5510/4/2/41");
}

TEST_F(SharedMemory, IsRemovedAgainWhenTheHookOfTheProgramCannotLockIt) {
  locking_fails = MOX_CANNOT_HAPPEN;
  EXPECT_EQ(sharedCreateIfNotExists(41, 5000, address, status), -1);
  locking_fails = MOX_NORMAL;
  EXPECT_EQ(outcome(), "3360/4/12/5000");
  EXPECT_EQ(address, nullptr);
  EXPECT_TRUE(nothing_left());
}

TEST_F(SharedMemory, TellsSizesAndRefusesAnUnexpectedOne) {
  const int shmid = sharedGet(7, 8192, 8192, status, ipcCreateFlags);
  EXPECT_EQ(sharedSize(shmid, status), 8192);
  EXPECT_EQ(sharedSizeFromKey(7, status), 8192U);
  EXPECT_EQ(outcome(sharedGet(7, 0, 4096, status, 0)), "-1: 5510/4/0/7");
  EXPECT_EQ(outcome(sharedCreate(7, 9000, status)), "-1: 5510/4/22/7");
  EXPECT_EQ(outcome(sharedSize(shmid + 1, status)), "0: 5514/4/22/" + std::to_string(shmid + 1));
  EXPECT_EQ(sharedAttach(shmid + 1, nullptr, status, 1), nullptr);
  EXPECT_EQ(outcome(), "5512/4/22/");
  // Anew, in the place of the old one.
  EXPECT_NE(sharedCreate(7, 100, nullptr, status), nullptr);
  EXPECT_NE(shmget(7, 0, 0), shmid);
}

TEST_F(SharedMemory, KeysAreListedAndRemovalsNameWhatTheyFound) {
  const int first = sharedCreate(5, 10, status);
  const int second = sharedCreate(6, 10, status);
  unsigned count = 0;
  int keys[2] = {};
  EXPECT_TRUE(sharedKeys(nullptr, 9, &count));
  EXPECT_EQ(count, 2U);
  EXPECT_FALSE(sharedKeys(keys, 1, &count));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_TRUE(sharedKeys(keys, 2, &count));
  EXPECT_EQ(std::minmax(keys[0], keys[1]), std::minmax(5, 6));
  sharedRemoveOwned(5, second, status);
  EXPECT_EQ(outcome(), "5511/4/43/" + std::to_string(second));
  sharedRemoveOwned(7, first, status);
  EXPECT_EQ(outcome(), "5510/4/2/7");
  sharedRemoveOwned(5, first, status);
  EXPECT_EQ(outcome(), "ok");
  sharedRemove(first, status);
  EXPECT_EQ(outcome(), "5511/4/22/" + std::to_string(first));
  sharedRemove(6, 0U, status);
  EXPECT_TRUE(sharedKeys(keys, 2, &count) && count == 0);
}

TEST_F(Semaphores, FailuresAreThoseOfTheKernel) {
  MutexRecord record{};
  EXPECT_EQ(outcome(utlCreateMutex(&status, &handle, 9, 1 << 20)), "-1: 5520/3/22/9");
  EXPECT_EQ(utlCreateOwnMutex(&status, &handle, 9, 3), Whose::OURS);
  for (const int i : {1, 2}) EXPECT_EQ(semctl(utlMappedMutex(), i, SETVAL, 2), 0);
  EXPECT_EQ(checked(), std::tuple(0, 1, 1));
  EXPECT_EQ(semctl(utlMappedMutex(), 0, IPC_RMID), 0);
  EXPECT_EQ(outcome(uwtsem(&status, &record)), "-1: 5521/3/22/9");
  EXPECT_EQ(record.who, 0);
  EXPECT_EQ(outcome(std::get<0>(checked())), "-1: 5521/3/22/9");
  utlUnmapMutex();
  EXPECT_EQ(outcome(uwtsem(&status, &record)), "0: ok");
}

TEST_F(Semaphores, AreCreatedWithValueOneMappedAndRemoved) {
  EXPECT_EQ(outcome(utlMapMutex(&status, &handle, 9, 8)), "-1: 5520/3/2/9");
  EXPECT_EQ(outcome(utlRemoveMutex(&status)), "-1: 5522/3/22/9");

  EXPECT_EQ(utlCreateOwnMutex(&status, &handle, 9, 8), Whose::OURS);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(semctl(utlMappedMutex(), i, GETVAL), 1);
  EXPECT_EQ(utlCreateOwnMutex(&status, &handle, 9, 8), Whose::STRANGERS);
  EXPECT_EQ(outcome(), "5520/3/17/9");

  // The creation that also finds a set begins anew with its values, whoever asks for fewer of them.
  EXPECT_EQ(utlMapMutex(&status, &handle, 9, 8), 0);
  EXPECT_EQ(semctl(utlMappedMutex(), 7, SETVAL, 5), 0);
  EXPECT_EQ(utlCreateMutex(&status, &handle, 9, 2), 0);
  EXPECT_EQ(semctl(utlMappedMutex(), 7, GETVAL), 1);
  EXPECT_EQ(utlRemoveMutex(&status), 0);
  EXPECT_TRUE(kernel_sets().empty());
}

TEST_F(Semaphores, ServeAsMutexes) {
  std::array<MutexRecord, 3> table{};
  ASSERT_EQ(utlCreateMutex(&status, &handle, 9, 3), 0);
  utlInitMutex(&handle, table.data());
  EXPECT_EQ(uwtsem(&status, &table[1]), 0);
  EXPECT_EQ(table[1].who, getpid());
  EXPECT_EQ(semctl(utlMappedMutex(), 1, GETVAL), 0);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(urlsem(&status, &table[1]), 0);  // once is enough
  EXPECT_EQ(semctl(utlMappedMutex(), 1, GETVAL), 1);

  // The kernel gives back what a process holds that dies.
  if (fork() == 0) _exit(uwtsem(&status, &table[0]));
  wait(nullptr);
  EXPECT_EQ(semctl(utlMappedMutex(), 0, GETVAL), 1);

  table[2].who = 77;
  EXPECT_EQ(checked(), std::tuple(0, 2, 2));
  EXPECT_EXIT(urlsem(&status, &table[2]), testing::ExitedWithCode(1),
              "urlsem: Mutex reserved by another process");
  utlClearMutex(&handle, 77);
  EXPECT_EQ(checked(), std::tuple(0, 0, -1));
}

}  // namespace
