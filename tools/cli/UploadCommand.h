#pragma once

#include <string>

#include "cli/Command.h"
#include "cli/ServiceOptions.h"
#include "cli/UploadRun.h"

namespace quillbeam::cli {

/// `quillbeam upload`: uploads any file, the way recordings are uploaded.
class UploadCommand final : public Command {
 public:
  explicit UploadCommand(CLI::App& program);
  ExitCode run() override;

 private:
  Task<ExitCode> upload(Platform& platform, Interrupts& interrupts);
  Task<ExitCode> uploadThrough(Platform& platform, Interrupts& interrupts, const NativeHost& host);
  UploadRun::Request request() const;
  ExitCode report(const UploadFigures& figures, const UploadRun& run, const NativeHost& host) const;
  std::string complaint(const UploadFigures& figures, const NativeHost& host) const;

  ServiceOptions service_;
  std::string file_;
  std::string teamId_;
  std::string folderId_;
  std::string name_;
  std::string contentType_;
  bool asJson_ = false;
};

/// The media type that a file's extension stands for; "application/octet-stream" for unknown ones.
std::string contentTypeOf(const Path& file);

}  // namespace quillbeam::cli
