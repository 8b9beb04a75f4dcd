#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Json.h"
#include "support/UploadWorld.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::ElementsAre;
using State = MacUploadSessionState;

const Date noon = std::chrono::sys_days{std::chrono::year{2025} / 3 / 1} + 9h + 30min;

MacNativeUploadSession makeRecord(std::string id, State state = State::active, Date changed = noon) {
  return {.id = std::move(id),
          .uploadId = "u",
          .fileId = "f",
          .teamId = "t",
          .folderId = "o",
          .fileName = "a \"b\".mp4",
          .contentType = "video/mp4",
          .state = state,
          .createdAt = changed,
          .lastModifiedAt = changed};
}

std::string fullText() {
  return R"({"id":"A","uploadId":"u","fileId":"f","teamId":"t","folderId":"o","fileName":"a \"b\".mp4",)"
         R"("contentType":"video/mp4","state":"uploading","createdAt":"2025-03-01T09:30:00Z",)"
         R"("lastModifiedAt":"2025-03-01T09:30:00Z","uploadedParts":[{"partNumber":2,"etag":"e","size":5,)"
         R"("uploadedAt":"2025-03-01T09:30:00Z"}],"pendingParts":[3],"failedParts":[{"partNumber":1,)"
         R"("lastError":"no","retryCount":1,"lastAttemptAt":"2025-03-01T09:30:00Z"}],"nextPartNumber":1,)"
         R"("totalBytesUploaded":5,"totalPartsExpected":3,"lastError":"no","errorCount":1})";
}

Result<MacNativeUploadSession> decoded(std::string_view text) {
  TRY(const Value value, parseJson(text));
  return fromValue<MacNativeUploadSession>(value);
}

