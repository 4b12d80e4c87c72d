#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stop_token>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/PictureDecoder.h>

namespace clipworks::engine {

/// Gives pictures of one track by their number in the order of presentation, in any order, from a bounded memory of
/// decoded pictures. Exact: every picture is the one that decoding the whole track gives.
///
/// A group of pictures can only be decoded from its start. So one pass over a group keeps all pictures that are known
/// (or, from steps backwards, guessed) to be asked for next, as far as the memory reaches: read backwards, a
/// group that fits is decoded once, a longer one once for each window of its end, its middle, its start. Forwards, the
/// decoder just goes on. Where requests jump back within a group, it stays where it stands, for those beyond, and a
/// second one starts again; the memory keeps what would take them longest to decode again. On the way to a picture that
/// is jumped to, those that nothing refers to are left out, unless it is the second time in a group that fits.
///
/// With a limit of 0 the first picture is taken for the only one: nothing is decoded behind it.
///
/// A picture that does not decode is replaced by the one before it, the first by the one after.
/// One thread at a time; the decoders have threads of their own.
class CachedPictureReader {
 public:
  /// `cacheLimit` in bytes: of all pictures held, those in the decoder included; one picture is always kept.
  /// `threads`: see `PictureDecoder::open`.
  [[nodiscard]] static Expected<CachedPictureReader> open(std::shared_ptr<const MediaFile> file, int stream,
                                                          std::size_t cacheLimit, int threads = 0);

  [[nodiscard]] const PictureTable& table() const { return decoder_.table(); }
  /// For pictures that play backwards, in bytes: about 85 of 1080p in 8 bits, 10 of 4K in 10.
  static constexpr std::size_t usualCacheLimit = std::size_t{256} << 20;
  void setCacheLimit(std::size_t bytes) { cacheLimit_ = bytes; }
  /// Counts the damaged pictures that are handed out from now on in `counter`.
  void countDamageIn(std::shared_ptr<DamagedPictures> counter) { counter_ = std::move(counter); }

  /// Picture number `picture`, shared with the memory. `upcoming` are the pictures that will be asked for after it, in
  /// that order, as far as they are known. Fails with `damaged` when nothing decodes, `cancelled` after a stop request.
  [[nodiscard]] Expected<Frame> picture(std::size_t picture, std::span<const std::uint32_t> upcoming = {},
                                        const std::stop_token& stop = {});

  /// How many of the pictures handed out stand in for one that did not decode.
  [[nodiscard]] std::int64_t replacedPictures() const { return replaced_; }
  /// How many samples were decoded in all, some of them again.
  [[nodiscard]] std::int64_t samplesDecoded() const {
    return decoder_.samplesDecoded() + (parked_ ? parked_->samplesDecoded() : 0);
  }
  /// Bytes of pictures in the memory.
  [[nodiscard]] std::size_t bytesKept() const { return bytesKept_; }

 private:
  struct Kept {
    Frame frame;
    std::size_t bytes = 0;
    std::uint64_t lastUse = 0;
    std::uint32_t access = 0;  // where decoding it starts
  };
  /// What one pass of the decoder is for.
  struct Pass {
    std::uint32_t access = 0;                   // where it starts, unless it goes on
    bool goesOn = false;                        // from where the decoder is
    bool leavesOut = true;                      // what nothing refers to, when it is not kept
    bool endsThere = false;                     // what comes after the wanted picture is not needed
    bool keepsAll = true;                       // as the memory allows, not only what is asked for next
    std::uint32_t last = 0;                     // the last sample, in decoding order, that it is for
    std::map<std::uint32_t, std::size_t> kept;  // samples asked for next, with their place in the order
  };
  /// How a pass ended.
  struct Outcome {
    Frame frame;                                    // the wanted picture; null when it did not come
    std::optional<PictureDecoder::Picture> before;  // the last one before it that did
    bool isInDoubt = false;                         // see PictureDecoder
  };

