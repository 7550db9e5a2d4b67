#include "host/net/md5.h"

#include <md5.h>  // libmd

struct CMD5::Context {
  MD5_CTX State;
};

CMD5::CMD5() : m_pContext(std::make_unique<Context>()) {
  MD5Init(&m_pContext->State);
}

CMD5::~CMD5() = default;

void CMD5::update(const unsigned char* data, unsigned length) {
  MD5Update(&m_pContext->State, data, length);
}

void CMD5::finalize() {
  MD5Final(m_Digest, &m_pContext->State);
}
