// Preloaded into a program: makes its n-th allocation fail (FAILING_MALLOC_AT), or that one and all
// later ones (FAILING_MALLOC_ON), and creates the file FAILING_MALLOC_MARK when it does.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

extern "C" {

void* __libc_malloc(std::size_t size);

void* malloc(std::size_t size) {
  static int count = 0;
  static const char* const at = getenv("FAILING_MALLOC_AT");
  static const bool on = getenv("FAILING_MALLOC_ON") != nullptr;
  static const int target = at == nullptr ? 0 : static_cast<int>(std::strtol(at, nullptr, 10));
  ++count;
  if (target == 0 || count < target || (count > target && !on)) return __libc_malloc(size);
  if (count == target) close(open(getenv("FAILING_MALLOC_MARK"), O_WRONLY | O_CREAT, 0600));
  errno = ENOMEM;
  return nullptr;
}
}
