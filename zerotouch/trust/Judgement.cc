#include "zerotouch/trust/Judgement.h"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>

#include "platform/kel/Format.h"

namespace ZeroTouch {

namespace {

using Store = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
using StoreContext = std::unique_ptr<X509_STORE_CTX, Release<X509_STORE_CTX_free>>;
void freeAlgorithm(X509_ALGOR* algorithm) { X509_ALGOR_free(algorithm); }
using Algorithm = std::unique_ptr<X509_ALGOR, Release<freeAlgorithm>>;

// Keys of less than 112 bits of security (RSA below 2048) and SHA-1 in certificates are refused.
constexpr int authenticationLevel = 2;

constexpr char const* damaged = "the form of the signed file is damaged";

bool isStrong(int digest) {
  constexpr int strong[] = {NID_sha256, NID_sha384, NID_sha512, NID_sha3_256, NID_sha3_384, NID_sha3_512};
  return std::ranges::find(strong, digest) != std::end(strong);
}

Kel::String nameOf(int nid) {
  char const* const name = OBJ_nid2sn(nid);
  return nid != NID_undef && name != nullptr ? name : "an unknown one";
}

bool hasNoParameters(X509_ALGOR const* algorithm) {
  int type = V_ASN1_UNDEF;
  X509_ALGOR_get0(nullptr, &type, nullptr, algorithm);
  return type == V_ASN1_UNDEF || type == V_ASN1_NULL;
}

int kindOf(X509_ALGOR const* algorithm) {
  ASN1_OBJECT const* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  return OBJ_obj2nid(object);
}

// OpenSSL 3.0 knows CMS signatures by no others (not Ed25519).
bool isUsable(EVP_PKEY const* key) {
  int const kind = EVP_PKEY_get_base_id(key);
  return kind == EVP_PKEY_RSA || kind == EVP_PKEY_RSA_PSS || kind == EVP_PKEY_EC;
}

// OpenSSL takes the digest from another field and does not mind what these say besides.
void checkAlgorithms(X509_ALGOR const* digest, X509_ALGOR const* signature, EVP_MD const* content) {
  if (kindOf(digest) != EVP_MD_get_type(content) || !hasNoParameters(digest)) throw Refusal{damaged};
  int const kind = kindOf(signature);
  if (kind == NID_rsassaPss) return;
  int byDigest = NID_undef;
  int key = NID_undef;
  bool const known = kind == NID_rsaEncryption || OBJ_find_sigid_algs(kind, &byDigest, &key) == 1;
  if (!known || !hasNoParameters(signature)) throw Refusal{damaged};
  if (byDigest != NID_undef && byDigest != kindOf(digest)) throw Refusal{damaged};
}

Store storeOf(std::vector<PemCertificate> const& signers) {
  Store store(X509_STORE_new());
  for (auto const& signer : signers) X509_STORE_add_cert(store.get(), signer.certificate.get());
  return store;
}

// Why a certificate of the chain does not count.
Kel::String chainObjection(int error, X509 const* about, X509 const* signer) {
  Kel::String const whose = Kel::String(about == signer ? "of its signer" : "of its signer's authority") +
                            " (" + subjectOf(about) + ")";
  switch (error) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return "the file is signed by somebody who may not sign boot files: " + subjectOf(signer);
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return "the certificate " + whose + " has expired on " + utcTime(secondsOf(X509_get0_notAfter(about)));
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return "the certificate " + whose + " is not valid before " +
             utcTime(secondsOf(X509_get0_notBefore(about)));
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
      return "the key " + whose + " is too weak";
    case X509_V_ERR_CA_MD_TOO_WEAK:
      return "the certificate " + whose + " is signed with a weak digest";
    default:
      return "the certificate " + whose + " is not right: " + X509_verify_cert_error_string(error);
  }
}

void checkChain(X509* signer, STACK_OF(X509) * between, std::vector<PemCertificate> const& signers,
                std::optional<Kel::Seconds> now) {
  Store const store = storeOf(signers);
  StoreContext const context(X509_STORE_CTX_new());
  if (X509_STORE_CTX_init(context.get(), store.get(), signer, between) != 1) throw Refusal{lastError()};
  X509_VERIFY_PARAM* const parameters = X509_STORE_CTX_get0_param(context.get());
  // Any certificate of the file is believed, not only authorities that have signed themselves.
  X509_VERIFY_PARAM_set_flags(parameters, X509_V_FLAG_PARTIAL_CHAIN | (now ? 0 : X509_V_FLAG_NO_CHECK_TIME));
  if (now) X509_VERIFY_PARAM_set_time(parameters, static_cast<time_t>(*now));
  X509_VERIFY_PARAM_set_auth_level(parameters, authenticationLevel);
  if (X509_verify_cert(context.get()) == 1) return;
  throw Refusal{chainObjection(X509_STORE_CTX_get_error(context.get()),
                               X509_STORE_CTX_get_current_cert(context.get()), signer)};
}

// A certificate that says what it is for has to name digital signatures, and the signing of code.
void checkUsage(X509* signer) {
  constexpr std::uint32_t usages = KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION;
  constexpr std::uint32_t purposes = XKU_CODE_SIGN | XKU_ANYEKU;
  bool const maySign = (X509_get_key_usage(signer) & usages) != 0;
  bool const signsCode = (X509_get_extended_key_usage(signer) & purposes) != 0;
  if (!maySign || !signsCode)
    throw Refusal{"the certificate of its signer is not meant for signing files: " + subjectOf(signer)};
}

// Null when the attribute is absent; refused when it is there more than once, since the first would count.
X509_ATTRIBUTE* attribute(CMS_SignerInfo const* signer, ASN1_OBJECT const* object) {
  int const index = CMS_signed_get_attr_by_OBJ(signer, object, -1);
  if (index < 0) return nullptr;
  if (CMS_signed_get_attr_by_OBJ(signer, object, index) >= 0) throw Refusal{damaged};
  return CMS_signed_get_attr(signer, index);
}

X509_ATTRIBUTE* attribute(CMS_SignerInfo const* signer, char const* id) {
  return attribute(signer, Object(OBJ_txt2obj(id, 1)).get());
}

// 0 without the attribute.
Kel::Seconds timeIn(X509_ATTRIBUTE* attribute) {
  if (attribute == nullptr) return 0;
  ASN1_TYPE* const value =
      X509_ATTRIBUTE_count(attribute) == 1 ? X509_ATTRIBUTE_get0_type(attribute, 0) : nullptr;
  int const type = value != nullptr ? ASN1_TYPE_get(value) : V_ASN1_UNDEF;
  bool const isTime = type == V_ASN1_UTCTIME || type == V_ASN1_GENERALIZEDTIME;
  Kel::Seconds const seconds = isTime ? secondsOf(value->value.asn1_string) : 0;
  if (seconds <= 0) throw Refusal{damaged};
  return seconds;
}

// The DER of an object, by its i2d function.
Bytes encoded(auto const* object, auto const& encode) {
  unsigned char* bytes = nullptr;
  int const length = encode(object, &bytes);
  Bytes result(bytes, bytes + std::max(length, 0));
  OPENSSL_free(bytes);
  return result;
}

std::vector<Kel::String> textsIn(X509_ATTRIBUTE* attribute) {
  std::vector<Kel::String> texts;
  for (int i = 0; i < X509_ATTRIBUTE_count(attribute); ++i) {
    auto const* const text =
        static_cast<ASN1_STRING const*>(X509_ATTRIBUTE_get0_data(attribute, i, V_ASN1_UTF8STRING, nullptr));
    if (text == nullptr) throw Refusal{damaged};
    texts.emplace_back(reinterpret_cast<char const*>(ASN1_STRING_get0_data(text)),
                       static_cast<std::size_t>(ASN1_STRING_length(text)));
  }
  return texts;
}

Kel::String joined(std::vector<Kel::String> const& texts) {
  Kel::String result;
  for (auto const& text : texts) result += (result.empty() ? "" : ", ") + text;
  return Kel::printable(result, Kel::longestShown);
}

void checkExpectations(Signature const& signature, Expectations const& expected) {
  if (expected.serialNumber) {
    auto const& named = signature.serialNumbers;
    if (expected.serialNumber->empty()) throw Refusal{"the switch does not know its own serial number"};
    if (named.empty()) throw Refusal{"the file does not say for which switches it is"};
    if (std::ranges::find(named, *expected.serialNumber) == named.end())
      throw Refusal{"the file is for other switches: " + joined(named)};
  }
  if (expected.now && *expected.now > signature.validUntil)
    throw Refusal{"the file was valid until " + utcTime(signature.validUntil)};
  if (!expected.newest) return;
  if (signature.signedAt == 0) throw Refusal{"the file does not say when it was signed"};
  if (signature.signedAt < *expected.newest) {
    throw Refusal{Kel::format("the file was signed at %s, before the newest that was taken, of %s",
                              utcTime(signature.signedAt), utcTime(*expected.newest))};
  }
}

}  // namespace

