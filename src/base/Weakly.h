#pragma once

#include <memory>
#include <utility>

namespace quillbeam {

/// Base of objects that hand out closures which may outlive them. The closures and the destructor must run on the same
/// queue; then `alive` can neither change while a closure runs nor be read after the fact.
class WeaklyHeld {
 public:
  WeaklyHeld() = default;
  WeaklyHeld(const WeaklyHeld&) = delete;
  WeaklyHeld& operator=(const WeaklyHeld&) = delete;
  ~WeaklyHeld() { *alive_ = false; }

  std::shared_ptr<const bool> aliveFlag() const { return alive_; }

 private:
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

/// `queue_.async(weakly(this, [](Uploader& self) { self.drain(); }));` — does nothing once `self` is gone.
template <class Self, class Function>
auto weakly(Self* self, Function function) {
  return [alive = self->aliveFlag(), self, function = std::move(function)](auto&&... arguments) mutable {
    if (*alive) function(*self, std::forward<decltype(arguments)>(arguments)...);
  };
}

}  // namespace quillbeam
