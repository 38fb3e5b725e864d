#include "common/releaseinfo.h"

#include <array>
#include <string_view>

namespace {

constexpr const char* product_title = "Mox Database Server";
constexpr const char* long_copyright =
    "Copyright (c) The Mox Authors. All rights reserved.\n"
    "This program comes without any warranty, to the extent that the law permits.";
constexpr const char* short_copyright = "Copyright (c) The Mox Authors.";

constexpr std::size_t version_text_size = 100;  // with its terminator
constexpr std::size_t description_length = 40;

constexpr int program_count = 42;  // numbers 0 to 41

constinit std::array<const char*, program_count> descriptions = [] {
  std::array<const char*, program_count> known{};
  known[16] = "Device setup utility";
  known[38] = "Resource manager utility";
  return known;
}();

bool isProgram(int program) {
  return program >= 0 && program < program_count;
}

std::string majorMinor() {
  return std::to_string(programVNum1()) + "." + std::to_string(programVNum2());
}

}  // namespace

int programVNum1() {
  return buildVersion[0];
}

int programVNum2() {
  return buildVersion[1];
}

int programVNum3() {
  return buildVersion[2];
}

int programVNum4() {
  return buildVersion[3];
}

void describeProgram(int program, const char* description) {
  if (isProgram(program)) descriptions[static_cast<std::size_t>(program)] = description;
}

std::string getPrognameInfo(int program) {
  const char* known =
      isProgram(program) ? descriptions[static_cast<std::size_t>(program)] : nullptr;
  return known != nullptr ? known : "";
}

std::string getProgVersInfo(int program) {
  return programName() + " " + majorMinor() + " " +
         getPrognameInfo(program).substr(0, description_length);
}

std::string getVersionInfo() {
  const std::string text =
      programVersion() + " " + std::string(buildTag) + "  (" + std::string(buildTarget) + ") ";
  return text.substr(0, version_text_size - 1);
}

std::string getReleaseInfo(int program) {
  return std::string("\n").append(getProgVersInfo(program)) +
         "\nVersion     : " + getVersionInfo() + "\n\n" + getCopyrightInfo(program) + "\n";
}

std::string getCopyrightInfo(int program) {
  return program == 12 || program == 13 ? short_copyright : long_copyright;
}

std::string programName() {
  return product_title;
}

std::string programVersion() {
  return majorMinor() + "." + std::to_string(programVNum3()) + "." + std::to_string(programVNum4());
}

void printVersionInfo(std::FILE* stream, int program) {
  std::fprintf(stream, "%s\n", getReleaseInfo(program).c_str());
}

void printLinkInfo(std::FILE* stream, int program, const char* linkTime, const char* linkCommand) {
  printVersionInfo(stream, program);
  if (linkTime != nullptr) std::fprintf(stream, "link_time   : %s\n", linkTime);
  if (linkCommand != nullptr) std::fprintf(stream, "link_command: %s\n", linkCommand);
}
