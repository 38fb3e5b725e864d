// Several transfers in flight at once, by the kernel's asynchronous requests: for storage that
// answers late. A transfer lies in a slot from its submission to its wait. There is one queue, so
// that `cleanup` can wait for what is in flight before it closes and removes.
//   if (queue.open() && queue.submit(slot, transfer)) ... moved = queue.wait(slot);
#pragma once

#include <linux/aio_abi.h>

#include <array>
#include <cstdint>

struct Transfer {
  bool write;
  int fd;
  const void* buffer;  // stays until the wait; filled unless `write`
  unsigned bytes;
  long long offset;
};

class AsyncQueue {
 public:
  static constexpr unsigned depth = 8;  // slots

  // False when the kernel grants no asynchronous requests. The end of a process that was granted
  // some takes 30 to 50 ms longer, whatever they moved.
  bool open();
  // False when the kernel does not take the transfer now; it was not begun then.
  bool submit(unsigned slot, const Transfer& transfer);
  // The bytes that the transfer in the slot moved, or the negative errno. Waits for its end.
  std::int64_t wait(unsigned slot);
  // Waits for all ends; the results stay to be fetched.
  void drain();

 private:
  struct Slot {
    bool in_flight = false;
    std::int64_t result = 0;
  };

  void collect();
  void give_up();

  aio_context_t context_ = 0;
  std::array<Slot, depth> slots_;
};

// Lives as long as the process.
AsyncQueue& async_queue();
