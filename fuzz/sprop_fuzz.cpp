// Lines with H.264 parameter sets, read on their own and as one value.
#include "media/session_description.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CSessionDescription line;
  line.ExtractStartupData(text.data(), static_cast<int>(size));
  if (size > 1024 && !line.StartupData().empty()) std::abort();

  CSessionDescription value;
  value.ExtractStartupParam("sprop-parameter-sets", text);
  const std::vector<unsigned char> first = value.StartupData();
  value.ExtractStartupParam("sprop-parameter-sets", text);
  if (value.StartupData() != first || first.size() > 4 * size) std::abort();  // a later one replaces
  value.ExtractStartupParam("profile-level-id", text);
  if (value.StartupData() != first) std::abort();
  return 0;
}
