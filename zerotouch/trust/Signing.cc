// The engine is how libp11 offers tokens to OpenSSL 3.0; where there is a provider for them, that goes first.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "zerotouch/trust/Signing.h"

#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/provider.h>
#include <openssl/store.h>
#include <openssl/ui.h>

#include <cstring>

#include "platform/kel/WholeFile.h"
#include "zerotouch/trust/Pem.h"

namespace ZeroTouch {

namespace {

using StoreReader = std::unique_ptr<OSSL_STORE_CTX, Release<OSSL_STORE_close>>;
using Attribute = std::unique_ptr<X509_ATTRIBUTE, Release<X509_ATTRIBUTE_free>>;
using Time = std::unique_ptr<ASN1_TIME, Release<ASN1_TIME_free>>;

[[noreturn]] void fail(Kel::String const& what) { throw Refusal{what + ": " + lastError()}; }

Key keyFromStore(Kel::String const& where) {
  StoreReader const reader(OSSL_STORE_open(where.c_str(), UI_OpenSSL(), nullptr, nullptr, nullptr));
  if (!reader) return nullptr;
  OSSL_STORE_expect(reader.get(), OSSL_STORE_INFO_PKEY);
  while (OSSL_STORE_eof(reader.get()) == 0) {
    std::unique_ptr<OSSL_STORE_INFO, Release<OSSL_STORE_INFO_free>> const found(
        OSSL_STORE_load(reader.get()));
    if (found && OSSL_STORE_INFO_get_type(found.get()) == OSSL_STORE_INFO_PKEY)
      return Key(OSSL_STORE_INFO_get1_PKEY(found.get()));
  }
  return nullptr;
}

Key keyFromEngine(Kel::String const& where) {
  ENGINE_load_builtin_engines();
  std::unique_ptr<ENGINE, Release<ENGINE_free>> const engine(ENGINE_by_id("pkcs11"));
  if (!engine || ENGINE_init(engine.get()) != 1) return nullptr;
  return Key(ENGINE_load_private_key(engine.get(), where.c_str(), UI_OpenSSL(), nullptr));
}

EVP_MD const* digestFor(EVP_PKEY const* key) {
  if (EVP_PKEY_get_base_id(key) != EVP_PKEY_EC) return EVP_sha256();
  int const bits = EVP_PKEY_get_bits(key);
  return bits <= 256 ? EVP_sha256() : bits <= 384 ? EVP_sha384() : EVP_sha512();
}

void add(CMS_SignerInfo* info, char const* id, int type, std::vector<BytesView> const& values) {
  Object const object(OBJ_txt2obj(id, 1));
  Attribute attribute;
  for (auto const& value : values) {
    auto const length = static_cast<int>(value.size());
    if (!attribute)
      attribute.reset(X509_ATTRIBUTE_create_by_OBJ(nullptr, object.get(), type, value.data(), length));
    else
      X509_ATTRIBUTE_set1_data(attribute.get(), type, value.data(), length);
  }
  if (attribute && CMS_signed_add1_attr(info, attribute.get()) != 1) fail("cannot add a signed attribute");
}

BytesView bytesOf(Kel::String const& text) {
  return {reinterpret_cast<std::uint8_t const*>(text.data()), text.size()};
}

void addAttributes(CMS_SignerInfo* info, SigningRequest const& request) {
  Time const now(ASN1_TIME_set(nullptr, static_cast<std::time_t>(request.now)));
  CMS_signed_add1_attr_by_NID(info, NID_pkcs9_signingTime, ASN1_STRING_type(now.get()), now.get(), -1);
  std::vector<BytesView> serialNumbers;
  for (auto const& serial : request.serialNumbers) serialNumbers.push_back(bytesOf(serial));
  add(info, serialNumbersAttribute, V_ASN1_UTF8STRING, serialNumbers);
  if (!request.validUntil) return;
  std::unique_ptr<ASN1_GENERALIZEDTIME, Release<ASN1_GENERALIZEDTIME_free>> const until(
      ASN1_GENERALIZEDTIME_set(nullptr, static_cast<std::time_t>(*request.validUntil)));
  if (!until) fail("cannot encode the date");
  add(info, validUntilAttribute, V_ASN1_GENERALIZEDTIME,
      {{ASN1_STRING_get0_data(until.get()), static_cast<std::size_t>(ASN1_STRING_length(until.get()))}});
}

}  // namespace

Key readKey(Kel::String const& where) {
  bool const onToken = where.starts_with("pkcs11:");
  if (onToken) OSSL_PROVIDER_try_load(nullptr, "pkcs11", 1);
  ERR_clear_error();
  Key key = keyFromStore(where);
  if (!key && onToken) key = keyFromEngine(where);
  if (!key) fail("cannot read a key from " + where);
  ERR_clear_error();
  return key;
}

void signFile(SigningRequest const& request) {
  auto const certificates = readCertificates(request.certificate);
  Key const key = readKey(request.key);
  X509* const certificate = certificates.front().certificate.get();
  if (X509_check_private_key(certificate, key.get()) != 1)
    throw Refusal{"the key " + request.key + " does not belong to the certificate " + subjectOf(certificate)};
  int const kind = EVP_PKEY_get_base_id(key.get());
  if (kind == EVP_PKEY_ED25519 || kind == EVP_PKEY_ED448)
    throw Refusal{"OpenSSL 3.0 cannot sign a file with an Ed25519 or Ed448 key; RSA and ECDSA will do"};
  Bio const content(BIO_new_file(request.content.c_str(), "rb"));
  if (!content) throw Refusal{"cannot read " + request.content + ": " + std::strerror(errno)};

  constexpr unsigned flags = CMS_BINARY | CMS_PARTIAL | CMS_NOSMIMECAP;
  Cms const cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  CMS_SignerInfo* const info =
      cms ? CMS_add1_signer(cms.get(), certificate, key.get(), digestFor(key.get()), flags) : nullptr;
  if (info == nullptr) fail("OpenSSL cannot sign with this key");
  for (std::size_t i = 1; i < certificates.size(); ++i)
    CMS_add1_cert(cms.get(), certificates[i].certificate.get());
  addAttributes(info, request);
  if (CMS_final(cms.get(), content.get(), nullptr, CMS_BINARY) != 1)
    fail("OpenSSL cannot sign with this key");
  unsigned char* encoded = nullptr;
  int const length = i2d_CMS_ContentInfo(cms.get(), &encoded);
  if (length < 0) fail("cannot encode the signed file");
  Kel::String const contents(reinterpret_cast<char const*>(encoded), static_cast<std::size_t>(length));
  OPENSSL_free(encoded);
  if (auto const failure = Kel::replaceFile(request.output, contents); !failure.empty())
    throw Refusal{failure};
}

}  // namespace ZeroTouch
