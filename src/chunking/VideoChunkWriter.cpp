#include "chunking/VideoChunkWriter.h"

#include <chrono>
#include <tuple>
#include <utility>

#include "base/Text.h"

namespace quillbeam {

namespace {

using namespace std::chrono_literals;

const MediaTime chunkDuration{10, 1};
constexpr Duration memoryLogInterval = 30s;
constexpr std::int64_t videoBitRate = 2'000'000;
constexpr int sourceFrameRate = 24;
constexpr int keyFrameInterval = 48;
constexpr AudioSettings mixedAudioSettings{.sampleRate = 48'000, .channels = 1, .bitRate = 96'000};

std::string seconds(MediaTime time) { return fixedPoint(time.seconds(), 6); }

VideoSettings videoSettings(int width, int height) {
  return {.width = width,
          .height = height,
          .averageBitRate = videoBitRate,
          .expectedSourceFrameRate = sourceFrameRate,
          .maxKeyFrameInterval = keyFrameInterval,
          .allowFrameReordering = false};
}

}  // namespace

/// What belongs to the writer's queue: the writer, its inputs, the baseline.
class VideoChunkWriter::Pictures {
 public:
  /// How the world outside hears of it.
  struct Events {
    SegmentSink segmentSink;
    std::function<void()> begun;  ///< on the writer's queue
  };
  struct Ending {
    SegmentWriter* writer = nullptr;  ///< nullptr when there never was one
    std::optional<MediaTime> lastSampleTime;
  };

  Pictures(Platform& platform, const Logger& logger, VideoAudioIntake& sound, Options options, Events events)
      : platform_(platform), logger_(logger), sound_(sound), options_(std::move(options)), events_(std::move(events)) {}

  void append(const SampleBuffer& sample);
  /// No more pictures.
  Ending finish();

 private:
  bool setUp(const SampleBuffer& first);
  void makeRoomForLocalFile();
  Result<void> makeWriter();
  void logLocalFile();
  void appendAt(const SampleBuffer& sample, MediaTime time);

