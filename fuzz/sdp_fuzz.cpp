// Answers to DESCRIBE, cut to what the driver receives of one; the stream URI is the text up to the first line
// end.
#include "media/session_description.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* const text = reinterpret_cast<const char*>(data);
  const std::string uri(text, std::find(text, text + size, '\n'));
  CSessionDescription description;
  for (int round = 0; round < 2; ++round) description.Parse(text, static_cast<int>(size), uri.c_str());

  // Start codes stand in front of every parameter set, and a set is never longer than its Base64 text.
  const std::vector<unsigned char>& startup = description.StartupData();
  if (!startup.empty() && (startup.size() < 4 || startup[0] != 0 || startup[1] != 0 || startup[2] != 1))
    std::abort();
  if (startup.size() > 4 * size) std::abort();
  if (description.ContentBase().Find('\r') >= 0 || description.ContentBase().Find('\n') >= 0) std::abort();
  return 0;
}
