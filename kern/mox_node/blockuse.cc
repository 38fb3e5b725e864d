#include "kern/mox_node/blockuse.h"

#include <glob.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/base/kernelfile.h"

namespace moxnode {

namespace {

std::string numbers_of(dev_t device) {
  return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

std::string folder_of(dev_t device) {
  return "/sys/dev/block/" + numbers_of(device);
}

std::vector<std::string> paths_like(const std::string& pattern) {
  glob_t found{};
  std::vector<std::string> paths;
  if (glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found) == 0) {
    paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  }
  globfree(&found);
  return paths;
}

// A file "dev" holds the two numbers of a device, such as "8:1".
std::optional<dev_t> device_in(const std::string& path) {
  std::optional<std::string> text = readKernelFile(path);
  if (!text) return std::nullopt;
  std::ranges::replace(*text, ':', ' ');
  std::string_view rest = *text;
  const auto number = takeNumber<unsigned>(rest);
  const auto subnumber = takeNumber<unsigned>(rest);
  if (!number || !subnumber) return std::nullopt;
  return makedev(*number, *subnumber);
}

// The device and its partitions.
std::vector<dev_t> parts_of(dev_t device) {
  std::vector<dev_t> parts{device};
  for (const std::string& mark : paths_like(folder_of(device) + "/*/partition")) {
    const auto part = device_in(mark.substr(0, mark.rfind('/')) + "/dev");
    if (part) parts.push_back(*part);
  }
  return parts;
}

bool has_holders(dev_t device) {
  return !paths_like(folder_of(device) + "/holders/*").empty();
}

bool is_block_device(const std::string& path, dev_t device) {
  struct stat status {};
  return path.starts_with('/') && stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode) &&
         status.st_rdev == device;
}

// Some file systems have a device number of their own, and name the block device as their source.
bool is_mounted(dev_t device) {
  const std::string table = readKernelFile("/proc/self/mountinfo").value_or("");
  for (std::string_view rest = table; !rest.empty();) {
    std::string_view line = takeLine(rest);
    takeWord(line);  // of the mount
    takeWord(line);  // of the one that it stands in
    if (takeWord(line) == numbers_of(device)) return true;
    // A varying number of words ends with a dash; the type of the file system follows.
    for (std::string_view word = takeWord(line); !word.empty() && word != "-";) {
      word = takeWord(line);
    }
    takeWord(line);
    if (is_block_device(std::string(takeWord(line)), device)) return true;
  }
  return false;
}

bool is_swap(dev_t device) {
  const std::string table = readKernelFile("/proc/swaps").value_or("");
  for (std::string_view rest = table; !rest.empty();) {
    std::string_view line = takeLine(rest);
    if (is_block_device(std::string(takeWord(line)), device)) return true;
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
