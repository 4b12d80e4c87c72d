#include <app/jobs/Digest.h>

#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <new>
#include <span>
#include <vector>

#include <fmt/format.h>
#include <nettle/sha2.h>
#include <xxhash.h>

namespace clipworks::app {
namespace {

std::string hexadecimal(std::span<const unsigned char> bytes) {
  std::string digits;
  for (const unsigned char byte : bytes) digits += fmt::format("{:02x}", byte);
  return digits;
}

struct FreeXXH3 {
  void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
};

}  // namespace

tl::expected<Digest, int> digestOf(int descriptor, bool withSHA256, const std::stop_token& stop) {
  const std::unique_ptr<XXH3_state_t, FreeXXH3> fast(XXH3_createState());
  if (!fast) throw std::bad_alloc();
  XXH3_128bits_reset(fast.get());
  sha256_ctx strong;
  sha256_init(&strong);
  std::vector<unsigned char> bytes(1 << 18);
  Digest digest;
  for (;;) {
    if (stop.stop_requested()) return tl::make_unexpected(ECANCELED);
    const ssize_t count = ::pread(descriptor, bytes.data(), bytes.size(), digest.bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return tl::make_unexpected(errno);
    if (count == 0) break;
    XXH3_128bits_update(fast.get(), bytes.data(), static_cast<std::size_t>(count));
    if (withSHA256) sha256_update(&strong, static_cast<std::size_t>(count), bytes.data());
    digest.bytes += count;
  }
  XXH128_canonical_t canonical;
  XXH128_canonicalFromHash(&canonical, XXH3_128bits_digest(fast.get()));
  digest.xxh3 = hexadecimal(canonical.digest);
  if (withSHA256) {
    std::array<unsigned char, SHA256_DIGEST_SIZE> result{};
    sha256_digest(&strong, result.size(), result.data());
    digest.sha256 = hexadecimal(result);
  }
  return digest;
}

}  // namespace clipworks::app
