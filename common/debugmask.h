// The debug mask of the process: which debug outputs are on. Programs set the initial mask from
// their options and renew the mask with a debug level.
#pragma once

#include <cstdint>

void setInitialDebugMask(std::uint32_t mask);

// The mask becomes the initial mask, with the bits of level in addition.
void renewDebugMask(unsigned char level);

std::uint32_t debugMask();
