#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace quillbeam::service {

/// What a request asks for.
enum class Endpoint { init, url, put, pulse, finalize, abort };

inline constexpr std::array<std::string_view, 6> endpointNames{"init", "url", "put", "pulse", "finalize", "abort"};

constexpr std::string_view nameOf(Endpoint endpoint) { return endpointNames[static_cast<std::size_t>(endpoint)]; }

constexpr std::optional<Endpoint> endpointNamed(std::string_view name) {
  for (std::size_t i = 0; i < endpointNames.size(); ++i) {
    if (endpointNames[i] == name) return static_cast<Endpoint>(i);
  }
  return std::nullopt;
}

}  // namespace quillbeam::service
