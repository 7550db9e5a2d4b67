#include "onvif/closing_tags.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>

namespace {

constexpr size_t NPOS = std::string_view::npos;
constexpr size_t TEXT_PER_TAG = 32;  // at least, in answers of cameras
constexpr uint64_t HASH_FACTOR = 0x9E3779B97F4A7C15ULL;

// Up to eight bytes as a number; which one does not matter as long as different bytes differ.
uint64_t LoadWord(const char* p, size_t n) {
  if (n >= 4) {
    uint32_t low, high;
    memcpy(&low, p, 4);
    memcpy(&high, p + n - 4, 4);
    return (static_cast<uint64_t>(high) << 32) | low;
  }
  uint64_t word = 0;
  for (size_t i = 0; i < n; ++i) word = word << 8 | static_cast<unsigned char>(p[i]);
  return word;
}

// The next `</` at or behind `from`.
size_t FindClosing(std::string_view text, size_t from) {
  for (size_t open = text.find('<', from); open != NPOS; open = text.find('<', open + 1)) {
    if (open + 1 < text.size() && text[open + 1] == '/') return open;
  }
  return NPOS;
}

}  // namespace

// ---- CClosingTagIndex ----

// Begins with the address of the text, so that names which collide here do not collide in the next answer.
uint64_t CClosingTagIndex::Hash(std::string_view name) const {
  uint64_t hash = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(m_Text.data())) * HASH_FACTOR ^ name.size();
  const auto mix = [&hash](uint64_t word) {
    hash = (hash ^ word) * HASH_FACTOR;
    hash ^= hash >> 32;
  };
  const char* p = name.data();
  size_t left = name.size();
  for (; left > 8; left -= 8, p += 8) {
    uint64_t word;
    memcpy(&word, p, 8);
    mix(word);
  }
  mix(LoadWord(p, left));
  return hash;
}

// The slot of the hash, or the free one where it belongs.
size_t CClosingTagIndex::SlotOf(uint64_t hash) const {
  const size_t mask = m_Slots.size() - 1;
  size_t i = static_cast<size_t>(hash) & mask;
  while (m_Slots[i].Count != 0 && m_Slots[i].Hash != hash) i = (i + 1) & mask;
  return i;
}

void CClosingTagIndex::Group() {
  m_Slots.resize(std::bit_ceil(m_Tags.size() + m_Tags.size() / 2 + 1));
  for (Tag& tag : m_Tags) {
    const size_t slot = SlotOf(tag.Hash);
    m_Slots[slot].Hash = tag.Hash;
    ++m_Slots[slot].Count;
    tag.Hash = slot;
  }
  uint32_t first = 0;
  for (Slot& slot : m_Slots) {
    slot.First = first;  // for now where its next tag goes
    first += slot.Count;
  }
  std::vector<Tag> grouped(m_Tags.size());
  for (const Tag& tag : m_Tags) grouped[m_Slots[static_cast<size_t>(tag.Hash)].First++] = tag;
  for (Slot& slot : m_Slots) slot.First -= slot.Count;
  m_Tags = std::move(grouped);
}

CClosingTag CClosingTagIndex::Find(std::string_view name, size_t from) const {
  const Slot& slot = m_Slots[SlotOf(Hash(name))];
  const auto begin = m_Tags.begin() + slot.First;
  const auto end = begin + slot.Count;
  auto tag = std::lower_bound(begin, end, from, [](const Tag& t, size_t offset) { return t.Begin < offset; });
  for (; tag != end; ++tag) {  // names with the same hash are possible
    const std::string_view text = m_Text.substr(tag->Begin + 2);
    if (text.size() > name.size() && text[name.size()] == m_Terminator && text.starts_with(name)) {
      return {m_Text.data() + tag->Begin, tag->After != 0 ? m_Text.data() + tag->After : nullptr};
    }
  }
  return {};
}

// ---- CClosingTags ----

// Names that hold a `<` are left out of both, or a hostile text would be hashed again for each of its `</`.
void CClosingTags::BuildExact() {
  m_Exact.Reserve(m_Text.size() / TEXT_PER_TAG);
  size_t close = 0, next = 0;  // the first `>` and `<` behind the opening one
  for (size_t open = FindClosing(m_Text, 0); open != NPOS; open = FindClosing(m_Text, open + 2)) {
    if (close < open + 2) close = m_Text.find('>', open + 2);
    if (next < open + 2) next = m_Text.find('<', open + 2);
    if (close == NPOS) break;
    const size_t length = close - (open + 2);
    if (close < next && length <= MAX_TAG_TEXT)
      m_Exact.Add({m_Text.data() + open + 2, length}, open, close + 1);
  }
  m_Exact.Group();
}

void CClosingTags::BuildBlank() {
  size_t close = 0, blank = 0, next = 0;
  for (size_t open = FindClosing(m_Text, 0); open != NPOS; open = FindClosing(m_Text, open + 2)) {
    if (close != NPOS && close < open + 2) close = m_Text.find('>', open + 2);
    if (blank < open + 2) blank = m_Text.find(' ', open + 2);
    if (next < open + 2) next = m_Text.find('<', open + 2);
    if (blank == NPOS) break;
    const size_t length = blank - (open + 2);
    if (blank < std::min(close, next) && length <= MAX_TAG_TEXT) {
      m_Blank.Add({m_Text.data() + open + 2, length}, open, close != NPOS ? close + 1 : 0);
    }
  }
  m_Blank.Group();
}

// Looks for a closing tag in the text itself.
CClosingTag CClosingTags::Scan(std::string_view name, char terminator, size_t from, size_t* searched) const {
  std::string pattern = "</";
  pattern.append(name) += terminator;
  // Linear for any pattern, which std::string_view::find is not.
  const void* const match = memmem(m_Text.data() + from, m_Text.size() - from, pattern.data(), pattern.size());
  const auto* const found = static_cast<const char*>(match);
  const size_t begin = found != nullptr ? static_cast<size_t>(found - m_Text.data()) : NPOS;
  const size_t close = found != nullptr ? m_Text.find('>', begin) : NPOS;
  *searched += (close != NPOS ? close + 1 : m_Text.size()) - from;
  return {found, close != NPOS ? m_Text.data() + close + 1 : nullptr};
}

// Names that hold a `<`, or a blank when a blank ends the tag, are rare enough to be looked for in the text.
CClosingTag CClosingTags::Find(std::string_view name, const char* from, size_t* searched) {
  const size_t start = static_cast<size_t>(from - m_Text.data());
  const bool bracket = name.find('<') != NPOS;
  if (!bracket && !m_Exact.IsGrouped()) BuildExact();
  const CClosingTag tag = bracket ? Scan(name, '>', start, searched) : m_Exact.Find(name, start);
  if (tag.Begin != nullptr) return tag;
  if (bracket || name.find(' ') != NPOS) return Scan(name, ' ', start, searched);
  if (!m_Blank.IsGrouped()) BuildBlank();
  return m_Blank.Find(name, start);
}
