// enable, disable, cancel: what the operator wants of provisioning. What is printed is what the host says
// afterwards, not what was asked of it.
#include <unistd.h>

#include <iostream>

#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/States.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Terminal.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

constexpr char const* configPath = "/zerotouch/config";

bool isEnabled(Kel::Value const& tree) { return isTrue(at(tree, {"config", "enabled"})); }

bool isCancelled(Kel::Value const& tree) { return isTrue(at(tree, {"config", "cancelled"})); }

// The state that is about to be entered, or else the present one; empty when no agent is loaded.
std::string stateOf(Kel::Value const& tree) {
  std::string const next = memberText(at(tree, {"sm"}), "transitionState");
  return next.empty() || next == "stateInvalid" ? memberText(at(tree, {"sm"}), "currentState") : next;
}

std::string inState(Kel::Value const& tree) {
  std::string const state = stateOf(tree);
  return state.empty() ? "no agent is loaded" : "it is " + stateInWords(state);
}

// The host as a verb of this file sees and changes it.
class Controls {
 public:
  // Throws Refused once the run is over.
  explicit Controls(Context const& context) : context_(context), host_(context.socketPath) {
    if (stateOf(now()) == "stateShutdown")
      throw Refused("the run has ended and the system is about to reload; nothing changes that");
  }

  // Where provisioning stands.
  Kel::Value now() { return fetchStatus(host_); }
  void set(Kel::ValueMap attributes) {
    host_.call("set", {{"path", configPath}, {"attributes", std::move(attributes)}});
  }
  // Says what has come about. Throws Refused with `otherwise` and the state when it has not.
  void tell(bool done, Kel::Value const& tree, std::string const& what, std::string const& otherwise) const {
    if (!done) throw Refused(otherwise + "; " + inState(tree));
    context_.json ? printJson(true) : print(what + "; " + inState(tree) + ".\n");
  }

 private:
  Context const& context_;
  Statebase::Client host_;
};

void checkCancel(Kel::Value const& tree) {
  if (!isEnabled(tree)) throw Refused("provisioning is not enabled, so there is nothing to cancel");
}

// Throws Refused unless the answer is yes.
void askBeforeCancel() {
  print("This ends provisioning, and the system reloads without it. Go on? [y/N] ");
  flushOutput();
  std::string answer;
  std::getline(std::cin, answer);
  if (answer != "y" && answer != "Y" && answer != "yes") throw Refused("nothing was changed");
}

}  // namespace

void enable(Context const& context) {
  Controls controls(context);
  // An earlier cancel is taken back first, so that a later one is a change again.
  controls.set({{"cancelled", false}, {"enabled", true}});
  Kel::Value const tree = controls.now();
  controls.tell(isEnabled(tree), tree, "Provisioning is enabled", "provisioning was disabled again at once");
}

void disable(Context const& context) {
  Controls controls(context);
  controls.set({{"enabled", false}});
  Kel::Value const tree = controls.now();
  controls.tell(!isEnabled(tree), tree, "Provisioning is disabled", "provisioning was enabled again at once");
}

void cancel(Context const& context, bool sure) {
  bool const asks = !sure && !context.json && isatty(STDIN_FILENO) != 0 && onTerminal();
  if (asks) {
    checkCancel(Controls(context).now());
    askBeforeCancel();  // which may take long: the host is looked at anew
  }
  Controls controls(context);
  Kel::Value const before = controls.now();
  checkCancel(before);
  // The agent acts when the attribute changes. It is set already when somebody cancelled while provisioning
  // was disabled.
  if (isCancelled(before)) controls.set({{"cancelled", false}});
  controls.set({{"cancelled", true}});
  Kel::Value const tree = controls.now();
  controls.tell(stateOf(tree) == "stateShutdown", tree,
                "Provisioning is cancelled, and the system reloads without it",
                "the request to cancel is noted, but the agent has not acted on it");
}

}  // namespace ZeroTouchCommand
