#pragma once

#include <sys/stat.h>

#include <memory>

#include "base/Mutex.h"
#include "platform/LocalSocket.h"
#include "platform/linux/posix/FileDescriptor.h"
#include "platform/linux/posix/IoThread.h"

namespace quillbeam {

/// Whether the process at the other end of a connected socket belongs to our user.
bool isOwnPeer(const FileDescriptor& socket);

/// Takes connections on the I/O thread and hands them to `accepted` on the queue.
class UnixAcceptor final : public IoSource, public std::enable_shared_from_this<UnixAcceptor> {
 public:
  UnixAcceptor(IoThread& io, FileDescriptor socket, DispatchQueue& queue, LocalSockets::Accepted accepted);

  void start();
  /// On the queue: nothing is handed over any more.
  void stop();

  void ready(std::uint32_t events) override;

 private:
  /// Touched on the queue only.
  struct Receiver {
    LocalSockets::Accepted accepted;
    bool alive = true;
  };
  bool acceptOne();
  void turnAwayOne();

  IoThread& io_;
  FileDescriptor socket_;  // I/O thread only
  FileDescriptor spare_;   // I/O thread only
  Mutex mutex_;
  DispatchQueue* queue_ GUARDED_BY(mutex_);
  std::shared_ptr<Receiver> receiver_ GUARDED_BY(mutex_);
};

class UnixListener final : public LocalListener {
 public:
  /// `socketFile` is the file that was made for the socket: only that one is removed in the end.
  UnixListener(std::shared_ptr<UnixAcceptor> acceptor, Path path, const struct stat& socketFile)
      : acceptor_(std::move(acceptor)), path_(std::move(path)), socketFile_(socketFile) {}
  ~UnixListener() override;

 private:
  std::shared_ptr<UnixAcceptor> acceptor_;
  Path path_;
  struct stat socketFile_;
};

}  // namespace quillbeam
