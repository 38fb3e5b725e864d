// The command text from a file: all of it, cut into words at blanks, tabs and line ends.
#pragma once

#include <string>
#include <vector>

namespace resmgr {

class command_file {
 public:
  // False when the file cannot be opened, sized or read (`stat` is set to 5500, 5504 or 5502 with
  // severity 4 and the error block is printed) or is no text.
  bool read(const char* name);

  // The words; they live as long as this object.
  std::vector<char*>& words() { return words_; }

 private:
  std::string text_;
  std::vector<char*> words_;
};

}  // namespace resmgr
