// CREATE and DELETE of 500 nodes, beside a bare program that makes the same system calls: in turn,
// in an IPC namespace of their own, as the ratio of each pair's elapsed times.
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench/workload.h"

namespace {

constexpr int rounds = 21;

std::string write_commands(const std::string& command, const std::string& buffers) {
  const std::string path = "/tmp/ipc_bench." + std::to_string(getpid()) + "." + command;
  std::ofstream file(path);
  file << command << '\n';
  for (int node = 0; node < node_count; ++node) {
    file << "node-" << node << ": ipcbase=" << first_base + node * keys_apart << buffers << '\n';
  }
  return path;
}

// Seconds that the program takes from its start to its end.
double run(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);

  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  int status = 0;
  if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0 ||
      waitpid(child, &status, 0) != child || status != 0) {
    std::fprintf(stderr, "%s %s failed\n", argv[0], argv[1]);
    std::exit(1);
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  posix_spawn_file_actions_destroy(&actions);
  return elapsed.count();
}

void report(const char* what, std::vector<double> ratios) {
  std::sort(ratios.begin(), ratios.end());
  std::printf("%-8s mox_res_mgr / bare calls: min %.2f  median %.2f  max %.2f  (%zu pairs)\n", what,
              ratios.front(), ratios[ratios.size() / 2], ratios.back(), ratios.size());
}

}  // namespace

int main() {
  if (unshare(CLONE_NEWIPC) != 0) {
    std::perror("skipped: no IPC namespace of its own");
    return 0;
  }
  const std::string size = std::to_string(buffer_bytes);
  const std::string creation =
      write_commands("create", ", databuf=" + size + ", tlogbuf=" + size + ", nlogbuf=" + size +
                                   ", sqlbuf=" + size);
  const std::string deletion = write_commands("delete", "");
  std::vector<double> create;
  std::vector<double> remove;
  for (int round = 0; round < rounds; ++round) {
    double ours[2] = {};
    double bare[2] = {};
    // Alternating, so that neither side always has the warmer machine.
    for (int turn = 0; turn < 2; ++turn) {
      if ((turn + round) % 2 == 0) {
        ours[0] = run({MOX_RES_MGR, "-f", creation});
        ours[1] = run({MOX_RES_MGR, "-f", deletion});
      } else {
        bare[0] = run({BARE_IPC, "create"});
        bare[1] = run({BARE_IPC, "delete"});
      }
    }
    create.push_back(ours[0] / bare[0]);
    remove.push_back(ours[1] / bare[1]);
  }
  report("CREATE", create);
  report("DELETE", remove);
  unlink(creation.c_str());
  unlink(deletion.c_str());
}