std::string replaced(std::string text, std::string_view from, std::string_view to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(UploadSessionRecord, isOneJsonObjectInFieldOrder) {
  MacNativeUploadSession session = makeRecord("A", State::uploading);
  for (const int part : {1, 2, 3}) session.markPartPending(part, noon);
  session.markPartUploaded(2, "e", 5, noon);
  session.markPartFailed(1, "no", noon);
  session.totalPartsExpected = 3;
  EXPECT_EQ(toJson(toValue(session)).value(), fullText());
  EXPECT_EQ(toJson(toValue(decoded(fullText()).value())).value(), fullText());
}

TEST(UploadSessionRecord, decodesOnlyWhenEveryRequiredMemberIsRight) {
  const auto sparse =
      decoded(replaced(replaced(fullText(), R"("totalPartsExpected":3,"lastError":"no",)", ""), "uploading", "active"));
  ASSERT_TRUE(sparse);
  EXPECT_FALSE(sparse->totalPartsExpected || sparse->lastError);
  for (const auto& [from, to] :
       {std::pair{R"("uploading")", R"("paused")"},
        {R"("createdAt":"2025-03-01T09:30:00Z")", R"("createdAt":"2025-03-01T09:30:00.5Z")"},
        {R"("createdAt":"2025-03-01T09:30:00Z")", R"("createdAt":"2025-03-01T10:30:00+01:00")"},
        {R"("errorCount":1)", R"("errorCounts":1)"},
        {R"("pendingParts":[3])", R"("pendingParts":["3"])"},
        {R"("nextPartNumber":1)", R"("nextPartNumber":4294967297)"}}) {
    EXPECT_FALSE(decoded(replaced(fullText(), from, to))) << to;
  }
}

TEST(UploadSessionRecord, keepsEachPartInOneList) {
  MacNativeUploadSession session = makeRecord("A");
  session.markPartFailed(9, "never pending", noon);
  session.markPartPending(1, noon);
  session.markPartFailed(1, "first", noon);
  session.markPartFailed(1, "second", noon + 1s);
  EXPECT_EQ(session.failedPart(1)->retryCount, 2);
  EXPECT_EQ(session.failedPart(1)->lastError, "second");
  session.markPartUploaded(1, "e", 7, noon + 2s);
  session.markPartUploaded(1, "other", 7, noon + 3s);
  EXPECT_TRUE(session.pendingParts.empty());
  EXPECT_EQ(session.failedPart(1), nullptr);
  ASSERT_EQ(session.uploadedParts.size(), 1u);
  EXPECT_EQ(session.uploadedParts[0].etag, "e");
  EXPECT_EQ(session.totalBytesUploaded, 7);
  EXPECT_EQ(session.errorCount, 3);
  EXPECT_EQ(session.lastModifiedAt, noon + 3s);
}

TEST(UploadSessionRecord, retriesPartsWithAttemptsLeft) {
  MacNativeUploadSession session = makeRecord("A");
  for (const auto& [part, count] : {std::pair{1, 1}, {2, 5}, {3, 4}, {4, 7}}) {
    session.failedParts.push_back({part, "", count, noon});
  }
  EXPECT_THAT(session.getRetryableParts(5), ElementsAre(1, 3));
}

struct Store {
  Store() { EXPECT_TRUE(files.createDirectories(Path(directory))); }
  void put(const std::string& name, std::string_view text) {
    EXPECT_TRUE(files.writeAtomically(joined(Path(directory), name), ByteChain(Bytes(text.begin(), text.end()))));
  }
  std::vector<std::string> ids() {
    std::vector<std::string> found;
    for (const auto& session : storage.loadAllSessions()) found.push_back(session.id);
    return found;
  }
  static constexpr std::string_view directory = "/home/user/.local/share/io.quillbeam.app/native_upload_sessions";
  SimWorld world;
  SimFiles& files = world.files;
  Platform platform = world.platform();
  MacNativeUploadSessionStorage storage{platform};
};

TEST(UploadSessionStore, skipsWhatIsNoRecordOfItsOwnName) {
  Store store;
  store.put("A.json", fullText());
  store.put("B.json", replaced(fullText(), R"("id":"A")", R"("id":"../A")"));
  store.put("C.json", replaced(replaced(fullText(), R"("id":"A")", R"("id":"C")"), "uploading", "paused"));
  store.put("D.json", "");
  store.put("notes.txt", fullText());
  EXPECT_THAT(store.ids(), ElementsAre("A"));
  EXPECT_TRUE(store.files.exists(joined(Path(Store::directory), "C.json")));
}

TEST(UploadSessionStore, writesTheLastOfSeveralWaitingSavesOnly) {
  Store store;
  auto session = makeRecord("A");
  const auto before = store.files.stepCount();
  store.storage.saveSession(session);
  store.world.dispatch.runUntilIdle();
  const auto perSave = store.files.stepCount() - before;
  for (int part = 1; part <= 50; ++part) {
    session.markPartPending(part, noon);
    store.storage.saveSession(session);
  }
  store.world.dispatch.runUntilIdle();
  EXPECT_EQ(store.files.stepCount() - before, 2 * perSave);
  EXPECT_EQ(store.storage.loadAllSessions().at(0).pendingParts.size(), 50u);
  store.storage.saveSession(session);
  store.storage.deleteSession("A");
  store.world.dispatch.runUntilIdle();
  EXPECT_TRUE(store.ids().empty());
}

TEST(UploadSessionStore, cleansUpEndedRecordsByAgeAndListsTheNewestFirst) {
  Store store;
  const Date now = store.world.dispatch.now();
  const auto daysAgo = [&](int days) { return now - std::chrono::days(days); };
  store.storage.saveSession(makeRecord("old-failed", State::failed, daysAgo(8)));
  store.storage.saveSession(makeRecord("failed", State::failed, daysAgo(6)));
  store.storage.saveSession(makeRecord("old-active", State::active, daysAgo(100)));
  store.storage.saveSession(makeRecord("old-completed", State::completed, daysAgo(9)));
  store.storage.saveSession(makeRecord("new", State::completing, now));
  store.world.dispatch.runUntilIdle();
  store.storage.cleanupOldSessions(7);
  store.world.dispatch.runUntilIdle();
  EXPECT_THAT(store.ids(), ElementsAre("new", "failed", "old-active"));
  EXPECT_EQ(store.storage.getActiveSessions().size(), 2u);
}

TEST(UploadSessionStore, outlivesDisksThatFail) {
  Store store;
  store.files.failBelow(Path(Store::directory), EIO);
  store.storage.saveSession(makeRecord("A"));
  store.storage.deleteSession("A");
  store.world.dispatch.runUntilIdle();
  EXPECT_TRUE(store.ids().empty());
  store.files.failBelow(Path(Store::directory), 0);
  store.storage.saveSession(makeRecord("A"));
  store.world.dispatch.runUntilIdle();
  EXPECT_THAT(store.ids(), ElementsAre("A"));
}

}  // namespace
}  // namespace quillbeam
