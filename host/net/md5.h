// MD5 (RFC 1321), as Digest authentication needs it.
#pragma once

#include <memory>

class CMD5 {
 public:
  CMD5();
  ~CMD5();
  CMD5(const CMD5&) = delete;
  CMD5& operator=(const CMD5&) = delete;

  void update(const unsigned char* data, unsigned length);
  void finalize();                                              // ends the input; once
  const unsigned char* raw_digest() const { return m_Digest; }  // 16 bytes, after finalize

 private:
  struct Context;
  std::unique_ptr<Context> m_pContext;
  unsigned char m_Digest[16] = {};
};
