#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/Json.h"
#include "support/UploadWorld.h"

namespace quillbeam {
namespace {

using testing::ElementsAre;
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

TEST(UploadSessionRecord, decodesOnlyWhenEveryRequiredMemberIsRight) {
  EXPECT_EQ(toJson(toValue(decoded(fullText()).value())).value(), fullText());
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

}  // namespace
}  // namespace quillbeam
