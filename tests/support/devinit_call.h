// The device initialiser called as a function.
#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "kern/devinit/devinit.h"

// With the words of a command line.
inline int call_devinit(const std::string& options) {
  std::istringstream stream("devinit " + options);
  std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return devinit(static_cast<int>(words.size()), argv.data());
}
