#include "cli/UploadTransfer.h"

#include "cli/ProgressLine.h"

namespace quillbeam::cli {

namespace {

std::int64_t number(const Value& value) { return value.asInteger().value_or(0); }

}  // namespace

UploadTransfer UploadTransfer::currentOf(const Value& transfers) {
  const ValueList none;
  const ValueList& list = transfers.asList() == nullptr ? none : *transfers.asList();
  for (const Value& transfer : list) {
    if (transfer.at("isCurrent").asBool() != true) continue;
    return {.sessionId = *transfer.at("sessionId").asString(),
            .state = *transfer.at("state").asString(),
            .confirmedBytes = number(transfer.at("confirmedBytes")),
            .bytesInFlight = number(transfer.at("bytesInFlight")),
            .confirmedParts = number(transfer.at("confirmedParts")),
            .expectedParts = number(transfer.at("expectedParts")),
            .activeParts = number(transfer.at("activeParts"))};
  }
  return {};
}

std::string transferText(const UploadTransfer& transfer) {
  if (!transfer.exists()) return "not uploading";
  std::string text = "uploaded " + sizeText(transfer.bytesMoved());
  if (transfer.expectedParts > 0) {
    text += ", part " + std::to_string(transfer.confirmedParts) + " of " + std::to_string(transfer.expectedParts);
  }
  return text;
}

}  // namespace quillbeam::cli
