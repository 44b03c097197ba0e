#include "run/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "host/console.h"

namespace MELDO_GLOBAL::app {

namespace {

constexpr std::string_view kStagePrefix = "PipelineStage: ";
constexpr std::string_view kSubstepPrefix = "Substep: ";

void PrintLine(std::string_view text) { std::fprintf(stderr, "%s\n", host::Escaped(text).c_str()); }

std::size_t TerminalWidth() {
  winsize size{};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

ProgressStyle StyleOfStandardError() {
  return ::isatty(STDERR_FILENO) ? ProgressStyle::Bar : ProgressStyle::Lines;
}

std::string FormatDuration(double seconds) {
  const i64 s = std::max<i64>(0, static_cast<i64>(seconds + 0.5));
  if (s < 3600) return fmt::format("{}:{:02}", s / 60, s % 60);
  return fmt::format("{}:{:02}:{:02}", s / 3600, s / 60 % 60, s % 60);
}

std::string FormatCount(double count) {
  const char* unit = "";
  for (const char* next : {"k", "M", "G"}) {
    if (count < 1000) break;
    count /= 1000;
    unit = next;
  }
  return *unit ? fmt::format("{:.3g}{}", count, unit) : fmt::format("{:.0f}", count);
}

Progress::Progress(i32 firstFrame, i32 lastFrame, ProgressStyle style)
    : mFirst(firstFrame), mLast(lastFrame), mStyle(style), mFrame(firstFrame) {
  if (mStyle == ProgressStyle::Bar)
    host::TheConsole().status = [this](std::string_view text) { OnStatus(text); };
  host::TheConsole().print = [this](std::string_view text) { Note(text); };
}

Progress::~Progress() {
  Erase();
  host::TheConsole() = {};
}

void Progress::BeginFrame(i32 frame) {
  mFrame = frame;
  mSubstep.clear();
  mStage.clear();
  Draw();
}

void Progress::EndFrame(const FrameRecord& record) {
  ++mFramesDone;
  mCells = record.Cells();
  mParticles = record.Particles();
  if (mStyle == ProgressStyle::Lines)
    PrintLine(fmt::format("frame {}/{}  {} substep{}{}  {:.2f} s", record.frame, mLast,
                          record.steps.size(), record.steps.size() == 1 ? "" : "s", Sizes(true),
                          record.wallSeconds));
}

void Progress::PictureDone(i32 frame, const PictureTime& time, double secondsLeft) {
  mSecondsLeft = secondsLeft;
  if (mStyle != ProgressStyle::Lines) return;
  std::string speed;
  if (const double tracing = time.seconds - time.setUpSeconds; time.samples > 0 && tracing > 0)
    speed = fmt::format(" ({:.2f} s to set up, {:.1f} M samples of the gas, {:.1f} M/s)",
                        time.setUpSeconds, time.samples * 1e-6, time.samples * 1e-6 / tracing);
  PrintLine(fmt::format("picture {}/{}  {:.2f} s{}  {} left", frame, mLast, time.seconds, speed,
                        FormatDuration(secondsLeft)));
}

void Progress::Note(std::string_view text) {
  if (mStyle == ProgressStyle::Quiet) return;
  Erase();
  PrintLine(text);
}

void Progress::Error(std::string_view text) {
  Erase();
  PrintLine(fmt::format("error: {}", text));
}

void Progress::OnStatus(std::string_view text) {
  if (text.starts_with(kStagePrefix)) mStage = text.substr(kStagePrefix.size());
  if (text.starts_with(kSubstepPrefix)) mSubstep = text.substr(kSubstepPrefix.size());
  DrawNowAndThen();
}

void Progress::ShowWork(std::string_view work, double secondsLeft) {
  mSubstep.clear();
  mStage = work;
  mSecondsLeft = secondsLeft;
  DrawNowAndThen();
}

void Progress::DrawNowAndThen() {
  constexpr auto period = std::chrono::milliseconds(80);
  if (Clock::now() - mDrawn >= period) Draw();
}

double Progress::SecondsLeft() const {
  if (mSecondsLeft) return *mSecondsLeft;
  if (mFramesDone == 0) return -1;
  const double spent = std::chrono::duration<double>(Clock::now() - mStart).count();
  return spent / mFramesDone * (mLast - mFirst + 1 - mFramesDone);
}

std::string Progress::Sizes(bool withCells) const {
  std::string text;
  if (withCells) text += fmt::format("  {} cells", FormatCount(static_cast<double>(mCells)));
  if (mParticles > 0)
    text += fmt::format("  {} particles", FormatCount(static_cast<double>(mParticles)));
  return text;
}

void Progress::Draw() {
  if (mStyle != ProgressStyle::Bar) return;
  mDrawn = Clock::now();
  constexpr i32 kBarWidth = 24;
  const i64 frames = i64{mLast} - mFirst + 1;
  const i32 filled = static_cast<i32>(i64{kBarWidth} * mFramesDone / std::max<i64>(frames, 1));
  std::string line = fmt::format("[{}{}] frame {}/{}", std::string(filled, '#'),
                                 std::string(kBarWidth - filled, '-'), mFrame, mLast);
  const double left = SecondsLeft();
  if (left >= 0) line += fmt::format("  {} left", FormatDuration(left));
  line += Sizes(mCells > 0);
  if (!mSubstep.empty()) line += "  substep " + mSubstep;
  if (!mStage.empty()) line += "  " + mStage;
  line.resize(std::min(line.size(), TerminalWidth() - 1));
  std::fprintf(stderr, "\r\033[K%s", line.c_str());
  std::fflush(stderr);
  mIsDrawn = true;
}

void Progress::Erase() {
  if (!mIsDrawn) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
  mIsDrawn = false;
}

}  // namespace MELDO_GLOBAL::app
