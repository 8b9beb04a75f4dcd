#include "platform/linux/posix/JsonUserDefaults.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "platform/sim/SimDispatch.h"
#include "platform/sim/SimFiles.h"
#include "platform/sim/SimLogging.h"

namespace quillbeam {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

ByteChain bytesOf(std::string_view text) { return ByteChain(Bytes(text.begin(), text.end())); }

struct Machine {
  std::unique_ptr<JsonUserDefaults> open() {
    return std::make_unique<JsonUserDefaults>(dispatch, files, log, "/config/settings.json");
  }
  std::string file(const Path& path = "/config/settings.json") {
    const Result<Bytes> bytes = files.read(path);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "(none)";
  }

  SimDispatch dispatch;
  SimFiles files{dispatch};
  SimSystemLog log;
};

TEST(JsonUserDefaults, setsADamagedFileAsideAndStartsAfresh) {
  Machine machine;
  ASSERT_TRUE(machine.files.createDirectories("/config"));
  for (const char* damaged : {"{\"a\": 1", "[1, 2]"}) {
    ASSERT_TRUE(machine.files.writeAtomically("/config/settings.json", bytesOf(damaged)));
    const auto defaults = machine.open();
    EXPECT_TRUE(defaults->get("a").isNil());
    EXPECT_EQ(machine.file("/config/settings.json.corrupt"), damaged);
    defaults->set("b", 2);
  }
  EXPECT_EQ(machine.file(), "{\n  \"b\": 2\n}\n");
  EXPECT_THAT(machine.log.lines(), SizeIs(2));
}

TEST(JsonUserDefaults, aFailedWriteIsLoggedAndMadeUpForByTheNextSet) {
  Machine machine;
  const auto defaults = machine.open();
  defaults->set("lost?", 1);
  machine.files.failStep(2, ENOSPC);
  machine.dispatch.runUntilIdle();
  ASSERT_THAT(machine.log.lines(), SizeIs(1));
  EXPECT_EQ(machine.file(), "(none)");
  defaults->set("other", 2);
  machine.dispatch.runUntilIdle();
  EXPECT_THAT(machine.file(), HasSubstr("\"lost?\": 1"));
}

TEST(JsonUserDefaults, aPowerCutLeavesTheFormerOrTheNewSettings) {
  for (std::uint64_t at = 1; at <= 5; ++at) {
    Machine machine;
    {
      auto defaults = machine.open();
      defaults->set("key", "old");
      machine.dispatch.runUntilIdle();
      defaults->set("key", "new");
      machine.files.dieAtStep(at);
      machine.dispatch.runUntilIdle();
    }
    machine.files.powerCut(PowerCut::tearUnsynced);
    const Value found = machine.open()->get("key");
    EXPECT_TRUE(found == Value("old") || found == Value("new")) << at;
  }
}

}  // namespace
}  // namespace quillbeam
