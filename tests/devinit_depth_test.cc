// Several transfers in flight, made to begin at once: the bytes on the device, the report and the
// errors are those of one transfer at a time, whatever fails in flight.
#include "kern/devinit/chunkpass.h"
#include "tests/support/devinit_call.h"

namespace {

using namespace std::chrono_literals;

// A run and the device that it left, its creation time apart.
struct Outcome {
  RunResult run;
  std::string device;

  Outcome(const std::string& file, const RunResult& result)
      : run(result), device(fs::exists(file) ? read_file(file) : "absent") {
    if (device.size() > 8204) device.replace(8196, 8, 8, '\0');
  }
  bool operator==(const Outcome& other) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << outcome.run.out << outcome.run.err << "status " << outcome.run.status << ", "
                << outcome.device.size() << " bytes";
}

// Counts what is in flight. Neither the end of a run nor a plain transfer, which may change the
// descriptor's flags, has anything in flight: standard error would differ from that of other runs.
int in_flight = 0;

void tell_what_is_in_flight() {
  if (in_flight != 0) std::fprintf(stderr, "%d still in flight\n", in_flight);
}

CallHook counting(const CallHook& hook) {
  return [hook](const Call& call) {
    const std::optional<long> answer = hook ? hook(call) : std::nullopt;
    if (call.name == "io_submit" && !answer) ++in_flight;
    if (call.name == "io_event") --in_flight;
    if (call.name == "io_getevents" && answer) in_flight = 0;  // the context is given up
    if (call.name == "pwrite" || call.name == "pread") tell_what_is_in_flight();
    return answer;
  };
}

class Depth : public DevinitTest {
 protected:
  Depth() { std::atexit(tell_what_is_in_flight); }
  Outcome run(int from, const std::string& options, const CallHook& hook = nullptr) const {
    deepfrom = from;  // the process of the run inherits it
    return Outcome(file, DevinitTest::run(options, counting(hook)));
  }
  // `hook` must do the same to both.
  void expect_same(const std::string& options, const CallHook& hook = nullptr) const {
    const std::string before = fs::exists(file) ? read_file(file) : "";
    const Outcome plain = run(INT_MAX, options, hook);
    if (!before.empty()) write_file(file, before);
    EXPECT_EQ(run(0, options, hook), plain) << options;
  }
};

// 23 chunks, the last one short.
const std::string blocks = "-b 2900";

TEST_F(Depth, EightTransfersAreInFlightAndTheLastChunkIsPlain) {
  const int direct = open(file.c_str(), O_RDWR | O_CREAT | O_DIRECT | O_CLOEXEC, 0600);
  if (direct < 0) GTEST_SKIP() << "skipped: no direct I/O in " << folder.path();
  close(direct);
  int most = 0;
  std::string plain;
  const auto hook = [&](const Call& call) -> std::optional<long> {
    most = std::max(most, in_flight + (call.name == "io_submit" ? 1 : 0));
    if (call.name == "pwrite") plain += " " + std::to_string(call.offset);
    if (call.name == "fsync") std::printf("most in flight %d, plain%s\n", most, plain.c_str());
    return {};
  };
  const std::string out = run(0, "-l " + blocks, hook).run.out;
  EXPECT_NE(out.find("most in flight 8, plain 8192 23080960\n"), std::string::npos) << out;
}

TEST_F(Depth, EveryOptionSetGivesTheSame) {
  for (const char* options :
       {"-b 2900", "-b 2900 -l", "-b 2900 -p", "-b 2900 -p -D", "-b 2900 -S 1 -p", "-b 2900 -S 0",
        "-b 2900 -S -1", "-b 2900 -F", "-b 2900 -n 8 -D", "-s 1024 -b 23100 -p", "-s 2048 -b 12001",
        "-s 32768 -b 700 -p", "-b 1", "-b 128 -l", "-b 129 -l", "-b 1025 -l"}) {
    expect_same(options);
    fs::remove(file);
  }
}

// Of the calls by that name those from one to another, each counted anew.
TEST_F(Depth, WhatFailsInFlightIsDoneAgainPlainly) {
  const Outcome written = run(INT_MAX, "-p " + blocks);
  const std::uint32_t hash = hash_of(file);
  for (const std::uint32_t block : {0U, 127U, 128U, 1500U, 2898U}) {
    put_at(file, 12288 + block * 8192, stamped_block(8192, {hash, 0, block, hash}));
  }
  const Outcome verified = run(INT_MAX, "-VVV " + blocks);
  const std::string device = read_file(file);
  const struct {
    const char* call;
    int from, to;
    long result;  // of a transfer; the other calls fail
  } cases[] = {{"io_event", 1, 1, -EIO},
               {"io_event", 8, 8, -EINTR},
               {"io_event", 9, 9, 0},
               {"io_event", 20, 20, 4096},
               {"io_event", 1, INT_MAX, -EINVAL},
               {"io_setup", 1, 1, 0},
               {"io_setup", 1, INT_MAX, 0},
               {"io_submit", 1, 1, 0},
               {"io_submit", 12, INT_MAX, 0},
               {"io_getevents", 1, 1, 0},
               {"io_getevents", 12, INT_MAX, 0}};
  for (const auto& row : cases) {
    const auto hook = [&, count = 0](const Call& call) mutable -> std::optional<long> {
      count += call.name == row.call ? 1 : 0;
      if (call.name != row.call || count < row.from || count > row.to) return {};
      if (call.name != "io_event") return fail(EPERM);
      if (row.result >= 0) std::memset(call.buffer, 0, row.result == 0 ? 0 : 1);
      return row.result;
    };
    SCOPED_TRACE(std::string(row.call) + " " + std::to_string(row.from));
    EXPECT_EQ(run(0, "-p " + blocks, hook), written);
    write_file(file, device);
    EXPECT_EQ(run(0, "-VVV " + blocks, hook), verified);
  }
}

TEST_F(Depth, TheFirstFailureInTheOrderOfTheDeviceIsTheOneReported) {
  for (const long long first : {0, 1, 7, 8, 9, 20}) {
    // It and all behind it fail, with errors of their own.
    const auto hook = [&](const Call& call) -> std::optional<long> {
      const long long chunk = (call.offset - 12288) / 1048576;
      if (call.offset < 12288 || chunk < first) return {};
      const int error = chunk == first ? EIO : chunk % 2 == 0 ? ENOSPC : EDQUOT;
      if (call.name == "io_event") return -error;
      return call.name == "pwrite" || call.name == "pread" ? fail(error) : std::nullopt;
    };
    SCOPED_TRACE("from chunk " + std::to_string(first));
    expect_same("-l -S 2 " + blocks, hook);
    run(INT_MAX, blocks);
    expect_same("-V " + blocks, hook);
    fs::remove(file);
  }
}

TEST_F(Depth, ASyncComesBehindItsChunksAndItsFailureIsReported) {
  for (const int failing : {1, 2, 7}) {
    const auto hook = [&, syncs = 0, ended = 0LL](const Call& call) mutable -> std::optional<long> {
      ended += call.name == "io_event" ? 1 : 0;
      if (call.name != "fdatasync") return {};
      ++syncs;
      if (deepfrom == 0 && ended < syncs * 3) std::printf("sync %d too early\n", syncs);
      return syncs == failing ? fail(EIO) : std::nullopt;
    };
    expect_same("-S 3 " + blocks, hook);
  }
}

TEST_F(Depth, SignalsWithTransfersInFlight) {
  for (const int when : {1, 8, 9, 20}) {
    for (const int signal : {SIGTERM, SIGKILL, SIGUSR1}) {
      const auto hook = [&, count = 0](const Call& call) mutable -> std::optional<long> {
        if (call.name == "io_submit" && ++count == when) raise(signal);
        return {};
      };
      SCOPED_TRACE(strsignal(signal) + (" at transfer " + std::to_string(when)));
      const Outcome outcome = run(0, "-l " + blocks, hook);
      const bool asks = signal == SIGUSR1;
      EXPECT_EQ(outcome.run.signal, asks ? 0 : signal);
      EXPECT_EQ(outcome.run.err.find(" of 2900 blocks written, ") != std::string::npos, asks);
      EXPECT_EQ(fs::exists(file), signal != SIGTERM);
      // What a kill leaves does not verify.
      EXPECT_EQ(run(INT_MAX, "-V " + blocks).run.status, asks ? 0 : 1);
      fs::remove(file);
    }
  }
}

TEST(Pacing, DepthPaysWhereTheStorageAnswersLateAndEnoughIsLeft) {
  const struct {
    const char* name;
    int chunks;
    std::chrono::microseconds each, last, latency;
    std::uint64_t left;
    bool pays;
  } cases[] = {{"latency alone", 8, 2000us, 2000us, 2100us, 35, true},
               {"too few left for that", 8, 2000us, 2000us, 2100us, 34, false},
               {"just slow", 8, 451us, 451us, 400us, 1000, true},
               {"just quick", 8, 450us, 450us, 400us, 1000, false},
               {"one of them quick", 8, 2000us, 100us, 90us, 10000, false},
               {"too few seen", 7, 2000us, 2000us, 1500us, 1000, false},
               {"slow for want of bandwidth", 8, 2000us, 2000us, 600us, 1000, false}};
  for (const auto& row : cases) {
    Pace pace;
    for (int i = 1; i <= row.chunks; ++i) pace.note(i < row.chunks ? row.each : row.last);
    EXPECT_EQ(pace.is_slow() && pace.pays(row.latency, row.left), row.pays) << row.name;
  }
}

}  // namespace