  CachedPictureReader(std::shared_ptr<const MediaFile> file, int stream, PictureDecoder decoder,
                      std::size_t pictureBytes, std::size_t cacheLimit)
      : file_(std::move(file)),
        stream_(stream),
        decoder_(std::move(decoder)),
        pictureBytes_(pictureBytes),
        cacheLimit_(cacheLimit),
        endsAtFirst_(cacheLimit == 0 && file_->stream(stream_).progressive) {}
  Expected<Frame> decode(std::size_t picture, std::span<const std::uint32_t> upcoming, const std::stop_token& stop);
  [[nodiscard]] bool isSurelyWhole(const Frame& frame, std::uint32_t sample) const;
  void forgetAll();
  Expected<Frame> replacementFor(std::size_t picture, const std::stop_token& stop);
  Expected<Frame> firstThatDecodes(const std::stop_token& stop);
  Expected<void> chooseDecoder(std::size_t picture, std::span<const std::uint32_t> upcoming);
  [[nodiscard]] bool goesOn(const PictureDecoder& decoder, std::size_t picture) const;
  [[nodiscard]] Pass plan(std::size_t picture, std::span<const std::uint32_t> upcoming) const;
  void planForRequests(Pass& pass, std::size_t picture, std::span<const std::uint32_t> upcoming) const;
  void planForStepBack(Pass& pass, std::size_t picture) const;
  Expected<Outcome> run(const Pass& pass, std::size_t picture, const std::stop_token& stop);
  void keep(const PictureDecoder::Picture& picture, const Pass& pass, std::uint32_t wanted);
  void forgetServed(const Pass& pass);
  void makeRoom(std::size_t bytes, const Pass& pass, std::uint32_t wanted);
  Frame fromMemory(std::uint32_t sample);
  void lookBack(std::size_t picture);
  [[nodiscard]] bool staysInGroup(std::size_t picture) const;
  [[nodiscard]] bool fitsMemory(std::uint32_t access) const;
  [[nodiscard]] std::uint64_t samplesTo(std::uint32_t sample, std::uint32_t access) const;
  [[nodiscard]] bool isLacking(std::size_t picture) const;
  [[nodiscard]] std::size_t bytesInDecoder() const {
    return static_cast<std::size_t>(decoder_.delay() + 1) * pictureBytes_;
  }
  [[nodiscard]] std::size_t bytesForMemory(bool endsThere) const;
  [[nodiscard]] std::int64_t timeOf(std::uint32_t sample) const { return table().samples()[sample].presentation; }

  std::shared_ptr<const MediaFile> file_;
  int stream_;
  PictureDecoder decoder_;
  std::optional<PictureDecoder> parked_;  // where another request left it in the group, in any order of requests
  std::size_t pictureBytes_;
  std::size_t cacheLimit_;
  bool endsAtFirst_;  // nothing is decoded behind the first picture asked for: where none is kept, it is the only one
  std::map<std::uint32_t, Kept> kept_;  // by sample
  std::size_t bytesKept_ = 0;
  std::uint64_t uses_ = 0;
  std::map<std::uint32_t, std::uint32_t> substitutes_;  // for samples that do not decode: the one shown instead
  std::set<std::uint32_t> damaged_;                     // samples that decode, but not whole
  std::set<std::uint32_t> damagedFromBefore_;           // of those, the ones that do not from further back either
  bool standsIn_ = false;                               // the picture that is handed out, for another one
  std::int64_t replaced_ = 0;                           // so many did
  std::shared_ptr<DamagedPictures> counter_;
  std::set<std::uint32_t> unreadable_;   // samples that the file lacks, as far as they were met
  std::optional<std::size_t> previous_;  // the last picture asked for
  std::size_t stepBack_ = 0;             // how far before the one before it that lay, if it did
  int alikeSteps_ = 0;                   // as long as that one, in a row
  bool readsBackwards_ = false;          // as far as that can be guessed
};

}  // namespace clipworks::engine
