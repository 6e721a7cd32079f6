// DHCPv6: SOLICIT and ADVERTISE, INFORMATION-REQUEST and REPLY.
#include <algorithm>

#include "platform/kel/Format.h"
#include "programs/zerotouch/rehearse/Messages.h"

namespace Rehearsal {

namespace {

constexpr std::uint8_t solicits = 1, advertises = 2, replies = 7, requestsInformation = 11;
constexpr unsigned clientId = 1, serverId = 2, addresses = 3, address = 5, wantedOptions = 6, preference = 7,
                   elapsedTime = 8, statusCode = 13;
constexpr std::size_t headerBytes = 4;                          // of a message: its type, and the transaction
constexpr std::size_t addressesHeader = 12;                     // of option 3: an id and two times
constexpr std::uint32_t renewTime = 3'600, rebindTime = 5'400;  // as the client suggests them

void appendOption(Bytes& message, unsigned code, BytesView value) {
  append(message, code, 2);
  append(message, static_cast<std::uint32_t>(value.size()), 2);
  message.insert(message.end(), value.begin(), value.end());
}

// What both questions have in common, in the client's order.
Bytes begun(std::uint8_t type, Question const& question, Asking const& asking) {
  Bytes message{type};
  append(message, asking.transaction, 3);
  for (auto const& [code, value] : question.sent) appendOption(message, code, value);
  appendOption(message, clientId, question.identifier);
  Bytes wanted, elapsed;
  for (unsigned const code : question.wanted) append(wanted, code, 2);
  append(elapsed, static_cast<std::uint32_t>(std::clamp(asking.seconds * 100, 0.0, 65'535.0)), 2);
  appendOption(message, wantedOptions, wanted);
  appendOption(message, elapsedTime, elapsed);
  return message;
}

using Options = std::vector<std::pair<unsigned, Bytes>>;

// False when an option goes past the end; `options` has those before it.
bool readOptions(BytesView field, Options& options) {
  while (!field.empty()) {
    if (field.size() < 4 || field.size() - 4 < number(field, 2, 2)) return false;
    BytesView const value = field.subspan(4, number(field, 2, 2));
    options.emplace_back(number(field, 0, 2), Bytes(value.begin(), value.end()));
    field = field.subspan(4 + value.size());
  }
  return true;
}

Bytes const* find(Options const& options, unsigned code) {
  auto const found = std::ranges::find(options, code, &Options::value_type::first);
  return found != options.end() ? &found->second : nullptr;
}

// What a status says that is no success (RFC 8415, 21.13); "" for none.
std::string failure(Options const& options) {
  auto const* const status = find(options, statusCode);
  if (status == nullptr || status->size() < 2 || number(*status, 0, 2) == 0) return {};
  std::string const text(status->begin() + 2, status->end());
  return Kel::format("it says status %u, %s", number(*status, 0, 2), Kel::printable(text, Kel::longestShown));
}

// Sets the variables of the address that is offered; returns why there is none, or "".
std::string takeAddress(Options const& options, Hook::Environment& variables) {
  auto const* const association = find(options, addresses);
  Options inner;
  if (association == nullptr || association->size() < addressesHeader ||
      !readOptions(BytesView(*association).subspan(addressesHeader), inner))
    return "it offers no address";
  auto const* const offered = find(inner, address);
  if (offered == nullptr || offered->size() < 24) {
    auto const why = failure(inner);
    return why.empty() ? "it offers no address" : "it offers no address: " + why;
  }
  variables["new_ip6_address"] = scriptText(Form::addresses6, BytesView(*offered).first(16));
  variables["new_ip6_prefixlen"] = "128";
  return {};
}

std::optional<Answer> readAnswer(BytesView message, std::uint8_t type, Question const& question,
                                 Asking const& asking) {
  if (message.size() < headerBytes || message[0] != type || number(message, 1, 3) != asking.transaction)
    return std::nullopt;
  Answer answer;
  bool const whole = readOptions(message.subspan(headerBytes), answer.options);
  auto const* const client = find(answer.options, clientId);
  if (client == nullptr || *client != question.identifier) return std::nullopt;
  answer.variables["reason"] = type == replies ? "RENEW6" : "BOUND6";
  for (auto const& [code, value] : answer.options) {
    auto const* const kind = optionKind(true, code);
    std::string const text = kind != nullptr ? scriptText(kind->form, value) : "";
    if (text.empty()) continue;
    std::string name = kind->name;
    std::ranges::replace_if(
        name, [](char c) { return c == '-' || c == '.'; }, '_');
    answer.variables.emplace("new_" + name, text);
  }
  auto const* const wanted = find(answer.options, preference);
  if (wanted != nullptr && wanted->size() == 1) answer.preference = wanted->front();
  if (!whole) answer.ignored = "its options are malformed";
  if (answer.ignored.empty() && find(answer.options, serverId) == nullptr)
    answer.ignored = "it names no server";
  if (answer.ignored.empty()) answer.ignored = failure(answer.options);
  return answer;
}

}  // namespace

Bytes solicit(Question const& question, Asking const& asking) {
  Bytes message = begun(solicits, question, asking);
  Bytes association(asking.port.bytes.begin() + 2, asking.port.bytes.end());
  append(association, renewTime, 4);
  append(association, rebindTime, 4);
  appendOption(message, addresses, association);
  return message;
}

Bytes informationRequest(Question const& question, Asking const& asking) {
  return begun(requestsInformation, question, asking);
}

std::optional<Answer> readAdvertise(BytesView message, Question const& question, Asking const& asking) {
  auto answer = readAnswer(message, advertises, question, asking);
  if (!answer) return answer;
  std::string const why = takeAddress(answer->options, answer->variables);
  if (answer->ignored.empty()) answer->ignored = why;
  return answer;
}

std::optional<Answer> readReply(BytesView message, Question const& question, Asking const& asking) {
  return readAnswer(message, replies, question, asking);
}

}  // namespace Rehearsal
