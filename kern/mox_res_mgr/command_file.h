// The command text from a file or a pipe: all of it, cut into words at blanks, tabs and line ends.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace resmgr {

class command_file {
 public:
  // False when the file cannot be opened, sized or read (`stat` is set to 5500, 5504 or 5502 with
  // severity 4 and the error block is printed) or is no text. Waits for the end of a pipe that has
  // a writer.
  bool read(const char* name);

  // The words; they live as long as this object.
  std::vector<char*>& words() { return words_; }

  // Where in the file a character stands that has this position in the words as a command joins
  // them, each behind one blank: "line 3, column 17".
  std::string place(std::size_t position) const;

 private:
  bool read_text(const char* name, int file);
  void cut_into_words();

  std::string text_;
  std::vector<char*> words_;
  std::vector<std::size_t> line_ends_;  // positions in text_
};

}  // namespace resmgr
