#include <gmock/gmock.h>

#include <algorithm>

#include "app/Connected.h"
#include "support/SimUploadService.h"
#include "upload/MacNativeUploadSessionStorage.h"

namespace quillbeam {
namespace {

using namespace std::chrono_literals;
namespace names = channel_names;
using State = MacUploadSessionState;
using testing::Contains;

const Path dataDirectory = "/home/user/.local/share/io.quillbeam.app";

/// What a former process left on disk.
MacNativeUploadSession leave(SimWorld& world, const std::string& id, State state, std::chrono::days age = {}) {
  Platform platform = world.platform();
  MacNativeUploadSession session{.id = id, .uploadId = "u", .fileId = "f", .teamId = "t", .folderId = "o"};
  session.fileName = "Weekly";
  session.contentType = "video/mp4";
  session.state = state;
  session.createdAt = session.lastModifiedAt = world.dispatch.now() - age;
  MacNativeUploadSessionStorage(platform).saveSession(session);
  world.dispatch.runUntilIdle();
  return session;
}

std::optional<MacNativeUploadSession> stored(SimWorld& world, const std::string& id) {
  Platform platform = world.platform();
  const auto sessions = MacNativeUploadSessionStorage(platform).loadAllSessions();
  const auto found = std::ranges::find(sessions, id, &MacNativeUploadSession::id);
  return found == sessions.end() ? std::nullopt : std::optional(*found);
}

std::vector<std::string> launchLines(SimWorld& world) {
  std::vector<std::string> lines;
  for (const auto& line : world.systemLog.lines()) {
    if (line.category == "AppDelegate") lines.push_back(line.text);
  }
  return lines;
}

Value configuration() { return ValueMap{{"baseUrl", SimUploadService::baseUrl}, {"authToken", "token-1"}}; }

TEST(UploadConfigChannel, configuresTheClientAndSaysWhatItNeeds) {
  SimWorld world;
  Connected ui(world);
  const auto call = [&](std::string_view method, Value arguments = {}) {
    return ui.call(names::nativeUploadConfig, method, std::move(arguments));
  };
  EXPECT_EQ(call("isNativeApiConfigured"), MethodReply(Value(false)));
  const MethodReply bothRequired = MethodError{"INVALID_ARGUMENTS", "baseUrl and authToken are required"};
  EXPECT_EQ(call("configureNativeApiClient", ValueMap{{"baseUrl", "https://api.test"}}), bothRequired);
  EXPECT_EQ(call("configureNativeApiClient", ValueMap{{"baseUrl", 1}, {"authToken", "t"}}), bothRequired);
  EXPECT_EQ(call("updateNativeAuthToken"), MethodReply(MethodError{"INVALID_ARGUMENTS", "authToken is required"}));

  EXPECT_EQ(call("configureNativeApiClient", configuration()), MethodReply(Value(true)));
  EXPECT_EQ(call("isNativeApiConfigured"), MethodReply(Value(true)));
  EXPECT_TRUE(world.files.exists(dataDirectory + "/MacNativeApiConfig.json"));
  EXPECT_EQ(call("updateNativeAuthToken", ValueMap{{"authToken", "token-2"}}), MethodReply(Value(true)));
  EXPECT_EQ(call("clearNativeApiConfig"), MethodReply(Value(true)));
  EXPECT_FALSE(world.files.exists(dataDirectory + "/MacNativeApiConfig.json"));
  EXPECT_EQ(call("isNativeApiConfigured"), MethodReply(Value(false)));
  EXPECT_EQ(call("getCurrentUploadProgress"), MethodReply(Value(0.0)));
}

TEST(UploadConfigChannel, listsResumesAndAbortsSessions) {
  SimWorld world;
  SimUploadService service(world.network);
  auto left = leave(world, "INTERRUPTED", State::active);
  leave(world, "DONE", State::completed);
  Connected ui(world);
  const Value listed = ValueList{ValueMap{{"id", "INTERRUPTED"},
                                          {"fileId", "f"},
                                          {"fileName", "Weekly"},
                                          {"state", "active"},
                                          {"uploadedParts", 0},
                                          {"totalPartsExpected", 0},
                                          {"errorCount", 0},
                                          {"lastError", ""},
                                          {"createdAt", iso8601(left.createdAt)},
                                          {"lastModifiedAt", iso8601(left.lastModifiedAt)}}};
  EXPECT_EQ(ui.call(names::nativeUploadConfig, "getIncompleteUploadSessions"), MethodReply(listed));
  ui.call(names::nativeUploadConfig, "configureNativeApiClient", configuration());
  EXPECT_EQ(ui.call(names::nativeUploadConfig, "resumeIncompleteUploads"), MethodReply(Value(true)));
  world.dispatch.advance(1s);
  EXPECT_EQ(stored(world, "INTERRUPTED")->state, State::failed);
  EXPECT_EQ(ui.call(names::nativeUploadConfig, "getIncompleteUploadSessions"), MethodReply(Value(ValueList())));
  EXPECT_EQ(ui.call(names::nativeUploadConfig, "abortCurrentUpload"), MethodReply(Value(true)));
}

TEST(UploadLaunch, resumesOnlyWhenConfiguredAndCleansUpAlways) {
  SimWorld world;
  SimUploadService service(world.network);
  leave(world, "OLD", State::failed, std::chrono::days(8));
  leave(world, "INTERRUPTED", State::active, std::chrono::days(30));
  const Path stranger = dataDirectory + "/temp_chunks/GONE_part1.chunk";
  const Path owned = dataDirectory + "/temp_chunks/INTERRUPTED_part1.chunk";
  ASSERT_TRUE(world.files.createDirectories(dataDirectory + "/temp_chunks"));
  for (const Path& file : {stranger, owned}) ASSERT_TRUE(world.files.writeAtomically(file, ByteChain(Bytes(3))));
  {
    Connected ui(world);
    world.dispatch.advance(1s);
    EXPECT_THAT(launchLines(world), Contains("ℹ️ Native API not configured yet - will resume uploads when configured"));
    EXPECT_FALSE(stored(world, "OLD"));
    EXPECT_EQ(stored(world, "INTERRUPTED")->state, State::active);
    EXPECT_FALSE(world.files.exists(stranger));
    EXPECT_TRUE(world.files.exists(owned));
    ui.call(names::nativeUploadConfig, "configureNativeApiClient", configuration());
  }
  Connected next(world);
  world.dispatch.advance(1s);
  EXPECT_THAT(launchLines(world), Contains("🔄 Native API configured - checking for incomplete upload sessions..."));
  EXPECT_EQ(stored(world, "INTERRUPTED")->lastError, "Recording interrupted by app termination");
  EXPECT_FALSE(world.files.exists(owned));
}

TEST(FileUploadChannel, uploadsAFileAndReportsItsEnd) {
  SimWorld world;
  SimUploadService service(world.network);
  Connected ui(world);
  const Bytes content(12'000'000, 7);
  ASSERT_TRUE(world.files.writeAtomically("/tmp/talk.mp4", ByteChain(content)));
  ui.call(names::nativeUploadConfig, "configureNativeApiClient", configuration());
  EXPECT_EQ(std::get<MethodError>(ui.call(names::fileUpload, "startFileUpload", ValueMap{{"filePath", "/tmp/x"}})).code,
            "INVALID_ARGUMENTS");
  const Value arguments = ValueMap{{"filePath", "/tmp/talk.mp4"},
                                   {"teamId", "t"},
                                   {"folderId", "o"},
                                   {"fileName", "Talk"},
                                   {"contentType", "video/mp4"}};
  const Value id = ValueMap{{"id", std::get<Value>(ui.call(names::fileUpload, "startFileUpload", arguments))}};
  Value status;
  const auto hasEnded = [&] {
    status = std::get<Value>(ui.call(names::fileUpload, "getFileUploadStatus", id));
    return status.at("phase") == Value("ended");
  };
  for (int looks = 0; looks < 100 && !hasEnded(); ++looks) world.dispatch.advance(100ms);
  EXPECT_EQ(status.at("error"), Value());
  EXPECT_EQ(status.at("confirmedParts"), Value(3));
  ASSERT_EQ(service.uploads.size(), 1u);
  EXPECT_EQ(service.uploads.begin()->second.object, content);
  EXPECT_EQ(ui.received.back().at("event"), Value("uploadComplete"));
}

}  // namespace
}  // namespace quillbeam
