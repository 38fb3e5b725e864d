#include "tests/support/calls.h"

#include <dlfcn.h>
#include <linux/aio_abi.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/types.h>

#include <array>
#include <cstdarg>

CallHook call_hook;

namespace {

template <class Function>
Function* next(const char* symbol) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

std::optional<long> ask(const Call& call) {
  return call_hook ? call_hook(call) : std::nullopt;
}

std::array<Call, 64> in_flight;  // by the tag of the transfer

Call transfer_of(const iocb& request) {
  return {"io_event", static_cast<int>(request.aio_fildes),
          reinterpret_cast<void*>(request.aio_buf), request.aio_nbytes, request.aio_offset};
}

// In front of the real call; the tested code submits one transfer at a time.
std::optional<long> ask_for_request(long number, const std::array<long, 6>& words) {
  if (number == SYS_io_setup) return ask({"io_setup", -1, nullptr, 0, 0});
  if (number == SYS_io_getevents) return ask({"io_getevents", -1, nullptr, 0, 0});
  if (number != SYS_io_submit) return {};
  const iocb& request = **reinterpret_cast<iocb**>(words[2]);
  Call call = in_flight.at(request.aio_data) = transfer_of(request);
  call.name = "io_submit";
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
  const long result = next<decltype(syscall)>("syscall")(number, words[0], words[1], words[2],
                                                         words[3], words[4], words[5]);
  auto* events = reinterpret_cast<io_event*>(words[3]);
  for (long i = 0; number == SYS_io_getevents && i < result; ++i) {
    const auto answer = ask(in_flight.at(events[i].data));
    if (answer) events[i].res = *answer;
  }
  return result;
}

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
