#include "platform/linux/posix/SystemLogs.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace quillbeam {

namespace {

/// Longer texts would need a file handed over instead of a datagram; nobody reads a log line of this size.
constexpr std::size_t longestText = 32 * 1024;

std::string_view name(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return "debug";
    case LogLevel::info:
      return "info";
    case LogLevel::notice:
      return "notice";
    case LogLevel::error:
      return "error";
  }
  std::unreachable();
}

/// The priorities of syslog(3).
char priority(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return '7';
    case LogLevel::info:
      return '6';
    case LogLevel::notice:
      return '5';
    case LogLevel::error:
      return '3';
  }
  std::unreachable();
}

/// The form that allows newlines in the value: key, newline, size as 64 bits little-endian, value, newline.
void addField(std::string& datagram, std::string_view key, std::string_view value) {
  datagram.append(key).push_back('\n');
  for (int shift = 0; shift < 64; shift += 8)
    datagram.push_back(static_cast<char>(std::uint64_t{value.size()} >> shift));
  datagram.append(value).push_back('\n');
}

}  // namespace

std::unique_ptr<JournalLog> JournalLog::create(LogLevel level, const Path& path) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (path.size() >= sizeof address.sun_path) return nullptr;
  std::ranges::copy(path, address.sun_path);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket.isOpen()) return nullptr;
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return nullptr;
  return std::unique_ptr<JournalLog>(new JournalLog(std::move(socket), level));
}

void JournalLog::write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view text) {
  std::string datagram;
  addField(datagram, "MESSAGE", text.substr(0, longestText));
  addField(datagram, "PRIORITY", std::string(1, priority(level)));
  addField(datagram, "SYSLOG_IDENTIFIER", "quillbeam");
  addField(datagram, "QUILLBEAM_SUBSYSTEM", subsystem);
  addField(datagram, "QUILLBEAM_CATEGORY", category);
  ::send(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void StderrLog::write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view text) {
  std::string line(name(level));
  line.append(" ").append(subsystem).append(".").append(category).append(": ").append(text);
  output_.print(line);
}

}  // namespace quillbeam
