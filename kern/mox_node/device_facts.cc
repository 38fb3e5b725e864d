#include "kern/mox_node/device_facts.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "common/base/descriptor.h"
#include "kern/device/devicefile.h"
#include "kern/device/devicepath.h"
#include "kern/device/diskinfo.h"
#include "kern/device/transfer.h"

namespace moxnode {

namespace {

constexpr const char* names[] = {"absent", "blank", "initialised", "other", "unusable", "unknown"};
static_assert(std::size(names) == static_cast<unsigned>(DeviceState::UNKNOWN) + 1);

constexpr unsigned headers_end = DiskInfo::current_header_offset + DiskInfo::current_header_region;

// Raw devices read whole sectors into aligned memory only.
struct alignas(4096) Beginning {
  unsigned char bytes[headers_end];
};

const char* kind_of(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "file";
    case S_IFBLK:
      return "block";
    case S_IFCHR:
      return "character";
    case S_IFDIR:
      return "folder";
    case S_IFIFO:
      return "fifo";
    default:
      return "socket";
  }
}

DeviceFacts unknown(DeviceFacts facts, int error) {
  facts.state = DeviceState::UNKNOWN;
  facts.error = error;
  return facts;
}

// Absence is certain only in a folder that is there.
DeviceFacts missing(const std::string& path) {
  DeviceFacts facts;
  int error = 0;
  const std::string target = resolve_symlink(path, error);
  if (error != 0) return unknown(facts, error);
  struct stat folder {};
  if (stat(get_dirname(target).c_str(), &folder) != 0) return unknown(facts, errno);
  facts.state = DeviceState::ABSENT;
  return facts;
}

bool all_zero(const unsigned char* from, const unsigned char* to) {
  return std::all_of(from, to, [](unsigned char byte) { return byte == 0; });
}

// `count` bytes of the beginning were read, zeros stand behind them.
bool is_blank(const Beginning& beginning, unsigned count) {
  const unsigned char* const bytes = beginning.bytes;
  const unsigned older_end = std::min(count, DiskInfo::older_header_region);
  return all_zero(bytes, bytes + older_end) &&
         (count <= DiskInfo::current_header_offset ||
          all_zero(bytes + DiskInfo::current_header_offset, bytes + count));
}

// The header that a verification of the device would find sound.
bool read_header(const Beginning& beginning, unsigned count, DiskInfo& info) {
  if (count == headers_end) {
    info.get(beginning.bytes + DiskInfo::current_header_offset);
    if (info.signature == DiskInfo::current_signature) return info.guards_agree();
  }
  if (count < DiskInfo::older_header_region) return false;
  info.get(beginning.bytes + DiskInfo::older_header_offset);
  return info.signature == DiskInfo::older_signature && info.guards_agree();
}

DeviceHeader header_of(const DiskInfo& info) {
  return {info.device_number, info.is_data_device(), info.block_size, info.seconds,
          std::string(info.name, strnlen(info.name, DiskInfo::name_size))};
}

void judge(const Beginning& beginning, unsigned count, DeviceFacts& facts) {
  DiskInfo info;
  if (read_header(beginning, count, info)) {
    facts.state = DeviceState::INITIALISED;
    facts.header = header_of(info);
  } else {
    facts.state = is_blank(beginning, count) ? DeviceState::BLANK : DeviceState::OTHER;
  }
}

void note_status(const struct stat& status, DeviceFacts& facts) {
  facts.kind = kind_of(status.st_mode);
  facts.device = status.st_dev;
  facts.inode = status.st_ino;
  facts.block_device = S_ISBLK(status.st_mode) ? status.st_rdev : 0;
  if (S_ISREG(status.st_mode)) facts.bytes = static_cast<std::uint64_t>(status.st_size);
}

DeviceFacts read_device(const std::string& path, DeviceFacts facts) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return unknown(facts, errno);
  struct stat status {};
  if (fstat(file.get(), &status) != 0) return unknown(facts, errno);
  // It may have become something else since it was looked at.
  if (unusable_kind(status.st_mode) != 0) return unknown(facts, EAGAIN);
  note_status(status, facts);
  if (S_ISBLK(status.st_mode)) {
    const off_t end = lseek(file.get(), 0, SEEK_END);
    if (end < 0) return unknown(facts, errno);
    facts.bytes = static_cast<std::uint64_t>(end);
  }
  Beginning beginning{};
  const ssize_t count = mox_pread(file.get(), beginning.bytes, headers_end, 0);
  if (count < 0 || (count < static_cast<ssize_t>(headers_end) && errno != 0)) {
    return unknown(facts, errno);
  }
  judge(beginning, static_cast<unsigned>(count), facts);
  return facts;
}

}  // namespace

const char* name_of(DeviceState state) {
  return names[static_cast<unsigned>(state)];
}

DeviceFacts look_at_device(const std::string& path) {
  DeviceFacts facts;
  if (path.empty()) return facts;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return errno == ENOENT ? missing(path) : unknown(facts, errno);
  }
  note_status(status, facts);
  if (unusable_kind(status.st_mode) != 0) {
    facts.state = DeviceState::UNUSABLE;
    return facts;
  }
  return read_device(path, facts);
}

}  // namespace moxnode
