#include "RequestLog.h"

#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace quillbeam::service {

namespace {

std::string timeText(std::chrono::system_clock::time_point time) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32];
  const std::size_t size = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + size, sizeof(text) - size, ".%03dZ", static_cast<int>(milliseconds % 1000));
  return text;
}

std::int64_t millisecondsSince(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - time).count();
}

}  // namespace

void RequestLog::add(const LoggedRequest& request) {
  nlohmann::ordered_json line{{"time", timeText(request.time)}, {"method", request.method}, {"path", request.path}};
  line["endpoint"] = request.endpoint ? nlohmann::ordered_json(nameOf(*request.endpoint)) : nullptr;
  line["part"] = request.part > 0 ? nlohmann::ordered_json(request.part) : nullptr;
  line["status"] = request.status ? nlohmann::ordered_json(*request.status) : nullptr;
  line["bytes"] = request.bytes;
  line["fault"] = request.fault.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(request.fault);
  line["milliseconds"] = millisecondsSince(request.time);
  const std::string text = line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
  const std::lock_guard lock(mutex_);
  file_.write(text);
}

}  // namespace quillbeam::service
