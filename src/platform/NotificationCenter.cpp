#include "platform/NotificationCenter.h"

namespace quillbeam {

NotificationCenter::Observation::~Observation() {
  center_.main_.assertCurrent();
  center_.observers_.erase(id_);
}

void NotificationCenter::post(std::string_view name, const ValueMap& userInfo) {
  main_.assertCurrent();
  std::vector<std::uint64_t> matching;
  for (const auto& [id, entry] : observers_) {
    if (entry.name == name) matching.push_back(id);
  }
  for (const std::uint64_t id : matching) {
    const auto entry = observers_.find(id);
    if (entry == observers_.end()) continue;  // an earlier observer took this one away
    const std::shared_ptr<Observer> observer = entry->second.observer;
    (*observer)(userInfo);
  }
}

std::unique_ptr<NotificationCenter::Observation> NotificationCenter::observe(std::string_view name, Observer observer) {
  main_.assertCurrent();
  const std::uint64_t id = nextId_++;
  observers_.emplace(id, Entry{std::string(name), std::make_shared<Observer>(std::move(observer))});
  return std::make_unique<Observation>(*this, id);
}

}  // namespace quillbeam
