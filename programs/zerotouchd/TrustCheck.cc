#include "programs/zerotouchd/TrustCheck.h"

#include "platform/kel/Clock.h"
#include "programs/zerotouchd/config/Toml.h"
#include "zerotouch/trust/Trust.h"

namespace {

using ZeroTouch::utcTime;

// Returns the first thing that is wrong with the file, or "".
Kel::String checkFile(ZeroTouch::TrustLibrary const& library, Kel::String const& path, std::ostream& out) {
  Kel::String problem;
  auto const certificates = library.certificates(path, ZeroTouch::timeForDates(Kel::now()), problem);
  for (auto const& certificate : certificates) {
    Kel::String const where = path + ":" + std::to_string(certificate.line) + ": ";
    out << where << certificate.subject << ", expires " << utcTime(certificate.expires) << ", SHA-256 "
        << certificate.fingerprint << "\n";
    if (problem.empty() && !certificate.problem.empty())
      problem = where + certificate.problem + ": " + certificate.subject;
  }
  return problem;
}

}  // namespace

void checkTrust(ZeroTouch::AuthenticityPolicy const& policy, std::ostream& out) {
  std::vector<Kel::String> files;
  for (auto const* const path : {&policy.signers(), &policy.httpsCa(), &policy.httpsCertificate()}) {
    if (!path->empty() && *path != "system") files.push_back(*path);
  }
  if (files.empty()) return;
  Kel::String problem;
  auto const* const library = ZeroTouch::trustLibrary(problem);
  if (library == nullptr) throw std::runtime_error("certificates cannot be read: " + problem);
  for (auto const& path : files) {
    auto const found = checkFile(*library, path, out);
    if (problem.empty()) problem = found;
  }
  auto const& certificate = policy.httpsCertificate();
  if (problem.empty() && !certificate.empty())
    problem = library->keyObjection(certificate, policy.httpsKey().empty() ? certificate : policy.httpsKey());
  if (!problem.empty()) throw BadInput(problem);
}
