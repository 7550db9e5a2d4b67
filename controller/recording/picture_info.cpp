#include "controller/recording/picture_info.h"

#include "controller/recording/picture_clock.h"

#include <algorithm>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

constexpr unsigned char FIRST_MB_IS_ZERO = 0x80;  // ue(v) 0 is a single 1 bit (ITU-T H.264 9.1)

constexpr int64_t SHORTEST_INTERVAL = RECORDING_HZ / 240;  // what is beyond is a stream that does not know
constexpr int64_t LONGEST_INTERVAL = RECORDING_HZ;

// The start code 00 00 01 at or after `at`; the end when there is none.
size_t FindStartCode(CBytes s, size_t at) {
  for (; at + 3 <= s.size(); ++at)
    if (s[at] == 0 && s[at + 1] == 0 && s[at + 2] == 1) return at;
  return s.size();
}

bool IsSlice(int type) {
  return type >= NAL_SLICE && type <= NAL_IDR;
}

void AppendOnce(std::vector<CBytes>& units, CBytes unit) {
  const auto same = [unit](CBytes other) { return std::ranges::equal(unit, other); };
  if (std::ranges::none_of(units, same)) units.push_back(unit);
}

bool IsFrameHeader(unsigned char marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

}  // namespace

std::vector<CBytes> SplitUnits(CBytes stream) {
  std::vector<CBytes> units;
  size_t at = FindStartCode(stream, 0);
  while (at < stream.size()) {
    const size_t begin = at + 3;
    const size_t next = FindStartCode(stream, begin);
    size_t end = next;
    while (end > begin && stream[end - 1] == 0) --end;  // trailing zeros belong to the next start code
    if (end > begin) units.push_back(stream.subspan(begin, end - begin));
    at = next;
  }
  return units;
}

ESlice SliceOf(CBytes stream) {
  for (const CBytes unit : SplitUnits(stream)) {
    if (!IsSlice(NalType(unit))) continue;
    // Partitions B and C begin with the number of their slice, which partition A has opened.
    const bool header = NalType(unit) <= NAL_PARTITION_A || NalType(unit) == NAL_IDR;
    return header && unit.size() > 1 && (unit[1] & FIRST_MB_IS_ZERO) != 0 ? ESlice::First : ESlice::Further;
  }
  return ESlice::None;
}

std::vector<unsigned char> ParameterSetsOf(CBytes stream) {
  std::vector<CBytes> sps, pps;
  for (const CBytes unit : SplitUnits(stream)) {
    if (NalType(unit) == NAL_SPS) AppendOnce(sps, unit);
    if (NalType(unit) == NAL_PPS) AppendOnce(pps, unit);
  }
  std::vector<unsigned char> sets;
  if (sps.empty() || pps.empty()) return sets;
  sps.insert(sps.end(), pps.begin(), pps.end());
  for (const CBytes unit : sps) {
    sets.insert(sets.end(), {0, 0, 0, 1});
    sets.insert(sets.end(), unit.begin(), unit.end());
  }
  return sets;
}

CPictureFormat H264Format(CBytes sets, CBytes picture) {
  const auto closeContext = [](AVCodecContext* context) { avcodec_free_context(&context); };
  const std::unique_ptr<AVCodecParserContext, decltype(&av_parser_close)> parser(
      av_parser_init(AV_CODEC_ID_H264), av_parser_close);
  const std::unique_ptr<AVCodecContext, decltype(closeContext)> context(
      avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264)), closeContext);
  if (!parser || !context) return {};
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  std::vector<unsigned char> all(sets.begin(), sets.end());
  all.insert(all.end(), picture.begin(), picture.end());
  const size_t length = all.size();
  all.resize(length + AV_INPUT_BUFFER_PADDING_SIZE);
  uint8_t* out = nullptr;
  int outLength = 0;
  av_parser_parse2(parser.get(), context.get(), &out, &outLength, all.data(), static_cast<int>(length),
                   AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
  CPictureFormat format{parser->width, parser->height, 0};
  // The parser tells the rate of fields, of which a picture has two (ITU-T H.264 E.2.1).
  const AVRational fields = context->framerate;
  if (fields.num > 0 && fields.den > 0)
    format.Interval = av_rescale_rnd(2 * RECORDING_HZ, fields.den, fields.num, AV_ROUND_UP);
  if (format.Interval < SHORTEST_INTERVAL || format.Interval > LONGEST_INTERVAL) format.Interval = 0;
  return format;
}

bool JPEGSize(CBytes p, int* width, int* height) {
  size_t at = 2;  // behind SOI
  while (at + 9 <= p.size() && p[at] == 0xFF) {
    const unsigned char marker = p[at + 1];
    if (IsFrameHeader(marker)) {
      *height = p[at + 5] * 256 + p[at + 6];
      *width = p[at + 7] * 256 + p[at + 8];
      return *width > 0 && *height > 0;
    }
    at += marker == 0xFF ? 1 : 2 + static_cast<size_t>(p[at + 2] * 256 + p[at + 3]);
  }
  return false;
}
