#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Value.h"
#include "platform/Dispatch.h"

namespace quillbeam {

/// Notifications inside the process: named, with a map of user information. Posted, observed and unobserved on the main
/// queue; observers run at once, inside `post`, in the order in which they were added.
class NotificationCenter {
 public:
  using Observer = std::function<void(const ValueMap& userInfo)>;

  /// Stops observing when destroyed. Must not outlive the centre.
  class Observation {
   public:
    Observation(NotificationCenter& center, std::uint64_t id) : center_(center), id_(id) {}
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
    ~Observation();

   private:
    NotificationCenter& center_;
    std::uint64_t id_;
  };

  explicit NotificationCenter(DispatchQueue& main) : main_(main) {}

  void post(std::string_view name, const ValueMap& userInfo);
  [[nodiscard]] std::unique_ptr<Observation> observe(std::string_view name, Observer observer);

 private:
  struct Entry {
    std::string name;
    std::shared_ptr<Observer> observer;
  };

  DispatchQueue& main_;
  std::map<std::uint64_t, Entry> observers_ CONFINED_TO(main_);
  std::uint64_t nextId_ CONFINED_TO(main_) = 1;
};

}  // namespace quillbeam
