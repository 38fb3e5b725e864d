#include "tests/support/calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/aio_abi.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdarg>

CallHook call_hook;

namespace {

std::optional<long> ask(const Call& call) {
  return call_hook ? call_hook(call) : std::nullopt;
}

// The answer, or what the real call returns.
template <class Function, class... Words>
auto ask_or_call(const Call& call, const char* symbol, Words... words) {
  auto* real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
  const auto answer = ask(call);
  return answer ? static_cast<decltype(real(words...))>(*answer) : real(words...);
}

std::array<Call, 64> in_flight;  // by the tag of the transfer

// In front of the real call; the tested code submits one transfer at a time.
std::optional<long> ask_for_request(long number, const std::array<long, 6>& words) {
  if (number == SYS_io_setup) return ask({"io_setup"});
  if (number == SYS_io_getevents) return ask({"io_getevents"});
  if (number != SYS_io_submit) return {};
  const iocb& request = **reinterpret_cast<iocb**>(words[2]);
  Call call = {"io_submit", static_cast<int>(request.aio_fildes),
               reinterpret_cast<void*>(request.aio_buf), request.aio_nbytes, request.aio_offset};
  in_flight.at(request.aio_data) = call;
  return ask(call);
}

}  // namespace

extern "C" {

long syscall(long number, ...) {
  std::array<long, 6> words{};
  va_list list;
  va_start(list, number);
  for (long& word : words) word = va_arg(list, long);
  va_end(list);
  if (const auto answer = ask_for_request(number, words)) return *answer;
  auto* real = reinterpret_cast<decltype(&syscall)>(dlsym(RTLD_NEXT, "syscall"));
  const long result = real(number, words[0], words[1], words[2], words[3], words[4], words[5]);
  auto* events = reinterpret_cast<io_event*>(words[3]);
  for (long i = 0; number == SYS_io_getevents && i < result; ++i) {
    Call& call = in_flight.at(events[i].data);
    call.name = "io_event";
    if (const auto answer = ask(call)) events[i].res = *answer;
  }
  return result;
}

int openat64(int folder, const char* name, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  const auto answer = (flags & O_PATH) != 0 ? std::nullopt : ask({"openat", folder, {}, 0, flags});
  auto* real = reinterpret_cast<decltype(&openat64)>(dlsym(RTLD_NEXT, "openat64"));
  return answer ? static_cast<int>(*answer) : real(folder, name, flags, mode);
}

int flock(int fd, int operation) {
  return ask_or_call<decltype(flock)>({"flock", fd}, "flock", fd, operation);
}

int unlinkat(int folder, const char* name, int flags) {
  return ask_or_call<decltype(unlinkat)>({"unlinkat", folder}, "unlinkat", folder, name, flags);
}

ssize_t pwrite64(int fd, const void* buffer, std::size_t bytes, off_t offset) {
  const Call call = {"pwrite", fd, const_cast<void*>(buffer), bytes, offset};
  return ask_or_call<decltype(pwrite64)>(call, "pwrite64", fd, buffer, bytes, offset);
}

ssize_t pread64(int fd, void* buffer, std::size_t bytes, off_t offset) {
  const Call call = {"pread", fd, buffer, bytes, offset};
  return ask_or_call<decltype(pread64)>(call, "pread64", fd, buffer, bytes, offset);
}

int fdatasync(int fd) {
  return ask_or_call<decltype(fdatasync)>({"fdatasync", fd}, "fdatasync", fd);
}

int fsync(int fd) {
  return ask_or_call<decltype(fsync)>({"fsync", fd}, "fsync", fd);
}

int posix_fadvise64(int fd, off_t offset, off_t bytes, int advice) {
  return ask_or_call<decltype(posix_fadvise64)>({"posix_fadvise", fd}, "posix_fadvise64", fd,
                                                offset, bytes, advice);
}

int statvfs64(const char* path, struct statvfs64* status) {
  return ask_or_call<decltype(statvfs64)>({"statvfs", -1, status}, "statvfs64", path, status);
}
}
