// What a login is made of: SHA-1, Base64, the digest, and the header as a camera reads it.
#include "onvif/base64.h"
#include "onvif/login_header.h"
#include "onvif/sha1.h"
#include "util/gxtimer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

namespace {

std::string Hex(SHA1* sha) {
  unsigned words[5];
  if (!sha->computeHash(words)) return "corrupted";
  char text[41];
  snprintf(text, sizeof text, "%08x%08x%08x%08x%08x", words[0], words[1], words[2], words[3], words[4]);
  return text;
}

// Bytes 0, 1, ... 250, 0, ...: lengths around the padding's limits, then around that of the exchanged length
// bytes, where the results differ from the standard's (computed apart from this code).
TEST(Sha1, PadsEveryLength) {
  const std::pair<int, const char*> cases[] = {
      {0, "da39a3ee5e6b4b0d3255bfef95601890afd80709"},     {55, "8ae2d46729cfe68ff927af5eec9c7d1b66d65ac2"},
      {56, "636e2ec698dac903498e648bd2f3af641d3c88cb"},    {63, "6d942da0c4392b123528f2905c713a3ce28364bd"},
      {64, "c6138d514ffa2135bfce0ed0b8fac65669917ec7"},    {120, "d3dbd653bd8597b7475321b60a36891278e6a04a"},
      {8191, "e3e87d4cd09d82a342a14f2292d829a5cdfe30a3"},  {8192, "0ef3c4e52c5f946b127e0f9c858cf5882fc0a30c"},
      {100000, "c8d1a05dc04b6771871fb09d1cdc15b30a473326"}};
  for (const auto& [length, hash] : cases) {
    std::string text;
    for (int i = 0; i < length; ++i) text += static_cast<char>(i % 251);
    const auto half = static_cast<unsigned>(text.size()) / 2;
    SHA1 sha;
    sha.input(text.data(), half);
    sha.input(text.data() + half, static_cast<unsigned>(text.size()) - half);
    EXPECT_EQ(Hex(&sha), hash) << length;
    EXPECT_EQ(Hex(&sha), hash) << "final once computed";
    sha << "d";
    EXPECT_EQ(Hex(&sha), "corrupted");
    sha.reset();
    sha << "abc";
    EXPECT_EQ(Hex(&sha), "a9993e364706816aba3e25717850c26c9cd0d89d");
  }
}

std::string Encode(const std::string& bytes, int size = 400) {
  char out[400];
  const char* const text = av_base64_encode(out, size, reinterpret_cast<const unsigned char*>(bytes.data()),
                                            static_cast<int>(bytes.size()));
  return text != nullptr ? text : "(null)";
}

TEST(Base64, EncodesAndDecodesWithinTheBuffer) {  // RFC 4648 10, and every byte
  std::string all;
  for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
  const std::pair<std::string, std::string> cases[] = {{"", ""},
                                                       {"f", "Zg=="},
                                                       {"fo", "Zm8="},
                                                       {"foo", "Zm9v"},
                                                       {"\xFB\xEF\xBE\xFF\xFF\xFF", "++++////"},
                                                       {all, Encode(all)}};
  for (const auto& [plain, coded] : cases) {
    EXPECT_EQ(Encode(plain), coded);
    unsigned char out[257];
    const int length = av_base64_decode(out, coded.c_str(), sizeof out);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), static_cast<size_t>(length)), plain) << coded;
  }
  EXPECT_EQ(Encode(std::string(20, 0), 28), "(null)");
  EXPECT_EQ(Encode(std::string(20, 0), 29), "AAAAAAAAAAAAAAAAAAAAAAAAAAA=");
  char out[29];
  for (const int length : {0x3FFFFFFF, -1})
    EXPECT_EQ(av_base64_encode(out, sizeof out, reinterpret_cast<const unsigned char*>(all.data()), length),
              nullptr);

  const struct {
    const char* Text;
    int Size, Result;
  } decoded[] = {{"QU=D", 8, 1}, {"Q!", 8, -1},   {"QUJD", 2, 2},  {"QUJD", 0, 0},
                 {"Q", 8, 0},    {"QUJDR", 8, 3}, {"QU-D", 8, -1}, {"QU\xC3", 8, -1}};
  for (const auto& c : decoded) {
    unsigned char bytes[9] = "########";
    EXPECT_EQ(av_base64_decode(bytes, c.Text, c.Size), c.Result) << c.Text;
    EXPECT_EQ(bytes[c.Result > 0 ? c.Result : 3], '#') << c.Text;
  }
}

