// What the tests of the runtime share: a folder of their own, whole files, and what a piece of code
// writes to the standard streams (also through descriptors).
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

inline std::string read_file(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

inline void write_file(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

class ScratchFolder {
 public:
  ScratchFolder() {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "mox.XXXXXX").string();
};

// Sends one standard stream into memory for as long as this object lives.
class Captured {
 public:
  explicit Captured(std::FILE* stream)
      : stream_(stream), memory_(memfd_create("captured", MFD_CLOEXEC)) {
    std::fflush(stream_);
    original_ = dup(fileno(stream_));
    dup2(memory_, fileno(stream_));
  }
  ~Captured() {
    std::fflush(stream_);
    dup2(original_, fileno(stream_));
    close(original_);
    close(memory_);
  }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  std::string text() const {
    std::fflush(stream_);
    return read_file("/proc/self/fd/" + std::to_string(memory_));
  }

 private:
  std::FILE* stream_;
  int memory_;
  int original_;
};

struct Output {
  std::string out;
  std::string err;
};

inline Output output_of(const std::function<void()>& code) {
  const Captured out(stdout);
  const Captured err(stderr);
  code();
  return {out.text(), err.text()};
}
