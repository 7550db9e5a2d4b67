// RTP/JPEG: headers against the standard's figures, and whole pictures against libjpeg.
#include "rtsp/jpeg.h"

#include "rtsp/jpeg_assembler.h"
#include "tests/support/jpeg_judge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using Result = CJPEGAssembler::Result;

// Where entry i of a DQT segment stands in the table (ITU T.81 figure A.6).
const int g_iZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                           12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                           35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                           58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

struct Picture {
  int Width, Height, Type;  // pixels; type 0 is 4:2:2, 1 is 4:2:0
  unsigned short Restart;   // MCUs
};

// What a camera's encoder makes of a test picture with the two tables as they stand in DQT segments.
Bytes Encode(const Picture& picture, const unsigned char* luma, const unsigned char* chroma) {
  jpeg_compress_struct encoder{};
  jpeg_error_mgr errors{};
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&encoder, &out, &size);
  encoder.image_width = static_cast<JDIMENSION>(picture.Width);
  encoder.image_height = static_cast<JDIMENSION>(picture.Height);
  encoder.input_components = 3;
  encoder.in_color_space = JCS_RGB;
  jpeg_set_defaults(&encoder);
  for (int table = 0; table < 2; ++table) {
    unsigned rows[64];
    for (int i = 0; i < 64; ++i) rows[g_iZigzag[i]] = (table == 0 ? luma : chroma)[i];
    jpeg_add_quant_table(&encoder, table, rows, 100, TRUE);
  }
  encoder.comp_info[0].h_samp_factor = 2;
  encoder.comp_info[0].v_samp_factor = picture.Type == 0 ? 1 : 2;
  encoder.restart_interval = picture.Restart;
  jpeg_start_compress(&encoder, TRUE);
  Bytes row(static_cast<size_t>(picture.Width) * 3);
  while (encoder.next_scanline < encoder.image_height) {
    for (size_t x = 0; x < row.size(); ++x)
      row[x] = static_cast<unsigned char>((x / 3 + encoder.next_scanline) * (x % 3 + 1) / 2);
    JSAMPROW line = row.data();
    jpeg_write_scanlines(&encoder, &line, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  const Bytes encoded(out, out + size);
  std::free(out);
  return encoded;
}

struct Sender {
  Picture Shape;
  int Q;
  Bytes Tables;  // behind the first main header, with their own header; Q 128 and above

  // One RTP/JPEG packet (RFC 2435 3.1) with `length` bytes of the scan from `offset` on.
  Bytes Packet(const Bytes& scan, size_t offset, size_t length, int payloadType = 26) const {
    Bytes p = {0x80, static_cast<unsigned char>(payloadType), 0, 1, 0, 0, 0, 2, 0, 0, 0, 3};
    const auto put = [&p](std::initializer_list<size_t> bytes) {
      for (const size_t byte : bytes) p.push_back(static_cast<unsigned char>(byte));
    };
    const size_t type = static_cast<size_t>(Shape.Type) + (Shape.Restart != 0 ? 64 : 0);
    put({0, offset >> 16, offset >> 8, offset, type, static_cast<size_t>(Q),
         static_cast<size_t>(Shape.Width) / 8, static_cast<size_t>(Shape.Height) / 8});
    if (Shape.Restart != 0) put({Shape.Restart / 256u, Shape.Restart, 0xFF, 0xFF});
    if (offset == 0) p.insert(p.end(), Tables.begin(), Tables.end());
    p.insert(p.end(), scan.begin() + static_cast<long>(offset),
             scan.begin() + static_cast<long>(offset + length));
    return p;
  }
};

Bytes Scan(const Bytes& jpeg) {
  const Bytes sos = {0xff, 0xda};
  const auto at = std::search(jpeg.begin(), jpeg.end(), sos.begin(), sos.end());
  return Bytes(at + 14, jpeg.end());
}

Result Add(CJPEGAssembler& assembler, const Bytes& packet) {
  return assembler.Add(packet.data(), static_cast<int>(packet.size()));
}

void AddAll(CJPEGAssembler& assembler, const Sender& sender, const Bytes& scan, size_t piece) {
  for (size_t at = 0; at < scan.size(); at += piece) {
    const Result result = Add(assembler, sender.Packet(scan, at, std::min(piece, scan.size() - at)));
    ASSERT_EQ(at == 0 && !assembler.Picture().empty() ? Result::PICTURE : Result::ADDED, result);
  }
}

}  // namespace

TEST(JpegHeaders, FollowTheStandard) {
  unsigned char luma[64], chroma[64], header[JPEG_MAX_HEADER_BYTES];
  MakeTables(50, luma, chroma);
  const unsigned char firstRows[2][8] = {{16, 11, 10, 16, 24, 40, 51, 61}, {17, 18, 24, 47, 99, 99, 99, 99}};
  EXPECT_EQ(0, std::memcmp(luma, firstRows[0], 8));
  EXPECT_EQ(0, std::memcmp(chroma, firstRows[1], 8));
  const struct {
    int q, first, last;  // of luminance
  } tables[] = {{-1, 255, 255}, {0, 255, 255}, {1, 255, 255}, {49, 16, 101},
                {75, 8, 50},    {99, 1, 2},    {127, 1, 2}};
  for (const auto& test : tables) {
    MakeTables(test.q, luma, chroma);
    EXPECT_EQ(test.first, luma[0]) << test.q;
    EXPECT_EQ(test.last, luma[63]) << test.q;
  }
  EXPECT_EQ(623, MakeJPEGHeaders(header, 1, 80, 60, luma, chroma, 0));
  EXPECT_EQ(629, MakeJPEGHeaders(header, 1, 80, 60, luma, chroma, 0x1234));
  const unsigned char dri[] = {0xff, 0xdd, 0, 4, 0x12, 0x34, 0xff, 0xc0, 0, 17, 8, 1, 224, 2, 128, 3, 0, 0x22};
  EXPECT_EQ(0, std::memcmp(header + 158, dri, sizeof dri));
}

