#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/ThreadAnnotations.h"
#include "base/Weakly.h"
#include "platform/Dispatch.h"
#include "platform/Files.h"
#include "platform/Logging.h"
#include "platform/UserDefaults.h"

namespace quillbeam {

/// Settings in one JSON file, read once and replaced atomically after changes, off the main queue; several changes in a
/// row cost one write. A file that can't be understood is set aside as "<path>.corrupt" and logged. The destructor
/// waits until the last change is written.
class JsonUserDefaults final : public UserDefaults, public WeaklyHeld {
 public:
  /// Reads the file; the directory it lies in is created when it is missing.
  JsonUserDefaults(Dispatch& dispatch, Files& files, SystemLog& log, Path path);
  ~JsonUserDefaults() override;

  Value get(std::string_view key) const override;
  void set(std::string_view key, Value value) override;

 private:
  void load() RUNS_ON(main_);
  void setAside(const Error& error);
  void scheduleWrite() RUNS_ON(main_);
  void write() RUNS_ON(main_);

  DispatchQueue& main_;
  Files& files_;
  const Logger log_;
  const Path path_;
  std::map<std::string, Value, std::less<>> values_ CONFINED_TO(main_);
  bool writePending_ CONFINED_TO(main_) = false;
  std::unique_ptr<DispatchQueue> disk_;  // its destructor runs the last write
};

}  // namespace quillbeam
