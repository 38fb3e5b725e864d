// Runs the device initialiser, and says what it has to print. The target of the test defines
// DEVINIT, the path of the program.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/device_image.h"
#include "tests/support/process.h"

inline RunResult devinit(const std::string& options, const std::string& file) {
  std::istringstream words(DEVINIT " " + options);
  std::vector<std::string> argv{std::istream_iterator<std::string>(words), {}};
  argv.insert(argv.end(), {"-f", file});
  return run_program(argv);
}

inline std::string error_line(const std::string& text) {
  return "\nDEVINIT-ERROR: " + text + "\n";
}

// What a verification reports of a device made with "-n 3", the time stamp line apart.
inline std::string report(const std::string& file, const std::string& blocks,
                          const std::string& data, const std::string& size,
                          const std::string& type) {
  return "Verifying device \"" + file + "\"\nV4.2 signature       = 31415928\n" +
         "Number of blocks     = " + blocks + "\nNumber of datablocks = " + data +
         "\nBlock size           = " + size + " bytes\nDevice number        = 3\n" +
         "Device type          = " + type + " device\nDevice name          = \"" + file + "\"\n" +
         "Disk based recovery  = 1\nInfo header offset   = 8192\nInfo header size     = 4096\n" +
         "Data blocks offset   = 12288\n\n";
}

inline std::string without_timestamp(const std::string& text) {
  return std::regex_replace(
      text, std::regex("Timestamp            = .* \\(hash = 0x[0-9a-f]{8}\\)\n"), "");
}

inline const std::string completed = "Device verification completed\n";

inline std::string counts(int checked, int initialized, int bad, int cached) {
  char text[200];
  std::snprintf(text, sizeof text,
                "%8d blocks checked\n%8d blocks initialized\n%8d blocks bad\n"
                "%8d blocks in buffer cache\n\n",
                checked, initialized, bad, cached);
  return text + completed;
}

inline std::string block_line(std::uint32_t block, const char* state, const char* cached,
                              const Stamp& stamp) {
  char text[200];
  std::snprintf(text, sizeof text, "\n%8u %-8s %-6s id=%8u dev=%3u flip=0x%08x flop=0x%08x", block,
                state, cached, stamp.id, stamp.device, stamp.flip, stamp.flop);
  return text;
}

// A full pipe stops the run right behind the header, however fast the disk is.
inline int status_after_signal(int signal, const std::string& file) {
  int out[2];
  EXPECT_EQ(pipe2(out, O_CLOEXEC | O_NONBLOCK), 0);
  while (write(out[1], "x", 1) == 1) {
  }
  fcntl(out[1], F_SETFL, 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    execl(DEVINIT, DEVINIT, "-b", "100", "-f", file.c_str(), nullptr);
    _exit(127);
  }
  std::error_code missing;
  while (std::filesystem::file_size(file, missing) < 12288 || missing) usleep(1000);
  kill(child, signal);
  int status = 0;
  waitpid(child, &status, 0);
  close(out[0]);
  close(out[1]);
  return status;
}
