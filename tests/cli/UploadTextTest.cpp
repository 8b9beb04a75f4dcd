#include <gtest/gtest.h>

#include "cli/UploadCommand.h"
#include "cli/UploadFigures.h"
#include "cli/UploadsCommand.h"
#include "upload/FileUpload.h"

namespace quillbeam::cli {
namespace {

using namespace std::chrono_literals;

Value ended(const Error& error) {
  return ValueMap{
      {"phase", "ended"}, {"error", error.description()}, {"errorDomain", error.domain()}, {"errorCode", error.code()}};
}

TEST(UploadFigures, tellRefusalsFromOutagesByExitCode) {
  const auto code = [](const Error& error) { return UploadFigures::fromValue(ended(error)).exitCode(); };
  EXPECT_EQ(UploadFigures::fromValue(ValueMap{{"phase", "ended"}}).exitCode(), ExitCode::ok);
  EXPECT_EQ(code(networkError(NetworkError::cannotConnect)), ExitCode::serviceUnreachable);
  EXPECT_EQ(code(httpError(403, "no")), ExitCode::uploadRefused);
  EXPECT_EQ(code(MacNativeApiError::tokenExpired), ExitCode::uploadRefused);
  EXPECT_EQ(code(FileUploadError::partGivenUp), ExitCode::uploadRefused);
  EXPECT_EQ(code(MacBackgroundUploadError::finalizationTimeout), ExitCode::uploadTimedOut);
  EXPECT_EQ(code(CommonError::cancelled), ExitCode::gaveUp);
  EXPECT_EQ(code(FileUploadError::emptyFile), ExitCode::failed);
}

TEST(UploadFigures, countBytesUnderWayButNeverMoreThanThereAre) {
  UploadFigures figures{
      .phase = "sending", .totalBytes = 10'000'000, .confirmedBytes = 4'000'000, .bytesInFlight = 1'000'000};
  figures.totalParts = 2;
  figures.confirmedParts = 1;
  EXPECT_EQ(uploadText(figures, 2e6), "██████████░░░░░░░░░░  50 %  5.0 MB of 10.0 MB, part 1 of 2  2.0 MB/s");
  // A part that is sent again counts again.
  figures.bytesInFlight = 7'000'000;
  figures.lastError = "HTTP error: 503";
  EXPECT_EQ(uploadText(figures, 0),
            "████████████████████ 100 %  10.0 MB of 10.0 MB, part 1 of 2  0 kB/s  (last failure: HTTP error: 503)");
}

TEST(UploadsList, showsStateProgressAndAge) {
  const Date now(1'000'000s);
  MacNativeUploadSession session{.id = "ID", .fileName = "Weekly", .state = MacUploadSessionState::uploading};
  session.createdAt = now - 3h;
  session.uploadedParts.resize(3);
  session.totalBytesUploaded = 15'728'640;
  EXPECT_EQ(sessionText(session, now), "ID  uploading  3/? parts, 15.7 MB  3 h old  Weekly");
  session.totalPartsExpected = 4;
  session.lastError = "The request timed out";
  EXPECT_EQ(sessionText(session, now),
            "ID  uploading  3/4 parts (75 %), 15.7 MB  3 h old  Weekly  (The request timed out)");
  EXPECT_EQ(ageText(now - 119s, now), "119 s");
  EXPECT_EQ(ageText(now - 119min, now), "119 min");
  EXPECT_EQ(ageText(now - 49h, now), "2 d");
  EXPECT_EQ(ageText(now + 1h, now), "0 s");
}

TEST(UploadCommand, guessesTheMediaTypeFromTheExtension) {
  EXPECT_EQ(contentTypeOf("/tmp/a.mp4"), "video/mp4");
  EXPECT_EQ(contentTypeOf("/tmp/a.m4a"), "audio/mp4");
  EXPECT_EQ(contentTypeOf("/tmp/mp4"), "application/octet-stream");
}

}  // namespace
}  // namespace quillbeam::cli
