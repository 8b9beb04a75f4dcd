#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "base/Value.h"
#include "platform/linux/posix/PosixFiles.h"
#include "platform/sim/SimFiles.h"
#include "support/Worlds.h"

namespace quillbeam {
namespace {

using testing::ElementsAre;

ByteChain bytesOf(std::string_view text) { return ByteChain(Bytes(text.begin(), text.end())); }

class FilesConformance : public ConformanceTest {
 protected:
  FilesConformance() {
    if (isSim()) {
      files_ = std::make_unique<SimFiles>(dispatch());
    } else {
      files_ = std::make_unique<PosixFiles>();
    }
    EXPECT_TRUE(files_->createDirectories(root_));
  }

  Files& files() { return *files_; }
  Path at(std::string_view name) const { return joined(root_, name); }
  std::string content(const Path& path) {
    const Result<Bytes> bytes = files_->read(path);
    return bytes ? std::string(bytes->begin(), bytes->end()) : bytes.error().description();
  }
  std::vector<std::string> names(const Path& path) {
    return files_->list(path).value_or(std::vector<std::string>{"(failed)"});
  }
  const Path& root() const { return root_; }
  template <class T>
  static int errorCode(const Result<T>& result) {
    if (result) return 0;
    EXPECT_EQ(result.error().domain(), posixErrorDomain);
    return result.error().code();
  }

 private:
  TestDirectory directory_;
  const Path root_ = joined(directory_.path(), "root");
  std::unique_ptr<Files> files_;
};
QB_ON_BOTH_WORLDS(FilesConformance);

TEST_P(FilesConformance, copiesPiecesOfFilesThatAreLongEnough) {
  ASSERT_TRUE(files().writeAtomically(at("source"), bytesOf("0123456789")));
  ASSERT_TRUE(files().copyNew({at("source"), 3, 4}, at("piece")));
  EXPECT_EQ(content(at("piece")), "3456");
  EXPECT_EQ(errorCode(files().copyNew({at("source"), 0, 1}, at("piece"))), EEXIST);
  EXPECT_TRUE(files().copyNew({at("source"), 8, 3}, at("other")).error().is(FilesError::endOfFile));
  ASSERT_TRUE(files().appendCopy({at("source"), 0, 2}, at("piece")));
  EXPECT_TRUE(files().appendCopy({at("source"), 8, 3}, at("piece")).error().is(FilesError::endOfFile));
  EXPECT_EQ(content(at("piece")), "345601") << "what failed left nothing";
  EXPECT_EQ(files().readRange(at("source"), 8, 3).value_or(Bytes()), (Bytes{'8', '9'}));
  EXPECT_THAT(names(root()), ElementsAre("piece", "source"));
}

TEST_P(FilesConformance, writesAtomicallyOverWhatIsThereAndLeavesNothingElse) {
  const Path path = at("state.json");
  ASSERT_TRUE(files().writeAtomically(path, bytesOf("old")));
  ByteChain chain = bytesOf("new ");
  chain.append(bytesOf("content"));
  chain.append(ByteChain(Bytes(300'000, 'x')));
  ASSERT_TRUE(files().writeAtomically(path, chain));
  EXPECT_EQ(content(path), "new content" + std::string(300'000, 'x'));
  EXPECT_THAT(names(root()), ElementsAre("state.json"));
  ASSERT_TRUE(files().writeAtomically(path, ByteChain()));
  EXPECT_EQ(content(path), "");
}

TEST_P(FilesConformance, aFailedAtomicWriteLeavesNoTemporaryFile) {
  ASSERT_TRUE(files().createDirectories(at("taken")));
  EXPECT_EQ(errorCode(files().writeAtomically(at("taken"), bytesOf("x"))), EISDIR);
  EXPECT_THAT(names(root()), ElementsAre("taken"));
  EXPECT_EQ(errorCode(files().writeAtomically(at("missing/file"), bytesOf("x"))), ENOENT);
}

TEST_P(FilesConformance, renamesFilesOverFilesAndDirectoriesWithAllTheyHold) {
  ASSERT_TRUE(files().writeNew(at("from"), bytesOf("moved"), Durability::cached));
  ASSERT_TRUE(files().writeNew(at("to"), bytesOf("replaced"), Durability::cached));
  ASSERT_TRUE(files().rename(at("from"), at("to")));
  EXPECT_EQ(content(at("to")), "moved");
  EXPECT_FALSE(files().exists(at("from")));

  ASSERT_TRUE(files().createDirectories(at("recording/segments")));
  ASSERT_TRUE(files().writeNew(at("recording/segments/1"), bytesOf("s"), Durability::cached));
  ASSERT_TRUE(files().rename(at("recording"), at("kept")));
  EXPECT_EQ(content(at("kept/segments/1")), "s");

  EXPECT_EQ(errorCode(files().rename(at("nothing"), at("x"))), ENOENT);
}

TEST_P(FilesConformance, removesAFileOrAWholeDirectoryButNotItsNeighbours) {
  ASSERT_TRUE(files().createDirectories(at("session/parts")));
  ASSERT_TRUE(files().writeNew(at("session/parts/1"), bytesOf("x"), Durability::cached));
  ASSERT_TRUE(files().writeNew(at("session.json"), bytesOf("x"), Durability::cached));
  ASSERT_TRUE(files().remove(at("session")));
  EXPECT_THAT(names(root()), ElementsAre("session.json"));
  ASSERT_TRUE(files().remove(at("session.json")));
  EXPECT_EQ(errorCode(files().remove(at("session.json"))), ENOENT);
}

TEST_P(FilesConformance, locksExcludeEachOtherAndTellTheHoldersNote) {
  auto first = files().lock(at("lock"), "pid 1, with a rather long note");
  ASSERT_TRUE(first);
  const auto refused = files().lock(at("lock"), "pid 2");
  ASSERT_FALSE(refused);
  EXPECT_TRUE(refused.error().is(FilesError::locked));
  EXPECT_EQ(*refused.error().payload()->asString(), "pid 1, with a rather long note");
  first->reset();
  const auto second = files().lock(at("lock"), "pid 2");
  ASSERT_TRUE(second);
  EXPECT_EQ(content(at("lock")), "pid 2") << "nothing of the former, longer note is left";
}

}  // namespace
}  // namespace quillbeam
