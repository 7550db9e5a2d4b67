// Short forms for reading values out of an XML tree.
#pragma once

#include "host/base/gxstring.h"
#include "onvif/onvif_msg.h"
#include "util/numbers.h"

// The decimal number that `text` begins with, 0 when it has none; numbers beyond an int stop at its ends.
inline int ToInt(const CGXString& text) {
  return LeadingNumber<int>(text.Str()).value_or(0);
}

// Text and number of the first element at or beneath `msg` whose name contains `name`; empty and 0 when none.
inline CGXString TextOf(const CONVIFMsg* msg, const char* name) {
  return msg->FindSubMSGValue(name, 0);
}
inline int IntOf(const CONVIFMsg* msg, const char* name) {
  return ToInt(TextOf(msg, name));
}

// The element's name without its namespace prefix.
inline CGXString LocalName(const CONVIFMsg* msg) {
  const CGXString name = msg->Name();
  return name.Mid(name.Find(':') + 1);
}
