#include "onvif/closing_tags.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr size_t NPOS = std::string_view::npos;

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

// A seed that a camera cannot know, so that it cannot choose names that collide.
uint64_t SeedOf(const char* text) {
  return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(text)) * 0x9E3779B97F4A7C15ULL;
}

}  // namespace

// ---- CNamedPlaces ----

uint64_t CNamedPlaces::Hash(std::string_view name) const {
  uint64_t hash = m_qwSeed ^ name.size();
  const auto mix = [&hash](uint64_t word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15ULL;
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

// The slot of the name, or the free one where it belongs.
size_t CNamedPlaces::Slot(std::string_view name, uint64_t hash) const {
  const size_t mask = m_Slots.size() - 1;
  size_t i = hash & mask;
  while (m_Slots[i] != 0) {
    const Key& key = m_Keys[m_Slots[i] - 1];
    if (key.Hash == hash && key.Name == name) break;
    i = (i + 1) & mask;
  }
  return i;
}

void CNamedPlaces::GrowSlots() {
  m_Slots.assign(std::max<size_t>(256, m_Slots.size() * 2), 0);
  const size_t mask = m_Slots.size() - 1;
  for (uint32_t k = 0; k < m_Keys.size(); ++k) {
    size_t i = m_Keys[k].Hash & mask;
    while (m_Slots[i] != 0) i = (i + 1) & mask;
    m_Slots[i] = k + 1;
  }
}

void CNamedPlaces::Add(std::string_view name, Place place) {
  if (m_Keys.size() * 2 >= m_Slots.size()) GrowSlots();
  const uint64_t hash = Hash(name);
  uint32_t& slot = m_Slots[Slot(name, hash)];
  if (slot == 0) {
    m_Keys.push_back({name, hash, 0, 0});
    slot = static_cast<uint32_t>(m_Keys.size());
  }
  ++m_Keys[slot - 1].Count;
  m_Places.push_back(place);
  m_KeyOfPlace.push_back(slot - 1);
}

void CNamedPlaces::Group() {
  uint32_t first = 0;
  for (Key& key : m_Keys) {
    key.First = first;
    first += key.Count;
    key.Count = 0;
  }
  std::vector<Place> grouped(m_Places.size());
  for (size_t i = 0; i < m_Places.size(); ++i) {
    Key& key = m_Keys[m_KeyOfPlace[i]];
    grouped[key.First + key.Count++] = m_Places[i];
  }
  m_Places = std::move(grouped);
  m_KeyOfPlace.clear();
}

const CNamedPlaces::Place* CNamedPlaces::Find(std::string_view name, size_t from) const {
  if (m_Keys.empty()) return nullptr;
  const uint32_t slot = m_Slots[Slot(name, Hash(name))];
  if (slot == 0) return nullptr;
  const Key& key = m_Keys[slot - 1];
  const Place* const begin = m_Places.data() + key.First;
  const Place* const end = begin + key.Count;
  const Place* const place =
      std::lower_bound(begin, end, from, [](const Place& p, size_t offset) { return p.Begin < offset; });
  return place != end ? place : nullptr;
}

// ---- CClosingTags ----

CClosingTags::CClosingTags(std::string_view text)
    : m_Text(text), m_Exact(SeedOf(text.data())), m_Blank(SeedOf(text.data())) {}

void CClosingTags::Build() {
  size_t close = 0;  // the first `>` from here on
  for (size_t open = m_Text.find('<'); open != NPOS; open = m_Text.find('<', open + 1)) {
    if (open + 1 >= m_Text.size() || m_Text[open + 1] != '/') continue;
    const size_t name = open + 2;
    if (close != NPOS && close < name) close = m_Text.find('>', name);
    const CNamedPlaces::Place place{static_cast<uint32_t>(open),
                                    close != NPOS ? static_cast<uint32_t>(close + 1) : 0};
    const std::string_view text =
        m_Text.substr(name, std::min(close != NPOS ? close - name : NPOS, MAX_TAG_TEXT + 1));
    if (close != NPOS && text.size() <= MAX_TAG_TEXT) m_Exact.Add(text, place);
    const size_t blank = text.find(' ');
    if (blank != NPOS) m_Blank.Add(text.substr(0, blank), place);
  }
  m_Exact.Group();
  m_Blank.Group();
  m_bBuilt = true;
}

CClosingTag CClosingTags::At(const CNamedPlaces::Place& place) const {
  return {m_Text.data() + place.Begin, place.After != 0 ? m_Text.data() + place.After : nullptr};
}

// A name with a blank in it ends at some later blank of a closing tag: rare enough to be looked for in the
// text.
CClosingTag CClosingTags::Scan(std::string_view name, const char* from, size_t* searched) const {
  const size_t start = static_cast<size_t>(from - m_Text.data());
  std::string pattern = "</";
  pattern.append(name) += ' ';
  const size_t found = m_Text.find(pattern, start);
  const size_t close = found != NPOS ? m_Text.find('>', found) : NPOS;
  *searched += (close != NPOS ? close + 1 : m_Text.size()) - start;
  if (found == NPOS) return {};
  return {m_Text.data() + found, close != NPOS ? m_Text.data() + close + 1 : nullptr};
}

CClosingTag CClosingTags::Find(std::string_view name, const char* from, size_t* searched) {
  if (!m_bBuilt) Build();
  const size_t start = static_cast<size_t>(from - m_Text.data());
  if (const auto* place = m_Exact.Find(name, start)) return At(*place);
  if (name.find(' ') != NPOS) return Scan(name, from, searched);
  if (const auto* place = m_Blank.Find(name, start)) return At(*place);
  return {};
}