  Platform& platform_;
  const Logger& logger_;
  VideoAudioIntake& sound_;
  const Options options_;
  const Events events_;
  std::unique_ptr<SegmentWriter> writer_;
  AssetWriterInput* videoInput_ = nullptr;
  AssetWriterInput* mixedAudioInput_ = nullptr;
  MediaTime firstSampleTime_;
  std::optional<MediaTime> lastSampleTime_;
  bool setUpFailed_ = false;
  bool isFinished_ = false;
};

void VideoChunkWriter::Pictures::append(const SampleBuffer& sample) {
  if (isFinished_ || !sample.isValid()) return;
  if (!writer_ && !setUp(sample)) return logger_.info("Writer not ready, skipping video sample");
  if (writer_->status() != AssetWriter::Status::writing) return;
  if (videoInput_ == nullptr) return logger_.info("Video input not available, skipping video sample");
  if (!sample.picture() || !videoInput_->isReadyForMoreMediaData()) return;
  appendAt(sample, sample.presentationTime() - firstSampleTime_);
}

void VideoChunkWriter::Pictures::appendAt(const SampleBuffer& sample, MediaTime time) {
  const auto retimed = sample.copyWithNewTiming({.duration = sample.duration(), .presentationTime = time});
  if (!retimed || !videoInput_->append(*retimed)) {
    return logger_.error("Failed to append video sample at normalized time " + seconds(time));
  }
  lastSampleTime_ = time;
  const bool isWholeSecond = static_cast<std::int64_t>(time.seconds() * 10) % 10 == 0;
  if (!isWholeSecond) return;
  logger_.debug([&] { return "Successfully appended video sample at normalized time " + seconds(time); });
}

bool VideoChunkWriter::Pictures::setUp(const SampleBuffer& first) {
  if (setUpFailed_) return false;
  makeRoomForLocalFile();
  if (const auto made = makeWriter(); !made) {
    logger_.error("Failed to start writing: " + made.error().description());
    setUpFailed_ = true;
    return false;
  }
  firstSampleTime_ = first.presentationTime();
  logger_.info("Initialized writer with baseline timestamp: " + seconds(firstSampleTime_) + " seconds");
  writer_->startSession(MediaTime::zero());
  if (mixedAudioInput_ != nullptr) sound_.begin(firstSampleTime_, *mixedAudioInput_);
  logger_.info("✅ Single fMP4 writer initialized successfully");
  events_.begun();
  logLocalFile();
  return true;
}

void VideoChunkWriter::Pictures::makeRoomForLocalFile() {
  const auto& file = options_.recording.localFile;
  if (!file) return;
  std::ignore = platform_.files.createDirectories(Path(parentDirectory(*file)));
  if (platform_.files.exists(*file) && platform_.files.remove(*file)) {
    logger_.info("Removed existing file at path: " + *file);
  }
}

Result<void> VideoChunkWriter::Pictures::makeWriter() {
  TRY(writer_,
      platform_.mediaWriters.makeSegmentWriter(
          {.segmentInterval = chunkDuration, .sink = events_.segmentSink, .movieFile = options_.recording.localFile}));
  logger_.info("Configured single fMP4 writer (AppleHLS profile) with segment interval: " + seconds(chunkDuration) +
               "s");
  videoInput_ = writer_->addVideoInput(videoSettings(options_.width, options_.height));
  // A track that nothing will ever fill would only hold the segments up.
  if (options_.sources.any()) mixedAudioInput_ = writer_->addAudioInput(mixedAudioSettings);
  if (writer_->startWriting()) return success;
  auto error = writer_->error().value_or(AssetWriterError::cannotEncode);
  writer_.reset();
  return error;
}

void VideoChunkWriter::Pictures::logLocalFile() {
  const auto& file = options_.recording.localFile;
  if (!file) return logger_.info("No local file URL provided - skipping local backup");
  logger_.info("Setting up local file writer for: " + *file);
  if (const auto error = writer_->movieError()) {
    logger_.error("Failed to create local file writer for " + *file + ": " + error->description());
  } else {
    logger_.info("✅ Started local backup recording to: " + *file);
  }
}

VideoChunkWriter::Pictures::Ending VideoChunkWriter::Pictures::finish() {
  isFinished_ = true;
  if (!writer_) return {};
  logger_.info("📊 Writer status before finish: " + std::to_string(static_cast<int>(writer_->status())));
  if (videoInput_ != nullptr) videoInput_->markAsFinished();
  if (mixedAudioInput_ != nullptr) mixedAudioInput_->markAsFinished();
  if (lastSampleTime_) {
    logger_.info("📊 Ending session at time: " + seconds(*lastSampleTime_) + "s");
    writer_->endSession(*lastSampleTime_);
  }
  return {writer_.get(), lastSampleTime_};
}

VideoChunkWriter::VideoChunkWriter(Platform& platform, StoredRecordings& storedRecordings,
                                   NotificationCenter& notifications, Options options)
    : platform_(platform),
      logger_(platform.systemLog, "com.quillbeam.recorder", "VideoChunkWriter"),
      localFile_(options.recording.localFile),
      stream_(platform, storedRecordings, notifications, logger_, videoSegmentPolicy(), options.recording),
      sound_(platform.dispatch, logger_, options.sources),
      writerQueue_(platform.dispatch.makeSerialQueue("video.writer.queue")) {
  DispatchQueue& main = platform.dispatch.main();
  auto begun = weakly(this, [](VideoChunkWriter& self) { self.begin(); });
  Pictures::Events events{.segmentSink = stream_.sink(),
                          .begun = [&main, begun] { main.async([begun]() mutable { begun(); }); }};
  pictures_ = std::make_unique<Pictures>(platform, logger_, sound_, std::move(options), std::move(events));
}

VideoChunkWriter::~VideoChunkWriter() = default;

void VideoChunkWriter::setUploadDelegate(std::shared_ptr<ChunkUploadDelegate> delegate) {
  stream_.setUploadDelegate(std::move(delegate));
}

void VideoChunkWriter::begin() {
  stream_.begin();
  statisticsTimer_ =
      std::make_unique<RepeatingTimer>(platform_.dispatch.main(), memoryLogInterval, [this] { logStatistics(); });
}

void VideoChunkWriter::appendVideo(SampleBuffer sample) {
  writerQueue_->async([this, sample = std::move(sample)] { pictures_->append(sample); });
}

void VideoChunkWriter::logStatistics() const {
  const auto backlog = sound_.backlog();
  logger_.info("📊 Memory Stats: sysAudioQueue=" + std::to_string(backlog.system) + ", micAudioQueue=" +
               std::to_string(backlog.mic) + ", pendingBuffers=" + std::to_string(backlog.pending) +
               ", byteBuffer=" + std::to_string(stream_.bufferedBytes() / 1024) +
               "KB, processMem=" + std::to_string(platform_.processMemory.residentBytes() >> 20) + "MB");
}

Task<void> VideoChunkWriter::finishRecording() {
  CO_TRY(const Written written, co_await finishWriting());
  if (written == Written::segments) CO_TRY_VOID(co_await stream_.awaitFinalSegment());
  co_return co_await stream_.finishUpload();
}

Task<void> VideoChunkWriter::finishWithoutUpload() {
  stream_.stopSending();
  CO_TRY(const Written written, co_await finishWriting());
  if (written == Written::segments) CO_TRY_VOID(co_await stream_.awaitFinalSegment());
  co_return co_await stream_.awaitHandled();
}

Task<VideoChunkWriter::Written> VideoChunkWriter::finishWriting() {
  statisticsTimer_.reset();
  logger_.info("Finishing recording session...");
  logger_.info("📊 Pre-finish stats: segmentIndex=" + std::to_string(stream_.segmentIndex()) +
               ", byteBuffer=" + std::to_string(stream_.bufferedBytes()) +
               " bytes, hasInitSegment=" + truth(stream_.hasInitializationSegment()));
  CO_TRY_VOID(co_await sound_.finish());
  auto finish = [this]() -> Result<Pictures::Ending> { return pictures_->finish(); };
  CO_TRY(const Pictures::Ending ending, co_await runOn<Pictures::Ending>(*writerQueue_, finish));
  SegmentWriter* const writer = ending.writer;
  if (writer == nullptr) co_return Written::nothing;
  // The first picture may have been the last closure there: its segments' stream begins before they end.
  CO_TRY_VOID(co_await drained(platform_.dispatch.main()));
  stream_.expectFinalSegment(ending.lastSampleTime);
  logger_.info("📊 Calling finishWriting... byteBuffer=" + std::to_string(stream_.bufferedBytes()) +
               " bytes, waiting for final segment...");
  const auto finished = co_await writer->finishWriting();
  if (!finished) stream_.writerFailed(finished.error());
  logger_.info("Main writer finished successfully, status: " + std::to_string(static_cast<int>(writer->status())));
  if (const std::size_t parts = stream_.inFlightUploads().size(); parts > 0) {
    logger_.info("There are " + std::to_string(parts) +
                 " in-flight uploads that will complete asynchronously: " + stream_.inFlightText());
  }
  logger_.info("Recording session finished, waiting for final uploads to complete");
  logLocalFile(*writer);
  co_return Written::segments;
}

void VideoChunkWriter::logLocalFile(const SegmentWriter& writer) const {
  if (!localFile_) return;
  logger_.info("Finalizing local backup file...");
  if (const auto error = writer.movieError()) {
    logger_.error("❌ Local backup finalization failed with status: " +
                  std::to_string(static_cast<int>(AssetWriter::Status::failed)));
    logger_.error("Failed to finalize local backup: " + error->description());
    return;
  }
  logger_.info("Local backup saved successfully");
  logger_.info("Local file size: " + std::to_string(writer.movieBytesWritten()) + " bytes");
}

}  // namespace quillbeam
