#include "common/debugmask.h"

namespace {

std::uint32_t initial_mask = 0;
std::uint32_t current_mask = 0;

}  // namespace

void setInitialDebugMask(std::uint32_t mask) {
  initial_mask = mask;
}

void renewDebugMask(unsigned char level) {
  current_mask = initial_mask | level;
}

std::uint32_t debugMask() {
  return current_mask;
}
