#include "tests/support/ipc_namespace.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

// The key and the given columns of one of the kernel's tables, by ascending key.
std::vector<std::string> rows(const char* table, std::initializer_list<std::size_t> columns) {
  std::ifstream file(table);
  std::map<int, std::string> sorted;
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    std::istringstream stream(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    std::string& row = sorted[std::stoi(words.at(0))] = words[0];
    for (const std::size_t column : columns) row += " " + words.at(column);
  }
  std::vector<std::string> result;
  for (const auto& entry : sorted) result.push_back(entry.second);
  return result;
}

std::vector<int> keys(const std::vector<std::string>& rows) {
  std::vector<int> result;
  for (const std::string& row : rows) result.push_back(std::stoi(row));
  return result;
}

}  // namespace

std::vector<std::string> kernel_segments() {
  return rows("/proc/sysvipc/shm", {2, 3, 6});
}
std::vector<std::string> kernel_sets() {
  return rows("/proc/sysvipc/sem", {2, 3});
}
std::vector<int> segment_keys() {
  return keys(kernel_segments());
}
std::vector<int> set_keys() {
  return keys(kernel_sets());
}
bool nothing_left() {
  return kernel_segments().empty() && kernel_sets().empty();
}

void IpcTest::SetUp() {
  if (unshare(CLONE_NEWIPC) == 0) return;
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
    GTEST_SKIP() << "skipped: no IPC namespace of its own: " << std::strerror(errno);
  }
  std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
}
