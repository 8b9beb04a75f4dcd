#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <string>
#include <thread>

#include "platform/linux/posix/FileDescriptor.h"
#include "platform/linux/posix/PrintingStandardOutput.h"

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

}  // namespace
}  // namespace quillbeam
