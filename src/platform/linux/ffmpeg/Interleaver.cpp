#include "platform/linux/ffmpeg/Interleaver.h"

#include <algorithm>
#include <utility>

namespace quillbeam {

namespace {

MediaTime decodeTime(const EncodedPacket& packet, std::int32_t timescale) { return {packet.decodeTime, timescale}; }

}  // namespace

Interleaver::Interleaver(std::vector<std::int32_t> timescales, Timing timing)
    : timing_(timing), boundary_(timing.fragment) {
  for (const std::int32_t timescale : timescales) tracks_.push_back({.timescale = timescale});
}

void Interleaver::push(std::size_t index, EncodedPacket packet) {
  Track& track = tracks_[index];
  if (!track.packets.empty()) {
    EncodedPacket& previous = track.packets.back();
    previous.duration = packet.decodeTime - previous.decodeTime;
    track.started = true;
  }
  track.reached = decodeTime(packet, track.timescale);
  track.packets.push_back(std::move(packet));
}

void Interleaver::endTrack(std::size_t index, std::optional<MediaTime> end) {
  Track& track = tracks_[index];
  track.ended = true;
  if (!end || track.packets.empty()) return;
  EncodedPacket& last = track.packets.back();
  const std::int64_t duration = end->rescaled(track.timescale).value() - last.decodeTime;
  if (duration > 0) last.duration = duration;
}

void Interleaver::cutTrack(std::size_t index, MediaTime end) {
  Track& track = tracks_[index];
  const std::int64_t endTicks = end.rescaled(track.timescale).value();
  while (!track.packets.empty() && track.packets.back().presentationTime >= endTicks) track.packets.pop_back();
  if (track.packets.empty()) return;
  EncodedPacket& last = track.packets.back();
  last.duration = std::clamp<std::int64_t>(endTicks - last.presentationTime, 1, last.duration);
}

MediaTime Interleaver::furthest() const {
  MediaTime furthest = MediaTime::zero();
  for (const Track& track : tracks_) {
    if (track.reached) furthest = std::max(furthest, *track.reached);
  }
  return furthest;
}

std::optional<std::vector<Interleaver::TrackPacket>> Interleaver::firstPackets() const {
  std::vector<TrackPacket> firsts;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    if (!tracks_[i].started && !tracks_[i].ended) return std::nullopt;
    if (!tracks_[i].packets.empty()) firsts.push_back({i, tracks_[i].packets.front()});
  }
  return firsts;
}

bool Interleaver::holdsUp(const Track& track, MediaTime furthest) const {
  if (track.ended) return false;
  if (!track.started) return true;
  const MediaTime reached = track.reached.value_or(MediaTime::zero());
  return reached < boundary_ && furthest - reached < timing_.patience;
}

bool Interleaver::isTakeable(std::size_t index) const {
  const Track& track = tracks_[index];
  if (track.ended) return !track.packets.empty();
  // A packet without a successor has no duration yet.
  if (track.packets.size() < 2) return false;
  if (index != timing_.keyTrack || track.reached >= boundary_) return true;
  return std::any_of(track.packets.begin() + 1, track.packets.end(), [](const auto& packet) { return packet.isKey; });
}

bool Interleaver::isFragmentReady() const {
  const MediaTime reach = furthest();
  if (std::ranges::any_of(tracks_, [&](const Track& track) { return holdsUp(track, reach); })) return false;
  return earliestTrack() && (reach >= boundary_ || std::ranges::all_of(tracks_, &Track::ended));
}

std::optional<std::size_t> Interleaver::earliestTrack() const {
  std::optional<std::size_t> earliest;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    if (isTakeable(i) && (!earliest || nextTime(i) < nextTime(*earliest))) earliest = i;
  }
  return earliest;
}

MediaTime Interleaver::nextTime(std::size_t track) const {
  return decodeTime(tracks_[track].packets.front(), tracks_[track].timescale);
}

std::vector<Interleaver::TrackPacket> Interleaver::takeFragment() {
  std::vector<TrackPacket> fragment;
  auto track = earliestTrack();
  if (track && nextTime(*track) >= boundary_) {
    // All tracks jumped over the interval.
    while (nextTime(*track) >= boundary_) boundary_ = boundary_ + timing_.fragment;
    return fragment;
  }
  for (; track && nextTime(*track) < boundary_; track = earliestTrack()) {
    fragment.push_back({*track, std::move(tracks_[*track].packets.front())});
    tracks_[*track].packets.pop_front();
  }
  boundary_ = boundary_ + timing_.fragment;
  return fragment;
}

}  // namespace quillbeam
