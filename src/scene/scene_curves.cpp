// Values that are lists of points: curves, gradients, keys.
#include <fmt/format.h>

#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

using namespace host;

std::optional<Value> ValueReader::ReadCurve(const JsonValue& value, const Subject& subject,
                                            const std::string& what) {
  if (value.IsNull()) return std::monostate{};
  const JsonValue::Array* items = value.Items();
  if (!items || items->empty()) {
    mContext.Error(value, subject,
                   fmt::format("{}: expected a list of points [x, y], got {}", what,
                               items ? "an empty one" : KindOf(value)));
    return {};
  }
  SplineData curve;
  for (const JsonValue& item : *items) {
    const auto xy = mContext.ReadNumbers(item, 2, subject, what);
    if (!xy) return {};
    if (!curve.knots.empty() && (*xy)[0] <= curve.knots.back().x) {
      mContext.Error(item, subject,
                     fmt::format("{}: x must rise from point to point; {} follows {}", what,
                                 (*xy)[0], curve.knots.back().x));
      return {};
    }
    curve.knots.push_back({(*xy)[0], (*xy)[1]});
  }
  return curve;
}

std::optional<Value> ValueReader::ReadGradient(const JsonValue& value, const Subject& subject,
                                               const std::string& what) {
  if (value.IsNull()) return std::monostate{};
  const JsonValue::Array* items = value.Items();
  if (!items || items->empty()) {
    mContext.Error(value, subject,
                   fmt::format("{}: expected a list of [position, [r, g, b]], got {}", what,
                               items ? "an empty one" : KindOf(value)));
    return {};
  }
  Gradient gradient;
  for (const JsonValue& item : *items) {
    const JsonValue::Array* pair = item.Items();
    if (!pair || pair->size() != 2) {
      mContext.Error(item, subject, fmt::format("{}: expected [position, [r, g, b]]", what));
      return {};
    }
    const auto position = mContext.ReadNumber((*pair)[0], subject, what);
    const auto colour = mContext.ReadVector((*pair)[1], subject, what);
    if (!position || !colour) return {};
    const bool rises = gradient.knots.empty() || *position > gradient.knots.back().position;
    if (*position < 0 || *position > 1 || !rises) {
      mContext.Error((*pair)[0], subject,
                     fmt::format("{}: positions must rise from 0 to 1; got {}", what, *position));
      return {};
    }
    gradient.knots.push_back({*position, *colour});
  }
  return gradient;
}

namespace {

std::optional<Interpolation> ReadInterpolation(SceneContext& context, const JsonValue& value,
                                               const Subject& subject, const std::string& what) {
  constexpr std::pair<std::string_view, Interpolation> words[] = {
      {"linear", Interpolation::Linear},
      {"step", Interpolation::Step},
      {"smooth", Interpolation::Smooth}};
  const std::string* text = value.Text();
  for (const auto& [word, interpolation] : words)
    if (text && word == *text) return interpolation;
  context.Error(value, subject,
                fmt::format("{}: 'interpolation': expected linear, step or smooth, got {}", what,
                            text ? fmt::format("'{}'", Shown(*text)) : std::string(KindOf(value))));
  return {};
}

/// Reads an object with "keys" and "interpolation": calls take(frame, value) for each key, which
/// answers whether it could be read. False with a problem.
bool ReadKeys(SceneContext& context, const JsonValue& value, const Subject& subject,
              const std::string& what, Interpolation& interpolation,
              const std::function<bool(double, const JsonValue&)>& take) {
  bool isWhole = context.CheckKeys(value, {"keys", "interpolation"}, subject + what + ": ");
  if (const JsonValue* word = value.Find("interpolation")) {
    const auto read = ReadInterpolation(context, *word, subject, what);
    interpolation = read.value_or(Interpolation::Linear);
    isWhole = isWhole && read;
  }
  const JsonValue* keys = value.Find("keys");
  const JsonValue::Array* items = keys ? keys->Items() : nullptr;
  if (!items || items->empty()) {
    context.Error(keys ? *keys : value, subject,
                  fmt::format("{}: expected \"keys\": [[frame, value], ...], at least one", what));
    return false;
  }
  std::optional<double> last;
  for (const JsonValue& item : *items) {
    const JsonValue::Array* pair = item.Items();
    if (!pair || pair->size() != 2) {
      context.Error(item, subject, fmt::format("{}: expected [frame, value]", what));
      return false;
    }
    const auto frame = context.ReadNumber((*pair)[0], subject, what);
    if (!frame) return false;
    if (last && *frame <= *last) {
      context.Error(
          (*pair)[0], subject,
          fmt::format("{}: frames must rise from key to key; {} follows {}", what, *frame, *last));
      return false;
    }
    if (!take(*frame, (*pair)[1])) return false;
    last = frame;
  }
  return isWhole;
}

}  // namespace

std::optional<Track> ReadTrack(
    SceneContext& context, const JsonValue& value, const Subject& subject, const std::string& what,
    const std::function<std::optional<Value>(const JsonValue&)>& readValue) {
  Track track;
  const bool isRead = ReadKeys(context, value, subject, what, track.interpolation,
                               [&](double frame, const JsonValue& item) {
                                 auto key = readValue(item);
                                 if (key) track.keys.push_back({frame, std::move(*key)});
                                 return key.has_value();
                               });
  return isRead ? std::optional(std::move(track)) : std::nullopt;
}

std::optional<PointTrack> ReadPointTrack(SceneContext& context, const JsonValue& value,
                                         std::size_t atLeast, const Subject& subject,
                                         const std::string& what) {
  PointTrack track;
  const auto take = [&](double frame, const JsonValue& item) {
    auto points = context.ReadPoints(item, atLeast, subject, what);
    if (!points) return false;
    if (!track.keys.empty() && points->size() != track.keys.front().points.size()) {
      context.Error(item, subject,
                    fmt::format("{}: every key has as many points as the first, {}; here are {}",
                                what, track.keys.front().points.size(), points->size()));
      return false;
    }
    track.keys.push_back({frame, std::move(*points)});
    return true;
  };
  const bool isRead = ReadKeys(context, value, subject, what, track.interpolation, take);
  return isRead ? std::optional(std::move(track)) : std::nullopt;
}

}  // namespace MELDO_GLOBAL::app
