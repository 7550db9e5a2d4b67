// The sequence of typed items (32-bit integer or text) that configuration messages and file records are made
// of.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

using GXT_ITEM = std::variant<int32_t, std::string>;

class CGXItems {
 public:
  CGXItems() = default;
  explicit CGXItems(std::vector<GXT_ITEM> items) : m_Items(std::move(items)) {}

  const std::vector<GXT_ITEM>& Items() const { return m_Items; }
  bool AtEnd() const { return m_nNext >= m_Items.size(); }
  void Rewind() { m_nNext = 0; }

  void Append(int32_t value) { m_Items.emplace_back(value); }
  void Append(std::string text) { m_Items.emplace_back(std::move(text)); }

  // The next item when it is of that kind, and moves past it; null at the end or when the kind differs.
  const int32_t* NextInt();
  const std::string* NextString();

 private:
  std::vector<GXT_ITEM> m_Items;
  size_t m_nNext = 0;
};
