#include "tests/support/calls.h"

#include <dlfcn.h>
#include <sys/statvfs.h>
#include <sys/types.h>

CallHook call_hook;

namespace {

template <class Function>
Function* next(const char* symbol) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

std::optional<long> ask(const Call& call) {
  return call_hook ? call_hook(call) : std::nullopt;
}

}  // namespace

extern "C" {

ssize_t pwrite64(int fd, const void* buffer, std::size_t bytes, off_t offset) {
  const auto answer = ask({"pwrite", fd, const_cast<void*>(buffer), bytes, offset});
  return answer ? *answer : next<decltype(pwrite64)>("pwrite64")(fd, buffer, bytes, offset);
}

ssize_t pread64(int fd, void* buffer, std::size_t bytes, off_t offset) {
  const auto answer = ask({"pread", fd, buffer, bytes, offset});
  return answer ? *answer : next<decltype(pread64)>("pread64")(fd, buffer, bytes, offset);
}

int fdatasync(int fd) {
  const auto answer = ask({"fdatasync", fd, nullptr, 0, 0});
  return answer ? static_cast<int>(*answer) : next<decltype(fdatasync)>("fdatasync")(fd);
}

int fsync(int fd) {
  const auto answer = ask({"fsync", fd, nullptr, 0, 0});
  return answer ? static_cast<int>(*answer) : next<decltype(fsync)>("fsync")(fd);
}

int posix_fadvise64(int fd, off_t offset, off_t bytes, int advice) {
  const auto answer = ask({"posix_fadvise", fd, nullptr, static_cast<std::size_t>(bytes), offset});
  return answer ? static_cast<int>(*answer)
                : next<decltype(posix_fadvise64)>("posix_fadvise64")(fd, offset, bytes, advice);
}

int statvfs64(const char* path, struct statvfs64* status) {
  const auto answer = ask({"statvfs", -1, status, sizeof *status, 0});
  return answer ? static_cast<int>(*answer) : next<decltype(statvfs64)>("statvfs64")(path, status);
}
}
