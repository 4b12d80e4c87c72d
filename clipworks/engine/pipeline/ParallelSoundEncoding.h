#pragma once

#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/output/SoundEncoder.h>
#include <clipworks/engine/pipeline/BoundedQueue.h>

namespace clipworks::engine {

/// Encodes sound as AAC-LC on several processors at once: in sections of some seconds, each with an encoder of its own
/// that begins early and goes on a little too long. A packet of AAC-LC refers to no other; a decoder only adds the
/// halves of neighbouring windows, and their kinds, which must fit, follow from the sound within a few packets. So one
/// section's packets go on where those of the section before it stop. What comes out is the same on any number of
/// processors. One thread gives sound (`push`, `finish`, `fail`), another takes packets (`pull`); `abandon` from any.
class ParallelSoundEncoding {
 public:
  /// Which sections it makes: from `first` on, up to `end` or to the end of the sound.
  struct Sections {
    std::int64_t first = 0;
    std::optional<std::int64_t> end;
  };

  struct Means {
    unsigned encoders = 1;          ///< that work at once, each on a thread; fewer where the system allows no more
    std::size_t sectionsAhead = 1;  ///< that wait for one, at most: 6 MiB each, in stereo
  };

  /// Sound whose sections are encoded by several of these, with the same settings, comes out as if one had encoded all.
  [[nodiscard]] static Expected<std::unique_ptr<ParallelSoundEncoding>> open(const SoundEncoderSettings& settings,
                                                                             const Sections& sections,
                                                                             const Means& means);
  /// Drops what is under way.
  ~ParallelSoundEncoding();
  ParallelSoundEncoding(const ParallelSoundEncoding&) = delete;
  ParallelSoundEncoding& operator=(const ParallelSoundEncoding&) = delete;

  [[nodiscard]] CodecParameters format() const { return model_.format(); }

  /// Takes interleaved samples: `SoundEncoder::samplesPerPacket` of every channel, fewer only at the end of the sound.
  /// The first are those of `firstPacket` of the first section, the last those before `endPacket` of the end. Waits
  /// while enough is under way; false when it was abandoned.
  [[nodiscard]] bool push(std::vector<float> samples);
  /// No more sound will come.
  void finish();
  /// No more sound will come, since it could not be made; `pull` gives the failure after the packets before it.
  void fail(Error error);

  /// The next packet, nothing at the end. Times count samples; the encoder's delay lies before zero.
  [[nodiscard]] Expected<std::optional<Packet>> pull();

  void abandon();

  /// Packets of a section that are its own.
  static constexpr std::int64_t sectionPackets = 768;
  /// In packets from the sound's start on: where the sound lies that a section's encoder begins with.
  [[nodiscard]] static std::int64_t firstPacket(std::int64_t section);
  /// The same for where the sound ends that the sections before `section` need.
  [[nodiscard]] static std::int64_t endPacket(std::int64_t section);

 private:
  using Packets = std::vector<Packet>;

  /// What one encoder is given.
  struct Section {
    explicit Section(std::int64_t first);
    const std::int64_t begin;                  ///< in packets, of its first samples
    BoundedQueue<std::vector<float>> samples;  ///< a packet's worth each; has room for all
  };
  /// Only whoever encodes the section holds its promise, so that one that goes unencoded breaks it.
  struct Waiting {
    std::shared_ptr<Section> section;
    std::promise<Expected<Packets>> packets;
  };

  ParallelSoundEncoding(const SoundEncoderSettings& settings, const Sections& sections, const Means& means,
                        SoundEncoder model);
  bool beginSection(std::int64_t index);
  void work();
  Expected<std::int64_t> runUp(const std::deque<std::vector<float>>& beginning, SoundEncoder& encoder) const;
  Expected<Packets> encode(Section& section) const;
  void join(Packets packets);

  const SoundEncoderSettings settings_;
  const Sections sections_;
  const SoundEncoder model_;  // tells what all of them make

  // Of the giving thread.
  std::int64_t position_;                      // in packets, of what comes next
  std::int64_t next_;                          // the section that begins next
  std::mutex mutex_;                           // guards which these are
  std::deque<std::shared_ptr<Section>> open_;  // those that are given sound: one, or two where they overlap

  // Of the taking thread.
  std::int64_t taken_;  // the section that comes next
  std::deque<Packet> ready_;
  std::deque<Packet> overhang_;  // belongs to the next section, and is given only when there is none
  bool isEnded_ = false;

  BoundedQueue<Waiting> waiting_;
  BoundedQueue<std::future<Expected<Packets>>> order_;
  std::vector<Thread> workers_;
};

}  // namespace clipworks::engine
