#include "platform/linux/posix/Environment.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "support/TestDirectory.h"

namespace quillbeam {
namespace {

Environment environment(std::map<std::string, std::string> variables) {
  return [variables = std::move(variables)](const char* name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

TEST(XdgPlaces, followsTheVariablesAndFallsBackBelowHome) {
  const Places plain = xdgPlaces(environment({{"HOME", "/home/ada"}}));
  EXPECT_EQ(plain.applicationSupport, "/home/ada/.local/share");
  EXPECT_EQ(plain.caches, "/home/ada/.cache");
  EXPECT_EQ(plain.preferences, "/home/ada/.config");
  EXPECT_EQ(plain.temporary, "/home/ada/.cache/io.quillbeam.app/tmp");
  EXPECT_EQ(plain.movies, "/home/ada/Videos");
  EXPECT_TRUE(plain.runtime.starts_with("/tmp/quillbeam-"));

  const Places set = xdgPlaces(environment({{"HOME", "/home/ada"},
                                            {"XDG_DATA_HOME", "/data/"},
                                            {"XDG_CACHE_HOME", "relative/is/ignored"},
                                            {"TMPDIR", "/scratch"},
                                            {"XDG_RUNTIME_DIR", "/run/user/7"}}));
  EXPECT_EQ(set.applicationSupport, "/data");
  EXPECT_EQ(set.caches, "/home/ada/.cache");
  EXPECT_EQ(set.temporary, "/scratch");
  EXPECT_EQ(set.runtime, "/run/user/7");
}

TEST(XdgPlaces, takesTheVideosDirectoryFromTheUsersOwnList) {
  const TestDirectory directory;
  const auto movies = [&](const std::string& line) {
    std::ofstream(directory.path() + "/user-dirs.dirs") << "# comment\nXDG_MUSIC_DIR=\"$HOME/M\"\n" << line << "\n";
    return xdgPlaces(environment({{"HOME", "/home/ada"}, {"XDG_CONFIG_HOME", directory.path()}})).movies;
  };
  EXPECT_EQ(movies(R"(XDG_VIDEOS_DIR="$HOME/Vidéos à moi/")"), "/home/ada/Vidéos à moi");
  EXPECT_EQ(movies(R"(XDG_VIDEOS_DIR="/media/a\"b")"), "/media/a\"b");
  EXPECT_EQ(movies(R"(#XDG_VIDEOS_DIR="/no")"), "/home/ada/Videos");
  EXPECT_EQ(movies(R"(XDG_VIDEOS_DIR="unfinished)"), "/home/ada/Videos");
}

}  // namespace
}  // namespace quillbeam
