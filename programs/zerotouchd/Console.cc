#include "programs/zerotouchd/Console.h"

#include <array>
#include <ctime>
#include <iostream>

void say(std::string const& text) { std::cerr << "zerotouchd: " << text << std::endl; }

void printEvent(Kel::LogEvent const& event) {
  auto const seconds = static_cast<std::time_t>(event.time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 32> time{};
  std::strftime(time.data(), time.size(), "%F %T", &local);
  std::cerr << time.data() << " " << event.name << ": " << event.message << std::endl;
}
