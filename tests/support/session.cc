#include "tests/support/session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <utility>

#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace {

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

std::string shortened(std::string text) {
  static const std::string usage =
      "Usage: mox_res_mgr <command>\n" + read_file(TEST_DATA "/usage.txt");
  replace_all(text, usage, "usage\n");
  const std::pair<const char*, const char*> forms[] = {
      {"RESMGR ERROR Error number ([0-9]+) severity ([34]) KORV-([SE])-0*\\1: (.*)", "$1 $3$2 $4"},
      {", OS status=[0-9]+ OS error message: ", ": "},
      {"5510 S4 Getting shared memory segment with key \"([0-9]+)\" failed: No such file or "
       "directory\nError: delete of shared memory segment \\1 failed",
       "no segment $1"},
      {"checking ipcbase ([0-9]+)\nnode-([0-9]+):ipcbase=\\1\n", "node-$2 at $1\n"},
      {"\nabnormal termination, exit\\(1\\)\n", "; abnormal\n"}};
  for (const auto& [form, brief] : forms) text = std::regex_replace(text, std::regex(form), brief);
  for (std::string before; before != text;) {
    before = text;
    text = std::regex_replace(text, std::regex("(no segment .*)\nno segment "), "$1, ");
  }
  return text;
}

std::string warnings(const std::string& log) {
  static const std::regex head("RESMGR (WRN|ERR) [-0-9]+ [:.0-9]+ p:[0-9]+ (.*)");
  std::string text;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    std::smatch found;
    if (std::regex_match(line, found, head)) text += "log: " + found[2].str() + "\n";
  }
  replace_all(text, " pid " + std::to_string(getpid()) + "\n", " pid me\n");
  return std::regex_replace(text, std::regex(" pid [1-9][0-9]*\n"), " pid ?\n");
}

std::string played(const std::string& command) {
  const std::string folder = std::filesystem::path(MOX_RES_MGR).parent_path();
  // LeakSanitizer cannot work in a program that strace follows.
  const RunResult result = run_program({"/bin/sh", "-c", "PATH=" + folder + ":$PATH; " + command},
                                       {"ASAN_OPTIONS=detect_leaks=0"});
  std::string text = shortened(result.out) + warnings(result.err);
  const int expected = result.out.ends_with("\nabnormal termination, exit(1)\n") ? 1 : 0;
  return result.status == expected ? text : text + "= " + std::to_string(result.status) + "\n";
}

}  // namespace

void expect_session(std::string script, const std::string& folder) {
  if (script.starts_with('\n')) script.erase(0, 1);
  replace_all(script, "\\\n", "");
  std::string real;
  std::istringstream lines(script);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("$ ")) continue;
    std::string command = line.substr(2);
    replace_all(command, "@", folder);
    std::string text = played(command);
    replace_all(text, folder, "@");
    real += line + "\n" + text;
  }
  EXPECT_EQ(real, script);
}
