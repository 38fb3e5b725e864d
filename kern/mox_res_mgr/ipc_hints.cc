#include "kern/mox_res_mgr/ipc_hints.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <string>

#include "common/base/kernelfile.h"
#include "common/base/number.h"
#include "common/logger.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

// "?" where it cannot be read.
std::string setting(const std::string& name) {
  return kernelSetting(name).value_or("?");
}

// In kB.
std::string memory_figure(const std::string& name) {
  const auto figure = memoryFigure(name);
  return figure ? std::to_string(*figure) : "?";
}

std::string segment_count_or_pages() {
  shm_info info{};
  if (shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info)) < 0) {
    return "kernel.shmmni=" + setting("kernel/shmmni") +
           " segments or kernel.shmall=" + setting("kernel/shmall") + " pages";
  }
  const std::string most = setting("kernel/shmmni");
  // More may be in use than are allowed, when the limit was lowered since.
  const auto limit = readNumber(most.c_str());
  if (limit && info.used_ids >= limit->value) {
    return "kernel.shmmni=" + most + " segments, in use now " + std::to_string(info.used_ids);
  }
  return "kernel.shmall=" + setting("kernel/shmall") + " pages, in use now " +
         std::to_string(info.shm_tot);
}

std::string sets_or_semaphores() {
  // SEM_INFO counts the sets and the semaphores in use where IPC_INFO tells other limits.
  seminfo info{};
  std::string use;
  if (semctl(0, 0, SEM_INFO, &info) >= 0) {
    use = ", in use now " + std::to_string(info.semusz) + " sets with " +
          std::to_string(info.semaem) + " semaphores";
  }
  return "kernel.sem=" + setting("kernel/sem") + " (per set, in all, per operation, sets)" + use;
}

}  // namespace

void hint_at_segment_limit(std::uint32_t size, int os_error) {
  const std::string asked = "; asked for " + std::to_string(size) + " bytes";
  if (os_error == ENOSPC) {
    logLine(LEVEL_WRN, "kernel limit met: " + segment_count_or_pages() + asked);
  } else if (os_error == EINVAL) {
    logLine(LEVEL_WRN,
            "kernel limit met: kernel.shmmax=" + setting("kernel/shmmax") + " bytes" + asked);
  } else if (os_error == ENOMEM) {
    logLine(LEVEL_WRN, "kernel limit met: vm.overcommit_memory=" + setting("vm/overcommit_memory") +
                           ", CommitLimit " + memory_figure("CommitLimit") + " kB, in use now " +
                           memory_figure("Committed_AS") + " kB" + asked);
  }
}

void hint_at_semaphore_limit(int os_error) {
  if (os_error != ENOSPC && os_error != EINVAL && os_error != ENOMEM) return;
  logLine(LEVEL_WRN, "kernel limit met: " + sets_or_semaphores());
}

// The _ANY operations ask for no read permission, and take the identifier for its index in the
// kernel's table.
std::string describe_segment(std::int32_t key, int shmid) {
  std::string text = "segment with key " + std::to_string(key) + ": shmid " + std::to_string(shmid);
  shmid_ds segment{};
  if (shmctl(shmid, SHM_STAT_ANY, &segment) != shmid) return text + ", which cannot be looked at";
  return text + ", owner uid " + std::to_string(segment.shm_perm.uid) + ", " +
         std::to_string(segment.shm_segsz) + " bytes, attached " +
         std::to_string(segment.shm_nattch) + " times, created by pid " +
         std::to_string(segment.shm_cpid);
}

std::string describe_set(std::int32_t key, int semid) {
  std::string text =
      "semaphore set with key " + std::to_string(key) + ": semid " + std::to_string(semid);
  semid_ds set{};
  if (semctl(semid, 0, SEM_STAT_ANY, &set) != semid) return text + ", which cannot be looked at";
  return text + ", owner uid " + std::to_string(set.sem_perm.uid) + ", creator uid " +
         std::to_string(set.sem_perm.cuid) + ", " + std::to_string(set.sem_nsems) + " semaphores";
}

void hint_at_segment_in_the_way(std::int32_t key) {
  const int shmid = shmget(key, 0, 0);
  if (shmid >= 0) logLine(LEVEL_WRN, "in the way: " + describe_segment(key, shmid));
}

void hint_at_set_in_the_way(std::int32_t key) {
  const int semid = semget(key, 0, 0);
  if (semid >= 0) logLine(LEVEL_WRN, "in the way: " + describe_set(key, semid));
}

void hint_at_adopted_set(std::int32_t key, int semid) {
  logLine(LEVEL_WRN, "taken over: " + describe_set(key, semid));
}

void hint_at_attached_segment(std::int32_t key, int shmid) {
  shmid_ds segment{};
  if (shmctl(shmid, SHM_STAT_ANY, &segment) != shmid || segment.shm_nattch == 0) return;
  logLine(LEVEL_WRN,
          "removed while in use, and gone with the last detach: " + describe_segment(key, shmid));
}

void hint_at_removal_without_base(const std::string& what) {
  logLine(LEVEL_WRN, "removed for a node without ipcbase: " + what);
}

void warn_of_forced_removal() {
  if (setting("kernel/shm_rmid_forced") != "1") return;
  logLine(LEVEL_WRN,
          "kernel.shm_rmid_forced=1: the segments will vanish when this program ends, unless "
          "somebody attaches them first");
}

}  // namespace resmgr
