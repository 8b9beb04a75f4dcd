#pragma once

#include "platform/LocalSocket.h"
#include "platform/linux/posix/IoThread.h"

namespace quillbeam {

/// Stream sockets of the file system's name space, served by one I/O thread. Connections and listeners are started,
/// closed and destroyed on the queue they were made with, and before this object.
class UnixSockets final : public LocalSockets {
 public:
  Result<std::unique_ptr<LocalListener>> listen(const Path& path, DispatchQueue& queue, Accepted accepted) override;
  Result<std::unique_ptr<LocalConnection>> connect(const Path& path, DispatchQueue& queue) override;

 private:
  IoThread io_;
};

}  // namespace quillbeam
