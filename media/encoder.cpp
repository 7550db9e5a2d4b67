#include "media/encoder.h"

#include "host/base/gxassert.h"
#include "media/xml_values.h"

CEncoder::CEncoder(const CONVIFMsg* configuration) : m_Token(configuration->Attribute("token")) {
  Load(configuration);
}

void CEncoder::Load(const CONVIFMsg* configuration) {
  m_CurrentConfig.LoadFrom(configuration, nullptr);
  CGXLock lock(m_Lock);
  m_Name = TextOf(configuration, "Name");
  m_UseCount = TextOf(configuration, "UseCount");
}

bool CEncoder::ReloadFrom(const CONVIFMsg* configuration) {
  if (!(configuration->Attribute("token") == m_Token)) {
    AssertWrap("encoder", 239);
    return false;
  }
  Load(configuration);
  return true;
}

// Encodings by their exact spelling: firmware offers others of its own under similar names. What stands inside
// them is spelt in many ways, and taken in any.
void CEncoder::AddOptions(const CONVIFMsg* element) {
  CGXLock lock(m_Lock);
  if (element->Name().Find("QualityRange") >= 0) {
    CEncoderOptions::ExtractRange(element, &m_QualityRange);
    return;
  }
  const CGXString name = LocalName(element);
  if (name == "JPEG") {
    m_JPEGOptions.LoadFrom(element);
  } else if (name == "H264") {
    m_H264Options.LoadFrom(element);
  } else if (name == "H264ProfilesSupported") {
    // Beside "H264", not inside it, firmware repeats the element for each profile: one name each.
    m_H264Options.AddH264Profile(element->Value(0));
  }
}

CGXString CEncoder::Name() const {
  CGXLock lock(m_Lock);
  return m_Name;
}

CGXString CEncoder::UseCount() const {
  CGXLock lock(m_Lock);
  return m_UseCount;
}

void CEncoder::WriteTo(CGXMSG* msg) const {
  CGXLock lock(m_Lock);
  msg->PutString(m_Name);
  msg->PutString(m_Token);
  msg->PutInt(m_QualityRange.Min);
  msg->PutInt(m_QualityRange.Max);
  m_JPEGOptions.WriteTo(msg);
  m_H264Options.WriteTo(msg);
  m_CurrentConfig.WriteTo(msg);
}

CEncoder* CEncoderConfig::AddEncoder(const CONVIFMsg* configuration) {
  return m_Encoders.Append(std::make_unique<CEncoder>(configuration));
}

CEncoder* CEncoderConfig::EncoderByToken(const CGXString& token) const {
  CEncoder* encoder = Encoders();
  while (encoder != nullptr && !(encoder->Token() == token)) encoder = encoder->Next();
  return encoder;
}

void CEncoderConfig::WriteTo(CGXMSG* msg) const {
  msg->PutInt(m_Encoders.Count());
  for (const CEncoder* encoder = Encoders(); encoder != nullptr; encoder = encoder->Next())
    encoder->WriteTo(msg);
}
