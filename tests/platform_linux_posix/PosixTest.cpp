#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/linux/posix/LinuxDispatch.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/linux/posix/SignalWatcher.h"
#include "platform/linux/posix/UnixSockets.h"
#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

mode_t modeOf(const Path& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

sockaddr_un addressOf(const Path& path) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

int bindAndListen(const Path& path) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = addressOf(path);
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return -1;
  return ::listen(socket, 1) == 0 ? socket : -1;
}

/// Runs `child` in a process of its own, which says when it is ready and ends when this goes.
class Child {
 public:
  template <class Body>
  explicit Child(Body body) {
    std::array<int, 2> ready;
    EXPECT_EQ(::pipe2(ready.data(), O_CLOEXEC), 0);
    process_ = ::fork();
    if (process_ == 0) {
      const char answer = body() ? 'y' : 'n';
      if (::write(ready[1], &answer, 1) != 1) ::_exit(1);
      ::pause();
      ::_exit(0);
    }
    ::close(ready[1]);
    char answer = 0;
    ready_ = ::read(ready[0], &answer, 1) == 1 && answer == 'y';
    ::close(ready[0]);
  }
  ~Child() { end(); }

  bool isReady() const { return ready_; }
  void end() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  pid_t process_ = -1;
  bool ready_ = false;
};

TEST(PosixFiles, whatItMakesIsPrivate) {
  const TestDirectory directory;
  PosixFiles files;
  const Path base = joined(directory.path(), "a/b");
  ASSERT_TRUE(files.createDirectories(base));
  ASSERT_TRUE(files.writeAtomically(joined(base, "atomic"), ByteChain()));
  ASSERT_TRUE(files.writeNew(joined(base, "new"), ByteChain(), Durability::cached));
  ASSERT_TRUE(files.append(joined(base, "appended"), ByteChain(), Durability::cached));
  EXPECT_EQ(modeOf(base), 0700u);
  EXPECT_EQ(modeOf(joined(directory.path(), "a")), 0700u);
  for (const char* name : {"atomic", "new", "appended"}) EXPECT_EQ(modeOf(joined(base, name)), 0600u) << name;
}

TEST(PosixFiles, aDiskThatFillsUpHalfWayLeavesTheOldContentOnly) {
  const TestDirectory directory;
  const Path path = joined(directory.path(), "state");
  // A size limit cuts a write short exactly as a full disk does. In a child: the limit can't be taken back.
  Child child([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    PosixFiles files;
    bool good = files.writeAtomically(path, ByteChain(Bytes(100, 'o'))).has_value();
    const rlimit limit{.rlim_cur = 5000, .rlim_max = 5000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    good = good && files.writeAtomically(path, ByteChain(Bytes(10'000, 'n'))).error().code() == EFBIG;
    good = good && files.append(path, ByteChain(Bytes(10'000, 'n')), Durability::cached).error().code() == EFBIG;
    const Path fresh = joined(directory.path(), "fresh");
    good = good && !files.writeNew(fresh, ByteChain(Bytes(10'000, 'n')), Durability::durable);
    return good && files.read(path).value_or(Bytes()) == Bytes(100, 'o');
  });
  EXPECT_TRUE(child.isReady());
  EXPECT_EQ(PosixFiles().list(directory.path()).value(), std::vector<std::string>{"state"});
}

TEST(PosixFiles, aLockEndsWithItsProcessHoweverThatEnds) {
  const TestDirectory directory;
  const Path path = joined(directory.path(), "lock");
  Child holder([&] {
    auto lock = PosixFiles().lock(path, "child");
    return lock && lock->release() != nullptr;
  });
  ASSERT_TRUE(holder.isReady());
  EXPECT_TRUE(PosixFiles().lock(path, "parent").error().is(FilesError::locked));
  holder.end();
  EXPECT_TRUE(PosixFiles().lock(path, "parent"));
}

TEST(UnixSockets, theSocketFileIsPrivateReplacesAStaleOneAndGoesWithItsListener) {
  const TestDirectory directory;
  const Path path = joined(directory.path(), "socket");
  ::close(bindAndListen(path));
  LinuxDispatch dispatch;
  UnixSockets sockets;
  {
    const auto listener = sockets.listen(path, dispatch.main(), [](auto) {});
    ASSERT_TRUE(listener) << listener.error().description();
    EXPECT_EQ(modeOf(path), 0600u);
  }
  EXPECT_FALSE(PosixFiles().exists(path));
}

TEST(UnixSockets, neverReplacesAFileThatIsNoSocket) {
  const TestDirectory directory;
  const Path path = joined(directory.path(), "precious");
  std::ofstream(path) << "precious";
  LinuxDispatch dispatch;
  UnixSockets sockets;
  EXPECT_EQ(sockets.listen(path, dispatch.main(), [](auto) {}).error().code(), EEXIST);
  EXPECT_TRUE(PosixFiles().exists(path));
}

TEST(UnixSockets, aListenerDoesNotRemoveASuccessorsFile) {
  const TestDirectory directory;
  const Path path = joined(directory.path(), "socket");
  LinuxDispatch dispatch;
  UnixSockets sockets;
  auto first = sockets.listen(path, dispatch.main(), [](auto) {});
  ASSERT_EQ(::unlink(path.c_str()), 0);
  const auto second = sockets.listen(path, dispatch.main(), [](auto) {});
  ASSERT_TRUE(second);
  first->reset();
  EXPECT_TRUE(PosixFiles().exists(path));
}

TEST(UnixSockets, turnsAwayProcessesOfOtherUsersAtBothEnds) {
  if (::geteuid() != 0) GTEST_SKIP() << "NEEDS ROOT: becomes another user to be turned away";
  constexpr uid_t nobody = 65534;
  const TestDirectory directory;
  ASSERT_EQ(::chmod(directory.path().c_str(), 0777), 0);
  const Path theirs = joined(directory.path(), "theirs");
  const Path ours = joined(directory.path(), "ours");
  Child listener([&] { return ::setuid(nobody) == 0 && bindAndListen(theirs) >= 0; });
  ASSERT_TRUE(listener.isReady());
  int accepted = 0;
  LinuxDispatch dispatch;
  UnixSockets sockets;
  EXPECT_TRUE(sockets.connect(theirs, dispatch.main()).error().is(LocalSocketError::foreignPeer));

  const auto listening = sockets.listen(ours, dispatch.main(), [&](auto) { ++accepted; });
  ASSERT_TRUE(listening);
  ASSERT_EQ(::chmod(ours.c_str(), 0666), 0);  // even if someone opened it up
  Child visitor([&] {
    if (::setuid(nobody) != 0) return false;
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(ours);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return false;
    char byte = 0;
    return ::read(socket, &byte, 1) <= 0;  // closed without a word
  });
  EXPECT_TRUE(visitor.isReady());
  dispatch.drainMain();
  EXPECT_EQ(accepted, 0);
}

TEST(SignalWatcher, turnsSignalsIntoClosuresOnMainAlsoThoseThatCameEarly) {
  std::vector<int> received;
  SignalWatcher watcher;
  ::kill(::getpid(), SIGHUP);
  LinuxDispatch dispatch;
  watcher.deliver(dispatch.main(), [&](int signal) {
    EXPECT_TRUE(dispatch.main().isCurrent());
    received.push_back(signal);
    if (received.size() == 2) dispatch.stopMain();
    if (received.size() == 1) ::kill(::getpid(), SIGTERM);
  });
  dispatch.runMain();
  EXPECT_EQ(received, (std::vector<int>{SIGHUP, SIGTERM}));
}

}  // namespace
}  // namespace quillbeam
