#include "controller/site/site_file.h"

#include "controller/core/atomic_file.h"
#include "controller/core/printable.h"
#include "host/base/gxfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>

using nlohmann::json;

namespace {

constexpr off_t SITE_MAX_BYTES = 16 * 1024 * 1024;
constexpr unsigned SITE_MODE = 0600;
constexpr size_t MOST_REASON_BYTES = 200;  // of the parser's words, which quote the text
constexpr char HEX_KEY[] = "hex";

bool IsUTF8(const std::string& text) {
  try {
    (void)json(text).dump();
    return true;
  } catch (const json::exception&) {
    return false;
  }
}

json TextToJson(const std::string& text) {
  if (IsUTF8(text)) return text;
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string hex;
  for (const char c : text) {
    hex += digits[(static_cast<unsigned char>(c) >> 4) & 15];
    hex += digits[static_cast<unsigned char>(c) & 15];
  }
  return json{{HEX_KEY, hex}};
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool UnHex(const std::string& hex, std::string* text) {
  if (hex.size() % 2 != 0) return false;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = HexDigit(hex[i]), low = HexDigit(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    *text += static_cast<char>(high * 16 + low);
  }
  return true;
}

// Reads one site text; m_Error keeps the first complaint with its place.
class CSiteReader {
 public:
  bool Read(const json& root, CSite* site) {
    if (!root.is_object()) return Refuse("the file", "an object is expected");
    if (!Int(root, "version", "version", &site->Version)) return false;
    if (site->Version < 1) return Refuse("version", "not a record version");
    if (site->Version > GX_FILE_VERSION)
      return Refuse("version", std::to_string(site->Version) +
                                   " was written by a newer controller (this one knows " +
                                   std::to_string(GX_FILE_VERSION) + ")");
    const auto list = root.find("components");
    if (list == root.end() || !list->is_array()) return Refuse("components", "a list is expected");
    for (size_t i = 0; i < list->size(); ++i) {
      CSiteComponent component;
      if (!Component((*list)[i], "components[" + std::to_string(i) + "]", &component)) return false;
      site->Components.push_back(std::move(component));
    }
    return true;
  }
  const std::string& Error() const { return m_Error; }

 private:
  bool Refuse(const std::string& place, const std::string& why) {
    m_Error = place + ": " + why;
    return false;
  }

  bool Component(const json& value, const std::string& place, CSiteComponent* component) {
    if (!value.is_object()) return Refuse(place, "an object is expected");
    if (!Int(value, "type", place + ".type", &component->Type) ||
        !Int(value, "id", place + ".id", &component->ID))
      return false;
    if (component->ID < 1) return Refuse(place + ".id", "must be above 0");
    if (!m_IDs.insert(component->ID).second)
      return Refuse(place + ".id", std::to_string(component->ID) + " is used twice");
    const auto name = value.find("name");
    if (name == value.end() || !Text(*name, &component->Name))
      return Refuse(place + ".name", "a text is expected");
    const auto record = value.find("record");
    if (record == value.end() || !record->is_array()) return Refuse(place + ".record", "a list is expected");
    for (size_t i = 0; i < record->size(); ++i) {
      GXT_ITEM item;
      if (!Item((*record)[i], &item))
        return Refuse(place + ".record[" + std::to_string(i) + "]", "a 32-bit integer or a text is expected");
      component->Record.push_back(std::move(item));
    }
    return true;
  }

  static bool Text(const json& value, std::string* text) {
    if (value.is_string()) {
      *text = value.get<std::string>();
      return true;
    }
    if (!value.is_object() || value.size() != 1) return false;
    const auto hex = value.find(HEX_KEY);
    return hex != value.end() && hex->is_string() && UnHex(hex->get_ref<const std::string&>(), text);
  }

  static bool Number(const json& value, int* number) {
    if (!value.is_number_integer()) return false;
    if (value.is_number_unsigned() && value.get<uint64_t>() > std::numeric_limits<int32_t>::max()) return false;
    const int64_t wide = value.get<int64_t>();
    if (wide < std::numeric_limits<int32_t>::min() || wide > std::numeric_limits<int32_t>::max()) return false;
    *number = static_cast<int>(wide);
    return true;
  }

  static bool Item(const json& value, GXT_ITEM* item) {
    int number = 0;
    std::string text;
    if (Number(value, &number))
      *item = number;
    else if (Text(value, &text))
      *item = std::move(text);
    else
      return false;
    return true;
  }

  bool Int(const json& object, const char* key, const std::string& place, int* number) {
    const auto found = object.find(key);
    return (found != object.end() && Number(*found, number)) || Refuse(place, "a 32-bit integer is expected");
  }

  std::string m_Error;
  std::set<int> m_IDs;
};

std::string LineAndColumn(std::string_view text, size_t offset) {
  const std::string_view before = text.substr(0, std::min(offset, text.size()));
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const size_t start = before.rfind('\n');
  const size_t column = before.size() - (start == std::string_view::npos ? 0 : start + 1);
  return "line " + std::to_string(line) + ", column " + std::to_string(std::max<size_t>(column, 1));
}

// Finds where a text stops being JSON that can be taken.
struct CPlaceFinder : json::json_sax_t {
  size_t Place = 0;  // in bytes, the offending one included
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(size_t position, const std::string&, const json::exception&) override {
    Place = position;
    return false;
  }
};

std::string PlaceOfError(std::string_view text) {
  CPlaceFinder finder;
  json::sax_parse(text, &finder);
  return LineAndColumn(text, finder.Place);
}

// The whole content; false with a reason in `error`, which stays empty when there is no such file.
bool ReadWhole(const std::string& path, std::string* text, std::string* error) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // it may be a pipe
  if (fd < 0) {
    if (errno != ENOENT) *error = path + ": " + std::strerror(errno);
    return false;
  }
  struct stat info {};
  std::string content;
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > SITE_MAX_BYTES) {
    *error = path + ": not a file of at most " + std::to_string(SITE_MAX_BYTES) + " bytes";
  } else {
    content.resize(static_cast<size_t>(info.st_size));
    const ssize_t n = read(fd, content.data(), content.size());
    if (n != info.st_size)
      *error = path + ": " + (n < 0 ? std::strerror(errno) : "cut short while it was read");
  }
  close(fd);
  if (!error->empty()) return false;
  *text = std::move(content);
  return true;
}

}  // namespace

