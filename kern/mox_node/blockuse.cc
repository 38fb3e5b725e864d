#include "kern/mox_node/blockuse.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace moxnode {

namespace {

namespace fs = std::filesystem;

std::string numbers_of(dev_t device) {
  return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

// The device and its partitions.
std::vector<dev_t> parts_of(dev_t device) {
  std::vector<dev_t> parts{device};
  std::error_code error;
  const fs::path folder = "/sys/dev/block/" + numbers_of(device);
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::ifstream file(entry->path() / "dev");
    unsigned number = 0;
    unsigned subnumber = 0;
    char colon = 0;
    if (!fs::exists(entry->path() / "partition", error)) continue;
    if (file >> number >> colon >> subnumber) parts.push_back(makedev(number, subnumber));
  }
  return parts;
}

bool has_holders(dev_t device) {
  std::error_code error;
  const fs::path folder = "/sys/dev/block/" + numbers_of(device) + "/holders";
  return fs::exists(folder, error) && !fs::is_empty(folder, error) && !error;
}

bool is_block_device(const std::string& path, dev_t device) {
  struct stat status {};
  return path.starts_with('/') && stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode) &&
         status.st_rdev == device;
}

// Some file systems have a device number of their own, and name the block device as their source.
bool is_mounted(dev_t device) {
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream words(line);
    std::string skipped, numbers, word, source;
    words >> skipped >> skipped >> numbers;
    if (numbers == numbers_of(device)) return true;
    while (words >> word && word != "-") {
    }
    words >> skipped >> source;
    if (is_block_device(source, device)) return true;
  }
  return false;
}

bool is_swap(dev_t device) {
  std::ifstream table("/proc/swaps");
  std::string line;
  while (std::getline(table, line)) {
    if (is_block_device(line.substr(0, line.find_first_of(" \t")), device)) return true;
  }
  return false;
}

}  // namespace

bool is_held(dev_t device) {
  const std::vector<dev_t> parts = parts_of(device);
  return std::any_of(parts.begin(), parts.end(), [](dev_t part) {
    return has_holders(part) || is_mounted(part) || is_swap(part);
  });
}

}  // namespace moxnode
