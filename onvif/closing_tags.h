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

// Closing tags whose name ends with one certain character: first every Add, then Group, then Find.
class CClosingTagIndex {
 public:
  CClosingTagIndex(std::string_view text, char terminator) : m_Text(text), m_Terminator(terminator) {}
  void Reserve(size_t tags) { m_Tags.reserve(tags); }
  bool IsGrouped() const { return !m_Slots.empty(); }
  // The tag at offset `begin`, in ascending order; `after`: offset behind its `>`, 0 when there is none.
  void Add(std::string_view name, size_t begin, size_t after) {
    m_Tags.push_back({Hash(name), static_cast<uint32_t>(begin), static_cast<uint32_t>(after)});
  }
  void Group();
  CClosingTag Find(std::string_view name, size_t from) const;  // the first at or behind `from`

 private:
  struct Tag {
    uint64_t Hash;
    uint32_t Begin, After;
  };
  struct Slot {  // the tags with one hash: m_Tags[First] on, ascending; Count 0: free
    uint64_t Hash;
    uint32_t First, Count;
  };
  uint64_t Hash(std::string_view name) const;
  size_t SlotOf(uint64_t hash) const;

  std::string_view m_Text;
  char m_Terminator;
  std::vector<Tag> m_Tags;
  std::vector<Slot> m_Slots;  // open addressing, a power of two
};

class CClosingTags {
 public:
  explicit CClosingTags(std::string_view text) : m_Text(text), m_Exact(text, '>'), m_Blank(text, ' ') {}

  // `name` holds no `>`; `from` points into the text. `searched` grows by the characters read one by one, which
  // only happens for names that hold a `<` or (inside quotes) a blank.
  CClosingTag Find(std::string_view name, const char* from, size_t* searched);

 private:
  void BuildExact();
  void BuildBlank();
  CClosingTag Scan(std::string_view name, char terminator, size_t from, size_t* searched) const;

  std::string_view m_Text;  // must outlive this object
  CClosingTagIndex m_Exact, m_Blank;
};
