// An HTTP answer as a hostile server may send it: in pieces of every size, and the text behind it.
#include "host/net/http.h"
#include "host/net/http_answer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

constexpr size_t MAX_BYTES = 4096;

std::string ReadInPieces(std::string_view bytes, size_t piece) {
  CHTTPAnswer answer(MAX_BYTES);
  while (!bytes.empty()) {
    const size_t count = std::min(piece, bytes.size());
    if (answer.Feed(bytes.substr(0, count)) == GXT_HTTP_PROGRESS::Complete) break;
    bytes.remove_prefix(count);
  }
  return answer.Take();
}

}  // namespace

// The first byte is the size of the pieces.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string answer = ReadInPieces(bytes, size_t{data[0]} + 1);
  constexpr size_t LINE_END_BYTES = 2;
  constexpr size_t MAX_HEADER_BYTES = 64 * 1024 + LINE_END_BYTES;
  if (answer.size() > MAX_HEADER_BYTES + MAX_BYTES) abort();
  // Pieces may end an answer earlier, but never change it.
  const std::string whole = ReadInPieces(bytes, size);
  if (!whole.starts_with(answer) && !answer.starts_with(whole)) abort();
  UnformatHTTPString(CGXString(answer));
  return 0;
}
