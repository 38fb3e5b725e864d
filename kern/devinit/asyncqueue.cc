#include "kern/devinit/asyncqueue.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

// Through syscall: the C library has no functions for these calls.
bool AsyncQueue::open() {
  return context_ != 0 || syscall(SYS_io_setup, depth, &context_) == 0;
}

bool AsyncQueue::submit(unsigned slot, const Transfer& transfer) {
  iocb request{};
  request.aio_data = slot;
  request.aio_lio_opcode = transfer.write ? IOCB_CMD_PWRITE : IOCB_CMD_PREAD;
  request.aio_fildes = static_cast<std::uint32_t>(transfer.fd);
  request.aio_buf = reinterpret_cast<std::uint64_t>(transfer.buffer);
  request.aio_nbytes = transfer.bytes;
  request.aio_offset = transfer.offset;
  iocb* requests[] = {&request};
  slots_[slot].in_flight = syscall(SYS_io_submit, context_, 1, requests) == 1;
  return slots_[slot].in_flight;
}

std::int64_t AsyncQueue::wait(unsigned slot) {
  while (slots_[slot].in_flight) collect();
  return slots_[slot].result;
}

void AsyncQueue::drain() {
  for (unsigned slot = 0; slot < depth; ++slot) wait(slot);
}

void AsyncQueue::collect() {
  io_event events[depth];
  const long count = syscall(SYS_io_getevents, context_, 1, depth, events, nullptr);
  if (count < 0 && errno != EINTR) give_up();
  for (long i = 0; i < count; ++i) slots_[events[i].data] = {false, events[i].res};
}

// The end of the context waits for its requests, whose results are lost then.
void AsyncQueue::give_up() {
  syscall(SYS_io_destroy, context_);
  context_ = 0;
  for (Slot& slot : slots_) {
    if (slot.in_flight) slot = {false, -EIO};
  }
}

AsyncQueue& async_queue() {
  static AsyncQueue queue;
  return queue;
}
