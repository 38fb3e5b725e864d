// The operations on the file at a device path that every program uses: open it as the device
// initialiser does, look at it, remove it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

// How a device is opened, by `readVerify` and `syncsz`. Unless verifying, this creates a missing
// file and empties an existing regular one.
int device_open_flags();

// 0 for what can hold a device: regular files, character and block devices; otherwise the errno
// that says why the kind of file cannot.
int unusable_kind(mode_t mode);

// Both open and close the path with device_open_flags() and never wait for a FIFO or a line.
// `error` is the errno, 0 on success. A file that is created has mode 0600; through a dangling
// symbolic link, it stands at resolve_symlink(path). mox_test_open_file is for a path that exists.
// `extra_flags` may be O_EXCL, to create a file that was not there before.
bool mox_create_file(const std::string& path, int& error, int extra_flags = 0);
bool mox_test_open_file(const std::string& path, int& error);

// Removes what stands at the path itself, be it a link; false with errno.
bool mox_unlink(const std::string& path);

// In bytes; -1 with the errno in `error`.
std::int64_t mox_file_size(const std::string& path, int& error);
