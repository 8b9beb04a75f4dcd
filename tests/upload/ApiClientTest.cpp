#include <gtest/gtest.h>

#include "support/UploadWorld.h"
#include "upload/MacPresignedUrlManager.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

constexpr std::string_view configPath = "/home/user/.local/share/io.quillbeam.app/MacNativeApiConfig.json";
const UploadIdentity upload{"team", "folder", "file-1", "upload-1"};

std::string textOf(SimWorld& world, std::string_view path) {
  const Bytes bytes = world.files.read(Path(path)).value_or(Bytes());
  return {bytes.begin(), bytes.end()};
}

bool startsConfiguredWith(std::string_view file) {
  SimWorld world;
  EXPECT_TRUE(world.files.createDirectories(Path(parentDirectory(configPath))));
  EXPECT_TRUE(world.files.writeAtomically(Path(configPath), ByteChain(Bytes(file.begin(), file.end()))));
  auto platform = world.platform();
  return MacNativeApiClient(platform).isConfigured();
}

TEST(ApiClientConfiguration, survivesTheProcessUntilItIsCleared) {
  SimWorld world;
  auto platform = world.platform();
  EXPECT_FALSE(MacNativeApiClient(platform).isConfigured());
  MacNativeApiClient(platform).configure("https://api.test", "secret");
  EXPECT_EQ(textOf(world, configPath), R"({"baseUrl":"https://api.test","authToken":"secret"})");
  world.files.powerCut(PowerCut::dropUnsynced);
  MacNativeApiClient client(platform);
  EXPECT_TRUE(client.isConfigured());
  client.updateAuthToken("newer");
  EXPECT_EQ(textOf(world, configPath), R"({"baseUrl":"https://api.test","authToken":"newer"})");
  client.clearConfiguration();
  client.clearConfiguration();
  EXPECT_FALSE(client.isConfigured());
  EXPECT_FALSE(world.files.exists(Path(configPath)));
  EXPECT_FALSE(MacNativeApiClient(platform).isConfigured());
  for (const auto& line : world.systemLog.lines()) EXPECT_EQ(line.text.find("secret"), std::string::npos);
}

TEST(ApiClientConfiguration, thatIsDamagedLeavesTheClientUnconfigured) {
  for (const char* file : {"", "{", "[]", "null", R"({"baseUrl":7,"authToken":"t"})", R"({"authToken":"t"})",
                           R"({"baseUrl":"https://api.test"})", "\xff\xfe"}) {
    EXPECT_FALSE(startsConfiguredWith(file)) << file;
  }
  EXPECT_TRUE(startsConfiguredWith(R"({"authToken":"","baseUrl":""})")) << "empty strings count as present";
}

TEST(ApiClientConfiguration, thatCannotBeWrittenHoldsForThisProcess) {
  UploadWorld machine;
  machine.world.files.failBelow("/home/user/.local/share", ENOSPC);
  machine.process->apiClient.configure("https://api.test", "other");
  EXPECT_EQ(machine.logged("Failed to save API config: "), 1);
  EXPECT_TRUE(machine.process->apiClient.isConfigured());
}

TEST(ApiClientConfiguration, withATokenButNoAddressFailsEveryRequest) {
  SimWorld world;
  SimUploadService service(world.network);
  {
    auto platform = world.platform();
    MacNativeApiClient(platform).updateAuthToken("token");
  }
  UploadProcess next(world);
  EXPECT_TRUE(next.apiClient.isConfigured());
  const auto pulsed = next.await(next.apiClient.pulseMultipartUpload("t", "f", "1"));
  EXPECT_TRUE(pulsed.error().is(MacNativeApiError::networkError)) << pulsed.error().description();
  EXPECT_TRUE(service.requests.empty());
  next.apiClient.clearConfiguration();
  EXPECT_TRUE(
      next.await(next.apiClient.pulseMultipartUpload("t", "f", "1")).error().is(MacNativeApiError::notConfigured));
}

TEST(ApiClientAnswers, areJudgedByStatusAndShape) {
  UploadWorld machine;
  MacNativeApiClient& client = machine.process->apiClient;
  struct Case {
    HttpResponse answer;
    MacNativeApiError error;
    std::string_view text;
  };
  using enum MacNativeApiError;
  const Case cases[] = {
      {{.status = 401, .body = R"({"data":{}})"}, tokenExpired, "Authentication token expired"},
      {{.status = 500, .body = "oops"}, httpError, "HTTP 500: oops"},
      {{.status = 302, .body = "\xff"}, httpError, "HTTP 302: Unknown error"},
      {{.status = 204}, networkError, "Network error: "},
      {{.status = 200, .body = "[1]"}, decodingError, "Decoding error: Failed to parse response"},
      {{.status = 200, .body = R"({"data":[]})"}, decodingError, "Decoding error: Missing fileId or uploadId"},
      {{.status = 200, .body = R"({"data":{"fileId":"1","uploadId":2}})"},
       decodingError,
       "Decoding error: Missing fileId or uploadId"}};
  for (const Case& expected : cases) {
    machine.service.interfere = [&](const SimExchange&) { return expected.answer; };
    const auto answer = machine.process->await(client.initializeMultipartUpload("team", "folder", "video/mp4", "x"));
    ASSERT_FALSE(answer);
    EXPECT_TRUE(answer.error().is(expected.error)) << answer.error().description();
    EXPECT_TRUE(answer.error().description().starts_with(expected.text)) << answer.error().description();
  }
  machine.service.interfere = [](const SimExchange&) { return HttpResponse{.status = 200, .body = R"({"data":{}})"}; };
  EXPECT_EQ(machine.process->await(client.presignedPartUrl(upload, 1, "video/mp4")).error().description(),
            "Decoding error: Missing uploadUrl");
  machine.world.network.fate = [](const SimExchange&) { return SimFate{.kind = SimFate::Kind::answerLost}; };
  EXPECT_TRUE(machine.process->await(client.abortMultipartUpload(upload)).error().is(networkError));
  EXPECT_TRUE(machine.process->await(client.pulseMultipartUpload("t e a m", "f", "1")).error().is(invalidUrl));
}

TEST(ApiClientRequests, areWhatTheServiceExpects) {
  UploadWorld machine;
  auto& [world, service, process] = machine;
  MacNativeApiClient& client = process->apiClient;
  const auto opened = process->await(client.initializeMultipartUpload("team", "folder", "video/mp4", "")).value();
  EXPECT_EQ(service.uploads.at(opened.fileId).source, "");
  EXPECT_TRUE(process->await(client.pulseMultipartUpload("team", "folder", opened.fileId)));
  EXPECT_TRUE(process->await(client.presignedPartUrl(upload, 12, "video/mp4")).value().starts_with("https://"));
  EXPECT_TRUE(process->await(client.abortMultipartUpload(upload)));
  EXPECT_TRUE(service.allExpected());
  EXPECT_EQ(service.requests.size(), 4u);
}

TEST(PresignedUrls, areReusedUntilFiveMinutesBeforeTheirEnd) {
  UploadWorld machine;
  machine.start();
  MacPresignedUrlManager urls(machine.process->platform, machine.process->apiClient);
  const auto get = [&](int part) { return machine.process->await(urls.getUrl(part)); };
  EXPECT_TRUE(get(1).error().is(MacPresignedUrlError::notConfigured));
  EXPECT_EQ(machine.service.calls("url"), 0);
  urls.configure(upload, "video/mp4");
  const std::string first = get(7).value();
  const std::string eighth = get(8).value();
  machine.advance(3299s);
  EXPECT_EQ(get(7).value(), first);
  urls.invalidateUrl(7);
  EXPECT_NE(get(7).value(), first);
  EXPECT_EQ(get(8).value(), eighth);
  machine.advance(2s);
  EXPECT_NE(get(8).value(), eighth);
  EXPECT_EQ(machine.service.calls("url"), 4);
}

TEST(PresignedUrls, areNotKeptWhenTheFetchFailed) {
  UploadWorld machine;
  machine.start();
  MacPresignedUrlManager urls(machine.process->platform, machine.process->apiClient);
  urls.configure(upload, "video/mp4");
  machine.service.interfere = [](const SimExchange&) { return HttpResponse{.status = 503}; };
  EXPECT_EQ(httpStatus(machine.process->await(urls.getUrl(1)).error()), 503);
  machine.service.interfere = nullptr;
  EXPECT_TRUE(machine.process->await(urls.getUrl(1)));
}

}  // namespace
}  // namespace quillbeam
