#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <thread>

#include "platform/linux/posix/PrintingStandardOutput.h"
#include "platform/linux/posix/SystemLogs.h"
#include "support/TestDirectory.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

using testing::HasSubstr;

struct Pipe {
  Pipe() {
    std::array<int, 2> ends;
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    reader = FileDescriptor(ends[0]);
    writer = FileDescriptor(ends[1]);
  }
  /// Everything until the last writer has closed.
  std::string drain() {
    writer.close();
    std::string text;
    std::array<char, 65536> buffer;
    ssize_t count = 0;
    while ((count = ::read(reader.get(), buffer.data(), buffer.size())) > 0) text.append(buffer.data(), count);
    return text;
  }

  FileDescriptor reader;
  FileDescriptor writer;
};

TEST(PrintingStandardOutput, printsEverythingInOrderBeforeItGoes) {
  Pipe pipe;
  std::string printed;
  std::thread reader([&] {
    std::array<char, 4096> buffer;
    ssize_t count = 0;
    while ((count = ::read(pipe.reader.get(), buffer.data(), buffer.size())) > 0) printed.append(buffer.data(), count);
  });
  std::string expected;
  {
    PrintingStandardOutput output(pipe.writer.get(), 30s);
    for (int i = 0; i < 1000; ++i) {
      const std::string line = "line " + std::to_string(i);
      output.print(line);
      expected += line + "\n";
    }
    output.print(std::string(20'000, 'x'));
    expected += std::string(20'000, 'x') + "\n";
  }
  pipe.writer.close();
  reader.join();
  EXPECT_TRUE(printed == expected);
}

TEST(PrintingStandardOutput, neverWaitsForAReaderAndSaysWhereLinesAreMissing) {
  Pipe pipe;
  {
    PrintingStandardOutput output(pipe.writer.get(), 30s);
    const std::string line(1000, 'x');
    for (int i = 0; i < 5000; ++i) output.print(line);  // nobody reads: returns all the same
    std::thread([&] {
      std::array<char, 65536> buffer;
      std::string text;
      while (text.find("lines were dropped") == std::string::npos) {
        const ssize_t count = ::read(pipe.reader.get(), buffer.data(), buffer.size());
        if (count <= 0) break;
        text.append(buffer.data(), static_cast<std::size_t>(count));
      }
      EXPECT_THAT(text.substr(text.size() - 80), HasSubstr("lines were dropped"));
    }).join();
    output.print("after the gap");
  }
  EXPECT_EQ(pipe.drain(), "after the gap\n");
}

TEST(PrintingStandardOutput, givesUpOnAStuckReaderAndOnOneThatLeft) {
  Pipe stuck;
  {
    PrintingStandardOutput output(stuck.writer.get(), 20ms);
    for (int i = 0; i < 200; ++i) output.print(std::string(1000, 'x'));
  }
  stuck.reader.close();  // lets the abandoned thread end
  Pipe left;
  left.reader.close();
  PrintingStandardOutput output(left.writer.get());
  output.print("nobody hears this, and nothing dies of it");
}

TEST(JournalLog, sendsTheNativeFieldsAndIsNotThereWithoutAJournal) {
  const TestDirectory directory;
  const std::string path = directory.path() + "/journal";
  EXPECT_EQ(JournalLog::create(LogLevel::info, path), nullptr);

  const FileDescriptor journal(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  std::ranges::copy(path, address.sun_path);
  ASSERT_EQ(::bind(journal.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto log = JournalLog::create(LogLevel::info, path);
  ASSERT_NE(log, nullptr);
  EXPECT_FALSE(log->isEnabled(LogLevel::debug));
  log->write(LogLevel::error, "upload", "parts", "two\nlines");
  std::array<char, 4096> buffer;
  const ssize_t count = ::recv(journal.get(), buffer.data(), buffer.size(), 0);
  const std::string datagram(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  using namespace std::string_literals;
  EXPECT_THAT(datagram, HasSubstr("MESSAGE\n\x09\0\0\0\0\0\0\0two\nlines\n"s));
  EXPECT_THAT(datagram, HasSubstr("PRIORITY\n\x01\0\0\0\0\0\0\0"s + "3\n"));
  EXPECT_THAT(datagram, HasSubstr("QUILLBEAM_CATEGORY\n\x05\0\0\0\0\0\0\0parts\n"s));
}

}  // namespace
}  // namespace quillbeam
