#include <gtest/gtest.h>

#include "support/UploadWorld.h"

namespace quillbeam {
namespace {

constexpr std::string_view configPath = "/home/user/.local/share/io.quillbeam.app/MacNativeApiConfig.json";
const UploadIdentity upload{"team", "folder", "file-1", "upload-1"};

bool startsConfiguredWith(std::string_view file) {
  SimWorld world;
  EXPECT_TRUE(world.files.createDirectories(Path(parentDirectory(configPath))));
  EXPECT_TRUE(world.files.writeAtomically(Path(configPath), ByteChain(Bytes(file.begin(), file.end()))));
  auto platform = world.platform();
  return MacNativeApiClient(platform).isConfigured();
}

TEST(ApiClientConfiguration, thatIsDamagedLeavesTheClientUnconfigured) {
  for (const char* file : {"", "{", "[]", "null", R"({"baseUrl":7,"authToken":"t"})", R"({"authToken":"t"})",
                           R"({"baseUrl":"https://api.test"})", "\xff\xfe"}) {
    EXPECT_FALSE(startsConfiguredWith(file)) << file;
  }
  EXPECT_TRUE(startsConfiguredWith(R"({"authToken":"","baseUrl":""})")) << "empty strings count as present";
}

TEST(ApiClientAnswers, areJudgedByStatusAndShape) {
  UploadWorld machine;
  MacNativeApiClient& client = machine.process->apiClient;
  using enum MacNativeApiError;
  const std::pair<HttpResponse, MacNativeApiError> cases[] = {
      {{.status = 401, .body = R"({"data":{}})"}, tokenExpired},
      {{.status = 500, .body = "oops"}, httpError},
      {{.status = 302, .body = "\xff"}, httpError},
      {{.status = 204}, networkError},
      {{.status = 200, .body = "[1]"}, decodingError},
      {{.status = 200, .body = R"({"data":[]})"}, decodingError},
      {{.status = 200, .body = R"({"data":{"fileId":"1","uploadId":2}})"}, decodingError}};
  for (const auto& [answered, expected] : cases) {
    machine.service.interfere = [&answered = answered](const SimExchange&) { return answered; };
    const auto answer = machine.process->await(client.initializeMultipartUpload("team", "folder", "video/mp4", "x"));
    ASSERT_FALSE(answer);
    EXPECT_TRUE(answer.error().is(expected)) << answer.error().description();
  }
  machine.service.interfere = [](const SimExchange&) { return HttpResponse{.status = 200, .body = R"({"data":{}})"}; };
  EXPECT_EQ(machine.process->await(client.presignedPartUrl(upload, 1, "video/mp4")).error().description(),
            "Decoding error: Missing uploadUrl");
  machine.world.network.fate = [](const SimExchange&) { return SimFate{.kind = SimFate::Kind::answerLost}; };
  EXPECT_TRUE(machine.process->await(client.abortMultipartUpload(upload)).error().is(networkError));
  EXPECT_TRUE(machine.process->await(client.pulseMultipartUpload("t e a m", "f", "1")).error().is(invalidUrl));
}

}  // namespace
}  // namespace quillbeam
