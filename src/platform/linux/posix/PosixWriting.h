#pragma once

#include <sys/types.h>

#include "platform/Files.h"
#include "platform/linux/posix/FileDescriptor.h"

namespace quillbeam {

/// ::open with O_CLOEXEC, repeated when a signal comes between.
Result<FileDescriptor> openFile(const Path& path, int flags, mode_t mode = 0600);
/// Every byte, however often the system takes only some. `path` is for the error's text.
Result<void> writeAll(const FileDescriptor& file, const ByteChain& bytes, const Path& path);
Result<Bytes> readAll(const FileDescriptor& file, const Path& path);
/// Waits until the file's content is on the device. A failure means that the content may be lost although a second
/// call would succeed: the file has to be given up.
Result<void> syncContent(const FileDescriptor& file, const Path& path);
/// Waits until the entries of the directory are on the device.
Result<void> syncDirectory(const Path& directory);

}  // namespace quillbeam
