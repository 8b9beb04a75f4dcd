#include "platform/linux/posix/UrandomRandom.h"

#include <sys/random.h>

#include <cerrno>

#include "base/Check.h"

namespace quillbeam {

Uuid UrandomRandom::uuid() {
  Uuid::Bytes bytes;
  ssize_t count = 0;
  do {
    count = ::getrandom(bytes.data(), bytes.size(), 0);
  } while (count < 0 && errno == EINTR);
  QB_CHECK(count == static_cast<ssize_t>(bytes.size()));  // so few bytes come whole once the kernel has booted
  return Uuid::fromRandom(bytes);
}

}  // namespace quillbeam
