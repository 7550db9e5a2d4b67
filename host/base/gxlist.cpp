#include "host/base/gxlist.h"

#include <algorithm>
#include <iterator>

CGXPos CGXObList::GetHeadPosition() const {
  CGXPos head;
  head.m_It = m_Objects.begin();
  head.m_bValid = !m_Objects.empty();
  return head;
}

void* CGXObList::GetNext(CGXPos& position) const {
  if (!position.m_bValid) return nullptr;
  void* object = *position.m_It;
  position.m_bValid = ++position.m_It != m_Objects.end();
  return object;
}

void* CGXObList::GetAt(int index) const {
  if (index < 0 || index >= GetCount()) return nullptr;
  return *std::next(m_Objects.begin(), index);
}

void* CGXObList::RemoveHead() {
  if (m_Objects.empty()) return nullptr;
  void* object = m_Objects.front();
  m_Objects.pop_front();
  return object;
}

bool CGXObList::Remove(const void* object) {
  const auto found = std::find(m_Objects.begin(), m_Objects.end(), object);
  if (found == m_Objects.end()) return false;
  m_Objects.erase(found);
  return true;
}
