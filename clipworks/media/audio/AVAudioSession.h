#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>

namespace clipworks {

/// What sound is for: recording, while other sound may play.
inline constexpr std::string_view AVAudioSessionCategoryPlayAndRecord = "AVAudioSessionCategoryPlayAndRecord";
/// What sound is for: recording alone.
inline constexpr std::string_view AVAudioSessionCategoryRecord = "AVAudioSessionCategoryRecord";
/// What sound is for: playing alone.
inline constexpr std::string_view AVAudioSessionCategoryPlayback = "AVAudioSessionCategoryPlayback";

/// What kind of sound it is: nothing in particular.
inline constexpr std::string_view AVAudioSessionModeDefault = "AVAudioSessionModeDefault";
/// What kind of sound it is: continuous speech.
inline constexpr std::string_view AVAudioSessionModeSpokenAudio = "AVAudioSessionModeSpokenAudio";

/// How the choice of an output is shared with other programs; there is nothing to choose here beyond the default.
enum class AVAudioSessionRouteSharingPolicy : std::uint64_t { default_ = 0 };

/// Wishes beside the category, as bits.
using AVAudioSessionCategoryOptions = std::uint64_t;
/// Playing goes to the loudspeaker while recording. That is so on these machines, whatever is said.
inline constexpr AVAudioSessionCategoryOptions AVAudioSessionCategoryOptionDefaultToSpeaker = 8;

/// The process's dealings with the machine's sound: one shared instance. Where sound goes is for the sound server to
/// decide, and for people in its mixer; so a category is noted, checked and told, and moves nothing. Thread-safe.
class CLIPWORKS_API AVAudioSession {
 public:
  /// The one instance.
  [[nodiscard]] static AVAudioSession& sharedInstance();
  AVAudioSession(const AVAudioSession&) = delete;
  AVAudioSession& operator=(const AVAudioSession&) = delete;

  /// `requestRecordPermission(_:)`. Whether sound can be recorded: a capture source is opened and closed again. Nobody
  /// is asked here, since a server that lets a program connect lets it record. Returns at once; `response` is called
  /// once, on a queue of the platform (not the main queue).
  void requestRecordPermission(std::function<void(bool granted)> response);

  /// `setCategory(_:mode:routeSharingPolicy:options:)`. Fails with `AVError::unknown` for a category or a mode that is
  /// none of the above, and then changes nothing.
  [[nodiscard]] Result<void, NSError> setCategory(std::string_view category, std::string_view mode,
                                                  AVAudioSessionRouteSharingPolicy routeSharingPolicy,
                                                  AVAudioSessionCategoryOptions options);

  /// `setActive(_:options:)`. Activating a category that records fails with `AVError::deviceNotConnected` when no
  /// capture source can be opened; it takes the time of opening one, milliseconds as a rule. `options` are not used.
  [[nodiscard]] Result<void, NSError> setActive(bool active, std::uint64_t options);

  /// What was set last; playing at first.
  [[nodiscard]] std::string category() const;
  [[nodiscard]] std::string mode() const;
  [[nodiscard]] AVAudioSessionCategoryOptions categoryOptions() const;

 private:
  AVAudioSession() = default;

  mutable std::mutex mutex_;
  std::string category_{AVAudioSessionCategoryPlayback};  // guarded by mutex_
  std::string mode_{AVAudioSessionModeDefault};           // guarded by mutex_
  AVAudioSessionCategoryOptions options_ = 0;             // guarded by mutex_
};

}  // namespace clipworks
