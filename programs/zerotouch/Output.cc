#include "programs/zerotouch/Output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "platform/kel/Format.h"

namespace ZeroTouchCommand {

namespace {

// Why the first print or flush that failed did so; later failures only follow from it.
int outputError = 0;

}  // namespace

std::string duration(Kel::Seconds seconds) {
  if (seconds == Kel::never) return "unlimited";
  auto const whole = static_cast<std::uint64_t>(std::clamp(seconds, 0.0, 1e15));
  std::uint64_t const minutes = whole / 60;
  std::uint64_t const hours = minutes / 60;
  if (minutes == 0) return Kel::format("%d s", whole);
  if (hours == 0) return Kel::format("%d min %d s", minutes, whole % 60);
  if (hours < 24) return Kel::format("%d h %d min", hours, minutes % 60);
  return Kel::format("%d d %d h", hours / 24, hours % 24);
}

std::string preciseDuration(Kel::Seconds seconds) {
  return seconds < 10 ? Kel::format("%.2f s", std::max(seconds, 0.0)) : duration(seconds);
}

std::string dateAndTime(Kel::Seconds since1970) {
  auto const whole = static_cast<std::time_t>(std::clamp(since1970, 0.0, 1e11));
  std::tm local{};
  char text[32] = "?";
  if (localtime_r(&whole, &local) != nullptr) std::strftime(text, sizeof text, "%F %T", &local);
  return text;
}

std::string text(Kel::Value const& value) {
  auto const* string = value.as<std::string>();
  return string != nullptr ? *string : Statebase::dumpJson(value, 2);
}

std::string memberText(Kel::Value const& object, std::string const& name) {
  Kel::Value const& value = at(object, {name});
  return value == Kel::Value() ? "" : text(value);
}

bool contains(Kel::Value const& list, std::string const& name) {
  auto const* const names = list.as<Kel::ValueList>();
  return names != nullptr && std::ranges::find(*names, Kel::Value(name)) != names->end();
}

bool isTrue(Kel::Value const& value) { return value == Kel::Value(true); }

void print(std::string const& text) {
  errno = 0;
  bool const written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (!written && outputError == 0) outputError = errno;
}

std::string jsonText(Kel::Value const& value) { return Statebase::dumpJson(value, 2) + "\n"; }

void printJson(Kel::Value const& value) { print(jsonText(value)); }

void printJsonLine(Kel::Value const& value) { print(Statebase::dumpJson(value) + "\n"); }

int flushOutput() {
  bool const flushed = std::fflush(stdout) == 0;
  if (!flushed && outputError == 0) outputError = errno;
  return outputError;
}

}  // namespace ZeroTouchCommand
