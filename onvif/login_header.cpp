#include "onvif/login_header.h"

#include "onvif/base64.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/sha1.h"
#include "util/bytes.h"
#include "util/gxtimer.h"

#include <cstdlib>

namespace {

constexpr int DIGEST_BYTES = 20;

constexpr int Base64Size(int bytes) {
  return (bytes + 2) / 3 * 4 + 1;
}

// Letters, then zeros up to the length: cameras get all of it, so both ends digest the same bytes.
void MakeNonce(unsigned char (&nonce)[NONCE_BYTES]) {
  for (int i = 0; i < NONCE_BYTES; ++i) {
    nonce[i] = static_cast<unsigned char>(i < NONCE_RANDOM_BYTES ? 'A' + rand() % 26 : 0);
  }
}

// xsd:dateTime in UTC. The milliseconds are those of the clock as read.
CGXString CreationTime(CGXTime cameraTime, unsigned elapsedMs) {
  cameraTime.AddSeconds(static_cast<int>(elapsedMs / 1000));
  CGXString text;
  text.Format("%d-%02d-%02dT%02d:%02d:%02d.%03dZ", cameraTime.Year(), cameraTime.Month(), cameraTime.Day(),
              cameraTime.Hour(), cameraTime.Minute(), cameraTime.Second(), cameraTime.MSecond());
  return text;
}

CGXString QuotedAttribute(const char* name, const char* value) {
  CGXString text;
  text.Format("%s=\"%s\"", name, value);
  return text;
}

}  // namespace

CONVIFLoginHeader::CONVIFLoginHeader(CGXString user, CGXString password, CGXTime cameraTime,
                                     CGXTimer* sinceClockRead)
    : CONVIFMsg("s:Header") {
  AppendCredentials(this, user, password, cameraTime, sinceClockRead);
}

void CONVIFLoginHeader::AppendCredentials(CONVIFMsg* header, CGXString user, CGXString password,
                                          CGXTime cameraTime, CGXTimer* sinceClockRead) {
  unsigned char nonce[NONCE_BYTES];
  MakeNonce(nonce);
  char nonceText[Base64Size(NONCE_BYTES)];
  av_base64_encode(nonceText, sizeof nonceText, nonce, NONCE_BYTES);
  const CGXString created = CreationTime(cameraTime, sinceClockRead->GXTickCount());

  CONVIFMsg* const security = header->AddMSG("Security");
  security->AddAttrib("s:mustUnderstand=\"1\"");
  security->AddAttrib(CONVIF::FormatXMLNS(NS_WSS_EXTENSION));
  CONVIFMsg* const token = security->AddMSG("UsernameToken");
  token->AddValue("Username", user);
  token->AddValue("Password", PasswordDigest(nonce, created, password))
      ->AddAttrib(QuotedAttribute("Type", WSS_PASSWORD_DIGEST));
  token->AddValue("Nonce", nonceText)->AddAttrib(QuotedAttribute("EncodingType", WSS_BASE64_BINARY));
  token->AddValue("Created", created)->AddAttrib(CONVIF::FormatXMLNS(NS_WSS_UTILITY));
}

CGXString CONVIFLoginHeader::PasswordDigest(const unsigned char (&nonce)[NONCE_BYTES], const CGXString& created,
                                            const CGXString& password) {
  SHA1 sha;
  sha.input(nonce, NONCE_BYTES);
  sha << created << password;
  unsigned words[5] = {};
  sha.computeHash(words);
  unsigned char digest[DIGEST_BYTES];
  for (int i = 0; i < 5; ++i) WriteBE32(digest + 4 * i, words[i]);
  char text[Base64Size(DIGEST_BYTES)];
  return av_base64_encode(text, sizeof text, digest, DIGEST_BYTES);
}
