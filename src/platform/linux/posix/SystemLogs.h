#pragma once

#include <memory>

#include "platform/Logging.h"
#include "platform/Places.h"
#include "platform/linux/posix/FileDescriptor.h"

namespace quillbeam {

/// The journal, through its native protocol: one datagram per line, with subsystem and category as fields of their
/// own. A line that the journal has no room for right now is dropped rather than waited for.
class JournalLog final : public SystemLog {
 public:
  /// nullptr where no journal listens.
  static std::unique_ptr<JournalLog> create(LogLevel level, const Path& socket = "/run/systemd/journal/socket");

  bool isEnabled(LogLevel level) const override { return level >= level_; }
  void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view text) override;

 private:
  JournalLog(FileDescriptor socket, LogLevel level) : socket_(std::move(socket)), level_(level) {}
  FileDescriptor socket_;
  LogLevel level_;
};

/// Plain lines "error recording.upload: text" to standard error (or whatever `output` prints to).
class StderrLog final : public SystemLog {
 public:
  StderrLog(StandardOutput& output, LogLevel level) : output_(output), level_(level) {}

  bool isEnabled(LogLevel level) const override { return level >= level_; }
  void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view text) override;

 private:
  StandardOutput& output_;
  LogLevel level_;
};

}  // namespace quillbeam
