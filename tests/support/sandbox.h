// Places of their own for tests that touch files and devices: a temporary folder, a small file
// system that only this process sees, a loop device. Each goes away with its object. Where the
// kernel refuses one, `refusal` says why and the test skips.
#pragma once

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

class TempFolder {
 public:
  TempFolder() : path_((std::filesystem::temp_directory_path() / "mox.XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder() { std::filesystem::remove_all(path_); }

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// A tmpfs of the given size, mounted where only this process and its children see it.
class SmallFileSystem : public TempFolder {
 public:
  explicit SmallFileSystem(const std::string& size) {
    const bool mounted = unshare(CLONE_NEWNS) == 0 &&
                         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("mox", path().c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
    if (!mounted) refusal = std::strerror(errno);
  }
  ~SmallFileSystem() { umount2(path().c_str(), MNT_DETACH); }

  std::string refusal;
};

// A device node of the test's own, which only a test that runs as root can make. Its folder goes
// away with the object, unless the node was removed before.
class DeviceNode : public TempFolder {
 public:
  DeviceNode(mode_t kind, unsigned major_number, unsigned minor_number) {
    const bool made = mknod(path().c_str(), kind | 0600, makedev(major_number, minor_number)) == 0;
    const int fd = made ? open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    if (fd < 0) refusal = std::strerror(errno);
    close(fd);
  }

  std::string path() const { return *this / "node"; }

  std::string refusal;
};

inline DeviceNode zero_node() {
  return {S_IFCHR, 1, 5};
}
inline DeviceNode full_node() {
  return {S_IFCHR, 1, 7};
}

// A block device over an existing file, with a node of its own.
class LoopDevice {
 public:
  LoopDevice(const std::string& file, unsigned sector_size) {
    const int control = open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    loop_config config{};
    config.fd = static_cast<unsigned>(open(file.c_str(), O_RDWR | O_CLOEXEC));
    config.block_size = sector_size;
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    bool attached = false;
    // Another process may take the free device between the two calls.
    for (int tries = 0; tries < 20 && !attached; ++tries) {
      close(fd_);
      const int number = ioctl(control, LOOP_CTL_GET_FREE);
      node_.emplace(S_IFBLK, 7, static_cast<unsigned>(number));
      fd_ = open(path().c_str(), O_RDWR | O_CLOEXEC);
      attached = fd_ >= 0 && ioctl(fd_, LOOP_CONFIGURE, &config) == 0;
    }
    if (!attached) refusal = std::strerror(errno);
    close(control);
    close(static_cast<int>(config.fd));
  }
  ~LoopDevice() { close(fd_); }

  std::string path() const { return node_->path(); }

  std::string refusal;

 private:
  std::optional<DeviceNode> node_;
  int fd_ = -1;
};

inline std::string read_file(const std::string& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
