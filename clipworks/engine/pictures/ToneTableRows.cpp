#include <clipworks/engine/pictures/ToneTableRows.h>

#include <clipworks/engine/pictures/ToneTable.h>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace clipworks::engine {
namespace {

// The fraction of a step along luma has 8 bits, along chroma 7.
constexpr int lumaBits = 8;
constexpr int chromaBits = 7;
constexpr int lumaOne = 1 << lumaBits;
constexpr int chromaOne = 1 << chromaBits;

std::uint8_t readTone(const std::int16_t* values, int luma, int cb, int cr, int dither) {
  const int along = (luma >> (ToneTable::lumaShift - lumaBits)) % lumaOne;
  const int alongU = (cb >> (ToneTable::chromaShift - chromaBits)) % chromaOne;
  const int alongV = (cr >> (ToneTable::chromaShift - chromaBits)) % chromaOne;
  const int corner = (cr >> ToneTable::chromaShift) * ToneTable::nextV +
                     (cb >> ToneTable::chromaShift) * ToneTable::nextU + (luma >> ToneTable::lumaShift);
  const auto edge = [&](int offset) {
    const std::int16_t* point = values + corner + offset;
    return (point[0] * (lumaOne - along) + point[1] * along) >> lumaBits;
  };
  const auto face = [&](int offset) {
    return (edge(offset) * (chromaOne - alongU) + edge(offset + ToneTable::nextU) * alongU) >> chromaBits;
  };
  const int value = (face(0) * (chromaOne - alongV) + face(ToneTable::nextV) * alongV) >> chromaBits;
  return static_cast<std::uint8_t>((value + dither) >> ToneTable::fractionBits);
}

#if defined(__x86_64__)

// Two weights of 16 bits in each lane: one less the fraction, the fraction.
[[gnu::target("avx2")]] __m256i weights(__m256i coordinate, int shift, int one) {
  const __m256i part = _mm256_and_si256(_mm256_srli_epi32(coordinate, shift), _mm256_set1_epi32(one - 1));
  return _mm256_or_si256(_mm256_sub_epi32(_mm256_set1_epi32(one), part), _mm256_slli_epi32(part, 16));
}

// Values of at most 15 bits in lanes of 32, weighted in pairs.
[[gnu::target("avx2")]] __m256i mixed(__m256i first, __m256i second, __m256i weight) {
  return _mm256_srai_epi32(_mm256_madd_epi16(_mm256_or_si256(first, _mm256_slli_epi32(second, 16)), weight),
                           chromaBits);
}

[[gnu::target("avx2")]] __m256i load(const std::uint16_t* samples) {
  return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(samples)));
}

// Eight colours a step, as far as they go; how many those were.
[[gnu::target("avx2")]] int readToneRowInVectors(const std::int16_t* values, const ToneRow& row,
                                                 const DitherRow& dither, std::uint8_t* to) {
  const __m256i thresholds = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(dither.data())));
  const __m256i strideU = _mm256_set1_epi32(ToneTable::nextU);
  const __m256i strideV = _mm256_set1_epi32(ToneTable::nextV);
  int x = 0;
  for (; x + 8 <= row.count; x += 8) {
    const __m256i luma = load(row.luma + x);
    const __m256i cb = load(row.cb + x);
    const __m256i cr = load(row.cr + x);
    const __m256i corner =
        _mm256_add_epi32(_mm256_srli_epi32(luma, ToneTable::lumaShift),
                         _mm256_add_epi32(_mm256_mullo_epi32(_mm256_srli_epi32(cb, ToneTable::chromaShift), strideU),
                                          _mm256_mullo_epi32(_mm256_srli_epi32(cr, ToneTable::chromaShift), strideV)));
    const __m256i along = weights(luma, ToneTable::lumaShift - lumaBits, lumaOne);
    const __m256i alongU = weights(cb, ToneTable::chromaShift - chromaBits, chromaOne);
    const __m256i alongV = weights(cr, ToneTable::chromaShift - chromaBits, chromaOne);
    // A point and the next one along luma lie beside each other: one load brings both.
    const auto edge = [&](int offset) __attribute__((target("avx2"))) {
      const __m256i pair = _mm256_i32gather_epi32(reinterpret_cast<const int*>(values + offset), corner, 2);
      return _mm256_srai_epi32(_mm256_madd_epi16(pair, along), lumaBits);
    };
    const __m256i nearer = mixed(edge(0), edge(ToneTable::nextU), alongU);
    const __m256i farther = mixed(edge(ToneTable::nextV), edge(ToneTable::nextV + ToneTable::nextU), alongU);
    const __m256i value =
        _mm256_srli_epi32(_mm256_add_epi32(mixed(nearer, farther, alongV), thresholds), ToneTable::fractionBits);
    const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(value), _mm256_extracti128_si256(value, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + x), _mm_packus_epi16(words, words));
  }
  return x;
}

bool hasVectors() {
  static const bool found = __builtin_cpu_supports("avx2");
  return found;
}

#else

int readToneRowInVectors(const std::int16_t*, const ToneRow&, const DitherRow&, std::uint8_t*) { return 0; }
bool hasVectors() { return false; }

#endif

}  // namespace

void readToneRow(const std::int16_t* values, const ToneRow& row, const DitherRow& dither, std::uint8_t* to) {
  int x = hasVectors() ? readToneRowInVectors(values, row, dither, to) : 0;
  for (; x < row.count; ++x) {
    to[x] = readTone(values, row.luma[x], row.cb[x], row.cr[x], dither[static_cast<std::size_t>(x) % dither.size()]);
  }
}

}  // namespace clipworks::engine
