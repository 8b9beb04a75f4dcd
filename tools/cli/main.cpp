#include <csignal>

#include "cli/Command.h"

int main(int argumentCount, char** arguments) {
  using quillbeam::cli::ExitCode;
  // A reader that goes away (`quillbeam listen | head`) must not end a recording.
  std::signal(SIGPIPE, SIG_IGN);
  CLI::App program("Records the screen with its sound and the microphone, and serves UI layers over a socket.");
  const auto commands = quillbeam::cli::addCommands(program);
  try {
    program.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? static_cast<int>(ExitCode::ok) : static_cast<int>(ExitCode::badUsage);
  }
  for (const auto& command : commands) {
    if (command->wasGiven()) return static_cast<int>(command->run());
  }
  return static_cast<int>(ExitCode::badUsage);
}
