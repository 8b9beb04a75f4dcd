#include "base/Check.h"
#include "base/Json.h"
#include "base/TaskScope.h"
#include "fuzz/FuzzTargets.h"
#include "platform/sim/SimWorld.h"
#include "upload/MacNativeApiClient.h"
#include "upload/MacNativeUploadSession.h"

namespace quillbeam::fuzz {

namespace {

/// Waits until the client has said something.
template <class T>
Result<T> answerOf(SimWorld& world, Task<T> task) {
  std::optional<Result<T>> answer;
  TaskScope tasks(world.dispatch.main());
  tasks.start(std::move(task), [&](Result<T> result) { answer.emplace(std::move(result)); });
  world.dispatch.runUntil([&] { return answer.has_value(); }, std::chrono::minutes(2));
  QB_CHECK(answer.has_value());
  return *std::move(answer);
}

}  // namespace

void sessionRecord(ByteSpan input) {
  const auto value = parseJson({reinterpret_cast<const char*>(input.data()), input.size()});
  if (!value) return;
  const auto record = fromValue<MacNativeUploadSession>(*value);
  if (!record) return;
  const Value written = toValue(*record);
  const auto again = fromValue<MacNativeUploadSession>(parseJson(toJson(written).value()).value());
  QB_CHECK(again.has_value());
  QB_CHECK(toValue(*again) == written);
}

void serviceAnswer(ByteSpan input) {
  SimWorld world;
  auto platform = world.platform();
  MacNativeApiClient client(platform);
  client.configure("https://api.test", "token");
  // The first byte chooses the status.
  const int status = input.empty() || input[0] != 'o' ? 200 : 500;
  world.network.server = [&](const SimExchange&) {
    return HttpResponse{.status = status, .body = std::string(input.begin(), input.end())};
  };
  const auto opened = answerOf(world, client.initializeMultipartUpload("t", "f", "video/mp4", "source"));
  const auto url = answerOf(world, client.presignedPartUrl({"t", "f", "1", "2"}, 1, "video/mp4"));
  if (status != 200) QB_CHECK(!opened && !url && httpStatus(url.error()) == status);
}

void clientConfiguration(ByteSpan input) {
  SimWorld world;
  auto platform = world.platform();
  const Path path = inApplicationSupport(platform.places, "MacNativeApiConfig.json").value();
  QB_CHECK(platform.files.createDirectories(Path(parentDirectory(path))).has_value());
  QB_CHECK(platform.files.writeAtomically(path, ByteChain(Bytes(input.begin(), input.end()))).has_value());
  world.network.server = [](const SimExchange&) { return HttpResponse{.status = 200, .body = "{}"}; };
  MacNativeApiClient client(platform);
  const auto pulsed = answerOf(world, client.pulseMultipartUpload("t", "f", "1"));
  QB_CHECK(client.isConfigured() || pulsed.error().is(MacNativeApiError::notConfigured));
}

}  // namespace quillbeam::fuzz
