// A singly linked list through the Next() of its entries, which it owns.
#pragma once

#include <atomic>
#include <memory>
#include <utility>

// T offers `T* Next() const` and `void Next(T*)`. One thread changes the list. Others may walk it while that
// thread appends, provided that T's link is atomic; they may not while it removes.
template <class T>
class COwnedList {
 public:
  COwnedList() = default;
  ~COwnedList() { RemoveAll(); }
  COwnedList(const COwnedList&) = delete;
  COwnedList& operator=(const COwnedList&) = delete;

  T* Head() const { return m_pHead; }  // null when empty

  T* Append(std::unique_ptr<T> entry) {  // at the tail; returns it
    T* const added = entry.release();
    if (m_pTail != nullptr)
      m_pTail->Next(added);
    else
      m_pHead = added;
    return m_pTail = added;
  }

  int Count() const {
    int count = 0;
    for (const T* entry = Head(); entry != nullptr; entry = entry->Next()) ++count;
    return count;
  }

  T* At(int index) const {  // null when out of range
    T* entry = index < 0 ? nullptr : Head();
    for (; entry != nullptr && index > 0; --index) entry = entry->Next();
    return entry;
  }

  // Takes the entry out of the list; null when it is not in it.
  std::unique_ptr<T> Remove(const T* wanted) {
    T* before = nullptr;
    T* entry = Head();
    while (entry != nullptr && entry != wanted) before = std::exchange(entry, entry->Next());
    if (entry == nullptr) return nullptr;
    if (before != nullptr)
      before->Next(entry->Next());
    else
      m_pHead = entry->Next();
    if (m_pTail == entry) m_pTail = before;
    entry->Next(nullptr);
    return std::unique_ptr<T>(entry);
  }

  void RemoveAll() {
    while (T* const entry = Head()) {
      m_pHead = entry->Next();
      delete entry;
    }
    m_pTail = nullptr;
  }

 private:
  std::atomic<T*> m_pHead = nullptr;
  T* m_pTail = nullptr;
};
