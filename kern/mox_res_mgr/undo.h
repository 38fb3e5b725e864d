// The undo log: one entry for each resource that a command made, in the order in which it made
// them. A failed CREATE and every CHECK replay it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/base/whose.h"
#include "kern/device/devicefile.h"
#include "utl/semops.h"

namespace resmgr {

// The handle of a node's semaphore set before one is mapped: "gurba" over and over, easy to
// recognise in a dump.
constexpr MutexHandle unmapped_mutex() {
  constexpr char fill[] = {'g', 'u', 'r', 'b', 'a'};
  MutexHandle handle{};
  for (std::size_t i = 0; i < sizeof handle.bytes; ++i) handle.bytes[i] = fill[i % sizeof fill];
  return handle;
}

class undo_op {
 public:
  virtual ~undo_op() = default;
  // Undoes the resource and reports what fails; `stat` is clear afterwards.
  virtual void undo() = 0;
  // False, with `stat`, when the resource was taken over from somebody else and is gone by now.
  virtual bool stands() const { return true; }
};

using undo_log = std::vector<std::unique_ptr<undo_op>>;

// Undoes the entries from that index on, from the first to the last, and destroys each right after.
void replay(undo_log& log, std::size_t from = 0);

class shm_undo_op : public undo_op {
 public:
  explicit shm_undo_op(std::int32_t key) : key_(key) {}
  void made(std::int32_t segid, char* address) {
    segid_ = segid;
    address_ = address;
  }
  std::int32_t id() const { return segid_; }
  char* address() const { return address_; }  // null: not attached
  void undo() override;

 private:
  std::int32_t key_;
  std::int32_t segid_ = -1;
  char* address_ = nullptr;
};

class sem_undo_op : public undo_op {
 public:
  sem_undo_op(std::int32_t key, int count) : key_(key), count_(count) {}
  void made(int semid, Whose whose) {
    semid_ = semid;
    whose_ = whose;
  }
  int id() const { return semid_; }
  void undo() override;
  bool stands() const override;

 private:
  std::int32_t key_;
  int count_;
  int semid_ = -1;
  Whose whose_ = Whose::NOBODYS;
};

class device_undo_op : public undo_op {
 public:
  explicit device_undo_op(const std::string& path);
  void made() {}
  void undo() override;

  MadeFile file;  // for mox_create_file to fill in

 private:
  std::string path_;  // as it is shown
};

// Enters the undo of a resource that is about to be made, so that nothing can come between its
// creation and its entry. Unless made() is called, the entry is taken back again.
//
//   announcement<shm_undo_op> entry(log, key);
//   ... create the segment ...
//   entry.made(shmid, address);
template <class Entry>
class announcement {
 public:
  template <class... Arguments>
  explicit announcement(undo_log& log, Arguments&&... arguments) : log_(log) {
    log.push_back(std::make_unique<Entry>(std::forward<Arguments>(arguments)...));
  }
  announcement(const announcement&) = delete;
  announcement& operator=(const announcement&) = delete;
  ~announcement() {
    if (!made_) log_.pop_back();
  }

  Entry* operator->() { return static_cast<Entry*>(log_.back().get()); }

  template <class... Arguments>
  void made(Arguments... arguments) {
    (*this)->made(arguments...);
    made_ = true;
  }

 private:
  undo_log& log_;
  bool made_ = false;
};

}  // namespace resmgr
