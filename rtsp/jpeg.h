// The JPEG headers that RTP/JPEG leaves out (RFC 2435 appendices A and B, ITU T.81 annexes B and K).
#pragma once

inline constexpr int JPEG_TABLE_BYTES = 64;         // one quantisation table of 8-bit entries
inline constexpr int JPEG_MAX_HEADER_BYTES = 1024;  // above what MakeJPEGHeaders writes (629 bytes with DRI)

// ITU T.81 tables K.1 and K.2, row by row.
extern const int jpeg_luma_quantizer[JPEG_TABLE_BYTES];
extern const int jpeg_chroma_quantizer[JPEG_TABLE_BYTES];

// The two tables of 64 bytes for quality `q` (below 1 and above 99 as these).
void MakeTables(int q, unsigned char* lqt, unsigned char* cqt);

// Each writes one segment at `p` and returns the position behind it.
unsigned char* MakeQuantHeader(unsigned char* p, const unsigned char* qt, int tableNo);
unsigned char* MakeHuffmanHeader(unsigned char* p, const unsigned char* codelens, int ncodes,
                                 const unsigned char* symbols, int nsymbols, int tableNo, int tableClass);
unsigned char* MakeDRIHeader(unsigned char* p, unsigned short dri);

// Everything from SOI up to and including SOS; `type` 0 is 4:2:2, any other 4:2:0, `w` and `h` count 8 pixels,
// `dri` 0 is no restart interval. Returns the bytes written, at most JPEG_MAX_HEADER_BYTES.
int MakeJPEGHeaders(unsigned char* p, int type, int w, int h, const unsigned char* lqt,
                    const unsigned char* cqt, unsigned short dri);
