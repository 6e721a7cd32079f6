// The library's only entrance, and the verification of a file in pieces.
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/kel/Format.h"
#include "zerotouch/trust/Judgement.h"
#include "zerotouch/trust/Signing.h"

namespace ZeroTouch {

namespace {

constexpr std::size_t pieceBytes = 512 << 10;

class FileVerification : public Verification {
 public:
  FileVerification(Kel::String input, int output, Expectations expectations)
      : input_(std::move(input)), output_(output), expectations_(std::move(expectations)) {}

  bool work() override try {
    if (done_) return false;
    if (!file_) {
      begin();
      return true;
    }
    for (std::size_t left = pieceBytes; left > 0;) {
      BytesView const piece = file_->readContent(left);
      if (piece.empty()) {
        signature_ = judge(*file_, file_->readTail(), digest_.get(), signers_, expectations_);
        return end();
      }
      BIO_write(digest_.get(), piece.data(), static_cast<int>(piece.size()));
      writeOut(piece);
      left -= piece.size();
    }
    return true;
  } catch (Refusal const& refusal) {
    objection_ = refusal.sentence;
    return end();
  }

  Kel::String const& objection() const override { return objection_; }
  Signature const& signature() const override { return signature_; }
  std::uint64_t size() const override { return size_; }

 private:
  void begin() {
    try {
      signers_ = readCertificates(expectations_.signers);
    } catch (Refusal const& refusal) {
      throw Refusal{"nobody is known who may sign boot files: " + refusal.sentence};
    }
    file_ = std::make_unique<SignedFile>(input_);
    file_->readHead();
    EVP_MD const* const digest = contentDigest(file_->digestAlgorithms());
    digest_.reset(BIO_new(BIO_f_md()));
    BIO_set_md(digest_.get(), digest);
    BIO_push(digest_.get(), BIO_new(BIO_s_null()));
  }

  bool end() {
    done_ = true;
    file_ = nullptr;
    return false;
  }

  void writeOut(BytesView piece) {
    size_ += piece.size();
    while (output_ >= 0 && !piece.empty()) {
      ssize_t const written = write(output_, piece.data(), piece.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) throw Refusal{Kel::String("cannot write the content: ") + std::strerror(errno)};
      piece = piece.subspan(static_cast<std::size_t>(written));
    }
  }

  Kel::String input_;
  int output_;
  Expectations expectations_;
  std::vector<PemCertificate> signers_;
  std::unique_ptr<SignedFile> file_;  // once begun, until it is done
  Bio digest_;
  bool done_ = false;
  Kel::String objection_;
  Signature signature_;
  std::uint64_t size_ = 0;
};

class Library : public TrustLibrary {
 public:
  std::unique_ptr<Verification> verify(Kel::String const& input, int output,
                                       Expectations const& expectations) const override {
    return std::make_unique<FileVerification>(input, output, expectations);
  }

  Kel::String sign(SigningRequest const& request) const override try {
    signFile(request);
    return "";
  } catch (Refusal const& refusal) {
    return refusal.sentence;
  }

  std::vector<CertificateSummary> certificates(Kel::String const& path, std::optional<Kel::Seconds> now,
                                               Kel::String& failure) const override {
    std::vector<CertificateSummary> result;
    try {
      for (auto const& [line, certificate] : readCertificates(path)) {
        Kel::Seconds const expires = secondsOf(X509_get0_notAfter(certificate.get()));
        Kel::Seconds const begins = secondsOf(X509_get0_notBefore(certificate.get()));
        Kel::String const problem = now && *now > expires  ? "it has expired"
                                    : now && *now < begins ? "it is not valid yet"
                                                           : "";
        result.push_back(
            {line, subjectOf(certificate.get()), fingerprintOf(certificate.get()), expires, problem});
      }
      failure.clear();
    } catch (Refusal const& refusal) {
      failure = refusal.sentence;
    }
    return result;
  }

  Kel::String keyObjection(Kel::String const& certificate, Kel::String const& key) const override try {
    bool const belongs = X509_check_private_key(readCertificates(certificate).front().certificate.get(),
                                                readKey(key).get()) == 1;
    ERR_clear_error();
    return belongs ? "" : key + ": the key does not belong to the certificate in " + certificate;
  } catch (Refusal const& refusal) {
    return refusal.sentence;
  }

  void skipDates(void* tlsContext) const override {
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(static_cast<SSL_CTX*>(tlsContext)),
                                X509_V_FLAG_NO_CHECK_TIME);
  }
};

}  // namespace

}  // namespace ZeroTouch

extern "C" ZeroTouch::TrustLibrary const* zeroTouchTrust() {
  static ZeroTouch::Library const library;
  return &library;
}
