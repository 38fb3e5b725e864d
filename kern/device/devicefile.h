// The operations on the file at a device path that every program uses: open it as the device
// initialiser does, look at it, remove it. Root may do so in folders of other users: a symbolic
// link is followed only when root or the caller made it or nobody else can write to its folder
// (ELOOP otherwise), and a file that was made is removed by its folder and inode.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>

#include "common/base/descriptor.h"

// How a device is opened, by `readVerify` and `syncsz`. Unless verifying, this creates a missing
// file and empties an existing regular one.
int device_open_flags();

// 0 for what can hold a device: regular files, character and block devices; otherwise the errno
// that says why the kind of file cannot.
int unusable_kind(mode_t mode);

// A file that was created: its path may lead elsewhere by now.
struct MadeFile {
  std::shared_ptr<const Descriptor> folder{};  // one descriptor for all files of a folder
  std::string name{};                          // in the folder
  dev_t device = 0;
  ino_t inode = 0;
};

// Both open and close the path with device_open_flags() and never wait for a FIFO or a line.
// `error` is the errno, 0 on success. A file that is created has mode 0600; through a dangling
// symbolic link, it stands at resolve_symlink(path). With `made`, a file that exists is an error
// (EEXIST). mox_test_open_file is for a path that exists and creates nothing; `emptied` becomes the
// bytes that the regular file had. It refuses a file that a stranger can have put into a folder
// where everybody may write (EACCES).
bool mox_create_file(const std::string& path, int& error, MadeFile* made = nullptr);
bool mox_test_open_file(const std::string& path, int& error, std::uint64_t* emptied = nullptr);

// Removes what stands at the path itself, be it a link; false with errno. `was` becomes its status.
bool mox_unlink(const std::string& path, struct stat* was = nullptr);
// False with ESTALE when another file has its name by now.
bool mox_unlink(const MadeFile& file);

// In bytes; -1 with the errno in `error`.
std::int64_t mox_file_size(const std::string& path, int& error);
