// A network device for a program without a loop: whole frames go out, and what DHCP servers, routers and
// neighbours send to a client comes in.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <vector>

#include "platform/linux/Descriptor.h"
#include "platform/model/values/Wire.h"

namespace Linux {

// Nothing of the device is changed. While the port is open, the device hears frames to another address, if it
// is to speak with one; the kernel ends that with the socket, however the program ends.
class FramePort {
 public:
  // Opens the device of that name. With `address`, the client that it plays has that MAC address, else the
  // device's own. Throws std::system_error with the call that failed; ENODEV says that there is no such
  // device.
  explicit FramePort(Kel::String const& device, std::optional<Wire::EthAddr> const& address = std::nullopt);

  Wire::EthAddr const& address() const { return address_; }
  // Whether the device is up, and has a carrier.
  bool hasLink() const;
  // Whether the device has an address of the family that others beyond its link can answer to.
  bool hasAddress(bool six) const;

  // A frame, with its Ethernet header. Throws std::system_error.
  void send(std::span<std::uint8_t const> frame) const;
  // The next frame to a client: DHCPv4, DHCPv6, advertisements of routers, solicitations of neighbours.
  // Nothing when none has come in time, or a signal did.
  std::optional<std::vector<std::uint8_t>> receive(std::chrono::milliseconds patience) const;

 private:
  Kel::String device_;
  int index_ = 0;
  Descriptor socket_;
  Wire::EthAddr address_;
};

}  // namespace Linux
