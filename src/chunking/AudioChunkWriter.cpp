#include "chunking/AudioChunkWriter.h"

#include <functional>
#include <utility>

#include "base/Text.h"
#include "chunking/MixTimeline.h"
#include "chunking/MonoSamples.h"
#include "platform/media/SegmentWriter.h"

namespace quillbeam {

namespace {

const MediaTime chunkDuration{5, 1};
constexpr AudioSettings mixedAudioSettings{.sampleRate = mixSampleRate, .channels = 1, .bitRate = 96'000};

SegmentStream::Recording audioRecording(SegmentStream::Recording recording) {
  recording.type = SegmentBackupRecordingType::audioOnly;
  recording.contentType = "audio/x-m4a";
  recording.localFile.reset();
  return recording;
}

}  // namespace

/// What belongs to the mixer's queue: the mix, its baseline, the writer that takes it.
class AudioChunkWriter::Sound {
 public:
  /// How the world outside hears of it.
  struct Events {
    SegmentSink segmentSink;
    std::function<void()> begun;  ///< on the mixer's queue
  };

  Sound(Platform& platform, const Logger& logger, DispatchQueue& mixerQueue, AudioSources sources, Events events)
      : platform_(platform), logger_(logger), events_(std::move(events)), mixer_(mixerQueue, sources) {}

  void append(const SampleBuffer& sample, AudioSource source);
  /// Mixes all that is left; nullptr when there never was a writer.
  SegmentWriter* finish();

 private:
  bool setUp();
  Result<void> makeWriter();

  Platform& platform_;
  const Logger& logger_;
  const Events events_;
  std::unique_ptr<SegmentWriter> writer_;
  AssetWriterInput* audioInput_ = nullptr;
  AudioMixer mixer_;
  std::optional<MediaTime> firstSampleTime_;
  bool setUpFailed_ = false;
  bool isFinished_ = false;
};

void AudioChunkWriter::Sound::append(const SampleBuffer& sample, AudioSource source) {
  if (isFinished_ || !sample.isValid()) return;
  if (!writer_ && !setUp()) return;
  if (writer_->status() != AssetWriter::Status::writing) return;
  auto samples = mixSamples(sample);
  if (!samples) {
    return logger_.error("Failed to extract PCM from " + std::string(toText(source)) + " audio sample; dropping");
  }
  if (!firstSampleTime_) firstSampleTime_ = sample.presentationTime();
  AudioChunk chunk{.data = *std::move(samples)};
  chunk.startFrame = wholeFrames(*firstSampleTime_, sample.presentationTime());
  mixer_.queue(source).append(std::move(chunk));
  mixer_.drain(*audioInput_);
}

bool AudioChunkWriter::Sound::setUp() {
  if (setUpFailed_) return false;
  if (const auto made = makeWriter(); !made) {
    logger_.error("Failed to start writing: " + made.error().description());
    setUpFailed_ = true;
    return false;
  }
  writer_->startSession(MediaTime::zero());
  logger_.info("✅ Audio-only fMP4 writer initialized (segment interval: " + fixedPoint(chunkDuration.seconds(), 6) +
               "s)");
  events_.begun();
  return true;
}

Result<void> AudioChunkWriter::Sound::makeWriter() {
  TRY(auto writer, platform_.mediaWriters.makeSegmentWriter(
                       {.segmentInterval = chunkDuration, .sink = events_.segmentSink, .movieFile = std::nullopt}));
  audioInput_ = writer->addAudioInput(mixedAudioSettings);
  if (audioInput_ == nullptr) return AssetWriterError::cannotEncode;
  if (!writer->startWriting()) return writer->error().value_or(AssetWriterError::cannotEncode);
  writer_ = std::move(writer);
  return success;
}

SegmentWriter* AudioChunkWriter::Sound::finish() {
  isFinished_ = true;
  if (!writer_) return nullptr;
  mixer_.drainAll(*audioInput_);
  audioInput_->markAsFinished();
  if (firstSampleTime_) writer_->endSession(MediaTime(mixer_.currentMixFrame(), mixSampleRate));
  return writer_.get();
}

AudioChunkWriter::AudioChunkWriter(Platform& platform, StoredRecordings& storedRecordings,
                                   NotificationCenter& notifications, Options options)
    : platform_(platform),
      logger_(platform.systemLog, "com.quillbeam.recorder", "AudioChunkWriter"),
      stream_(platform, storedRecordings, notifications, logger_, audioSegmentPolicy(),
              audioRecording(std::move(options.recording))),
      mixerQueue_(platform.dispatch.makeSerialQueue("com.quillbeam.audio.mixer")) {
  DispatchQueue& main = platform.dispatch.main();
  auto begun = weakly(this, [](AudioChunkWriter& self) { self.stream_.begin(); });
  Sound::Events events{.segmentSink = stream_.sink(),
                       .begun = [&main, begun] { main.async([begun]() mutable { begun(); }); }};
  sound_ = std::make_unique<Sound>(platform, logger_, *mixerQueue_, options.sources, std::move(events));
}

AudioChunkWriter::~AudioChunkWriter() = default;

void AudioChunkWriter::setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate) {
  stream_.setUploadDelegate(std::move(delegate));
}

void AudioChunkWriter::appendAudio(SampleBuffer sample) { append(std::move(sample), AudioSource::system); }
void AudioChunkWriter::appendMicrophoneAudio(SampleBuffer sample) { append(std::move(sample), AudioSource::mic); }

void AudioChunkWriter::append(SampleBuffer sample, AudioSource source) {
  mixerQueue_->async([this, sample = std::move(sample), source] { sound_->append(sample, source); });
}

Task<void> AudioChunkWriter::finishRecording() {
  CO_TRY_VOID(co_await finishWriting());
  co_return co_await stream_.finishUpload();
}

Task<void> AudioChunkWriter::finishWithoutUpload() {
  stream_.stopSending();
  co_return co_await finishWriting();
}

Task<void> AudioChunkWriter::finishWriting() {
  auto finish = [this]() -> Result<SegmentWriter*> { return sound_->finish(); };
  CO_TRY(SegmentWriter * writer, co_await runOn<SegmentWriter*>(*mixerQueue_, finish));
  if (writer == nullptr) co_return success;
  // The first buffer may have been the last closure there: its segments' stream begins before they end.
  CO_TRY_VOID(co_await drained(platform_.dispatch.main()));
  const auto written = co_await writer->finishWriting();
  if (!written) stream_.writerFailed(written.error());
  // All segments are delivered by now, but perhaps neither received on main nor on disk yet.
  CO_TRY_VOID(co_await drained(platform_.dispatch.main()));
  co_return co_await stream_.awaitHandled();
}

}  // namespace quillbeam
