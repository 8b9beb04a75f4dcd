#pragma once

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace quillbeam::test {

/// What a shell command prints; standard error goes nowhere.
inline std::string outputOf(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return output;
  char buffer[4096];
  for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, got);
  ::pclose(pipe);
  return output;
}

inline std::vector<double> numbersOf(const std::string& text) {
  std::vector<double> numbers;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('-') || (line[0] >= '0' && line[0] <= '9')) numbers.push_back(std::stod(line));
  }
  return numbers;
}

/// What ffprobe says about `entries` ("stream=codec_name", …), one value per line; `options` choose streams and the
/// like.
inline std::string probed(const std::string& path, const std::string& entries, const std::string& options = "") {
  return outputOf("ffprobe -v error " + options + " -show_entries " + entries + " -of csv=p=0 '" + path + "'");
}

/// Everything that decoding the whole file complains about; empty for a sound file.
inline std::string decodingErrors(const std::string& path) {
  return outputOf("ffmpeg -v warning -i '" + path + "' -f null - 2>&1");
}

/// One sound track, decoded, as mono 32-bit floats at its own rate; starts at the track's time zero.
inline std::vector<float> decodedSound(const std::string& path, int track) {
  const std::string raw =
      outputOf("ffmpeg -v error -i '" + path + "' -map 0:a:" + std::to_string(track) + " -ac 1 -f f32le -");
  std::vector<float> samples(raw.size() / sizeof(float));
  raw.copy(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(float));
  return samples;
}

}  // namespace quillbeam::test
