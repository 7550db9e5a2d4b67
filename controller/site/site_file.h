// The site file: which components the controller has, and the record of each. A JSON text:
//   { "version": 813, "components": [ { "type": 8072, "id": 1, "name": "Door", "record": [ "Acme", 5, ... ] } ]
//   }
// A text that is not UTF-8 stands as { "hex": "C3..." }, so every byte survives.
#pragma once

#include "host/base/gxitems.h"

#include <string>
#include <string_view>
#include <vector>

struct CSiteComponent {
  int Type = 0;
  int ID = 0;  // above 0, each once
  std::string Name;
  std::vector<GXT_ITEM> Record;
};

struct CSite {
  int Version = 0;  // that of the records
  std::vector<CSiteComponent> Components;
};

std::string SiteToText(const CSite& site);
// False with a reason that names the place: line and column, or the item's path such as
// components[1].record[4].
bool SiteFromText(std::string_view text, CSite* site, std::string* error);

enum class ESiteRead { Good, Absent, Refused };

class CSiteFile {
 public:
  explicit CSiteFile(const std::string& path);
  ~CSiteFile();  // gives the lock back
  CSiteFile(const CSiteFile&) = delete;
  CSiteFile& operator=(const CSiteFile&) = delete;

  const std::string& Path() const { return m_Path; }

  // Holds the file against a second controller, whatever name that one has for it, until destroyed. False with
  // a reason.
  bool Lock(std::string* error);

  // Reads it; a file that cannot be read or understood is refused with a reason and stays as it is.
  ESiteRead Read(CSite* site, std::string* error) const;

  // Replaces it as a whole (mode 0600: records hold passwords). Content that is there already is not written
  // again, and what Read() would refuse is not written at all. False with a reason.
  bool Write(const CSite& site, std::string* error);

 private:
  std::string m_Path;
  std::string m_Written;  // what this object wrote last
  bool LockContent(int* held);

  int m_iLock = -1;
  int m_iFirst = -1, m_iNewest = -1;  // the content as it was first and as it was written last, locked
};
