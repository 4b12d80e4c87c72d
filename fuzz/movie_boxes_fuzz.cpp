#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/DataTracks.h>
#include <clipworks/engine/boxes/MovieBoxes.h>

// The readers of movie boxes and of data tracks on arbitrary bytes, through a file in memory: they must end without a
// fault, and what they return must keep to the limits and to what the file can really hold. Seeds: an MP4 file without
// its media data (the `ftyp` and `moov` boxes alone); words: movie_boxes.dict.

namespace {

using clipworks::engine::FileHandle;
using clipworks::engine::MovieBoxes;
namespace limits = clipworks::engine::limits;

void require(bool holds, const char* rule) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
  }
}

/// One file for the whole run: making one for each input takes longer than reading it.
const FileHandle& fileOf(const std::uint8_t* data, std::size_t size) {
  static const FileHandle file(::memfd_create("movie", MFD_CLOEXEC));
  require(::ftruncate(file.descriptor(), 0) == 0, "the file can be emptied");
  require(::pwrite(file.descriptor(), data, size, 0) == static_cast<ssize_t>(size), "the file can be written");
  return file;
}

std::uint64_t checkRuns(const std::vector<MovieBoxes::Run>& runs, std::size_t fileSize) {
  require(runs.size() * 8 <= fileSize, "runs come from the file");
  std::uint64_t samples = 0;
  for (const auto& run : runs) {
    require(run.count > 0, "no run is empty");
    samples += run.count;
  }
  return samples;
}

void checkTrack(const MovieBoxes::Track& track, std::size_t fileSize) {
  const std::uint64_t lengths = checkRuns(track.sampleLengths, fileSize);
  const std::uint64_t offsets = checkRuns(track.pictureOffsets, fileSize);
  const bool isPCM = track.sampleLengths.size() == 1 && track.sampleLengths.front().value == 1;
  require(isPCM || std::max(lengths, offsets) <= limits::maxSamples, "runs keep to the limit");
  require(track.edits.size() <= limits::maxEdits && track.edits.size() * 12 <= fileSize, "edits come from the file");
  require(track.syncSamples.size() * 4 <= fileSize, "access points come from the file");
  require(track.syncSamples.empty() || track.hasSyncTable, "access points come from a table");
  require(track.sampleDescriptions * 8ULL <= fileSize, "sample descriptions come from the file");
  require(isPCM || track.sampleCount <= limits::maxSamples, "the count of samples keeps to the limit");
}

void checkData(const FileHandle& file, std::size_t size) {
  const auto data = clipworks::engine::readDataTracks(file);
  if (!data) return;
  std::size_t samples = 0;
  for (const auto& track : data->tracks) {
    samples += track.samples.size();
    require(track.flaw.empty() || track.samples.empty(), "a track with a flaw has no samples");
    for (const auto& sample : track.samples) {
      require(sample.position + sample.bytes <= size, "data lies in the file");
      require(sample.description < track.descriptions.size(), "data has a description");
    }
  }
  require(samples <= limits::maxDataSamples, "samples of data keep to the limit");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const FileHandle& file = fileOf(data, size);
  checkData(file, size);
  const auto movie = clipworks::engine::readMovieBoxes(file.descriptor());
  if (!movie) {
    require(!movie.error().sentence.empty(), "an error has a sentence");
    return 0;
  }
  require(movie->tracks.size() <= limits::maxTracks, "tracks keep to the limit");
  for (const auto& track : movie->tracks) {
    checkTrack(track, size);
  }
  return 0;
}
