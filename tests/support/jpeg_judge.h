// Pictures as libjpeg decodes them.
#pragma once

#include <stddef.h>
#include <stdio.h>
// libjpeg's header needs these before it.
#include <jpeglib.h>

#include <vector>

struct DecodedPicture {
  int Width = 0;  // 0 when libjpeg has anything to say against the picture
  std::vector<unsigned char> Pixels;
};

inline DecodedPicture DecodeJPEG(const std::vector<unsigned char>& jpeg) {
  jpeg_error_mgr errors;
  jpeg_decompress_struct decoder;
  decoder.err = jpeg_std_error(&errors);
  errors.error_exit = [](j_common_ptr) { throw 0; };
  errors.output_message = [](j_common_ptr) {};
  jpeg_create_decompress(&decoder);
  DecodedPicture decoded;
  try {
    jpeg_mem_src(&decoder, jpeg.data(), jpeg.size());
    jpeg_read_header(&decoder, TRUE);
    jpeg_start_decompress(&decoder);
    decoded.Pixels.resize(size_t{decoder.output_width} * decoder.output_height * 3);
    while (decoder.output_scanline < decoder.output_height) {
      JSAMPROW line = decoded.Pixels.data() + size_t{decoder.output_scanline} * decoder.output_width * 3;
      jpeg_read_scanlines(&decoder, &line, 1);
    }
    jpeg_finish_decompress(&decoder);
    if (errors.num_warnings == 0) decoded.Width = static_cast<int>(decoder.output_width);
  } catch (int) {
  }
  jpeg_destroy_decompress(&decoder);
  return decoded;
}
