#include "tests/support/ipc_namespace.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

namespace {

// The lines below the heading of one of the kernel's tables.
std::vector<std::istringstream> rows(const char* table) {
  std::ifstream file(table);
  std::vector<std::istringstream> result;
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) result.emplace_back(line);
  return result;
}

template <class Object>
std::vector<int> keys(const std::vector<Object>& objects) {
  std::vector<int> result;
  for (const Object& object : objects) result.push_back(object.key);
  return result;
}

}  // namespace

std::vector<KernelSegment> kernel_segments() {
  std::vector<KernelSegment> segments;
  for (std::istringstream& row : rows("/proc/sysvipc/shm")) {
    KernelSegment s{};
    int creator = 0;
    int last = 0;
    row >> s.key >> s.shmid >> s.permissions >> s.size >> creator >> last >> s.attached;
    segments.push_back(s);
  }
  std::sort(segments.begin(), segments.end(),
            [](const auto& a, const auto& b) { return a.key < b.key; });
  return segments;
}

std::vector<KernelSet> kernel_sets() {
  std::vector<KernelSet> sets;
  for (std::istringstream& row : rows("/proc/sysvipc/sem")) {
    KernelSet s{};
    row >> s.key >> s.semid >> s.permissions >> s.semaphores;
    sets.push_back(s);
  }
  std::sort(sets.begin(), sets.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
  return sets;
}

std::vector<int> segment_keys() {
  return keys(kernel_segments());
}
std::vector<int> set_keys() {
  return keys(kernel_sets());
}

void IpcTest::SetUp() {
  if (unshare(CLONE_NEWIPC) == 0) return;
  if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0) return;
  GTEST_SKIP() << "skipped: no IPC namespace of its own: " << std::strerror(errno);
}
