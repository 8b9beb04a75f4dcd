#include "base/Record.h"

#include <gtest/gtest.h>

#include "base/Json.h"

namespace quillbeam {
namespace {

enum class TrackKind { audio, video };

std::string toText(TrackKind kind) { return kind == TrackKind::audio ? "audio" : "video"; }
std::optional<TrackKind> fromText(std::type_identity<TrackKind>, std::string_view text) {
  if (text == "audio") return TrackKind::audio;
  if (text == "video") return TrackKind::video;
  return std::nullopt;
}

struct Track {
  TrackKind kind = TrackKind::audio;
  std::uint16_t channels = 0;
  static constexpr auto fields() {
    return std::tuple(field("kind", &Track::kind), field("channels", &Track::channels));
  }
  bool operator==(const Track&) const = default;
};

struct Recording {
  std::string id;
  std::int64_t size = 0;
  double duration = 0;
  bool finished = false;
  Date startedAt;
  std::optional<std::string> team;
  std::vector<Track> tracks;
  static constexpr auto fields() {
    return std::tuple(field("id", &Recording::id), field("size", &Recording::size),
                      field("duration", &Recording::duration), field("finished", &Recording::finished),
                      field("startedAt", &Recording::startedAt), field("team", &Recording::team),
                      field("tracks", &Recording::tracks));
  }
  bool operator==(const Recording&) const = default;
};

std::string faultIn(std::string_view json) {
  const auto recording = fromValue<Recording>(parseJson(json).value());
  return recording ? "" : recording.error().description();
}

TEST(Record, writesItsFieldsInOrderAndComesBackEqual) {
  const Recording recording{.id = "r1",
                            .size = 6'000'000'000,
                            .duration = 2,
                            .finished = true,
                            .startedAt = parseIso8601("2026-03-09T07:05:00Z").value(),
                            .team = std::nullopt,
                            .tracks = {{TrackKind::video, 0}, {TrackKind::audio, 2}}};

  const std::string json = toJson(toValue(recording)).value();

  EXPECT_EQ(json, R"({"id":"r1","size":6000000000,"duration":2.0,"finished":true,"startedAt":"2026-03-09T07:05:00Z",)"
                  R"("tracks":[{"kind":"video","channels":0},{"kind":"audio","channels":2}]})");
  EXPECT_EQ(fromValue<Recording>(parseJson(json).value()).value(), recording);
}

TEST(Record, namesTheMemberThatDoesNotFit) {
  const std::string valid =
      R"({"id":"r","size":1,"duration":1,"finished":true,"startedAt":"2026-03-09T07:05:00Z","tracks":[]})";
  ASSERT_EQ(faultIn(valid), "");
  const auto with = [&](std::string from, std::string to) {
    std::string changed = valid;
    changed.replace(changed.find(from), from.size(), to);
    return faultIn(changed);
  };

  EXPECT_EQ(with(R"("id":"r",)", ""), "The data is malformed: member \"id\" is missing or mistyped");
  EXPECT_NE(with(R"("size":1)", R"("size":1.5)").find("\"size\""), std::string::npos);
  EXPECT_NE(with("07:05:00Z", "07:05").find("\"startedAt\""), std::string::npos);
  EXPECT_NE(with("[]", R"([{"kind":"video","channels":1},{"kind":"smell","channels":1}])").find("\"tracks[1].kind\""),
            std::string::npos);
  EXPECT_NE(with("[]", R"([{"kind":"video","channels":70000}])").find("\"tracks[0].channels\""), std::string::npos);
  EXPECT_EQ(faultIn("[]"), "The data is malformed: not a record");
}

}  // namespace
}  // namespace quillbeam
