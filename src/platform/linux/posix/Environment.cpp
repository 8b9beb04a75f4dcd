#include "platform/linux/posix/Environment.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <utility>

#include "platform/linux/posix/PosixFiles.h"

namespace quillbeam {

namespace {

std::optional<Path> absolutePath(const Environment& environment, const char* name) {
  auto path = environment(name);
  if (!path || !path->starts_with('/')) return std::nullopt;
  while (path->size() > 1 && path->ends_with('/')) path->pop_back();
  return path;
}

Path homeDirectory(const Environment& environment) {
  if (auto home = absolutePath(environment, "HOME")) return *std::move(home);
  std::array<char, 4096> buffer;
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
  return found != nullptr ? Path(found->pw_dir) : Path("/");
}

/// The value of one line `XDG_VIDEOS_DIR="$HOME/Videos"`, which is a shell assignment with `"`, `\` and `$HOME`.
std::optional<Path> quotedPath(std::string_view text, const Path& home) {
  if (!text.starts_with('"')) return std::nullopt;
  text.remove_prefix(1);
  Path path;
  if (text.starts_with("$HOME")) {
    path = home;
    text.remove_prefix(5);
  }
  while (!text.empty() && text.front() != '"') {
    if (text.front() == '\\' && text.size() > 1) text.remove_prefix(1);
    path += text.front();
    text.remove_prefix(1);
  }
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  if (text.empty() || !path.starts_with('/')) return std::nullopt;
  return path;
}

std::optional<Path> videosDirectory(const Path& configuration, const Path& home) {
  constexpr std::string_view key = "XDG_VIDEOS_DIR=";
  const Result<Bytes> file = PosixFiles().read(joined(configuration, "user-dirs.dirs"));
  if (!file) return std::nullopt;
  std::optional<Path> videos;
  std::string_view rest(reinterpret_cast<const char*>(file->data()), file->size());
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.starts_with(key)) videos = quotedPath(line.substr(key.size()), home);
  }
  return videos;
}

std::optional<int> number(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

}  // namespace

std::optional<std::string> processEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

Places xdgPlaces(const Environment& environment) {
  const Path home = homeDirectory(environment);
  const auto place = [&](const char* variable, const char* below) {
    return absolutePath(environment, variable).value_or(joined(home, below));
  };
  Places places;
  places.applicationSupport = place("XDG_DATA_HOME", ".local/share");
  places.caches = place("XDG_CACHE_HOME", ".cache");
  places.preferences = place("XDG_CONFIG_HOME", ".config");
  const auto scratch = absolutePath(environment, "TMPDIR");
  places.temporary = scratch.value_or(joined(joined(places.caches, bundleIdentifier), "tmp"));
  places.movies = videosDirectory(places.preferences, home).value_or(joined(home, "Videos"));
  // The path of a socket has room for about a hundred characters: not among the caches.
  places.runtime = absolutePath(environment, "XDG_RUNTIME_DIR")
                       .value_or(joined(scratch.value_or("/tmp"), "quillbeam-" + std::to_string(::geteuid())));
  return places;
}

SystemVersion systemVersionFromEnvironment(const Environment& environment) {
  const std::string text = environment("QUILLBEAM_SYSTEM_VERSION").value_or("");
  const std::size_t dot = text.find('.');
  const std::optional<int> major = number(std::string_view(text).substr(0, dot));
  const std::optional<int> minor = dot == std::string::npos ? 0 : number(std::string_view(text).substr(dot + 1));
  return major && minor ? SystemVersion{*major, *minor} : SystemVersion();
}

LogLevel logLevelFromEnvironment(const Environment& environment) {
  constexpr std::array<std::pair<std::string_view, LogLevel>, 4> levels{
      {{"debug", LogLevel::debug}, {"info", LogLevel::info}, {"notice", LogLevel::notice}, {"error", LogLevel::error}}};
  const std::string name = environment("QUILLBEAM_LOG").value_or("");
  for (const auto& [known, level] : levels) {
    if (known == name) return level;
  }
  return LogLevel::notice;
}

}  // namespace quillbeam
