// The host's configuration record stream: what a component writes into, and reads back from, the site file.
#pragma once

#include "host/base/gxitems.h"
#include "host/base/gxstring.h"

// The version of records that this host writes; readers find the version of older records in Version().
inline constexpr int GX_FILE_VERSION = 813;

class CGXFile {
 public:
  CGXFile() = default;  // an empty record of the current version, to write
  // A record to read, from its first item on.
  CGXFile(CGXItems items, int version) : m_Items(std::move(items)), m_iVersion(version) { m_Items.Rewind(); }

  int Version() const { return m_iVersion; }
  const CGXItems& Items() const { return m_Items; }

  // 1 on success; 0 at the end of the record, when the next item is of the other kind (it stays, and so does
  // the caller's value), or when writing is over.
  int ReadInt(int* value);
  int ReadString(CGXString* text);
  int WriteInt(int value);
  int WriteString(const CGXString& text);

  // Writing fails once the record holds `item` items, as on a full disk (-1: never).
  void FailWritesFrom(int item) { m_iFailFrom = item; }

 private:
  bool MayWrite() const;
  CGXItems m_Items;
  int m_iVersion = GX_FILE_VERSION;
  int m_iFailFrom = -1;
};
