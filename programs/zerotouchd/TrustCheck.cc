#include "programs/zerotouchd/TrustCheck.h"

#include "platform/kel/Clock.h"
#include "zerotouch/trust/Trust.h"

namespace {

using ZeroTouch::utcTime;

void checkFile(ZeroTouch::TrustLibrary const& library, Kel::String const& path, std::ostream& out,
               std::vector<Kel::String>& problems) {
  Kel::String failure;
  for (auto const& certificate : library.certificates(path, ZeroTouch::timeForDates(Kel::now()), failure)) {
    Kel::String const where = path + ":" + std::to_string(certificate.line) + ": ";
    out << where << certificate.subject << ", expires " << utcTime(certificate.expires) << ", SHA-256 "
        << certificate.fingerprint << "\n";
    if (!certificate.problem.empty())
      problems.push_back(where + certificate.problem + ": " + certificate.subject);
  }
  if (!failure.empty()) problems.push_back(failure);
}

}  // namespace

std::vector<Kel::String> checkTrust(ZeroTouch::AuthenticityPolicy const& policy, std::ostream& out) {
  std::vector<Kel::String> files;
  for (auto const& path : {policy.signers(), policy.httpsCa(), policy.httpsCertificate()}) {
    if (!path.empty() && path != "system") files.push_back(path);
  }
  if (files.empty()) return {};
  Kel::String failure;
  auto const* const library = ZeroTouch::trustLibrary(failure);
  if (library == nullptr) return {"certificates cannot be read: " + failure};
  std::vector<Kel::String> problems;
  for (auto const& path : files) checkFile(*library, path, out, problems);
  auto const& certificate = policy.httpsCertificate();
  if (certificate.empty() || !problems.empty()) return problems;
  failure = library->keyObjection(certificate, policy.httpsKey().empty() ? certificate : policy.httpsKey());
  if (!failure.empty()) problems.push_back(failure);
  return problems;
}
