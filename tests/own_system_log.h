// A system log of the test's own: a datagram socket at /dev/log in a mount namespace of its own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <regex>
#include <string>

#include "tests/scratch.h"

// The socket, or -1 where this process may not have one.
inline int own_system_log() {
  if (unshare(CLONE_NEWNS) != 0) return -1;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return -1;
  if (mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0) return -1;
  const int log_socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {AF_UNIX, "/dev/log"};
  const auto* raw = reinterpret_cast<const sockaddr*>(&address);
  return bind(log_socket, raw, sizeof address) == 0 ? log_socket : -1;
}

// All datagrams so far, without their time stamps, a line each.
inline std::string received(int log_socket) {
  std::string text;
  char buffer[8192];
  for (ssize_t n = 0; (n = recv(log_socket, buffer, sizeof buffer, MSG_DONTWAIT)) >= 0;) {
    text += std::string(buffer, static_cast<std::size_t>(n)) + "\n";
  }
  return std::regex_replace(text, std::regex(">[A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} "), ">");
}

// Runs code in a child with a system log of its own and returns what it reports; "skipped" where
// the kernel refuses.
inline std::string in_own_system_log(const std::function<std::string(int)>& code) {
  const ScratchFolder folder;
  const std::string report = folder / "report";
  const int report_file = open(report.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  const pid_t child = fork();
  if (child == 0) {
    const int log_socket = own_system_log();
    const std::string text = log_socket < 0 ? "skipped" : code(log_socket);
    const ssize_t written = write(report_file, text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(report_file);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return std::regex_replace(read_file(report), std::regex("[\\[:][0-9]+"), "#");
}
