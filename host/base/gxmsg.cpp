#include "host/base/gxmsg.h"

int CGXMSG::GetInt() {
  const int32_t* value = m_Items.NextInt();
  return value != nullptr ? *value : 0;
}

CGXString CGXMSG::GetString() {
  const std::string* text = m_Items.NextString();
  return text != nullptr ? CGXString(*text) : CGXString();
}
