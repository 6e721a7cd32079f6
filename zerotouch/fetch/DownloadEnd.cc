#include "zerotouch/fetch/DownloadEnd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/kel/Format.h"

namespace ZeroTouch {

namespace {

constexpr long multipleChoices = 300;
constexpr long badRequest = 400;
constexpr long unauthorized = 401;
constexpr long forbidden = 403;
constexpr long notFound = 404;
constexpr long proxyAuthentication = 407;
constexpr long gone = 410;
constexpr long internalServerError = 500;

constexpr std::pair<long, char const*> phrases[] = {
    {200, "OK"},
    {204, "No Content"},
    {206, "Partial Content"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Timeout"},
    {410, "Gone"},
    {429, "Too Many Requests"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Timeout"},
};

Problem problemOfStatus(long code) {
  if (code >= internalServerError) return Problem::serverError;
  if (code == notFound || code == gone) return Problem::fileNotFound;
  if (code == unauthorized || code == forbidden || code == proxyAuthentication) return Problem::accessRefused;
  if (code >= badRequest) return Problem::downloadOther;
  return code >= multipleChoices ? Problem::redirected : Problem::none;
}

Trouble noConnection(TransferFacts const& facts) {
  if (facts.systemError == ECONNREFUSED)
    return {Problem::connectionRefused, facts.host + " refuses the connection"};
  constexpr std::array<long, 4> silence = {0, ETIMEDOUT, EINPROGRESS, EAGAIN};
  if (std::ranges::find(silence, facts.systemError) != silence.end())
    return {Problem::serverSilent, facts.host + " does not answer"};
  Kel::String const why = std::strerror(static_cast<int>(facts.systemError));
  return {Problem::serverUnreachable, "no connection to " + facts.host + ": " + why};
}

Trouble tls(Kel::String const& text) { return {Problem::tlsFailed, "TLS fails: " + text}; }

}  // namespace

Kel::String hostOf(std::string_view url) {
  if (std::size_t const start = url.find("://"); start != url.npos) url.remove_prefix(start + 3);
  url = url.substr(0, url.find_first_of("/?#"));
  url.remove_prefix(url.rfind('@') + 1);  // nothing when there is none
  std::size_t const end = url.starts_with('[') ? url.find(']') + 1 : url.find(':');
  return Kel::String(url.substr(0, end == 0 ? url.npos : end));
}

Kel::String httpStatus(long code) {
  auto const* const phrase = std::ranges::find(phrases, code, &std::pair<long, char const*>::first);
  Kel::String const number = Kel::format("HTTP %d", code);
  return phrase != std::end(phrases) ? number + " " + phrase->second : number;
}

Trouble downloadEnd(CURLcode result, TransferFacts const& facts, Kel::String const& text) {
  switch (result) {
    case CURLE_OK:
    case CURLE_HTTP_RETURNED_ERROR:
      if (facts.responseCode == 0) return {};
      return {problemOfStatus(facts.responseCode), httpStatus(facts.responseCode)};
    case CURLE_URL_MALFORMAT:
      return {Problem::urlMalformed, "the URL is malformed"};
    case CURLE_COULDNT_RESOLVE_HOST:
      return {Problem::nameNotResolved, "the name " + facts.host + " cannot be resolved"};
    case CURLE_COULDNT_CONNECT:
      return noConnection(facts);
    case CURLE_OPERATION_TIMEDOUT:
      return downloadWaits(facts);
    case CURLE_REMOTE_FILE_NOT_FOUND:
    case CURLE_FTP_COULDNT_RETR_FILE:
    case CURLE_TFTP_NOTFOUND:
      return {Problem::fileNotFound, facts.host + " has no such file"};
    case CURLE_LOGIN_DENIED:
    case CURLE_REMOTE_ACCESS_DENIED:
    case CURLE_TFTP_PERM:
      return {Problem::accessRefused, facts.host + " refuses access"};
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
      return {Problem::transferCut,
              Kel::format("%s ended the transfer after %d bytes of the file", facts.host, facts.bytes)};
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return tls(text);
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
      return {Problem::serverNotVerified, "TLS fails: " + text};
    default:
      return {Problem::downloadOther, text};
  }
}

Trouble downloadWaits(TransferFacts const& facts) {
  if (!facts.resolved) return {Problem::nameNotResolved, "no name server tells the address of " + facts.host};
  if (!facts.connected) return noConnection(facts);
  if (facts.bytes == 0) return {Problem::serverSilent, facts.host + " sends nothing"};
  return {Problem::transferSlow, Kel::format("only %d bytes have come from %s", facts.bytes, facts.host)};
}

}  // namespace ZeroTouch