TEST(JpegAssembler, RebuildsThePictureThatTheCameraEncoded) {
  for (const Picture& shape :
       {Picture{640, 480, 1, 0}, Picture{640, 480, 0, 0}, Picture{1280, 720, 1, 16}, Picture{64, 48, 0, 4}})
    for (const int q : {1, 30, 50, 85, 99, 255}) {
      SCOPED_TRACE(testing::Message() << shape.Width << " type " << shape.Type << " Q " << q);
      unsigned char luma[64], chroma[64];
      MakeTables(std::min(q, 60), luma, chroma);
      Sender sender{shape, q, {}};
      if (q < 128) {
        MakeTables(q, luma, chroma);
      } else {
        sender.Tables = {0, 0, 0, 128};
        sender.Tables.insert(sender.Tables.end(), luma, luma + 64);
        sender.Tables.insert(sender.Tables.end(), chroma, chroma + 64);
        std::memcpy(chroma, luma, 64);
      }
      const Bytes original = Encode(shape, luma, chroma), scan = Scan(original);
      CJPEGAssembler assembler;
      for (const size_t piece : {1400u, 1000u, 60000u}) {
        AddAll(assembler, sender, scan, piece);
        EXPECT_EQ(Result::PICTURE, Add(assembler, sender.Packet(scan, 0, scan.size())));
        const DecodedPicture rebuilt = DecodeJPEG({assembler.Picture().begin(), assembler.Picture().end()});
        ASSERT_EQ(rebuilt.Width, shape.Width) << "libjpeg warned";
        EXPECT_EQ(DecodeJPEG(original).Pixels, rebuilt.Pixels);
      }
    }
}

TEST(JpegAssembler, TakesOnlyWhatItCanUse) {
  const Bytes scan(3000, 7);
  const Sender sender{{64, 64, 1, 0}, 50, {}};
  CJPEGAssembler assembler;
  EXPECT_EQ(Result::DROPPED, Add(assembler, sender.Packet(scan, 1000, 1000))) << "no picture has begun";
  EXPECT_EQ(Result::ADDED, Add(assembler, sender.Packet(scan, 0, 1000)));
  EXPECT_EQ(Result::DROPPED, Add(assembler, sender.Packet(scan, 1000, 1000, 96)));
  EXPECT_EQ(Result::DROPPED, Add(assembler, Sender{{64, 64, 2, 0}, 50, {}}.Packet(scan, 1000, 1000)));
  EXPECT_EQ(Result::TOO_SHORT, assembler.Add(scan.data(), 11));
  EXPECT_EQ(Result::TOO_SHORT, Add(assembler, Bytes(12, 0x80)));
  Bytes cut = sender.Packet(scan, 0, 0);
  cut.pop_back();
  EXPECT_EQ(Result::DROPPED, Add(assembler, cut));
  Bytes extended = sender.Packet(scan, 1000, 2000);
  extended[0] = 0x91;  // one contributing source and an extension of one word
  extended.insert(extended.begin() + 12, {9, 9, 9, 9, 0xBE, 0xDE, 0, 1, 9, 9, 9, 9});
  EXPECT_EQ(Result::ADDED, Add(assembler, extended));
  EXPECT_EQ(Result::PICTURE, Add(assembler, sender.Packet(scan, 0, 10)));
  EXPECT_EQ(623u + 3000, assembler.Picture().size());
  EXPECT_TRUE(
      std::all_of(assembler.Picture().begin() + 623, assembler.Picture().end(), [](int b) { return b == 7; }));

  // Tables that are announced and not there.
  for (const Bytes& tables : {Bytes{}, Bytes{0, 0, 0, 0}, Bytes{0, 0, 0, 64, 1, 2}, Bytes{0, 0, 0xFF, 0xFF}}) {
    const Bytes packet = Sender{{64, 64, 1, 0}, 255, tables}.Packet(scan, 0, 10);
    EXPECT_NE(Result::ADDED, Add(assembler, packet));
    EXPECT_EQ(Result::DROPPED, Add(assembler, sender.Packet(scan, 10, 10)));
  }
}

TEST(JpegAssembler, GivesUpAPictureBeyondItsBuffer) {
  const Bytes scan(CJPEGAssembler::CAPACITY, 7);
  const Sender sender{{64, 64, 1, 0}, 50, {}};
  const size_t fits = CJPEGAssembler::CAPACITY - 623;
  CJPEGAssembler assembler;
  EXPECT_EQ(Result::ADDED, Add(assembler, sender.Packet(scan, 0, 0)));
  EXPECT_EQ(Result::ADDED, Add(assembler, sender.Packet(scan, fits - 1000, 1000)));
  EXPECT_EQ(Result::DROPPED, Add(assembler, sender.Packet(scan, fits - 999, 1000)));
  EXPECT_EQ(Result::ADDED, Add(assembler, sender.Packet(scan, 0, 1000))) << "not handed over";
  for (size_t i = 1; i < fits / 1000; ++i)
    ASSERT_EQ(Result::ADDED, Add(assembler, sender.Packet(scan, 0 + 1, 1000)));
  EXPECT_EQ(Result::DROPPED, Add(assembler, sender.Packet(scan, 1, 1000))) << "repeated fragments";
}