// Digests computed apart from this code; a camera would compute the same.
TEST(LoginHeader, DigestsPasswordsOfAnyLength) {
  const unsigned char nonce[NONCE_BYTES] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H',
                                            'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P'};
  const std::pair<std::string, const char*> cases[] = {
      {"secret", "dGNKbKVmZ+DmmiCycvymMb7+5qs="},
      {std::string(53, 'x'), "fhTVnNCn2zkstN0Zmm9lHIDIAWA="},
      {"p\xC3\xA4ss" + std::string(300, 'z'), "ggInj5mPJKtgMlpNonwIrJsJm58="}};
  for (const auto& [password, digest] : cases) {
    EXPECT_EQ(CONVIFLoginHeader::PasswordDigest(nonce, "2026-11-22T10:20:30.000Z", password), digest)
        << password;
  }
}

TEST(LoginHeader, IsWhatCamerasCheck) {
  CGXTimer timer;
  const CONVIFLoginHeader header("us<er", "secret", CGXTime(2026, 11, 22, 10, 20, 30, 7), &timer);
  const CGXString nonceText = header.FindSubMSGValue("Nonce", 0);
  const CGXString created = header.FindSubMSGValue("Created", 0);
  unsigned char nonce[NONCE_BYTES + 1];
  ASSERT_EQ(av_base64_decode(nonce, nonceText, sizeof nonce), NONCE_BYTES);
  for (int i = 0; i < NONCE_BYTES; ++i) {
    EXPECT_TRUE(i < 16 ? nonce[i] >= 'A' && nonce[i] <= 'Z' : nonce[i] == 0) << i;
  }
  unsigned char sent[NONCE_BYTES];
  std::copy_n(nonce, NONCE_BYTES, sent);
  const std::string wss = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-";
  EXPECT_EQ(header.CreateString().Str(),
            "<s:Header><Security s:mustUnderstand=\"1\" xmlns=\"" + wss +
                "wssecurity-secext-1.0.xsd\"><UsernameToken><Username>us<er</Username><Password Type=\"" + wss +
                "username-token-profile-1.0#PasswordDigest\">" +
                CONVIFLoginHeader::PasswordDigest(sent, created, "secret").Str() +
                "</Password><Nonce EncodingType=\"" + wss + "soap-message-security-1.0#Base64Binary\">" +
                nonceText.Str() + "</Nonce><Created xmlns=\"" + wss + "wssecurity-utility-1.0.xsd\">" +
                created.Str() +
                "</Created></UsernameToken></Security>"
                "</s:Header>");
  EXPECT_EQ(created.Left(17), "2026-11-22T10:20:");
  EXPECT_EQ(created.Right(5), ".007Z");
  const CONVIFLoginHeader other("us<er", "secret", CGXTime(2026, 11, 22, 10, 20, 30), &timer);
  EXPECT_NE(other.FindSubMSGValue("Nonce", 0), nonceText);
}

TEST(LoginHeader, AdvancesTheCamerasClock) {
  CGXTimer timer;
  while (timer.GXTickCount() < 1000) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const auto expected = [&timer] {
    CGXString text;
    text.Format("2028-02-29T00:00:%02u.250Z", timer.GXTickCount() / 1000 - 1);
    return text.Str();
  };
  const std::string earliest = expected();
  const CONVIFLoginHeader header("u", "p", CGXTime(2028, 2, 28, 23, 59, 59, 250), &timer);
  const std::string created = header.FindSubMSGValue("Created", 0).Str();
  EXPECT_TRUE(earliest <= created && created <= expected()) << created;
}

}  // namespace