std::string SiteToText(const CSite& site) {
  json components = json::array();
  for (const CSiteComponent& component : site.Components) {
    json record = json::array();
    for (const GXT_ITEM& item : component.Record) {
      if (const auto* number = std::get_if<int32_t>(&item))
        record.push_back(*number);
      else
        record.push_back(TextToJson(std::get<std::string>(item)));
    }
    components.push_back({{"type", component.Type},
                          {"id", component.ID},
                          {"name", TextToJson(component.Name)},
                          {"record", std::move(record)}});
  }
  return json{{"version", site.Version}, {"components", std::move(components)}}.dump(1) + "\n";
}

bool SiteFromText(std::string_view text, CSite* site, std::string* error) {
  json root;
  try {
    root = json::parse(text);
  } catch (const json::exception& bad) {  // not JSON, or a number that no computer holds
    *error = PlaceOfError(text) + ": " + Bounded(Printable(bad.what()), MOST_REASON_BYTES);
    return false;
  }
  CSiteReader reader;
  CSite result;
  if (!reader.Read(root, &result)) {
    *error = reader.Error();
    return false;
  }
  *site = std::move(result);
  return true;
}

CSiteFile::CSiteFile(const std::string& path) : m_Path(path) {
  // A link is followed once, so that saving replaces what it points at and not the link.
  std::error_code code;
  if (std::filesystem::is_symlink(path, code)) {
    const auto target = std::filesystem::weakly_canonical(path, code);
    if (!code) m_Path = target.string();
  }
}

CSiteFile::~CSiteFile() {
  for (const int fd : {m_iLock, m_iFirst, m_iNewest})
    if (fd != -1) close(fd);
}

// A hard link is another name with another ".lock" beside it, so the content is locked too.
bool CSiteFile::LockContent(int* held) {
  const int fd = open(m_Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return true;  // Read() says what is the matter
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    close(fd);
    return false;
  }
  if (*held != -1) close(*held);
  *held = fd;
  return true;
}

bool CSiteFile::Lock(std::string* error) {
  const std::string path = m_Path + ".lock";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, SITE_MODE);
  if (fd < 0) {
    *error = path + ": " + std::strerror(errno);
    return false;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    char holder[32] = {};
    const ssize_t n = read(fd, holder, sizeof holder - 1);
    *error = m_Path + ": in use by another controller" +
             (n > 0 ? " (process " + std::string(holder, strcspn(holder, "\n")) + ")" : std::string());
    close(fd);
    return false;
  }
  if (!LockContent(&m_iFirst)) {
    *error = m_Path + ": in use by another controller, under another name of the file";
    close(fd);
    return false;
  }
  const std::string pid = std::to_string(getpid()) + "\n";
  if (ftruncate(fd, 0) != 0 || write(fd, pid.data(), pid.size()) < 0) {
    // The number is only for the message to a second controller; the lock holds without it.
  }
  m_iLock = fd;
  return true;
}

ESiteRead CSiteFile::Read(CSite* site, std::string* error) const {
  std::string text, why;
  if (!ReadWhole(m_Path, &text, &why)) {
    if (why.empty()) return ESiteRead::Absent;
    *error = why;
    return ESiteRead::Refused;
  }
  if (SiteFromText(text, site, &why)) return ESiteRead::Good;
  *error = m_Path + ": " + why + " (the file is kept as it is)";
  return ESiteRead::Refused;
}

bool CSiteFile::Write(const CSite& site, std::string* error) {
  std::string text = SiteToText(site), why;
  if (text == m_Written) return true;
  CSite back;
  if (text.size() > static_cast<size_t>(SITE_MAX_BYTES))
    why = std::to_string(text.size()) + " bytes, more than " + std::to_string(SITE_MAX_BYTES);
  else if (SiteFromText(text, &back, &why))
    why.clear();
  if (!why.empty()) {
    *error = m_Path + ": could not be read back, so it is not written: " + why;
    return false;
  }
  if (!ReplaceFile(m_Path, text, SITE_MODE, true, error)) return false;
  m_Written = std::move(text);
  if (m_iLock != -1) LockContent(&m_iNewest);
  return true;
}
