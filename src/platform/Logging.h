#pragma once

#include <string>
#include <string_view>

namespace quillbeam {

enum class LogLevel { debug, info, notice, error };

/// Lines that the recording path and the panels print: the system's own diagnostic lines. One call, one line; the
/// terminating newline is added here. Any thread; never blocks on a slow reader (a full pipe drops lines and says so
/// later). Not for capture or audio real-time threads.
class StandardOutput {
 public:
  virtual ~StandardOutput() = default;
  virtual void print(std::string_view line) = 0;
};

/// The structured system log (the journal where there is one, else standard error). Any thread.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual bool isEnabled(LogLevel level) const = 0;
  virtual void write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view text) = 0;
};

/// A class's own handle on the system log. The text is built only when the level is on.
class Logger {
 public:
  Logger(SystemLog& log, std::string_view subsystem, std::string_view category)
      : log_(log), subsystem_(subsystem), category_(category) {}

  void debug(std::string_view text) const { write(LogLevel::debug, text); }
  void info(std::string_view text) const { write(LogLevel::info, text); }
  void notice(std::string_view text) const { write(LogLevel::notice, text); }
  void error(std::string_view text) const { write(LogLevel::error, text); }
  template <class Build>
    requires requires(Build build) { std::string(build()); }
  void debug(Build build) const {
    if (log_.isEnabled(LogLevel::debug)) debug(std::string_view(std::string(build())));
  }

 private:
  void write(LogLevel level, std::string_view text) const {
    if (log_.isEnabled(level)) log_.write(level, subsystem_, category_, text);
  }
  SystemLog& log_;
  std::string subsystem_;
  std::string category_;
};

}  // namespace quillbeam
