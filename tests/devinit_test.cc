// The device initialiser end to end: what it prints, what it leaves on the device, and what a
// verification finds in a device that was written by somebody who knows nothing but the layout.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <numeric>
#include <regex>

#include "tests/support/device_image.h"
#include "tests/support/devinit_run.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;
TEST(Devinit, WritesHeaderPatternAndBitmap) {
  const TempFolder folder;
  const std::string file = folder / "device";
  const std::string start =
      "Initializing device \"" + file + "\"\n  as number 3 with 300 blocks of 8192 bytes\n";
  const std::string writing = " = 128 blocks of 8192 bytes, total ";
  const struct {
    const char* options;
    std::string out;
    std::size_t written;
  } cases[] = {
      {"-n 3 -b 300 -s 8190",
       start + "Preparing to write 299 data blocks and 1 bitmap blocks\nWriting: one \"w\"" +
           writing + "2449408 bytes\n       0 www\nWriting 1 bitmap blocks\n\n       0 w\n",
       2449408},
      {"-n 3 -b 0x12c -l -p -S 1",
       start + "Preparing to write 300 data blocks and 0 bitmap blocks\nWriting: one \"w\"" +
           writing + "2457600 bytes\n       0 www\nRead and compare: one \"c/C/i/I/u/U\"" +
           writing + "2457600 bytes\n       0 uuu\n\n",
       2457600},
      {"-n 3 -b 0454 -F -D -S -1", start + "Writing 1 bitmap blocks\n\n       0 w\n", 0}};
  for (const auto& c : cases) {
    write_file(file, std::string(5000000, 'x'));
    const RunResult run = devinit(c.options, file);
    EXPECT_EQ(run.out, c.out + "Device initialized successfully\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(fs::file_size(file), 12288U + 300 * 8192);
    EXPECT_EQ(bytes_at(file, 0, 8192), std::string(8192, '\0'));
    EXPECT_EQ(word_at(file, 8192), 0xaaaaU);
    EXPECT_EQ(bytes_at(file, 8192 + 316, 4096 - 316), std::string(4096 - 316, '\0'));
    EXPECT_TRUE(bytes_at(file, 12288, c.written) == pattern(c.written)) << c.options;
    EXPECT_EQ(bytes_at(file, 12288 + 299 * 8192, 8192) == std::string(8192, '\0'),
              c.written != 2457600);
  }
}

TEST(Devinit, FindsOneFaultWhereverItLies) {
  const TempFolder folder;
  const std::string file = folder / "device";
  ASSERT_EQ(devinit("-n 3 -b 8300 -s 1024", file).status, 0);
  const std::uint32_t hash = hash_of(file);
  for (std::uint32_t i = 0; i < 8298; ++i) {
    stamp_block(file, 1024, i, {hash ^ (i & 1), 3, i, hash ^ (i & 1)});
  }
  const std::string head =
      report(file, "8300", "8298", "1024", "data") +
      "Reading 2 bitmap blocks\n\nVerify: one \"c/C/i/I/u/U\" = 1024 blocks of "
      "1024 bytes, total 8497152 bytes\n       0 ";
  EXPECT_EQ(without_timestamp(devinit("-V -p -b 8300", file).out),
            head + "iiiiiiiii\n\n" + counts(8298, 8298, 0, 0));

  // First and last block, both sides of an edge of chunks and of an edge of bitmap blocks.
  for (const std::uint32_t block : {0U, 1023U, 1024U, 8191U, 8192U, 8297U}) {
    const Stamp sound{hash, 3, block, hash};
    for (const Stamp& fault : {Stamp{hash, 3, block, hash ^ 1}, Stamp{hash, 2, block, hash},
                               Stamp{hash, 3, block + 1, hash}}) {
      stamp_block(file, 1024, block, fault);
      const std::int64_t bit = 12288 + 8298 * 1024 + block / 8;
      put_at(file, bit, std::string(1, static_cast<char>(1U << block % 8)));
      const std::size_t chunk = block / 1024;
      std::string marks(9, 'i');
      marks[chunk] = 'C';
      marks.insert(chunk, block_line(block, "Corrupt", "cached", fault) + "\n         " +
                              std::string(chunk, ' '));
      EXPECT_EQ(without_timestamp(devinit("-V -V -b 8300", file).out),
                head + marks + "\n\n" + counts(8298, 8298, 1, 1));
      put_at(file, bit, std::string(1, '\0'));
    }
    stamp_block(file, 1024, block, sound);
  }
}

TEST(Devinit, VerbositiesOnDataAndLogDevices) {
  const TempFolder folder;
  const std::string file = folder / "device";
  for (const bool log : {false, true}) {
    ASSERT_EQ(devinit(log ? "-l -n 3 -b 5" : "-n 3 -b 5", file).status, 0);
    const std::uint32_t hash = hash_of(file);
    for (const std::uint32_t block : {0U, 1U}) stamp_block(file, 8192, block, {hash, 3, 0, hash});
    if (!log) put_at(file, 12288 + 4 * 8192, "\x01");
    const char* states[] = {"Verified", "Corrupt", "Unused", "Unused", "Unused"};
    std::string lines[5];
    for (std::uint32_t i = 0; i < (log ? 5 : 4); ++i) {
      lines[i] = block_line(i, states[i], i == 0 && !log ? "cached" : "", stamp_at(file, 8192, i));
    }
    const std::string head = report(file, "5", log ? "5" : "4", "8192", log ? "log" : "data") +
                             (log ? "" : "Reading 1 bitmap blocks\n\n");
    const std::string pass = "Verify: one \"c/C/i/I/u/U\" = 128 blocks of 8192 bytes, total " +
                             std::string(log ? "40960 bytes" : "32768 bytes");
    const std::string end = "\n\n" + (log ? completed : counts(4, 2, 1, 1));
    const auto report_with = [&](std::string text) {
      return text.insert(0, head + pass).append(end);
    };
    const std::string mark = log ? "\n       0 u" : "\n       0 C";
    const std::string interrupted = log ? mark : "\n       0 " + lines[1] + "\n         C";
    const std::pair<const char*, std::string> passes[] = {
        {"-V", mark},
        {"-VV", interrupted},
        {"-VVV", log ? "" : lines[0] + lines[1]},
        {"-VVVV", std::accumulate(lines, lines + 5, std::string())}};
    EXPECT_EQ(without_timestamp(devinit("-V -F -b 5", file).out), head + completed);
    for (const auto& [options, text] : passes) {
      const RunResult run = devinit(std::string(options) + " -b 5", file);
      EXPECT_EQ(without_timestamp(run.out), report_with(text));
    }
  }
}

TEST(Devinit, BadInputEndsInOneErrorAndLeavesNothing) {
  const TempFolder folder;
  const std::string file = folder / "device";
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  const std::string no_blocks = "File not found or no blocks";
  const std::string wrong_kind = "File must be regular file or raw device";
  const struct {
    std::string options, file, error;
  } cases[] = {{"", file, no_blocks},
               {"-b -1", file, no_blocks},
               {"-b x", file, no_blocks},
               {"-b 99999999999", file, no_blocks},
               {"-b 5 -n 9", file, "File number out of range"},
               {"-b 5 -n -1", file, "File number out of range"},
               {"-b 5 -s 3000", file, "Illegal block size"},
               {"-b 5 -s 73728", file, "Illegal block size"},
               {"-b 5 -s -8192", file, "Illegal block size"},
               {"-b 2147483647 -s 32768", file, "Not enough space on disk"},
               {"-b 5", "", "Must have file or device name"},
               {"-b 5", folder.path(), wrong_kind},
               {"-V", folder.path(), wrong_kind},
               {"-b 5", folder / "fifo", wrong_kind},
               {"-V", folder / "fifo", wrong_kind},
               {"-V -b 5", file, "open No such file or directory"},
               {"-b 5", folder / "absent/file", "statvfs No such file or directory"},
               {"-b 5", "/dev/null", "Not enough space on disk"},
               {"-b 5", "/dev/zero", "Illegal block size"},
               {"-b 5", "/dev/full", "out of space, wrote 0 B of 40 KB No space left on device"}};
  for (const auto& c : cases) {
    const RunResult run = devinit(c.options, c.file);
    EXPECT_EQ(run.err, error_line(c.error)) << c.options << " " << c.file;
    EXPECT_EQ(run.status, 1);
    EXPECT_FALSE(fs::exists(file));
  }
  EXPECT_EQ(devinit("-V", "/dev/null").err, error_line("verify header") + "0 of 4096 bytes read\n" +
                                                error_line("Cannot verify file header"));
  const RunResult operand = run_program({DEVINIT, "-b", "5", "-f", file, "V"});
  EXPECT_EQ(operand.status, 1);
  EXPECT_FALSE(fs::exists(file));
}

TEST(Devinit, HostileHeaders) {
  const TempFolder folder;
  const std::string file = folder / "device";
  ASSERT_EQ(devinit("-b 20 -s 1024", file).status, 0);
  const std::string sound = read_file(file);
  const auto with = [&](std::size_t offset, const std::string& bytes) {
    return std::string(sound).replace(offset, bytes.size(), bytes);
  };
  const std::string older =
      with(8192 + 12, "\x81\xdf\x5e\x77").substr(8192) + std::string(9000, 'x');
  const struct {
    std::string content, options, error, found;
  } cases[] = {{std::string(40000, '\0'), "-b 20", error_line("Illegal block size"),
                "Signature wrong, device"},
               {std::string(40000, '\xff'), "-b 20", error_line("Illegal block size"),
                "Unknown signature    = 2147483647 (should be 31415928)"},
               {with(8192 + 284, std::string(1, '\0') + "\x08"), "-b 20",
                error_line("Illegal block size"), "= 8 bytes\n"},
               {with(8192 + 304, std::string(8, '\xff')), "-b 20",
                error_line("Illegal data blocks offset"), "offset   = -1\n\n"},
               {with(8192 + 304, std::string(4, '\x7f')), "-b 20", error_line("Read failed"), ""},
               {with(8192 + 304, std::string(4, '\x7f')), "-b 1 -F", error_line("Read failed"), ""},
               {with(8192 + 304, std::string(7, '\0') + "\x01"), "-b 20", "",
                "Info header size     = -8191\n"},
               {sound, "-b 2147483647", error_line("Read failed"), "Reading 262113 bitmap blocks"},
               {sound.substr(0, 20000), "-b 10", error_line("Read failed"), ""},
               {with(8192 + 286, "\x81").substr(0, 20000), "-b 10", error_line("read"),
                "Device type          = log"},
               {with(8192, "zz"), "-b 20", "", "\nFlip/flop don't match, device probably"},
               {older, "-b 5 -VV", "",
                "Pre V4.2 version header detected\nPre V4.2 signature   = 31415927\n"},
               {sound.substr(0, 9000), "",
                error_line("verify header") + "808 of 4096 bytes read\n" +
                    error_line("Cannot verify file header"),
                ""}};
  for (const auto& c : cases) {
    write_file(file, c.content);
    const RunResult run = devinit("-V " + c.options, file);
    EXPECT_EQ(run.err, c.error) << run.out;
    EXPECT_EQ(run.status, c.error.empty() ? 0 : 1);
    EXPECT_NE(run.out.find(c.found), std::string::npos) << run.out;
    EXPECT_EQ(read_file(file), c.content);
  }
}

TEST(Devinit, BlockDevicesOfBothSectorSizes) {
  const TempFolder folder;
  for (const unsigned sector : {512U, 4096U}) {
    write_file(folder / "disk", "");
    fs::resize_file(folder / "disk", 4194304);
    const LoopDevice device(folder / "disk", sector);
    if (!device.refusal.empty()) GTEST_SKIP() << "skipped: loop device: " << device.refusal;
    // An odd number of small blocks: neither the last chunk nor the bitmap is aligned.
    const RunResult run = devinit("-n 3 -p -s 1024 -b 4083", device.path());
    EXPECT_EQ(run.err, "");
    EXPECT_NE(run.out.find("\nRaw or block device detected\nPreparing to write 4082 data"),
              std::string::npos)
        << run.out;
    constexpr std::size_t data = 4082UL * 1024;
    EXPECT_TRUE(bytes_at(device.path(), 12288, data) == pattern(data));
    EXPECT_EQ(bytes_at(device.path(), 12288 + data, 1024), std::string(1024, '\0'));
    EXPECT_EQ(devinit("-V -b 4083", device.path()).status, 0);
    EXPECT_EQ(devinit("-b 512", device.path()).err, error_line("Not enough space on disk"));
    EXPECT_TRUE(fs::is_block_file(device.path()));
  }
}

TEST(Devinit, OffsetsBeyond4GiB) {
  const TempFolder folder;
  const std::string file = folder / "device";
  const RunResult run = devinit("-n 3 -F -s 32768 -b 131500", file);
  if (run.err == error_line("Not enough space on disk")) GTEST_SKIP() << "skipped: small disk";
  const std::uint32_t hash = hash_of(file);
  stamp_block(file, 32768, 131498, {hash, 3, 131498, hash});
  put_at(file, 12288 + 131499LL * 32768 + 131498 / 8, "\xff");
  const std::string out = devinit("-V -b 131500", file).out;
  EXPECT_NE(out.find("total 4308959232 bytes\n       0 uuuu"), std::string::npos);
  EXPECT_NE(out.find("uu\n  131072 uuuuuuuuuuuuuI\n\n" + counts(131499, 1, 0, 3)),
            std::string::npos)
      << out;
}

TEST(Devinit, AFullFileSystemIsToldAndTheFileRemoved) {
  const SmallFileSystem volume("2m");
  if (!volume.refusal.empty()) GTEST_SKIP() << "skipped: mount: " << volume.refusal;
  // What the file seems to hold counts as free, and is not there.
  write_file(volume / "sparse", "");
  fs::resize_file(volume / "sparse", 20000000);
  fs::create_symlink("sparse", volume / "link");
  const RunResult run = devinit("-b 2000", volume / "link");
  EXPECT_TRUE(
      std::regex_match(run.err, std::regex("\nDEVINIT-ERROR: out of space, wrote (1 MB|20[0-9]{2} "
                                           "KB) of 15 MB No space left on device\n")))
      << run.err;
  EXPECT_EQ(run.status, 1);
  EXPECT_FALSE(fs::exists(volume / "sparse"));
  EXPECT_TRUE(fs::is_symlink(volume / "link"));
}

TEST(Devinit, ALostReportIsAnErrorOfAGoodDevice) {
  const TempFolder folder;
  const std::string file = folder / "device";
  const RunResult run =
      run_program({"/bin/sh", "-c", "exec \"$0\" -b 5 -f \"$1\" >/dev/full", DEVINIT, file});
  EXPECT_EQ(run.err, error_line("standard output No space left on device"));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(devinit("-V -b 5", file).status, 0);
}

TEST(Devinit, InterruptedItRemovesTheFileAndDiesOfTheSignal) {
  const TempFolder folder;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const int status = status_after_signal(signal, folder / "device");
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_FALSE(fs::exists(folder / "device"));
  }
}

}  // namespace
