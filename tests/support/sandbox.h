// Places of their own for tests that touch files and devices: a temporary folder, a small file
// system that only this process sees, a loop device. Each goes away with its object. Where the
// kernel refuses one, `refusal` says why and the test skips.
#pragma once

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
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

// A block device over an existing file.
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
      if (fd_ >= 0) close(fd_);
      path_ = "/dev/loop" + std::to_string(ioctl(control, LOOP_CTL_GET_FREE));
      fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
      attached = fd_ >= 0 && ioctl(fd_, LOOP_CONFIGURE, &config) == 0;
    }
    if (!attached) refusal = std::strerror(errno);
    close(control);
    close(static_cast<int>(config.fd));
  }
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;
  ~LoopDevice() { close(fd_); }

  const std::string& path() const { return path_; }

  std::string refusal;

 private:
  std::string path_;
  int fd_ = -1;
};

inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
