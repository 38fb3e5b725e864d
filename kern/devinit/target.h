// The path that a run of the initialiser was given: what stands there, whether a device fits there,
// and how it is opened. What cannot be told ends the run in an error.
#pragma once

#include <cstdint>
#include <string>

// True for a character or block device.
bool is_device(const std::string& path);

// Whether `need` bytes fit at the path; what an existing regular file holds counts as free. True at
// once when verifying.
bool has_space(const std::string& path, std::uint64_t need);

// Ends the run when somebody holds the block device at the path: it is mounted, swap space, part of
// an array or volume, or being initialised.
void refuse_held_device(const std::string& path);

// Opens the device for the run as `clean_fd`, which `cleanup` takes care of from then on. Never
// waits for the other end of a FIFO, follows only links that root or the caller made, and refuses
// to initialise what another run is initialising. Unless verifying, a regular file is created or
// emptied, and a block device is held so that nobody can mount it.
void open_target(const std::string& path);
