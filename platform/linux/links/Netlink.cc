#include "platform/linux/links/Netlink.h"

#include <linux/rtnetlink.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "platform/kel/Trace.h"

namespace Linux {

namespace {

Kel::TraceFacility trace("Netlink");

// The most messages that one pass of the loop handles, so that a storm of them does not hold up other work.
constexpr int eventsPerPass = 64;
// How long after an overrun everything is read anew, in seconds. It bounds the cost of a storm that goes on.
constexpr Kel::Seconds resyncDelay = 0.05;
constexpr Kel::Seconds resyncRetryDelay = 1;
// A device with many virtual functions needs more than libnl's default of four pages.
constexpr std::size_t messageBufferSize = 64 * 1024;

[[noreturn]] void refuse(char const* what, int error) {
  throw std::runtime_error(Kel::String("netlink: ") + what + ": " + nl_geterror(error));
}

nl_sock* openSocket() {
  nl_sock* const socket = nl_socket_alloc();
  if (socket == nullptr) throw std::bad_alloc();
  nl_socket_set_msg_buf_size(socket, messageBufferSize);
  nl_socket_disable_msg_peek(socket);
  if (int const error = nl_connect(socket, NETLINK_ROUTE); error < 0) {
    nl_socket_free(socket);
    refuse("cannot open a socket", error);
  }
  return socket;
}

nl_msg* newRequest(int type) {
  nl_msg* const message = nlmsg_alloc_simple(type, NLM_F_DUMP);
  if (message == nullptr) throw std::bad_alloc();
  return message;
}

}  // namespace

Netlink::Netlink(int receiveBuffer) {
  try {
    requests_ = openSocket();
    openEvents(receiveBuffer);
    // Joined first, so that no change falls between the dump and the first notification.
    if (!dump()) throw std::runtime_error("netlink: cannot read the devices and addresses");
  } catch (...) {
    nl_socket_free(events_);
    nl_socket_free(requests_);
    throw;
  }
  changed_.clear();
  eventsDescriptor_ = Kel::makePtr<Kel::FileDescriptor>();
  readable_ = Kel::Reactor(eventsDescriptor_, &Kel::FileDescriptor::NotifieeConst::onReadableCount,
                           [this] { readEvents(); });
  eventsDescriptor_->descriptorIs(nl_socket_get_fd(events_));
  eventsDescriptor_->notifyOnReadableIs(true);
}

Netlink::~Netlink() {
  eventsDescriptor_->descriptorIs(-1);
  readable_ = {};
  nl_socket_free(events_);
  nl_socket_free(requests_);
}

Link const* Netlink::link(int ifIndex) const {
  auto const found = links_.find(ifIndex);
  return found == links_.end() ? nullptr : &found->second;
}

Addresses const& Netlink::addresses(int ifIndex) const {
  static Addresses const none;
  auto const found = addresses_.find(ifIndex);
  return found == addresses_.end() ? none : found->second;
}

void Netlink::listenerDel(Listener* listener) { std::erase(listeners_, listener); }

void Netlink::openEvents(int receiveBuffer) {
  events_ = openSocket();
  nl_socket_disable_seq_check(events_);
  nl_socket_modify_cb(events_, NL_CB_VALID, NL_CB_CUSTOM, onMessage, this);
  nl_socket_modify_cb(requests_, NL_CB_VALID, NL_CB_CUSTOM, onMessage, this);
  nl_socket_set_nonblocking(events_);
  // Root may exceed the system's limit. Should it be refused, the socket only overruns earlier.
  setsockopt(nl_socket_get_fd(events_), SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer);
  // With this option the kernel applies the filters of a request for a dump.
  int const strict = 1;
  setsockopt(nl_socket_get_fd(requests_), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &strict, sizeof strict);
  int const error = nl_socket_add_memberships(events_, RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                                              RTNLGRP_NONE);
  if (error < 0) refuse("cannot follow devices and addresses", error);
}

void Netlink::readEvents() {
  for (int i = 0; i < eventsPerPass; ++i) {
    int const error = nl_recvmsgs_default(events_);
    announce();
    if (error == -NLE_AGAIN) return;
    if (error < 0) {
      KEL_TRACE(trace, 1, "notifications lost: " << nl_geterror(error));
      resync_.in(resyncDelay);
      return;
    }
  }
}

int Netlink::onMessage(nl_msg* message, void* self) {
  static_cast<Netlink*>(self)->take(message);
  return NL_OK;
}

void Netlink::take(nl_msg* message) {
  if (nlmsg_get_src(message)->nl_pid != 0) return;  // not from the kernel
  nlmsghdr* const header = nlmsg_hdr(message);
  if (reader_) return reader_(header);
  switch (header->nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return takeLink(header);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return takeAddress(header);
    default:
      return;
  }
}

void Netlink::takeLink(nlmsghdr* message) {
  auto const link = linkFromMessage(message);
  if (!link) return;
  if (message->nlmsg_type == RTM_DELLINK) {
    bool const hadAddresses = addresses_.erase(link->ifIndex) != 0;
    if (links_.erase(link->ifIndex) != 0) changed_.push_back({false, link->ifIndex});
    if (hadAddresses) changed_.push_back({true, link->ifIndex});
    return;
  }
  Link& known = links_[link->ifIndex];
  if (known == *link) return;
  known = *link;
  changed_.push_back({false, link->ifIndex});
}

void Netlink::takeAddress(nlmsghdr* message) {
  auto const address = addressFromMessage(message);
  if (!address) return;
  Addresses& known = (*answer_)[address->ifIndex];
  if (message->nlmsg_type == RTM_NEWADDR) {
    auto const [entry, created] = known.try_emplace(address->address, address->flags);
    if (!created && std::exchange(entry->second, address->flags) == address->flags) return;
  } else {
    bool const removed = known.erase(address->address) != 0;
    if (known.empty()) answer_->erase(address->ifIndex);
    if (!removed) return;
  }
  changed_.push_back({true, address->ifIndex});
}

// Called after each message rather than once per pass, so that listeners hear of a link that goes down and
// comes up again at once.
void Netlink::announce() {
  auto const changed = std::exchange(changed_, {});
  for (Changed const& change : changed) {
    for (Listener* listener : listeners_) {
      change.address ? listener->onAddresses(change.ifIndex) : listener->onLink(change.ifIndex);
    }
  }
}

void Netlink::resync() {
  auto const linksBefore = links_;
  auto const addressesBefore = addresses_;
  links_.clear();
  addresses_.clear();
  if (!dump()) {
    links_ = linksBefore;
    addresses_ = addressesBefore;
    resync_.in(resyncRetryDelay);
    return;
  }
  changed_.clear();
  for (auto const& [ifIndex, before] : linksBefore) {
    if (!links_.contains(ifIndex)) changed_.push_back({false, ifIndex});
  }
  for (auto const& [ifIndex, now] : links_) {
    auto const before = linksBefore.find(ifIndex);
    if (before == linksBefore.end() || before->second != now) changed_.push_back({false, ifIndex});
  }
  for (auto const& [ifIndex, before] : addressesBefore) {
    if (addresses(ifIndex) != before) changed_.push_back({true, ifIndex});
  }
  for (auto const& [ifIndex, now] : addresses_) {
    if (!addressesBefore.contains(ifIndex)) changed_.push_back({true, ifIndex});
  }
  announce();
}

bool Netlink::dump() {
  // The kernel marks a dump that something changed under, and it is repeated. What is inconsistent after the
  // last attempt is corrected by the notifications, which are read afterwards.
  constexpr int attempts = 3;
  ++dumps_;
  int error = -NLE_DUMP_INTR;
  for (int i = 0; i < attempts && error == -NLE_DUMP_INTR; ++i) {
    error = dumpLinks();
    if (error >= 0) error = dumpAddresses(0);
  }
  if (error >= 0 || error == -NLE_DUMP_INTR) return true;
  KEL_TRACE(trace, 0, "dump failed: " << nl_geterror(error));
  return false;
}

int Netlink::dumpLinks() {
  nl_msg* const message = newRequest(RTM_GETLINK);
  ifinfomsg const header{};
  nlmsg_append(message, const_cast<ifinfomsg*>(&header), sizeof header, NLMSG_ALIGNTO);
  nla_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return request(message);
}

// Asks for the addresses of one device, or of all devices when `ifIndex` is 0.
int Netlink::dumpAddresses(int ifIndex) {
  nl_msg* const message = newRequest(RTM_GETADDR);
  ifaddrmsg header{};
  header.ifa_index = static_cast<unsigned>(ifIndex);
  nlmsg_append(message, &header, sizeof header, NLMSG_ALIGNTO);
  return request(message);
}

int Netlink::request(nl_msg* message) {
  int const error = nl_send_auto(requests_, message);
  nlmsg_free(message);
  return error < 0 ? error : nl_recvmsgs_default(requests_);
}

int Netlink::change(nl_msg* message) {
  // libnl maps the kernel's errors to fewer ones of its own, so the number is taken from the message itself.
  int systemError = 0;
  nl_cb* const usual = nl_socket_get_cb(requests_);
  nl_cb* const callbacks = nl_cb_clone(usual);
  nl_cb_put(usual);
  if (callbacks == nullptr) throw std::bad_alloc();
  auto const takeError = [](sockaddr_nl*, nlmsgerr* error, void* out) -> int {
    *static_cast<int*>(out) = -error->error;
    return NL_STOP;
  };
  nl_cb_err(callbacks, NL_CB_CUSTOM, takeError, &systemError);
  int error = nl_send_auto(requests_, message);
  nlmsg_free(message);
  if (error >= 0) error = nl_recvmsgs(requests_, callbacks);
  nl_cb_put(callbacks);
  if (systemError != 0) return systemError;
  return error < 0 ? EIO : 0;
}

bool Netlink::read(nl_msg* message, std::function<void(nlmsghdr*)> reader) {
  reader_ = std::move(reader);
  int const error = request(message);
  reader_ = nullptr;
  return error >= 0;
}

std::optional<Addresses> Netlink::readAddresses(int ifIndex) {
  std::map<int, Addresses> answer;
  answer_ = &answer;
  int const error = dumpAddresses(ifIndex);
  answer_ = &addresses_;
  changed_.clear();
  if (error < 0 && error != -NLE_DUMP_INTR) return std::nullopt;
  return answer[ifIndex];
}

}  // namespace Linux
