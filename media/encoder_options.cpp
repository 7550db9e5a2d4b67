#include "media/encoder_options.h"

#include "media/onvif_settings.h"
#include "media/xml_values.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr GXT_RANGE DEFAULT_BITRATE_RANGE = {256, 10000};  // kbit/s, for cameras that do not say

}  // namespace

void CEncoderOptions::ExtractRange(const CONVIFMsg* element, GXT_RANGE* range) {
  *range = {IntOf(element, "Min"), IntOf(element, "Max")};
}

GXT_RANGE* CEncoderOptions::RangeOf(const char* element) {
  const CGXString name = element;
  if (name.CompareNoCase("BitrateRange") == 0) return &m_BitrateRange;
  if (name.CompareNoCase("GovLengthRange") == 0) return &m_GovLengthRange;
  if (name.CompareNoCase("FrameRateRange") == 0) return &m_FrameRateRange;
  if (name.CompareNoCase("EncodingIntervalRange") == 0) return &m_EncodingIntervalRange;
  return nullptr;
}

void CEncoderOptions::LoadFrom(const CONVIFMsg* element) {
  *this = CEncoderOptions();
  m_BitrateRange = DEFAULT_BITRATE_RANGE;
  for (const CONVIFMsg* child = element->Messages(); child != nullptr; child = child->Next()) {
    const CGXString name = LocalName(child);
    if (GXT_RANGE* range = RangeOf(name)) {
      ExtractRange(child, range);
    } else if (name.CompareNoCase("ResolutionsAvailable") == 0) {
      if (m_iNResolutions < MAX_RESOLUTIONS)
        m_Resolutions[m_iNResolutions++] = {IntOf(child, "Width"), IntOf(child, "Height")};
    } else if (name.CompareNoCase("H264ProfilesSupported") == 0) {
      AddH264Profiles(child->Value(0));
    }
  }
}

void CEncoderOptions::AddH264Profiles(const CGXString& names) {
  const std::string_view text = names.Str();
  constexpr const char* BLANKS = " \r\n";
  for (size_t start = text.find_first_not_of(BLANKS); start != text.npos;) {
    const size_t end = std::min(text.find_first_of(BLANKS, start), text.size());
    AddH264Profile(CGXString(text.substr(start, end - start)));
    start = text.find_first_not_of(BLANKS, end);
  }
}

void CEncoderOptions::AddH264Profile(const CGXString& name) {
  const int profile = CONVIFSettings::H264ProfileType(name);
  int* const end = m_H264Profiles + m_iNH264Profiles;
  if (profile == H264_PROFILE_NONE || std::find(m_H264Profiles, end, profile) != end) return;
  if (m_iNH264Profiles < MAX_H264_PROFILES) m_H264Profiles[m_iNH264Profiles++] = profile;
}

void CEncoderOptions::WriteTo(CGXMSG* msg) const {
  msg->PutInt(m_iNResolutions);
  for (int i = 0; i < m_iNResolutions; ++i) {
    msg->PutInt(m_Resolutions[i].Width);
    msg->PutInt(m_Resolutions[i].Height);
  }
  for (const GXT_RANGE& range : {m_EncodingIntervalRange, m_GovLengthRange, m_FrameRateRange, m_BitrateRange}) {
    msg->PutInt(range.Min);
    msg->PutInt(range.Max);
  }
  msg->PutInt(m_iNH264Profiles);
  for (int i = 0; i < m_iNH264Profiles; ++i) msg->PutInt(m_H264Profiles[i]);
}
