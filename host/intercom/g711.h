// Companded sound at 64 kbit/s (ITU-T G.711).
#pragma once

class G711 {
 public:
  static constexpr unsigned char ULAW_SILENCE = 0x7F;
  // Mu-law, one byte a 16-bit linear sample; `pcmBytes` and `ulawBytes` are those of the input. Both return the
  // bytes that they wrote.
  static int ULawEncode(unsigned char* out, const short* pcm, unsigned pcmBytes);
  static int ULawDecode(short* out, const unsigned char* ulaw, unsigned ulawBytes);
};
