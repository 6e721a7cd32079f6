// Frames from a port: which of them count as LLDP, and the tag that the kernel takes out of them. That the
// filter for the kernel passes the right ones is shown with real frames.
#include <linux/if_ether.h>
#include <linux/if_packet.h>

#include "platform/kel/testing/SimulatedTime.h"
#include "platform/linux/packets/PacketSockets.h"
#include "tests/fuzz/Fuzz.h"
#include "zerotouch/agent/ZeroTouchAgent.h"
#include "zerotouch/intf/LldpWatch.h"

namespace {

struct Socket : Wire::Pam {
  using Pam::Pam;
  std::vector<std::uint8_t> rxPkt() override { return std::exchange(frame, {}); }
  std::vector<std::uint8_t> frame;
};

// A port of an agent that is switched off.
struct Port {
  Kel::testing::SimulatedTime time;
  ZeroTouch::MountedEntities platform;
  Kel::Ptr<ZeroTouch::AgentCreator> const agent = platform.createAgent(ZeroTouch::agentCreatorFactory);
  Wire::IntfId const id{"Ethernet1"};
  Kel::Ptr<Interface::EthPhyIntfStatus> const status = Kel::makePtr<Interface::EthPhyIntfStatus>(id);
  Kel::Ptr<ZeroTouch::IntfStatus> const record = Kel::makePtr<ZeroTouch::IntfStatus>(id, status);
  Kel::Ptr<Socket> const socket = Kel::makePtr<Socket>(id);
  Kel::Ptr<ZeroTouch::IntfPamSm> const watch =
      Kel::makePtr<ZeroTouch::IntfPamSm>("Ethernet1", socket, agent->ztSm().get(), record.get());

  bool hears(std::vector<std::uint8_t> const& frame) {
    bool heard = false;
    for (auto const link : {Interface::LinkStatus::down, Interface::LinkStatus::up}) {
      KEL_ASSERT(!heard, "nothing is heard without a link");
      status->linkStatusIs(link);
      socket->frame = frame;
      socket->readableCountIs(socket->readableCount() + 1);
      heard = agent->ztSm()->intfLldpPool().contains(id);
    }
    time.advance(119);
    KEL_ASSERT(agent->ztSm()->intfLldpPool().contains(id) == heard, "kept for that long");
    time.advance(1);
    KEL_ASSERT(agent->ztSm()->intfLldpPool().empty(), "forgotten after two minutes");
    return heard;
  }
};

}  // namespace

void fuzz(std::string_view input) {
  static Port port;
  std::vector<std::uint8_t> const frame(input.begin(), input.end());
  bool const heard = port.hears(frame);
  KEL_ASSERT(!heard || input.find("\x88\xcc"sv, 12) <= 16, "an EtherType in its place");
  if (input.size() < 16 || input.substr(12, 2) != "\x81\x00"sv) return;

  tpacket_auxdata aux{};
  aux.tp_status = TP_STATUS_VLAN_VALID;
  aux.tp_vlan_tci = static_cast<std::uint16_t>(frame[14] << 8 | frame[15]);
  auto stripped = frame;
  stripped.erase(stripped.begin() + 12, stripped.begin() + 16);
  bool const untagged = port.hears(stripped);
  Linux::putTagBack(stripped, aux);
  KEL_ASSERT(stripped == frame, "the tag is back");
  KEL_ASSERT(heard == untagged || input.find("\x81\x00"sv, 16) == 16, "a tag changes nothing");
}
