// A file system in memory with the latency of a storage network, for devinit_bench.py: each
// transfer and each sync takes its time, many of them at the same time. One folder, files of up to
// 8 GiB. A file keeps its memory when it is made shorter, so that filling it again costs no page
// faults.
//   slowfs MICROSECONDS MOUNTPOINT [FUSE OPTIONS]
#define FUSE_USE_VERSION 312
#include <fuse.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace {

constexpr std::size_t max_size = std::size_t{8} << 30;

struct File {
  char* bytes = nullptr;
  std::atomic<off_t> size = 0;
  mode_t mode = 0;
};

std::chrono::microseconds delay;
std::mutex names;
std::map<std::string, File> files;

File* find(const char* path) {
  const std::lock_guard lock(names);
  const auto found = files.find(path);
  return found == files.end() ? nullptr : &found->second;
}

int create_file(const char* path, mode_t mode, fuse_file_info* /*info*/) {
  void* memory = mmap(nullptr, max_size, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return -errno;
  madvise(memory, max_size, MADV_HUGEPAGE);
  const std::lock_guard lock(names);
  File& file = files[path];
  file.bytes = static_cast<char*>(memory);
  file.mode = mode;
  return 0;
}

int unlink_file(const char* path) {
  const std::lock_guard lock(names);
  const auto found = files.find(path);
  if (found == files.end()) return -ENOENT;
  munmap(found->second.bytes, max_size);
  files.erase(found);
  return 0;
}

int describe(const char* path, struct stat* status, fuse_file_info* /*info*/) {
  *status = {};
  status->st_mode = S_IFDIR | 0755;
  status->st_nlink = 1;
  if (std::strcmp(path, "/") == 0) return 0;
  const File* file = find(path);
  if (file == nullptr) return -ENOENT;
  status->st_mode = file->mode;
  status->st_size = file->size;
  return 0;
}

int set_size(const char* path, off_t size, fuse_file_info* /*info*/) {
  File* file = find(path);
  if (file == nullptr) return -ENOENT;
  if (size > static_cast<off_t>(max_size)) return -EFBIG;
  file->size = size;
  return 0;
}

int read_file(const char* path, char* to, std::size_t bytes, off_t offset,
              fuse_file_info* /*info*/) {
  std::this_thread::sleep_for(delay);
  const File* file = find(path);
  const off_t count = std::clamp<off_t>(file->size - offset, 0, static_cast<off_t>(bytes));
  std::memcpy(to, file->bytes + offset, static_cast<std::size_t>(count));
  return static_cast<int>(count);
}

int write_file(const char* path, const char* from, std::size_t bytes, off_t offset,
               fuse_file_info* /*info*/) {
  std::this_thread::sleep_for(delay);
  File* file = find(path);
  const off_t end = offset + static_cast<off_t>(bytes);
  if (end > static_cast<off_t>(max_size)) return -EFBIG;
  std::memcpy(file->bytes + offset, from, bytes);
  for (off_t size = file->size; size < end && !file->size.compare_exchange_weak(size, end);) {
  }
  return static_cast<int>(bytes);
}

int sync_file(const char* /*path*/, int /*data_alone*/, fuse_file_info* /*info*/) {
  std::this_thread::sleep_for(delay);
  return 0;
}

int tell_space(const char* /*path*/, struct statvfs* status) {
  *status = {};
  status->f_bsize = status->f_frsize = 4096;
  status->f_blocks = status->f_bfree = status->f_bavail = max_size / 4096;
  return 0;
}

void* start(fuse_conn_info* connection, fuse_config* /*config*/) {
  connection->max_background = 64;  // otherwise 12 requests at a time
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "Usage: %s MICROSECONDS MOUNTPOINT [FUSE OPTIONS]\n", argv[0]);
    return 1;
  }
  delay = std::chrono::microseconds(std::strtol(argv[1], nullptr, 10));
  fuse_operations calls{};
  calls.init = start;
  calls.create = create_file;
  calls.unlink = unlink_file;
  calls.getattr = describe;
  calls.truncate = set_size;
  calls.read = read_file;
  calls.write = write_file;
  calls.fsync = sync_file;
  calls.statfs = tell_space;
  argv[1] = argv[0];
  return fuse_main(argc - 1, argv + 1, &calls, nullptr);
}
