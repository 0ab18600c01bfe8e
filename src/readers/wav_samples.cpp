// The loops over audio frames. Memory is the limit, not arithmetic: where the machine can, results are
// written past the caches, because otherwise every line of them would be read before it is overwritten.
#include "readers/wav_samples.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>

#include "runtime/machine.h"
#define KVALO_AVX2 __attribute__((target("avx2")))
#endif

namespace mirn2::rd::wav {

static_assert(std::endian::native == std::endian::little);

namespace {

template <typename Sample>
void extract_plain(const Channel& channel, size_t first, size_t last, double* y) noexcept {
  const size_t stride = channel.frame_bytes;
  const unsigned char* const at = channel.frames + channel.index * sizeof(Sample);
  for (size_t i = first; i < last; ++i) {
    Sample sample;
    std::memcpy(&sample, at + i * stride, sizeof sample);
    y[i] = static_cast<double>(sample);
  }
}

#if defined(__x86_64__)

// Results that fit the caches are better left there, for whoever reads them next.
bool goes_past_caches(size_t samples) noexcept {
  return samples >= size_t{1} << 17 && mirn3::machine::has_avx2();
}

// Where the next vector-aligned double stands, at most `last`.
size_t aligned_from(const double* values, size_t first, size_t last) noexcept {
  const size_t misaligned = reinterpret_cast<uintptr_t>(values + first) % 32 / sizeof(double);
  return misaligned == 0 ? first : std::min(last, first + 4 - misaligned);
}

// 16 bits, stereo: a frame is one 32-bit word whose low half is the left channel. Returns where the
// vectors end.
KVALO_AVX2 size_t extract_stereo(const Channel& channel, size_t first, size_t last, double* y) noexcept {
  const __m128i up = _mm_cvtsi32_si128(channel.index == 0 ? 16 : 0);
  size_t i = first;
  for (; last - i >= 8; i += 8) {
    const __m256i frames = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(channel.frames + 4 * i));
    const __m256i values = _mm256_srai_epi32(_mm256_sll_epi32(frames, up), 16);
    _mm256_stream_pd(y + i, _mm256_cvtepi32_pd(_mm256_castsi256_si128(values)));
    _mm256_stream_pd(y + i + 4, _mm256_cvtepi32_pd(_mm256_extracti128_si256(values, 1)));
  }
  _mm_sfence();
  return i;
}

#endif

}  // namespace

void extract(const Channel& channel, size_t first, size_t last, double* y) noexcept {
#if defined(__x86_64__)
  if (channel.width == 2 && channel.frame_bytes == 4 && goes_past_caches(last - first)) {
    const size_t aligned = aligned_from(y, first, last);
    extract_plain<int16_t>(channel, first, aligned, y);
    first = extract_stereo(channel, aligned, last, y);
  }
#endif
  switch (channel.width) {
    case 1:
      return extract_plain<uint8_t>(channel, first, last, y);
    case 2:
      return extract_plain<int16_t>(channel, first, last, y);
    case 4:
      return extract_plain<int32_t>(channel, first, last, y);
  }
}

}  // namespace mirn2::rd::wav
