// Puts the system calls that the tested code makes through the C library into a test's hands. Used
// by adding calls.cc to the sources of the test.
#pragma once

#include <signal.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

struct Call {
  // That of the function in calls.cc, without 64; of the asynchronous requests "io_setup",
  // "io_submit" for each transfer, "io_getevents", and "io_event" for each result, which the answer
  // replaces.
  std::string_view name;
  int fd = -1;
  void* buffer = nullptr;  // of a transfer, or the result of statvfs
  std::size_t bytes = 0;
  long long offset = 0;  // the flags of openat
};

// What the call returns without being made, with the errno that the hook set; or nothing, and the
// call is made.
using CallHook = std::function<std::optional<long>(const Call&)>;
extern CallHook call_hook;

inline std::optional<long> fail(int error) {
  errno = error;
  return -1;
}

// At every call by that name: it fails, or a signal is raised before it is made.
inline CallHook failing(std::string_view name, int error) {
  return [=](const Call& call) { return call.name == name ? fail(error) : std::nullopt; };
}
inline CallHook raising(std::string_view name, int signal) {
  return [=](const Call& call) -> std::optional<long> {
    if (call.name == name) raise(signal);
    return {};
  };
}
