// The device initialiser end to end: what it prints, what it leaves on the device, and what a
// verification finds in a device that was written by somebody who knows nothing but the layout.
#include <gtest/gtest.h>
#include <sys/file.h>

#include <ctime>

#include "tests/support/device_image.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;

RunResult devinit(const std::string& options, const std::string& file) {
  return run_program({"/bin/sh", "-c", "exec \"$0\" " + options + " -f \"$1\"", DEVINIT, file});
}

RunResult expect_refused(const std::string& options, const std::string& path,
                         const std::string& error) {
  const RunResult run = devinit(options, path);
  EXPECT_EQ(run.err, "\nDEVINIT-ERROR: " + error + "\n") << options << " " << path;
  EXPECT_EQ(run.status, 1);
  return run;
}

template <class... Values>
std::string print(const char* format, Values... values) {
  char text[1000];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

// What a verification of a device made with "-n 3" reports in front of the progress.
std::string report(const std::string& file, int blocks, int data_blocks, int size, bool log) {
  const std::time_t seconds = seconds_of(file);
  char timestamp[80];
  std::strftime(timestamp, sizeof timestamp, "%c %Z", std::localtime(&seconds));
  return print(
             "Verifying device \"%s\"\nV4.2 signature       = 31415928\n"
             "Number of blocks     = %d\nNumber of datablocks = %d\n"
             "Block size           = %d bytes\nDevice number        = 3\n"
             "Device type          = %s device\nDevice name          = \"%s\"\n"
             "Disk based recovery  = 1\nTimestamp            = %s (hash = 0x%08x)\n"
             "Info header offset   = 8192\nInfo header size     = 4096\n"
             "Data blocks offset   = 12288\n\n",
             file.c_str(), blocks, data_blocks, size, log ? "log" : "data", file.c_str(), timestamp,
             hash_of(file)) +
         (log ? "" : print("Reading %d bitmap blocks\n\n", blocks - data_blocks)) +
         print("Verify: one \"c/C/i/I/u/U\" = %d blocks of %d bytes, total %d bytes",
               1048576 / size, size, data_blocks * size);
}

std::string counts(int checked, int initialized, int bad, int cached) {
  const char* format =
      "\n\n%8d blocks checked\n%8d blocks initialized\n%8d blocks bad\n"
      "%8d blocks in buffer cache\n\nDevice verification completed\n";
  return print(format, checked, initialized, bad, cached);
}

std::string block_line(unsigned block, const char* state, const char* cached, const Stamp& stamp) {
  return print("\n%8u %-8s %-6s id=%8u dev=%3u flip=0x%08x flop=0x%08x", block, state, cached,
               stamp.id, stamp.device, stamp.flip, stamp.flop);
}

class Devinit : public testing::Test {
 protected:
  // Initialises, and looks at every byte behind the header proper. Returns the report.
  static std::string initialise(const std::string& options, const std::string& path,
                                std::size_t size, std::size_t written) {
    const RunResult run = devinit(options, path);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(word_at(path, 8192), 0xaaaaU);
    EXPECT_LE(std::time(nullptr) - seconds_of(path), 60);
    std::string expected = std::string(12288, '\0') + pattern(written);
    expected.resize(size);
    EXPECT_TRUE(read_file(path).replace(8192, 316, 316, '\0') == expected) << options;
    return run.out;
  }

  LoopDevice loop(unsigned sector, std::size_t size) const {
    write_file(file, std::string(size, '\0'));
    return {file, sector};
  }

  const TempFolder folder;
  const std::string file = folder / "device";
};

TEST_F(Devinit, WritesHeaderPatternAndBitmap) {
  constexpr std::size_t size = 12288 + 300UL * 8192;
  write_file(file, std::string(5000000, 'x'));
  initialise("-b 300 -s 8190", file, size, 299UL * 8192);
  initialise("-b 0454 -F -D -S -1", file, size, 0);
  const char* report =
      "Initializing device \"%s\"\n  as number 3 with 300 blocks of 8192 bytes\n"
      "Preparing to write 300 data blocks and 0 bitmap blocks\n"
      "Writing: one \"w\" = 128 blocks of 8192 bytes, total 2457600 bytes\n       0 www\n"
      "Read and compare: one \"c/C/i/I/u/U\" = 128 blocks of 8192 bytes, total 2457600 bytes\n"
      "       0 uuu\n\nDevice initialized successfully\n";
  EXPECT_EQ(initialise("-n 3 -b 0x12c -l -p -S 1", file, size, 300UL * 8192),
            print(report, file.c_str()));
}

TEST_F(Devinit, BlockDevicesOfBothSectorSizesAreWrittenAndRefusedWhenInUse) {
  for (const unsigned sector : {512U, 4096U}) {
    // Filled to the last byte, by blocks so small that neither data nor bitmap end on a sector.
    const LoopDevice device = loop(sector, 12288 + 3088 * 1024);
    if (!device.refusal.empty()) GTEST_SKIP() << "skipped: loop device: " << device.refusal;
    const std::string out =
        initialise("-p -s 1024 -b 3088", device.path(), 12288 + 3088 * 1024, 3087UL * 1024);
    EXPECT_NE(out.find("\nRaw or block device detected\nPreparing"), std::string::npos) << out;
    expect_refused("-s 1024 -b 3089", device.path(), "Not enough space on disk");
    const std::string content = read_file(file);
    // As a mount holds it.
    const int holder = open(device.path().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    for (const char* options : {"-b 10", "-b 10000"}) {
      expect_refused(options, device.path(),
                     "in use (mounted, swap, part of an array or volume, or being initialized): " +
                         device.path() + " Device or resource busy");
    }
    EXPECT_EQ(devinit("-V -b 3088", device.path()).status, 0);
    EXPECT_TRUE(read_file(file) == content);
    close(holder);
  }
}

TEST_F(Devinit, FindsOneFaultWhereverItLies) {
  ASSERT_EQ(devinit("-n 3 -b 8300 -s 1024", file).status, 0);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms{0600});
  const std::uint32_t hash = hash_of(file);
  std::string data;
  for (std::uint32_t i = 0; i < 8298; ++i) {
    data += stamped_block(1024, {hash ^ (i & 1), 3, i, hash ^ (i & 1)});
  }
  put_at(file, 12288, data);
  const std::string head = report(file, 8300, 8298, 1024, false) + "\n       0 ";

  // First and last block, both sides of an edge of chunks and of an edge of bitmap blocks.
  for (const std::uint32_t block : {0U, 1023U, 1024U, 8191U, 8192U, 8297U}) {
    const std::int64_t bit = 12288 + 8298 * 1024 + block / 8;
    put_at(file, bit, std::string(1, static_cast<char>(1U << block % 8)));
    for (const Stamp& fault : {Stamp{hash, 3, block, hash ^ 1}, Stamp{hash, 2, block, hash},
                               Stamp{hash, 3, block + 1, hash}}) {
      put_at(file, 12288 + block * 1024, stamped_block(1024, fault));
      std::string marks(9, 'i');
      marks[block / 1024] = 'C';
      const std::string column(9 + block / 1024, ' ');
      marks.insert(block / 1024, block_line(block, "Corrupt", "cached", fault) + "\n" + column);
      EXPECT_EQ(devinit("-V -V -b 8300", file).out, head + marks + counts(8298, 8298, 1, 1));
    }
    put_at(file, bit, std::string(1, '\0'));
    put_at(file, 12288 + block * 1024, stamped_block(1024, {hash, 3, block, hash}));
  }
}

TEST_F(Devinit, VerbositiesOnDataAndLogDevices) {
  for (const bool log : {false, true}) {
    const std::string blocks = log ? " -b 3" : " -b 4";
    ASSERT_EQ(devinit((log ? "-l -n 3" : "-n 3") + blocks, file).status, 0);
    const Stamp sound = {hash_of(file), 3, 0, hash_of(file)};
    const Stamp other = {hash_of(file) ^ 2, 200, 0xffffff, 7};
    for (const int block : {0, 1}) put_at(file, 12288 + block * 8192, stamped_block(8192, sound));
    put_at(file, 12288 + 2 * 8192, stamped_block(8192, other));
    if (!log) put_at(file, 12288 + 3 * 8192, "\x01");
    const std::string head = report(file, log ? 3 : 4, 3, 8192, log);
    const std::string initialised =
        block_line(0, "Verified", log ? "" : "cached", sound) + block_line(1, "Corrupt", "", sound);
    const std::string end = log ? "\n\nDevice verification completed\n" : counts(3, 2, 1, 1);
    EXPECT_EQ(devinit("-VF" + blocks, file).out.find("Verify: "), std::string::npos);
    const std::string marks = log ? "\n       0 u" : "\n       0 C";
    EXPECT_EQ(devinit((log ? "-VV" : "-V") + blocks, file).out, head + marks + end);
    EXPECT_EQ(devinit("-VVV" + blocks, file).out, head + (log ? "" : initialised) + end);
    EXPECT_EQ(devinit("-VVVV" + blocks, file).out,
              head + initialised + block_line(2, "Unused", "", other) + end);
  }
}

TEST_F(Devinit, BadInputEndsInOneErrorAndLeavesNothing) {
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  const std::string taken = folder / "taken";
  write_file(taken, "first");
  const int first = open(taken.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(first, LOCK_EX), 0);
  EXPECT_EQ(run_program({DEVINIT, "-b", "5", "-f", file, "V"}).status, 1);
  const std::string cases[][3] = {
      {"", file, "File not found or no blocks"},
      {"-b -1", file, "File not found or no blocks"},
      {"-b 5 -n 9", file, "File number out of range"},
      {"-b 5 -n -1", file, "File number out of range"},
      {"-b 5 -s 3000", file, "Illegal block size"},
      {"-b 5 -s 73728", file, "Illegal block size"},
      {"-b 2147483647 -s 32768", file, "Not enough space on disk"},
      {"-b 5", "", "Must have file or device name"},
      {"-b 5", folder / "fifo", "File must be regular file or raw device"},
      {"-V -b 5", file, "open No such file or directory"},
      {"-b 5", folder / "absent/file", "statvfs No such file or directory"},
      {"-b 5", taken, "another process is initializing: " + taken},
      {"-b 5", taken + "/file", "Cannot stat"}};
  for (const auto& [options, path, error] : cases) expect_refused(options, path, error);
  EXPECT_EQ(read_file(taken), "first");
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(Devinit, CharacterDevicesKeepTheirNode) {
  const DeviceNode zero = zero_node();
  const DeviceNode full = full_node();
  if (!full.refusal.empty()) GTEST_SKIP() << "skipped: device node: " << full.refusal;
  expect_refused("-b 5", zero.path(), "Illegal block size");
  const char* sizes[][2] = {{"-b 5", "40 KB"},
                            {"-b 1 -s 1024", "1024 B"},
                            {"-b 128", "1024 KB"},
                            {"-b 131073", "1024 MB"}};
  for (const auto& [options, size] : sizes) {
    expect_refused(options, full.path(),
                   print("out of space, wrote 0 B of %s No space left on device", size));
  }
  EXPECT_TRUE(fs::is_character_file(full.path()));
}

TEST_F(Devinit, TheProbeIsTheLastDataBlock) {
  constexpr std::size_t size = 4000000;
  const LoopDevice device = loop(512, size);
  if (!device.refusal.empty()) GTEST_SKIP() << "skipped: loop device: " << device.refusal;
  for (const bool log : {true, false}) {
    write_file(file, std::string(size, '\0'));
    ASSERT_EQ(devinit(log ? "-F -l -b 40" : "-F -b 40", device.path()).status, 0);
    std::string data(size - 12288, '\0');
    data.replace((log ? 39 : 38) * 8192, 8192, pattern(8192));
    EXPECT_TRUE(read_file(file).substr(12288) == data) << log;
  }
}

TEST_F(Devinit, WhatAStrangerCanHavePutThereIsNeitherFollowedNorEmptied) {
  const fs::path open_folder = folder / "open";
  fs::create_directory(open_folder);
  fs::permissions(open_folder, fs::perms::all);
  for (const char* name : {"victim", "open/planted"}) write_file(folder / name, "x");
  fs::create_hard_link(folder / "victim", open_folder / "second name");
  fs::create_symlink("../victim", open_folder / "link");
  for (const char* name : {"link", "planted"}) {
    if (lchown((open_folder / name).c_str(), 65533, 65533) != 0) {
      GTEST_SKIP() << "skipped: lchown: " << std::strerror(errno);
    }
  }
  const char* cases[][3] = {{"-b 10", "link", "open Too many levels of symbolic links"},
                            {"-V", "link", "open Too many levels of symbolic links"},
                            {"-b 10", "planted", "open Permission denied"},
                            {"-b 10", "second name", "open Permission denied"}};
  for (const auto& [options, name, error] : cases) {
    expect_refused(options, open_folder / name, error);
    EXPECT_EQ(read_file(open_folder / name), "x") << name;
  }
  EXPECT_EQ(devinit("-b 10", open_folder / "new").status, 0);
  fs::permissions(open_folder, fs::perms{0755});  // root alone can have put it there
  EXPECT_EQ(devinit("-b 10", open_folder / "link").status, 0);
}

TEST_F(Devinit, WhatIsNotReadOfANumberIsTold) {
  const std::string cases[][3] = {
      {"-b 10 -s 8192B", "-s '8192B' read as 8192", "of 8192 bytes"},
      {"-b 10 -n x", "-n 'x' ignored: no number of 32 bits", "number 0"},
      {"-b 10 -S 9999999999", "-S '9999999999' ignored: no number of 32 bits", "number 0"},
      {"-b 0x10M", "-b '0x10M' read as 16", "with 16 blocks"}};
  for (const auto& [options, told, effect] : cases) {
    const RunResult run = devinit(options, file);
    EXPECT_EQ(run.err, std::string(DEVINIT ": ").append(told) + "\n");
    EXPECT_NE(run.out.find(effect), std::string::npos) << run.out;
  }
}

TEST_F(Devinit, NamesCannotForgeAReport) {
  const std::string forger = folder / "a\n       0 blocks bad\n\x1b[2J";
  ASSERT_EQ(devinit("-b 10", forger).status, 0);
  const RunResult run = devinit("-V -F -b 10", forger);
  const std::string shown = "\"" + (folder / "a\\n       0 blocks bad\\n\\x1b[2J") + "\"\n";
  EXPECT_EQ(run.out.find("Verifying device " + shown), 0U) << run.out;
  EXPECT_NE(run.out.find("Device name          = " + shown), std::string::npos) << run.out;
}

TEST_F(Devinit, HostileHeaders) {
  ASSERT_EQ(devinit("-b 20 -s 1024", file).status, 0);
  const std::string sound = read_file(file);
  const auto with = [&](std::size_t offset, const std::string& bytes) {
    return std::string(sound).replace(8192 + offset, bytes.size(), bytes);
  };
  // Content, options, error, and what the report says.
  const std::string cases[][4] = {
      {std::string(40000, '\0'), "-b 20", "Illegal block size",
       "Signature wrong, device probably uninitialized\nUnknown signature    = -2147483648 (should "
       "be 31415928)\n"},
      {std::string(40000, '\xff'), "-b 20", "Illegal block size", "Info header offset   = -1\n"},
      {with(284, {'\0', '\x08'}), "-b 20", "Illegal block size", "= 8 bytes\n"},
      {with(284, {'\0', '\0'}), "-F -b 20", "", "Device verification completed\n"},
      {with(304, std::string(8, '\xff')), "-b 20", "Illegal data blocks offset",
       "offset   = -1\n\n"},
      {with(16, std::string(256, '\xf8') + "\x81\x01\x01\x01"), "-b 20", "",
       "= \"" + std::string(256, 'x') + "\"\n"},
      {with(304, std::string(4, '\x7f')), "-b 20", "Read failed", ""},
      {with(304, std::string(7, '\0') + '\x01'), "-b 20", "", "Info header size     = -8191\n"},
      {sound, "-b 2147483647", "Read failed", "Reading 262113 bitmap blocks\n"},
      {with(286, "\x81").substr(0, 20000), "-b 10", "read", "Device type          = log"},
      {with(0, "z"), "-b 20", "",
       "\nFlip/flop don't match, device probably uninitialized\nV4.2 signature"},
      {with(12, "\x81\xdf\x5e\x77").substr(8192) + std::string(9000, 'x'), "-b 5", "",
       "Pre V4.2 version header detected\nPre V4.2 signature   = 31415927\n"},
      {sound.substr(0, 9000), "",
       "verify header\n808 of 4096 bytes read\n\nDEVINIT-ERROR: Cannot verify file header", ""}};
  for (const auto& [content, options, error, told] : cases) {
    write_file(file, content);
    const RunResult run = devinit("-V " + options, file);
    EXPECT_EQ(run.err, error.empty() ? "" : "\nDEVINIT-ERROR: " + error + "\n") << run.out;
    EXPECT_NE(run.out.find(told), std::string::npos) << run.out;
    EXPECT_TRUE(read_file(file) == content);
  }
}

TEST_F(Devinit, OffsetsBeyond4GiB) {
  const std::string refusal = devinit("-n 3 -F -s 32768 -b 134500", file).err;
  if (refusal.ends_with("Not enough space on disk\n")) GTEST_SKIP() << "skipped: small disk";
  const std::uint32_t hash = hash_of(file);
  put_at(file, 12288 + 134498LL * 32768, stamped_block(32768, {hash, 3, 134498, hash}));
  put_at(file, 12288 + 134499LL * 32768 + 134498 / 8, "\xff");
  const std::string out = devinit("-V -b 134500", file).out;
  EXPECT_NE(out.find("total 4407263232 bytes\n       0 uuuu"), std::string::npos) << out;
  const std::string last_line = "u\n  133120 " + std::string(43, 'u') + "I";
  EXPECT_TRUE(out.ends_with(last_line + counts(134499, 1, 0, 3))) << out;
}

TEST_F(Devinit, AFullFileSystemIsToldAndTheFileRemoved) {
  const SmallFileSystem volume("66m");
  if (!volume.refusal.empty()) GTEST_SKIP() << "skipped: mount: " << volume.refusal;
  // What the file seems to hold counts as free, and is not there.
  write_file(volume / "sparse", "");
  fs::resize_file(volume / "sparse", 300000000);
  fs::create_symlink("sparse", volume / "link");
  const char* error = "out of space, wrote 65 MB of 195 MB No space left on device";
  const std::string out = expect_refused("-s 1024 -b 200000", volume / "link", error).out;
  EXPECT_TRUE(out.ends_with("\n       0 " + std::string(64, 'w') + "\n   65536 w")) << out;
  EXPECT_FALSE(fs::exists(volume / "sparse"));
  EXPECT_TRUE(fs::is_symlink(volume / "link"));
}

TEST_F(Devinit, AnInterruptDoesNotWaitForTheReaderOfTheReport) {
  const char* script =
      "mkfifo $1.pipe; exec 3<>$1.pipe; dd if=/dev/zero of=$1.pipe oflag=nonblock 2>/dev/null\n"
      "timeout --preserve-status -k 20 0.5 $0 -b 100 -f $1 >&3";
  EXPECT_EQ(run_program({"/bin/sh", "-c", script, DEVINIT, file}).status, 128 + SIGTERM);
  EXPECT_FALSE(fs::exists(file));
}

}  // namespace
