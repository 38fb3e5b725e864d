// Makes the system calls of `mox_node status` on the benchmark's nodes, and nothing else: reads the
// description, asks for each object, writes as many bytes. The floor that mox_node is measured
// against.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>

namespace {

void look_at_segment(int key, bool wanted) {
  const int id = shmget(key, 0, 0);
  shmid_ds segment{};
  if (wanted == (id >= 0 && shmctl(id, SHM_STAT_ANY, &segment) == id)) return;
  std::perror("shmget");
  std::_Exit(1);
}

void look_at_set(int key) {
  const int id = semget(key, 0, 0);
  semid_ds set{};
  if (id >= 0 && semctl(id, 0, SEM_STAT_ANY, &set) == id) return;
  std::perror("semget");
  std::_Exit(1);
}

std::size_t read_all(const char* path) {
  char part[65536];
  std::FILE* const file = std::fopen(path, "r");
  std::size_t bytes = 0;
  while (file != nullptr) {
    const std::size_t count = std::fread(part, 1, sizeof part, file);
    bytes += count;
    if (count < sizeof part) break;
  }
  return bytes;
}

}  // namespace

// bare_status FILE NODES FIRST_BASE KEYS_APART BYTES
int main(int argc, char** argv) {
  if (argc != 6 || read_all(argv[1]) == 0) return 1;
  const int nodes = std::atoi(argv[2]);
  for (int node = 0; node < nodes; ++node) {
    const int base = std::atoi(argv[3]) + node * std::atoi(argv[4]);
    for (const int offset : {1, 2, 3, 4, 5, 7}) look_at_segment(base + offset, offset != 7);
    look_at_set(base + 5);
  }
  const std::string output(std::strtoul(argv[5], nullptr, 10), 'x');
  return write(STDOUT_FILENO, output.data(), output.size()) < 0 ? 1 : 0;
}
