#include "upload/MacNativeUploadSession.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quillbeam {

namespace {

using State = MacUploadSessionState;

constexpr std::array<std::pair<State, std::string_view>, 6> stateTexts = {{{State::active, "active"},
                                                                           {State::uploading, "uploading"},
                                                                           {State::completing, "completing"},
                                                                           {State::completed, "completed"},
                                                                           {State::failed, "failed"},
                                                                           {State::aborted, "aborted"}}};

}  // namespace

std::string toText(MacUploadSessionState state) {
  return std::string(std::ranges::find(stateTexts, state, &std::pair<State, std::string_view>::first)->second);
}

std::optional<MacUploadSessionState> fromText(std::type_identity<MacUploadSessionState>, std::string_view text) {
  const auto* const found = std::ranges::find(stateTexts, text, &std::pair<State, std::string_view>::second);
  return found == stateTexts.end() ? std::nullopt : std::optional(found->first);
}

bool MacNativeUploadSession::isIncomplete() const {
  return state == State::active || state == State::uploading || state == State::completing;
}

void MacNativeUploadSession::markPartPending(int partNumber, Date now) {
  pendingParts.push_back(partNumber);
  lastModifiedAt = now;
}

void MacNativeUploadSession::markPartUploaded(int partNumber, std::string etag, std::int64_t size, Date now) {
  lastModifiedAt = now;
  std::erase(pendingParts, partNumber);
  std::erase_if(failedParts, [&](const MacFailedPart& part) { return part.partNumber == partNumber; });
  if (isUploaded(partNumber)) return;
  uploadedParts.push_back({partNumber, std::move(etag), size, now});
  totalBytesUploaded += size;
}

void MacNativeUploadSession::markPartFailed(int partNumber, const std::string& error, Date now) {
  lastModifiedAt = now;
  std::erase(pendingParts, partNumber);
  const auto failed = std::ranges::find(failedParts, partNumber, &MacFailedPart::partNumber);
  if (failed != failedParts.end()) {
    failed->lastError = error;
    failed->retryCount += 1;
    failed->lastAttemptAt = now;
  } else {
    failedParts.push_back({partNumber, error, 1, now});
  }
  lastError = error;
  errorCount += 1;
}

std::vector<int> MacNativeUploadSession::getRetryableParts(int maxRetries) const {
  std::vector<int> parts;
  for (const MacFailedPart& part : failedParts) {
    if (part.retryCount < maxRetries) parts.push_back(part.partNumber);
  }
  return parts;
}

bool MacNativeUploadSession::isUploaded(int partNumber) const {
  return std::ranges::find(uploadedParts, partNumber, &MacUploadedPart::partNumber) != uploadedParts.end();
}

const MacFailedPart* MacNativeUploadSession::failedPart(int partNumber) const {
  const auto found = std::ranges::find(failedParts, partNumber, &MacFailedPart::partNumber);
  return found == failedParts.end() ? nullptr : &*found;
}

bool MacNativeUploadSession::hasExhaustedPart() const {
  return std::ranges::any_of(failedParts,
                             [](const MacFailedPart& part) { return part.retryCount >= mostAttemptsPerPart; });
}

bool MacNativeUploadSession::isReadyToFinalize() const {
  return totalPartsExpected && std::cmp_equal(uploadedParts.size(), *totalPartsExpected) && pendingParts.empty() &&
         failedParts.empty() && state != State::completing && state != State::completed;
}

}  // namespace quillbeam
