// Where a verb's output goes: the standard output that the program was started with, or a file that
// is written beside its place and renamed. Anything else that prints on standard output, as the
// parts of the resource manager do, prints on standard error from the construction on.
#pragma once

#include <string>
#include <string_view>

#include "common/base/descriptor.h"

namespace moxnode {

class Output {
 public:
  // Throws Failure when standard output cannot be moved.
  Output();

  // Whether standard output is a terminal that wants colours.
  bool is_coloured() const;

  // Throws Failure when the text cannot be written whole; then the file is as it was before.
  // `file` empty: standard output. Dies of a signal that was held and stops the writing.
  void write(std::string_view text, const std::string& file);

 private:
  Descriptor standard_;
};

}  // namespace moxnode
