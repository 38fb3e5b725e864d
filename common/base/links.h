// Symbolic links that are followed by hand.
#pragma once

constexpr int max_links = 40;  // in one path, as many as the kernel follows
