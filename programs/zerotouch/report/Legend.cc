#include "platform/kel/Format.h"
#include "programs/zerotouch/report/Timeline.h"

namespace ZeroTouchCommand {

namespace {

std::string legendItem(std::string const& shape, std::string const& text) {
  return "<li><svg viewBox=\"0 0 14 14\" aria-hidden=\"true\">" + shape + "</svg>" + text + "</li>\n";
}

}  // namespace

std::string timelineLegend() {
  auto const box = [](char const* tone) {
    return Kel::format("<rect class=\"%s\" y=\"2\" width=\"14\" height=\"10\" rx=\"1.5\"/>", tone);
  };
  auto const strip = [](char const* tone) {
    return Kel::format("<rect class=\"%s\" y=\"5\" width=\"14\" height=\"4\" rx=\"1\"/>", tone);
  };
  return "<ul class=\"legend\">\n" + legendItem(box("work"), "at work") +
         legendItem(box("wait"), "waits to try again") + legendItem(box("done"), "shuts down") +
         legendItem(strip("wait"), "timer that ran out") +
         legendItem(strip("stopped"), "timer that was stopped") +
         legendItem(box("held"), "settings applied") + legendItem(strip("done"), "link up") +
         legendItem("<circle class=\"work\" cx=\"7\" cy=\"7\" r=\"5\"/>", "DHCP answer") +
         legendItem("<circle class=\"hollow\" cx=\"7\" cy=\"7\" r=\"5\"/>", "DHCP failure") +
         legendItem("<circle class=\"calm\" cx=\"7\" cy=\"7\" r=\"4\"/>", "event") +
         legendItem("<path class=\"bad\" d=\"M7 2l6 10h-12z\"/>", "warning") + "</ul>\n";
}

}  // namespace ZeroTouchCommand
