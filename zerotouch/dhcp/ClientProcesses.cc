// The DHCP clients as child processes: started, held, stopped, and what follows when one ends.
#include <csignal>

#include "zerotouch/utils/ZeroTouchUtils.h"
#include "zerotouch/sm/Reactors.h"
#include "zerotouch/sm/SmTrace.h"

namespace ZeroTouch {

namespace {

// SIGTERM to a child that runs. False when there is nothing to stop: no record, or it has ended already and
// its own reactor is about to be told.
bool terminate(Kel::Ptr<Kel::ChildSiginfo const> const& child, char const* client, char const* caller) {
  if (!child || child->ended()) return false;
  KEL_TRACE(traceZeroTouchSm, 5,
            "ZeroTouchSm::" << caller << " - Killing running " << client << ", pid=" << child->pid());
  Kel::kill(child->pid(), SIGTERM);
  return true;
}

template <typename Reactor>
Kel::Ptr<Kel::ChildSiginfo const> childOf(Kel::Ptr<Reactor> const& reactor) {
  return reactor ? reactor->child() : nullptr;
}

template <typename Reactor>
Kel::Ptr<Reactor> watch(Kel::Ptr<Kel::ChildSiginfo> const& child, ZeroTouchSm& sm) {
  return child ? Kel::makePtr<Reactor>(child, sm) : nullptr;
}

}  // namespace

Kel::Ptr<Kel::ChildSiginfo const> ZeroTouchSm::dhclientChildProcess() const {
  return childOf(dhclientChildProcess_);
}
Kel::Ptr<Kel::ChildSiginfo const> ZeroTouchSm::dhclient6ChildProcess() const {
  return childOf(dhclient6ChildProcess_);
}
Kel::Ptr<Kel::ChildSiginfo const> ZeroTouchSm::dhclient6StatelessChildProcess() const {
  return childOf(dhclient6StatelessChildProcess_);
}

void ZeroTouchSm::dhclientChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  dhclientChildProcessDel();
  dhclientChildProcess_ = watch<KelDhclientChildProcess>(child, *this);
}
void ZeroTouchSm::dhclient6ChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  dhclient6ChildProcessDel();
  dhclient6ChildProcess_ = watch<KelDhclient6ChildProcess>(child, *this);
}
void ZeroTouchSm::dhclient6StatelessChildProcessIs(Kel::Ptr<Kel::ChildSiginfo> const& child) {
  dhclient6StatelessChildProcessDel();
  dhclient6StatelessChildProcess_ = watch<KelDhclient6StatelessChildProcess>(child, *this);
}

void ZeroTouchSm::dhclientChildProcessDel() {
  dhclientChildProcess_ = nullptr;
  dhclientIntfDelAll();
}
void ZeroTouchSm::dhclient6ChildProcessDel() {
  dhclient6ChildProcess_ = nullptr;
  dhclient6IntfDelAll();
}
void ZeroTouchSm::dhclient6StatelessChildProcessDel() {
  dhclient6StatelessChildProcess_ = nullptr;
  dhclient6StatelessIntfDelAll();
}

Kel::Ptr<Kel::ChildSiginfo> ZeroTouchSm::execClient(char** cmdLine, char const* caller) {
  KEL_TRACE(traceZeroTouchSm, 5, "ZeroTouchSm::" << caller << " - Execing: " << argvToString(cmdLine));
  auto child = runCmd(cmdLine, nullptr, nullptr);
  freeCommandline(cmdLine);
  return child;
}

void ZeroTouchSm::doStopDhclient() {
  if (terminate(dhclientChildProcess(), "dhclient", __func__)) dhclientChildProcessDel();
}

void ZeroTouchSm::doStopDhclient6() {
  if (terminate(dhclient6ChildProcess(), "dhclient6", __func__)) dhclient6ChildProcessDel();
}

void ZeroTouchSm::doStopDhclient6Stateless() {
  if (terminate(dhclient6StatelessChildProcess(), "dhclient6 stateless", __func__))
    dhclient6StatelessChildProcessDel();
}

// A client that ends is not started again: the timer of the query decides what follows. In stateShutdown its
// end is the end of a release.
void ZeroTouchSm::handleDhclientChildProcessStatus() {
  auto const child = dhclientChildProcess();
  SM_TRACE(5, " - dhclient statusCode=" << child->statusCode());
  if (!child->ended()) return;
  dhclientChildProcessDel();
  if (currentState() != stateShutdown()) return;
  doStopDhclient6();
  doShutdown();
}

void ZeroTouchSm::handleDhclient6ChildProcessStatus() {
  auto const child = dhclient6ChildProcess();
  SM_TRACE(5, " - dhclient6 statusCode=" << child->statusCode());
  if (!child->ended()) return;
  dhclient6ChildProcessDel();
  if (currentState() != stateShutdown()) return;
  doStopDhclient();
  doShutdown();
}

void ZeroTouchSm::handleDhclient6StatelessChildProcessStatus() {
  auto const child = dhclient6StatelessChildProcess();
  SM_TRACE(5, " - dhclient6 stateless statusCode=" << child->statusCode());
  if (!child->ended()) return;
  dhclient6StatelessChildProcessDel();
  if (currentState() == stateShutdown()) doShutdown();
}

}  // namespace ZeroTouch
