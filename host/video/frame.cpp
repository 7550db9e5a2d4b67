#include "host/video/frame.h"

#include "host/system/component.h"

void CJPEGBuffer::SetData(const unsigned char* data, int length) {
  if (data == nullptr || length < 0) length = 0;
  m_Data.assign(data, data + length);
}

CFrameData::CFrameData(int kind, const void*, int, int, const CSystemComponent* camera,
                       const unsigned char* data, int length, int motion, int)
    : m_iKind(kind), m_iCameraID(camera != nullptr ? camera->ID() : 0), m_iMotion(motion) {
  if (data != nullptr && length > 0) m_Data.assign(data, data + length);
}

CFrameData::~CFrameData() = default;

CDVRTarget::~CDVRTarget() = default;
