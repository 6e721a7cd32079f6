#include "zerotouch/trust/Pem.h"

#include <openssl/pem.h>

#include <sstream>

#include "platform/kel/Format.h"
#include "platform/kel/WholeFile.h"

namespace ZeroTouch {

std::vector<PemCertificate> readCertificates(Kel::String const& path) {
  Kel::String failure;
  auto const contents = Kel::readFile(path, &failure);
  if (!contents) throw Refusal{failure.empty() ? path + ": no such file" : failure};
  std::vector<PemCertificate> result;
  std::istringstream lines(*contents);
  Kel::String block;
  unsigned number = 0;
  unsigned begun = 0;
  for (Kel::String line; std::getline(lines, line);) {
    ++number;
    bool const begins = line.starts_with("-----BEGIN ");
    if (begins) {
      begun = line.find("CERTIFICATE-----") != Kel::String::npos ? number : 0;
      block.clear();
    }
    if (begun == 0) continue;
    block += line + "\n";
    if (!line.starts_with("-----END ")) continue;
    Bio const bytes(BIO_new_mem_buf(block.data(), static_cast<int>(block.size())));
    Certificate certificate(PEM_read_bio_X509(bytes.get(), nullptr, nullptr, nullptr));
    if (!certificate) throw Refusal{Kel::format("%s:%u: no certificate: %s", path, begun, lastError())};
    result.push_back({begun, std::move(certificate)});
    begun = 0;
  }
  if (begun != 0) throw Refusal{Kel::format("%s:%u: the certificate is cut off", path, begun)};
  if (result.empty()) throw Refusal{path + ": no certificate in it"};
  return result;
}

}  // namespace ZeroTouch
