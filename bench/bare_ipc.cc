// Makes the system calls of a CREATE or DELETE of the benchmark's nodes, and nothing else: the
// floor that mox_res_mgr is measured against.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "bench/workload.h"

namespace {

constexpr int offsets[] = {1, 2, 3, 4, 5, 7};
constexpr int permissions = 0660;

void must(bool good, const char* what) {
  if (good) return;
  std::perror(what);
  std::_Exit(1);
}

void create(int base) {
  for (const int offset : offsets) {
    if (offset == 7) continue;
    const unsigned bytes = offset == 4 ? dictionary_bytes : buffer_bytes;
    const int shmid = shmget(base + offset, bytes, IPC_CREAT | IPC_EXCL | permissions);
    must(shmid >= 0, "shmget");
    must(shmat(shmid, nullptr, 0) != reinterpret_cast<void*>(-1), "shmat");
  }
  must(semget(base + 5, semaphores, permissions) < 0, "semget");
  const int semid = semget(base + 5, semaphores, IPC_CREAT | IPC_EXCL | permissions);
  unsigned short ones[semaphores];
  std::fill(std::begin(ones), std::end(ones), 1);
  must(semid >= 0 && semctl(semid, 0, SETALL, ones) == 0, "semctl");
}

void remove(int base) {
  const int semid = semget(base + 5, semaphores, permissions);
  must(semid >= 0 && semctl(semid, semaphores, IPC_RMID) == 0, "semctl");
  for (const int offset : offsets) {
    shmid_ds segment{};
    const int shmid = shmget(base + offset, 0, 0);
    if (shmget(base + offset, 0, 0) < 0) continue;
    must(shmctl(shmid, IPC_RMID, nullptr) == 0, "shmctl");
    must(shmctl(shmid, IPC_STAT, &segment) < 0, "shmctl");
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool creating = argc == 2 && std::strcmp(argv[1], "create") == 0;
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  for (int node = 0; node < node_count; ++node) {
    const int base = first_base + node * keys_apart;
    if (creating) {
      std::printf("checking ipcbase %d\n", base);
      create(base);
      std::printf("node-%d:ipcbase=%d\n", node, base);
    } else {
      remove(base);
    }
  }
}
