// A verb ends with status 1 and this message. Thrown where the trouble is known, caught in main
// alone; whatever was made is undone on the way.
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

namespace moxnode {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  Failure(const std::string& activity, int os_error)
      : std::runtime_error(activity + ": " + std::strerror(os_error)) {}
};

}  // namespace moxnode
