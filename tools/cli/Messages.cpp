#include "cli/Messages.h"

#include <cstdio>
#include <string>

namespace quillbeam::cli {

void complain(std::string_view text) {
  const std::string line = "quillbeam: " + std::string(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

bool printLine(std::string_view line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  return std::fflush(stdout) == 0;
}

}  // namespace quillbeam::cli
