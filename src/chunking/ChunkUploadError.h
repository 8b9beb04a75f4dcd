#pragma once

#include <optional>

#include "platform/Files.h"

namespace quillbeam {

/// A recording is complete on this machine, its upload is not.
enum class ChunkUploadError { uploadFailed };
std::string describe(ChunkUploadError error);
constexpr std::string_view errorDomain(ChunkUploadError) { return "ChunkUploadError"; }

/// Carries the underlying error, whose description is its own, and, as "localBackupPath" in the payload, where the
/// local recording lies.
Error chunkUploadError(Error underlying, const std::optional<Path>& localBackupPath);

}  // namespace quillbeam
