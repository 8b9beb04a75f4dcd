#pragma once

#include "platform/linux/x11/I420Picture.h"
#include "platform/linux/x11/ScreenSource.h"

namespace quillbeam {

/// A display that exists nowhere, for streams that are wanted for their sound: black, and never anything else. Costs no
/// display server and no reading of pixels.
class ScriptedScreen final : public ScreenSource {
 public:
  /// What no display of a server is called.
  static constexpr std::uint32_t displayId = 0;
  static constexpr int side = 2;

  /// The size of its pictures; both even.
  ScriptedScreen(int width, int height);

  Result<ScreenState> poll() override;
  Result<std::shared_ptr<const PixelBuffer>> grab() override;

 private:
  std::shared_ptr<const PixelBuffer> picture_;
  bool wasShown_ = false;
};

}  // namespace quillbeam
