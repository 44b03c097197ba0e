#include "run/run_arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace MELDO_GLOBAL::app {

namespace {

bool ParseFrame(const std::string& text, std::optional<i32>& frame) {
  if (text.empty()) return true;
  i32 value = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || rest != end) return false;
  frame = value;
  return true;
}

}  // namespace

std::optional<FrameSelection> ParseFrames(const std::string& text) {
  const std::size_t colon = text.find(':');
  FrameSelection frames;
  if (colon == std::string::npos) {
    if (text.empty() || !ParseFrame(text, frames.first)) return {};
    frames.last = frames.first;
    return frames;
  }
  if (!ParseFrame(text.substr(0, colon), frames.first) ||
      !ParseFrame(text.substr(colon + 1), frames.last))
    return {};
  if (!frames.first && !frames.last) return {};
  if (frames.first && frames.last && *frames.first > *frames.last) return {};
  return frames;
}

std::optional<PictureSize> ParseSize(const std::string& text) {
  constexpr i32 kLargest = 16384;
  const char* end = text.data() + text.size();
  PictureSize size;
  const auto [cross, widthError] = std::from_chars(text.data(), end, size.width);
  if (widthError != std::errc() || cross == end || (*cross != 'x' && *cross != 'X')) return {};
  const auto [rest, heightError] = std::from_chars(cross + 1, end, size.height);
  if (heightError != std::errc() || rest != end) return {};
  const auto fits = [](i32 side) { return side >= 1 && side <= kLargest; };
  if (!fits(size.width) || !fits(size.height)) return {};
  return size;
}

std::optional<CheckpointPlan> ParseCheckpoints(const std::string& text) {
  constexpr double kMostMinutes = 1e6;
  constexpr i32 kMostFrames = 1000000000;
  CheckpointPlan plan{0, 0, 1};
  bool hasFrames = false, hasMinutes = false;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find(',', at), text.size());
    const std::string_view part = std::string_view(text).substr(at, end - at);
    const bool isTime = part.ends_with('m');
    bool& isGiven = isTime ? hasMinutes : hasFrames;
    if (part.empty() || isGiven) return {};
    isGiven = true;
    const char* last = part.data() + part.size() - (isTime ? 1 : 0);
    const auto [rest, error] = isTime ? std::from_chars(part.data(), last, plan.minutes)
                                      : std::from_chars(part.data(), last, plan.frames);
    if (error != std::errc() || rest != last || plan.frames < 0 || plan.frames > kMostFrames ||
        !(plan.minutes >= 0 && plan.minutes <= kMostMinutes))
      return {};
    at = end + 1;
  }
  return plan;
}

std::optional<u64> ParseByteCount(const std::string& text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || !(value > 0)) return {};
  std::string suffix(rest, end);
  for (char& c : suffix) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (suffix.ends_with("IB")) suffix.erase(suffix.size() - 2, 1);
  if (suffix.ends_with('B')) suffix.pop_back();
  const std::size_t power = suffix.empty() ? 0 : std::string_view("KMGT").find(suffix) + 1;
  if (suffix.size() > 1 || (power == 0 && !suffix.empty())) return {};
  for (std::size_t i = 0; i < power; ++i) value *= 1024;
  if (!(value >= 1 && value < 1e19)) return {};
  return static_cast<u64>(value);
}

}  // namespace MELDO_GLOBAL::app
