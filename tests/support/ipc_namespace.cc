#include "tests/support/ipc_namespace.h"

#include <sched.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

// The given columns of one of the kernel's tables, by the key in the first one.
std::map<int, std::string> rows(const char* table, std::initializer_list<std::size_t> columns) {
  std::ifstream file(table);
  std::map<int, std::string> result;
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    std::istringstream stream(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    std::string row = words.at(0);
    for (const std::size_t column : columns) row += " " + words.at(column);
    result.emplace(std::stoi(words[0]), row);
  }
  return result;
}

std::map<int, std::string> segments() {
  return rows("/proc/sysvipc/shm", {2, 3, 6});
}
std::map<int, std::string> sets() {
  return rows("/proc/sysvipc/sem", {2, 3});
}

std::vector<int> keys(const std::map<int, std::string>& objects) {
  std::vector<int> result;
  for (const auto& object : objects) result.push_back(object.first);
  return result;
}

std::vector<std::string> texts(const std::map<int, std::string>& objects) {
  std::vector<std::string> result;
  for (const auto& object : objects) result.push_back(object.second);
  return result;
}

}  // namespace

std::vector<std::string> kernel_segments() {
  return texts(segments());
}
std::vector<std::string> kernel_sets() {
  return texts(sets());
}
std::vector<int> segment_keys() {
  return keys(segments());
}
std::vector<int> set_keys() {
  return keys(sets());
}

void IpcTest::SetUp() {
  if (unshare(CLONE_NEWIPC) == 0) return;
  if (unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0) return;
  GTEST_SKIP() << "skipped: no IPC namespace of its own: " << std::strerror(errno);
}
