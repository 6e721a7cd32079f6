// Frames from a port: which of them count as LLDP, here and in the filter that the kernel runs.
#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include "platform/linux/PacketSocket.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/IdleAgent.h"
#include "zerotouch/intf/LldpWatch.h"

namespace {

struct Socket : Wire::Pam {
  using Pam::Pam;
  std::vector<std::uint8_t> rxPkt() override { return std::exchange(frame, {}); }
  std::vector<std::uint8_t> frame;
};

struct Port : IdleAgent {
  Wire::IntfId const id{"Ethernet1"};
  Kel::Ptr<Interface::EthPhyIntfStatus> const status = Kel::makePtr<Interface::EthPhyIntfStatus>(id);
  Kel::Ptr<ZeroTouch::IntfStatus> const record = Kel::makePtr<ZeroTouch::IntfStatus>(id, status);
  Kel::Ptr<Socket> const socket = Kel::makePtr<Socket>(id);
  Kel::Ptr<ZeroTouch::IntfPamSm> const watch =
      Kel::makePtr<ZeroTouch::IntfPamSm>("Ethernet1", socket, &sm(), record.get());

  Port() { status->linkStatusIs(Interface::LinkStatus::up); }

  bool hears(std::vector<std::uint8_t> frame) {
    socket->frame = std::move(frame);
    socket->readableCountIs(socket->readableCount() + 1);
    bool const heard = sm().intfLldpPool().contains(id);
    time.advance(120);
    KEL_ASSERT(sm().intfLldpPool().empty(), "forgotten after two minutes");
    return heard;
  }
  // What the agent's filter says of the frame: the few operations of classic BPF that it uses.
  bool passes(std::string_view frame) const {
    auto const& program = agent->ztPamMan()->ethDevPamManager()->filterProgram();
    std::uint32_t value = 0;
    for (std::uint16_t at = 0;; ++at) {
      Interface::FilterInstruction const step = program.get(at);
      std::size_t const width = step.code == 0x20 ? 4 : 2;
      if (step.code == 0x06) return step.k != 0;
      if (step.code == 0x15) {
        at = static_cast<std::uint16_t>(at + (value == step.k ? step.jt : step.jf));
        continue;
      }
      KEL_ASSERT(step.code == 0x20 || step.code == 0x28, "a load");
      if (step.k + width > frame.size()) return false;
      value = 0;
      for (char const byte : frame.substr(step.k, width))
        value = value << 8 | static_cast<std::uint8_t>(byte);
    }
  }
};

}  // namespace

void fuzz(std::string_view input) {
  static Port port;
  std::vector<std::uint8_t> frame(input.begin(), input.end());
  auto const field = [&](std::size_t at) { return input.substr(std::min(at, input.size()), 2); };
  bool const tagged = field(12) == "\x81\x00"sv;
  bool const isLldp = field(tagged ? 16 : 12) == "\x88\xcc"sv;
  KEL_ASSERT(port.hears(frame) == isLldp, "LLDP, untagged or with one tag");
  bool const toNearestBridge = input.starts_with("\x01\x80\xc2\x00\x00\x0e"sv);
  KEL_ASSERT(port.passes(input) == (isLldp && toNearestBridge), "the filter passes LLDP only");

  // The kernel takes the tag out of the frame.
  if (!tagged || input.size() < 16) return;
  tpacket_auxdata aux{};
  aux.tp_status = TP_STATUS_VLAN_VALID;
  aux.tp_vlan_tci = static_cast<std::uint16_t>(frame[14] << 8 | frame[15]);
  auto stripped = frame;
  stripped.erase(stripped.begin() + 12, stripped.begin() + 16);
  Linux::putTagBack(stripped, aux);
  KEL_ASSERT(stripped == frame, "the tag is back");
}
