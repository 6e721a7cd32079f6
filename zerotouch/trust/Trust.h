// Whom a switch believes: signed boot files, the certificates that may sign them, and the clock by which
// dates are checked.
//
// The work is done by a library of its own, which brings libcrypto along. It is loaded when something is
// verified or signed for the first time, so that a host that only stands by stays small. Nothing here needs a
// host: the command line signs and verifies with the same code as the agent.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "platform/kel/Types.h"

namespace ZeroTouch {

// What the signature of a file says, once it was verified.
struct Signature {
  Kel::String signer;                      // the subject of the signer's certificate, printable
  Kel::String fingerprint;                 // of that certificate, SHA-256 as "AB:CD:..."
  Kel::Seconds signedAt = 0;               // since 1970; 0 when it does not say
  Kel::Seconds validUntil = Kel::never;    // since 1970
  std::vector<Kel::String> serialNumbers;  // of the switches that the file is for; none for all
};

// What a file has to fulfil besides being signed.
struct Expectations {
  Kel::String signers;                      // the PEM file of the certificates and authorities that may sign
  std::optional<Kel::String> serialNumber;  // of the switch that the file has to name
  std::optional<Kel::Seconds> now;          // by which dates are checked; without it they are not
  std::optional<Kel::Seconds> newest;       // since 1970: the file must not have been signed before
};

// The verification of one file, in pieces.
class Verification {
 public:
  virtual ~Verification() = default;
  // Does the next piece, about half a mebibyte; true while there is more to do.
  virtual bool work() = 0;
  // Once there is no more to do: why the file is refused, as a sentence; empty when it is believed. What was
  // written out before that counts for nothing.
  virtual Kel::String const& objection() const = 0;
  virtual Signature const& signature() const = 0;
  // The bytes of the content that were written out.
  virtual std::uint64_t size() const = 0;
};

// A certificate in a PEM file, for people.
struct CertificateSummary {
  unsigned line = 0;
  Kel::String subject;
  Kel::String fingerprint;
  Kel::Seconds expires = 0;  // since 1970
  Kel::String problem;       // what is wrong with it; empty when nothing is
};

struct SigningRequest {
  Kel::String content;      // the file to sign
  Kel::String output;       // the file to write
  Kel::String certificate;  // a PEM file: the signer's certificate, then those between it and its authority
  Kel::String key;          // a file, or the URI of a key on a PKCS#11 token
  std::vector<Kel::String> serialNumbers;
  std::optional<Kel::Seconds> validUntil;
  Kel::Seconds now = 0;
};

class TrustLibrary {
 public:
  virtual ~TrustLibrary() = default;
  // Reads `input` (a path) and writes its content to `output`, a descriptor of the caller's, or to nowhere
  // for -1. The input must not change meanwhile.
  virtual std::unique_ptr<Verification> verify(Kel::String const& input, int output,
                                               Expectations const& expectations) const = 0;
  // Returns what failed, or "".
  virtual Kel::String sign(SigningRequest const& request) const = 0;
  // The certificates of a PEM file. `failure` is what keeps it from being read, as "FILE:LINE: reason", or
  // "". `now` is as in Expectations.
  virtual std::vector<CertificateSummary> certificates(Kel::String const& path,
                                                       std::optional<Kel::Seconds> now,
                                                       Kel::String& failure) const = 0;
  // What keeps the key in the one file from belonging to the first certificate of the other, or "".
  virtual Kel::String keyObjection(Kel::String const& certificate, Kel::String const& key) const = 0;
  // Makes a TLS connection (an SSL_CTX) skip the dates of certificates.
  virtual void skipDates(void* tlsContext) const = 0;
};

// Null, and the reason in `failure`, when the library cannot be loaded; tried again the next time.
TrustLibrary const* trustLibrary(Kel::String& failure);

// The time by which dates are checked: `now`, unless that is before the day on which this was built. A switch
// without a clock believes it to be 1970, and would take every certificate for one of the future.
std::optional<Kel::Seconds> timeForDates(Kel::Seconds now);

// A point in time as "2026-11-22T04:45:27Z". Fit for the settings file, and read back by the other; nothing
// for what is no such text. A date alone is its end.
Kel::String utcTime(Kel::Seconds since1970);
std::optional<Kel::Seconds> timeOf(Kel::String const& text);

}  // namespace ZeroTouch
