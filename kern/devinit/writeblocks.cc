#include "kern/devinit/writeblocks.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kern/device/settings.h"
#include "kern/devinit/meter.h"
#include "kern/devinit/progress.h"
#include "kern/devinit/runstate.h"

namespace {

constexpr const char* bytesuffixes[] = {"B", "KB", "MB", "GB"};

std::string scaled(std::uint64_t bytes) {
  int scale = 0;
  for (; bytes > 1024 && scale < 3; ++scale) bytes /= 1024;
  return std::to_string(bytes) + " " + bytesuffixes[scale];
}

void write_chunk(ChunkPass& pass) {
  const ssize_t written = pass.move();
  const int error = errno;
  if (written > 0) devwritten += static_cast<std::uint64_t>(written);
  if (written != static_cast<ssize_t>(pass.chunk().bytes)) crashwriting(error);
}

bool is_time_to_sync(std::uint64_t chunks) {
  return syncsz > 0 && chunks % static_cast<unsigned>(syncsz) == 0;
}

}  // namespace

void write_blocks(DirectFile& file, const IoBuffers& buffers, const unsigned char* chunk,
                  const Extent& extent) {
  print_line_head(0);
  flush_report();
  std::uint64_t chunks = 0;
  Meter meter("written", extent.blocks, extent.block_size);
  for (ChunkPass pass(file, extent, buffers, chunk); pass.next();) {
    checkpoint();
    write_chunk(pass);
    ++chunks;
    if (is_time_to_sync(chunks)) {
      if (const int error = file.sync_data(); error != 0) devinit_fail("fdatasync", error);
    }
    std::printf("w");
    if (chunks % chunks_per_line == 0) print_line_head(pass.chunk().first + pass.chunk().count);
    flush_report();
    meter.advance(pass.chunk().count);
  }
  std::printf("\n");
}

void crashwriting(int os_error) {
  const std::string text =
      "out of space, wrote " + scaled(devwritten) + " of " + scaled(totdevsize);
  if (os_error != 0) devinit_fail(text.c_str(), os_error);
  flush_report();
  (void)std::fprintf(stderr, "\n%s\n", text.c_str());
  cleanup();
  std::exit(1);
}
