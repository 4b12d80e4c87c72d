#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace clipworks::engine {

class MediaFile;

/// How many different pictures of one file are damaged.
struct DamagedFile {
  std::string name;  ///< the file's, without its folder
  std::int64_t pictures = 0;

  /// "3 pictures of clip.mp4 are damaged".
  [[nodiscard]] std::string sentence() const {
    return std::to_string(pictures) + (pictures == 1 ? " picture of " : " pictures of ") + name +
           (pictures == 1 ? " is damaged" : " are damaged");
  }
};

/// Counts the pictures that were handed out although they could not be decoded whole: each picture of each track once,
/// however often and by however many readers. Thread-safe.
class DamagedPictures {
 public:
  void add(const MediaFile& file, int stream, std::size_t picture);
  /// In the order in which their first damage was met.
  [[nodiscard]] std::vector<DamagedFile> files() const;

  /// Counts a picture in `counter`, unless that is null.
  static void tell(DamagedPictures* counter, const MediaFile& file, int stream, std::size_t picture);

 private:
  using FileKey = std::pair<std::uint64_t, std::uint64_t>;  // device and inode
  struct Counted {
    std::string name;
    std::set<std::pair<int, std::size_t>> pictures;  // with their streams
  };
  mutable std::mutex mutex_;
  std::map<FileKey, std::size_t> places_;  // guarded by mutex_; in counted_
  std::vector<Counted> counted_;           // guarded by mutex_
};

}  // namespace clipworks::engine
