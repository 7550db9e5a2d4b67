// The host's typed message, in which configuration and status records pass between components and tools.
#pragma once

#include "host/base/gxitems.h"
#include "host/base/gxstring.h"

class CGXMSG {
 public:
  CGXMSG() = default;
  explicit CGXMSG(CGXItems items) : m_Items(std::move(items)) { m_Items.Rewind(); }

  void PutInt(int value) { m_Items.Append(value); }
  void PutString(const CGXString& text) { m_Items.Append(text.Str()); }

  // The next item, in the order put. An item that is missing or of the other kind reads as 0 or empty and
  // stays.
  int GetInt();
  CGXString GetString();

  const CGXItems& Items() const { return m_Items; }

 private:
  CGXItems m_Items;
};
