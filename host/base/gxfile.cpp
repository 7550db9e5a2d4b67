#include "host/base/gxfile.h"

bool CGXFile::MayWrite() const {
  return m_iFailFrom < 0 || m_Items.Items().size() < static_cast<size_t>(m_iFailFrom);
}

int CGXFile::ReadInt(int* value) {
  const int32_t* item = m_Items.NextInt();
  if (item == nullptr) return 0;
  *value = *item;
  return 1;
}

int CGXFile::ReadString(CGXString* text) {
  const std::string* item = m_Items.NextString();
  if (item == nullptr) return 0;
  *text = CGXString(*item);
  return 1;
}

int CGXFile::WriteInt(int value) {
  if (!MayWrite()) return 0;
  m_Items.Append(value);
  return 1;
}

int CGXFile::WriteString(const CGXString& text) {
  if (!MayWrite()) return 0;
  m_Items.Append(text.Str());
  return 1;
}
