// A host list of CGXString that deletes its entries.
#pragma once

#include "host/base/gxlist.h"
#include "host/base/gxstring.h"

class CStringList : public CGXObList {
 public:
  CStringList() = default;
  ~CStringList() {
    while (!IsEmpty()) delete static_cast<CGXString*>(RemoveHead());
  }
  CStringList(const CStringList&) = delete;
  CStringList& operator=(const CStringList&) = delete;

  CGXString* Next(CGXPos& position) const { return static_cast<CGXString*>(GetNext(position)); }
};
