#include "platform/linux/settings/SettingKinds.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/errno.h>
#include <netlink/route/addr.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <new>

#include "platform/model/values/Grammar.h"

namespace Linux {

namespace {

Kel::String const absent = "absent";
Kel::String const present = "present";

Kel::String errorText() { return std::strerror(errno); }

std::optional<int> number(Kel::String const& text) {
  int result = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return result;
}

// netdevice(7) on a device that is known by its index.
class DeviceIoctl {
 public:
  explicit DeviceIoctl(int ifIndex) : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    request.ifr_ifindex = ifIndex;
    named_ = ioctl(socket_, SIOCGIFNAME, &request) == 0;
  }
  ~DeviceIoctl() {
    if (socket_ >= 0) close(socket_);
  }
  DeviceIoctl(DeviceIoctl const&) = delete;
  DeviceIoctl& operator=(DeviceIoctl const&) = delete;

  // False with errno set when the kernel refuses.
  bool call(unsigned long what) { return named_ && ioctl(socket_, what, &request) == 0; }
  Kel::String name() const { return named_ ? request.ifr_name : ""; }

  ifreq request{};

 private:
  int socket_;
  bool named_ = false;
};

class LinkUpSetting : public DeviceSetting {
 public:
  std::optional<Kel::String> read(int ifIndex, Kel::String const&) override {
    DeviceIoctl device(ifIndex);
    if (!device.call(SIOCGIFFLAGS)) return std::nullopt;
    return (device.request.ifr_flags & IFF_UP) != 0 ? "1" : "0";
  }

  Kel::String write(int ifIndex, Kel::String const&, Kel::String const& value) override {
    DeviceIoctl device(ifIndex);
    if (!device.call(SIOCGIFFLAGS)) return errorText();
    int const flags = device.request.ifr_flags;
    device.request.ifr_flags = static_cast<short>(value == "1" ? flags | IFF_UP : flags & ~IFF_UP);
    return device.call(SIOCSIFFLAGS) ? "" : errorText();
  }
};

class MtuSetting : public DeviceSetting {
 public:
  std::optional<Kel::String> read(int ifIndex, Kel::String const&) override {
    DeviceIoctl device(ifIndex);
    if (!device.call(SIOCGIFMTU)) return std::nullopt;
    return std::to_string(device.request.ifr_mtu);
  }

  Kel::String write(int ifIndex, Kel::String const&, Kel::String const& value) override {
    auto const mtu = number(value);
    if (!mtu) return "not an MTU";
    DeviceIoctl device(ifIndex);
    device.request.ifr_mtu = *mtu;
    return device.call(SIOCSIFMTU) ? "" : errorText();
  }
};

// A file of /proc/sys/net/ipv6/conf/DEVICE. It is missing when the kernel does no IPv6 on the device.
class Ipv6Sysctl : public DeviceSetting {
 public:
  explicit Ipv6Sysctl(char const* name) : name_(name) {}

  std::optional<Kel::String> read(int ifIndex, Kel::String const&) override {
    int const file = openFor(ifIndex, O_RDONLY);
    if (file < 0) return std::nullopt;
    char text[32];
    ssize_t size = ::read(file, text, sizeof text);
    close(file);
    if (size <= 0) return std::nullopt;
    if (text[size - 1] == '\n') --size;
    return Kel::String(text, static_cast<std::size_t>(size));
  }

  Kel::String write(int ifIndex, Kel::String const&, Kel::String const& value) override {
    int const file = openFor(ifIndex, O_WRONLY);
    if (file < 0) return errorText();
    bool const written = ::write(file, value.data(), value.size()) == static_cast<ssize_t>(value.size());
    Kel::String const reason = written ? "" : errorText();
    close(file);
    return reason;
  }

 private:
  int openFor(int ifIndex, int flags) const {
    Kel::String const device = DeviceIoctl(ifIndex).name();
    if (device.empty()) return -1;
    return open(("/proc/sys/net/ipv6/conf/" + device + "/" + name_).c_str(), flags | O_CLOEXEC);
  }

  Kel::String name_;
};

class AddressSetting : public DeviceSetting {
 public:
  explicit AddressSetting(Netlink& netlink) : netlink_(netlink) {}

  std::optional<Kel::String> read(int ifIndex, Kel::String const& argument) override {
    auto const address = Wire::IpGenAddrWithMask::fromString(argument);
    auto const addresses = netlink_.readAddresses(ifIndex);
    if (!address || !addresses) return std::nullopt;
    return addresses->contains(*address) ? present : absent;
  }

  Kel::String write(int ifIndex, Kel::String const& argument, Kel::String const& value) override {
    auto const address = Wire::IpGenAddrWithMask::fromString(argument);
    // The kernel takes many addresses that are none of a host's.
    Kel::String const fault = address ? Grammar::portAddressFault(*address) : "not an address";
    if (!fault.empty()) return fault;
    rtnl_addr* const request = requestFor(ifIndex, *address);
    int const error = value == present ? rtnl_addr_add(netlink_.requests(), request, 0)
                                       : rtnl_addr_delete(netlink_.requests(), request, 0);
    rtnl_addr_put(request);
    // It may have gone with the link.
    bool const done = error >= 0 || (value == absent && error == -NLE_NOADDR);
    return done ? "" : nl_geterror(error);
  }

 private:
  static rtnl_addr* requestFor(int ifIndex, Wire::IpGenAddrWithMask const& address) {
    std::uint32_t const v4 = htonl(address.v4().address.value);
    auto const v6 = address.v6();
    nl_addr* const local = address.isV6()
                               ? nl_addr_build(AF_INET6, v6.address.bytes.data(), v6.address.bytes.size())
                               : nl_addr_build(AF_INET, &v4, sizeof v4);
    rtnl_addr* const request = rtnl_addr_alloc();
    if (local == nullptr || request == nullptr) throw std::bad_alloc();
    nl_addr_set_prefixlen(local, address.isV6() ? v6.maskLength : address.v4().maskLength);
    rtnl_addr_set_ifindex(request, ifIndex);
    rtnl_addr_set_local(request, local);
    nl_addr_put(local);
    return request;
  }

  Netlink& netlink_;
};

}  // namespace

void kernelSettingsAre(DeviceSettings& settings, Netlink& netlink) {
  settings.settingIs(linkUpItem, std::make_unique<LinkUpSetting>());
  settings.settingIs(mtuItem, std::make_unique<MtuSetting>());
  settings.settingIs(addressItem, std::make_unique<AddressSetting>(netlink));
  for (char const* name : {disableIpv6Item, acceptRaItem, acceptRaDefRtrItem, routerSolicitationsItem}) {
    settings.settingIs(name, std::make_unique<Ipv6Sysctl>(name));
  }
}

}  // namespace Linux
