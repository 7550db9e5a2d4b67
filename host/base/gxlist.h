// The host's list of object pointers and its cursor. It never deletes what it lists: each function that fills
// one says who owns the entries.
#pragma once

#include <list>

// A cursor over a CGXObList; valid until its entry is removed. False past the end.
class CGXPos {
 public:
  CGXPos() = default;
  explicit operator bool() const { return m_bValid; }

 private:
  friend class CGXObList;
  std::list<void*>::const_iterator m_It{};
  bool m_bValid = false;
};

class CGXObList {
 public:
  void AddTail(void* object) { m_Objects.push_back(object); }
  int GetCount() const { return static_cast<int>(m_Objects.size()); }
  bool IsEmpty() const { return m_Objects.empty(); }

  CGXPos GetHeadPosition() const;
  void* GetNext(CGXPos& position) const;  // the object at the cursor, which moves on; null past the end
  void* GetAt(int index) const;           // null when out of range
  void* RemoveHead();                     // null when empty
  bool Remove(const void* object);        // the first entry equal to `object`; false when none is
  void RemoveAll() { m_Objects.clear(); }

 private:
  std::list<void*> m_Objects;
};
