#include "host/base/gxitems.h"

namespace {

template <typename Kind>
const Kind* Next(const std::vector<GXT_ITEM>& items, size_t& next) {
  if (next >= items.size()) return nullptr;
  const Kind* item = std::get_if<Kind>(&items[next]);
  if (item != nullptr) ++next;
  return item;
}

}  // namespace

const int32_t* CGXItems::NextInt() {
  return Next<int32_t>(m_Items, m_nNext);
}

const std::string* CGXItems::NextString() {
  return Next<std::string>(m_Items, m_nNext);
}
