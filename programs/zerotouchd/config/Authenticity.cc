#include "programs/zerotouchd/config/Authenticity.h"

namespace {

using Take = void (ZeroTouch::AuthenticityPolicy::*)(Kel::String);

// An absolute path or, where there is such, a word that stands for something else. Whether the file is right
// is looked at when it is used: it may come or change until then.
Setter pemFile(std::function<void(Kel::String const&)> take, std::string const& word = "") {
  return [take = std::move(take), word](toml::node const& node) {
    text([&](Kel::String const& value) {
      if (!value.starts_with('/') && (word.empty() || value != word)) {
        fail(node.source(), "expected the absolute path of a PEM file" +
                                (word.empty() ? std::string() : " or \"" + word + "\""));
      }
      take(value);
    })(node);
  };
}

}  // namespace

Section authenticitySection(ZeroTouch::AuthenticityPolicy& policy) {
  using ZeroTouch::BoundTo;
  auto const scheme =
      oneOf<std::string>({{"http", "http"}, {"https", "https"}, {"ftp", "ftp"}, {"tftp", "tftp"}},
                         [&policy](std::string const& name) { policy.schemeIs(name); });
  auto const schemes = [&policy, scheme](toml::node const& node) {
    listOf(scheme)(node);
    if (policy.scheme().empty()) fail(node.source(), "a list without schemes would refuse every boot file");
  };
  return {{"signers", pemFile([&policy](auto const& path) { policy.signersIs(path); })},
          {"bind", oneOf<BoundTo>({{"none", BoundTo::none}, {"serial", BoundTo::serial}},
                                  [&policy](BoundTo to) { policy.bindIs(to); })},
          {"newest", flag([&policy](bool on) { policy.newestIs(on); })},
          {"schemes", schemes},
          {"https_ca", pemFile([&policy](auto const& path) { policy.httpsCaIs(path); }, "system")},
          {"https_certificate", pemFile([&policy](auto const& path) { policy.httpsCertificateIs(path); })},
          {"https_key", pemFile([&policy](auto const& path) { policy.httpsKeyIs(path); })}};
}

void checkAuthenticity(ZeroTouch::AuthenticityPolicy const& policy, Kel::String const& file) {
  auto const refuse = [&file](char const* why) { throw BadInput(file + ": [authenticity] " + why); };
  if (policy.signers().empty() && policy.bind() != ZeroTouch::BoundTo::none) refuse("bind needs signers");
  if (policy.signers().empty() && policy.newest()) refuse("newest needs signers");
  if (policy.httpsCertificate().empty() && !policy.httpsKey().empty())
    refuse("https_key needs https_certificate");
}