EVP_MD const* contentDigest(Bytes const& digestAlgorithms) {
  constexpr std::size_t longHeader = 0x80;
  if (digestAlgorithms.size() < 2 || digestAlgorithms[1] >= longHeader) throw Refusal{damaged};
  unsigned char const* next = digestAlgorithms.data() + 2;
  unsigned char const* const end = digestAlgorithms.data() + digestAlgorithms.size();
  Algorithm const algorithm(d2i_X509_ALGOR(nullptr, &next, end - next));
  ERR_clear_error();
  if (!algorithm) throw Refusal{damaged};
  if (next != end) throw Refusal{"the file has more than one signature"};
  int const kind = kindOf(algorithm.get());
  EVP_MD const* const digest = EVP_get_digestbynid(kind);
  if (digest == nullptr || !isStrong(kind))
    throw Refusal{Kel::format("the digest of the signature, %s, is none that counts", nameOf(kind))};
  if (!hasNoParameters(algorithm.get())) throw Refusal{damaged};
  return digest;
}

Signature judge(SignedFile const& file, Bytes const& parsed, BIO* digest,
                std::vector<PemCertificate> const& signers, Expectations const& expectations) {
  unsigned char const* next = parsed.data();
  Cms const cms(d2i_CMS_ContentInfo(nullptr, &next, static_cast<long>(parsed.size())));
  ERR_clear_error();
  // OpenSSL reads more forms than it writes.
  if (!cms || encoded(cms.get(), i2d_CMS_ContentInfo) != parsed) throw Refusal{damaged};
  STACK_OF(CMS_SignerInfo)* const infos = CMS_get0_SignerInfos(cms.get());
  if (sk_CMS_SignerInfo_num(infos) == 0) throw Refusal{"the file is not signed"};
  if (sk_CMS_SignerInfo_num(infos) != 1) throw Refusal{"the file has more than one signature"};
  CMS_SignerInfo* const info = sk_CMS_SignerInfo_value(infos, 0);

  // OpenSSL looks at neither version (RFC 5652, 5.1 and 5.3).
  ASN1_OCTET_STRING* keyId = nullptr;
  X509_NAME* issuer = nullptr;
  CMS_SignerInfo_get0_signer_id(info, &keyId, &issuer, nullptr);
  unsigned const version = keyId != nullptr ? 3 : 1;
  if (file.version() != version || file.signerVersion() != version) throw Refusal{damaged};

  // The certificates inside first: a copy that was altered is none of the signers.
  CMS_set1_signers_certs(cms.get(), nullptr, 0);
  Certificates const listed(sk_X509_new_null());
  for (auto const& signer : signers) {
    X509_up_ref(signer.certificate.get());
    sk_X509_push(listed.get(), signer.certificate.get());
  }
  CMS_set1_signers_certs(cms.get(), listed.get(), CMS_NOINTERN);
  X509* certificate = nullptr;
  EVP_PKEY* key = nullptr;
  X509_ALGOR* digestAlgorithm = nullptr;
  X509_ALGOR* signatureAlgorithm = nullptr;
  CMS_SignerInfo_get0_algs(info, &key, &certificate, &digestAlgorithm, &signatureAlgorithm);
  if (certificate == nullptr)
    throw Refusal{"the certificate of the file's signer is neither inside nor known"};
  // OpenSSL compares names without regard to case.
  if (issuer != nullptr &&
      encoded(issuer, i2d_X509_NAME) != encoded(X509_get_issuer_name(certificate), i2d_X509_NAME))
    throw Refusal{damaged};
  EVP_MD* content = nullptr;
  BIO_get_md(digest, &content);
  checkAlgorithms(digestAlgorithm, signatureAlgorithm, content);
  Certificates const inside(CMS_get1_certs(cms.get()));
  checkChain(certificate, inside.get(), signers, expectations.now);
  checkUsage(certificate);
  if (!isUsable(key))
    throw Refusal{"signatures with such a key cannot be verified: " + subjectOf(certificate)};

  // Without signed attributes, those of another file could pass for a content (RFC 5652, 5.4).
  auto* const contentType = attribute(info, OBJ_nid2obj(NID_pkcs9_contentType));
  auto const* const type =
      contentType == nullptr
          ? nullptr
          : static_cast<ASN1_OBJECT const*>(X509_ATTRIBUTE_get0_data(contentType, 0, V_ASN1_OBJECT, nullptr));
  if (type == nullptr) throw Refusal{"the signature has no signed attributes"};
  if (OBJ_obj2nid(type) != NID_pkcs7_data) throw Refusal{damaged};
  bool const attributesRight = CMS_SignerInfo_verify(info) == 1;
  bool const right = attributesRight && CMS_SignerInfo_verify_content(info, digest) == 1;
  ERR_clear_error();
  if (!attributesRight) throw Refusal{"the signature of the file is not right"};
  if (!right) throw Refusal{"the file was altered after it was signed"};

  Signature result;
  result.signer = subjectOf(certificate);
  result.fingerprint = fingerprintOf(certificate);
  result.signedAt = timeIn(attribute(info, OBJ_nid2obj(NID_pkcs9_signingTime)));
  result.serialNumbers = textsIn(attribute(info, serialNumbersAttribute));
  if (auto* const until = attribute(info, validUntilAttribute)) result.validUntil = timeIn(until);
  checkExpectations(result, expectations);
  return result;
}

}  // namespace ZeroTouch
