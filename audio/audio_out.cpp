#include "audio/audio_out.h"

CONVIF_AudioOut::CONVIF_AudioOut(CAudioCamera* camera, CIntercomClient* client)
    : m_pCamera(camera), m_pClient(client) {}

CONVIF_AudioOut::~CONVIF_AudioOut() = default;

void CONVIF_AudioOut::Start() {}

void CONVIF_AudioOut::Stop() {}

bool CONVIF_AudioOut::IsRunning() {
  return false;
}

void CONVIF_AudioOut::PushVolumeSample(int, int) {}

int CONVIF_AudioOut::PopVolumeSample(int) {
  return 0;
}
