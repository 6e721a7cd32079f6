// enable, disable, cancel: what the operator wants of provisioning.
#include "programs/zerotouch/Output.h"
#include "programs/zerotouch/Status.h"
#include "programs/zerotouch/Verbs.h"

namespace ZeroTouchCommand {

namespace {

char const* const configPath = "/zerotouch/config";

void setConfig(Context const& context, Kel::ValueMap attributes, char const* done) {
  Statebase::Client host(context.socketPath);
  Kel::Value const status = fetchStatus(host);
  if (text(at(status, {"sm", "currentState"})) == "stateShutdown")
    throw Refused("the run has ended and the system is about to reload; nothing changes that");
  Kel::Value const result = host.call("set", {{"path", configPath}, {"attributes", std::move(attributes)}});
  if (context.json) {
    printJson(result);
  } else {
    print(std::string(done) + "\n");
  }
}

}  // namespace

void enable(Context const& context) {
  // An earlier cancel is taken back first, so that a later one is a change again.
  setConfig(context, {{"cancelled", false}, {"enabled", true}}, "Provisioning is enabled.");
}

void disable(Context const& context) {
  setConfig(context, {{"enabled", false}}, "Provisioning is disabled.");
}

void cancel(Context const& context) {
  if (!isTrue(context.call("get", {{"path", std::string(configPath) + "/enabled"}}))) {
    throw Refused("provisioning is not enabled, so there is nothing to cancel");
  }
  setConfig(context, {{"cancelled", true}}, "Provisioning is cancelled; the system reloads without it.");
}

}  // namespace ZeroTouchCommand
