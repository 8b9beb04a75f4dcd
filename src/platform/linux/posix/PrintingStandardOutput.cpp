#include "platform/linux/posix/PrintingStandardOutput.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

#include "platform/linux/posix/SignalBlocker.h"

namespace quillbeam {

namespace {

constexpr std::size_t mostLines = 4096;
constexpr std::size_t mostBytes = 1024 * 1024;

/// Waits in `poll`, never in `write`: a pipe that polls writable takes PIPE_BUF bytes without blocking.
bool writeLine(int descriptor, std::string_view line) {
  while (!line.empty()) {
    pollfd writable{.fd = descriptor, .events = POLLOUT, .revents = 0};
    if (::poll(&writable, 1, -1) < 0 && errno != EINTR) return false;
    if ((writable.revents & (POLLERR | POLLNVAL)) != 0) return false;
    if ((writable.revents & POLLOUT) == 0) continue;
    const ssize_t written = ::write(descriptor, line.data(), std::min<std::size_t>(line.size(), PIPE_BUF));
    if (written < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (written > 0) line.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

struct PrintingStandardOutput::Pipe {
  enum class State { open, closing, done };

  explicit Pipe(int descriptor) : descriptor(descriptor) {}
  void add(std::string_view line);
  void pump();
  std::string takeLocked();

  const int descriptor;
  std::mutex mutex;  // guards everything below
  std::condition_variable changed;
  std::deque<std::string> lines;
  std::size_t bytes = 0;
  std::size_t dropped = 0;
  State state = State::open;
};

void PrintingStandardOutput::Pipe::add(std::string_view line) {
  std::lock_guard lock(mutex);
  if (state != State::open) return;
  // Once lines are missing, none goes in until the note about them is out: the gap stays where it happened.
  if (dropped > 0 || lines.size() >= mostLines || bytes + line.size() > mostBytes) {
    ++dropped;
    return;
  }
  bytes += line.size() + 1;
  lines.emplace_back(std::string(line) + "\n");
  changed.notify_one();
}

std::string PrintingStandardOutput::Pipe::takeLocked() {
  if (lines.empty()) {
    return "(" + std::to_string(std::exchange(dropped, 0)) + " lines were dropped: the reader was too slow)\n";
  }
  std::string line = std::move(lines.front());
  lines.pop_front();
  bytes -= line.size();
  return line;
}

void PrintingStandardOutput::Pipe::pump() {
  std::unique_lock lock(mutex);
  while (true) {
    changed.wait(lock, [this] { return !lines.empty() || dropped > 0 || state != State::open; });
    if (lines.empty() && dropped == 0) break;
    const std::string line = takeLocked();
    lock.unlock();
    const bool written = writeLine(descriptor, line);
    lock.lock();
    if (!written) break;
  }
  state = State::done;
  changed.notify_all();
}

PrintingStandardOutput::PrintingStandardOutput(int descriptor, Duration patience)
    : pipe_(std::make_shared<Pipe>(descriptor)), patience_(patience) {
  const SignalBlocker blocked;  // SIGPIPE included: the write says EPIPE instead
  writer_ = std::thread([pipe = pipe_] { pipe->pump(); });
}

PrintingStandardOutput::~PrintingStandardOutput() {
  bool finished = false;
  {
    std::unique_lock lock(pipe_->mutex);
    if (pipe_->state == Pipe::State::open) pipe_->state = Pipe::State::closing;
    pipe_->changed.notify_all();
    finished = pipe_->changed.wait_for(lock, patience_, [this] { return pipe_->state == Pipe::State::done; });
  }
  if (finished) {
    writer_.join();
  } else {
    writer_.detach();
  }
}

void PrintingStandardOutput::print(std::string_view line) { pipe_->add(line); }

}  // namespace quillbeam
