#pragma once

#include <memory>
#include <vector>

#include "base/ByteChain.h"
#include "base/Result.h"
#include "platform/linux/ffmpeg/EncodedPacket.h"
#include "platform/linux/ffmpeg/Mp4Box.h"

namespace quillbeam {

/// What a cut put out: whole boxes.
struct MuxedFragment {
  Bytes initialization;  ///< ftyp and moov; filled by the first cut only
  Bytes media;           ///< moof and mdat; empty when no packet came since the last cut
};

/// Packs coded packets into fragmented MP4: one initialization, then self-contained fragments that are cut when the
/// caller says so. Positions inside a fragment are relative to it, so it may be stored anywhere. Encoder delays (sound
/// priming, picture reordering) are undone by edit lists in the initialization, which is why it can be written only
/// when every track that is to have one has had a packet. One thread at a time.
class FragmentMuxer {
 public:
  static Result<std::unique_ptr<FragmentMuxer>> create(const std::vector<TrackFormat>& tracks);
  ~FragmentMuxer();

  /// Takes the packet into the fragment that is being built. Packets of a track come in decoding order, with durations.
  Result<void> write(std::size_t track, const EncodedPacket& packet);
  /// Ends the fragment.
  Result<MuxedFragment> cut();

 private:
  FragmentMuxer() = default;
  Result<void> open(const std::vector<TrackFormat>& tracks);
  /// What came out since, only boxes that belong there.
  Result<Bytes> flush(bool (*belongs)(BoxType type));
  static int receive(void* self, std::uint8_t* bytes, int size);

  AVFormatContext* context_ = nullptr;
  std::vector<std::int32_t> timescales_;
  Bytes output_;
  std::size_t pendingBytes_ = 0;  ///< of packets since the last cut
  bool initializationWritten_ = false;
};

}  // namespace quillbeam
