// Where the closing tags of a text stand: answers "the first `</name>`, or else the first `</name `, from here
// on" without reading the text again, so that a large or hostile answer costs time in proportion to its length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

inline constexpr size_t MAX_TAG_TEXT = 4096;  // longer tag texts read as empty, so no longer name is looked for

struct CClosingTag {
  const char* Begin = nullptr;  // its `<`; null: there is none
  const char* After = nullptr;  // behind the first `>` from there on; null: there is none
};

// Places in a text by name, each name's places ascending. First every Add, then Group, then Find.
class CNamedPlaces {
 public:
  struct Place {
    uint32_t Begin, After;  // offsets into the text; After 0: no `>` follows
  };
  explicit CNamedPlaces(uint64_t seed) : m_qwSeed(seed) {}
  void Add(std::string_view name, Place place);  // in ascending order
  void Group();
  const Place* Find(std::string_view name, size_t from) const;  // the first at or behind `from`; null: none

 private:
  struct Key {
    std::string_view Name;
    uint64_t Hash;
    uint32_t First, Count;  // in m_Places
  };
  uint64_t Hash(std::string_view name) const;
  size_t Slot(std::string_view name, uint64_t hash) const;
  void GrowSlots();

  uint64_t m_qwSeed;
  std::vector<Key> m_Keys;
  std::vector<uint32_t> m_Slots;  // open addressing, a power of two; index into m_Keys plus one, 0 = free
  std::vector<Place> m_Places;
  std::vector<uint32_t> m_KeyOfPlace;  // until Group
};

class CClosingTags {
 public:
  explicit CClosingTags(std::string_view text);  // the text must outlive this object

  // `name` holds no `>`; `from` points into the text. `searched` grows by the characters read one by one, which
  // only happens for names that hold a blank (inside quotes).
  CClosingTag Find(std::string_view name, const char* from, size_t* searched);

 private:
  void Build();
  CClosingTag At(const CNamedPlaces::Place& place) const;
  CClosingTag Scan(std::string_view name, const char* from, size_t* searched) const;

  std::string_view m_Text;
  bool m_bBuilt = false;
  CNamedPlaces m_Exact, m_Blank;  // by the text up to the `>`, and up to the first blank in front of it
};
