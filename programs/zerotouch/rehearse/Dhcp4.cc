// DHCPv4: DISCOVER and OFFER.
#include <algorithm>
#include <array>

#include "programs/zerotouch/rehearse/Messages.h"

namespace Rehearsal {

namespace {

// Of the fixed part (RFC 2131, figure 1).
constexpr std::size_t transactionAt = 4, secondsAt = 8, offeredAt = 16, hardwareAt = 28, fileAt = 108,
                      optionsAt = 240;
constexpr std::size_t serverNameAt = 44, serverNameBytes = 64, fileBytes = 128;
constexpr std::size_t leastBytes = 300;  // what BOOTP relays expect
constexpr std::uint32_t cookie = 0x63825363;
constexpr std::uint8_t request = 1, reply = 2, ethernet = 1;
constexpr unsigned padding = 0, overload = 52, messageType = 53, wantedOptions = 55, end = 255;
constexpr std::uint8_t discovers = 1, offers = 2;

// In pieces where it is long (RFC 3396).
void appendOption(Bytes& message, unsigned code, Bytes const& bytes) {
  constexpr std::size_t longest = 255;
  BytesView value = bytes;
  do {
    BytesView const piece = value.first(std::min(value.size(), longest));
    message.push_back(static_cast<std::uint8_t>(code));
    message.push_back(static_cast<std::uint8_t>(piece.size()));
    message.insert(message.end(), piece.begin(), piece.end());
    value = value.subspan(piece.size());
  } while (!value.empty());
}

using Options = std::vector<std::pair<unsigned, Bytes>>;

// Adds the options of one field; false when one goes past its end.
bool readOptions(BytesView field, Options& options) {
  while (!field.empty() && field[0] != end) {
    if (field[0] == padding) {
      field = field.subspan(1);
      continue;
    }
    if (field.size() < 2 || field.size() - 2 < field[1]) return false;
    unsigned const code = field[0];
    auto known = std::ranges::find(options, code, &Options::value_type::first);
    if (known == options.end()) known = options.insert(options.end(), {code, {}});
    BytesView const value = field.subspan(2, field[1]);
    known->second.insert(known->second.end(), value.begin(), value.end());
    field = field.subspan(2 + value.size());
  }
  return true;
}

Bytes const* find(Options const& options, unsigned code) {
  auto const found = std::ranges::find(options, code, &Options::value_type::first);
  return found != options.end() ? &found->second : nullptr;
}

// A field of the fixed part that holds a text, up to its first NUL.
BytesView text(BytesView message, std::size_t at, std::size_t most) {
  BytesView const field = message.subspan(at, most);
  return field.first(static_cast<std::size_t>(std::ranges::find(field, 0) - field.begin()));
}

Hook::Environment variablesOf(BytesView message, Options const& options, bool fileIsOptions) {
  Hook::Environment result{{"reason", "BOUND"}};
  auto const set = [&result](std::string name, std::string const& value) {
    std::ranges::replace(name, '-', '_');
    if (!value.empty()) result["new_" + name] = value;
  };
  set("ip-address", scriptText(Form::addresses, message.subspan(offeredAt, 4)));
  if (!fileIsOptions) set("filename", scriptText(Form::text, text(message, fileAt, fileBytes)));
  for (auto const& [code, value] : options) {
    if (auto const* const kind = optionKind(false, code)) set(kind->name, scriptText(kind->form, value));
  }
  return result;
}

}  // namespace

Bytes discover(Question const& question, Asking const& asking) {
  Bytes message(optionsAt - 4);
  message[0] = request;
  message[1] = ethernet;
  message[2] = static_cast<std::uint8_t>(asking.port.bytes.size());
  for (std::size_t i = 0; i < 4; ++i)
    message[transactionAt + i] = static_cast<std::uint8_t>(asking.transaction >> (24 - 8 * i));
  auto const seconds = static_cast<unsigned>(std::clamp(asking.seconds, 0.0, 65'535.0));
  message[secondsAt] = static_cast<std::uint8_t>(seconds >> 8);
  message[secondsAt + 1] = static_cast<std::uint8_t>(seconds);
  std::ranges::copy(asking.port.bytes, message.begin() + hardwareAt);
  append(message, cookie, 4);
  appendOption(message, messageType, {discovers});
  auto options = question.sent;
  options[wantedOptions] = Bytes(question.wanted.begin(), question.wanted.end());
  for (auto const& [code, value] : options) appendOption(message, code, value);
  message.push_back(end);
  message.resize(std::max(message.size(), leastBytes));
  return message;
}

std::optional<Answer> readOffer(BytesView message, Asking const& asking) {
  if (message.size() < optionsAt || message[0] != reply ||
      number(message, transactionAt, 4) != asking.transaction ||
      !std::ranges::equal(message.subspan(hardwareAt, 6), asking.port.bytes))
    return std::nullopt;
  Answer answer;
  bool whole =
      number(message, optionsAt - 4, 4) == cookie && readOptions(message.subspan(optionsAt), answer.options);
  auto const* const overloaded = find(answer.options, overload);
  unsigned const fields = whole && overloaded != nullptr && overloaded->size() == 1 ? overloaded->front() : 0;
  if ((fields & 1) != 0) whole = readOptions(message.subspan(fileAt, fileBytes), answer.options);
  if ((fields & 2) != 0)
    whole = readOptions(message.subspan(serverNameAt, serverNameBytes), answer.options) && whole;
  auto const* const type = find(answer.options, messageType);
  if (whole && (type == nullptr || *type != Bytes{offers})) return std::nullopt;
  if (!whole) answer.ignored = "its options are malformed";
  answer.variables = variablesOf(message, answer.options, (fields & 1) != 0);
  if (answer.ignored.empty() && number(message, offeredAt, 4) == 0) answer.ignored = "it offers no address";
  return answer;
}

}  // namespace Rehearsal
