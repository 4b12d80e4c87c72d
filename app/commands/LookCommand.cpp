#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <app/Command.h>
#include <clipworks/edit/Describe.h>
#include <clipworks/edit/Edit.h>
#include <clipworks/edit/TakePicture.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/samples/AVAssetReader.h>

namespace clipworks::app {
namespace {

using nlohmann::json;

constexpr int mostPeaks = 20'000;

/// The loudest samples of equal parts of the movie, heard as the track's edits say.
class Peaks {
 public:
  Peaks(std::size_t count, double seconds) : loudest_(count, 0), seconds_(seconds) {}

  Outcome read(const std::shared_ptr<AVAsset>& asset, const std::shared_ptr<AVAssetTrack>& track) {
    const auto reader = AVAssetReader::make(asset);
    if (!reader) return failed(reader.error().localizedDescription());
    const auto output = AVAssetReaderTrackOutput::make(track, {{AVFormatIDKey, kAudioFormatLinearPCM},
                                                               {AVLinearPCMBitDepthKey, 16},
                                                               {AVLinearPCMIsBigEndianKey, false},
                                                               {AVLinearPCMIsFloatKey, false}});
    (*reader)->add(output);
    if (!(*reader)->startReading()) return failed("its sound cannot be decoded");
    while (const auto samples = output->copyNextSampleBuffer()) take(*samples, *track);
    return {};
  }

  /// From 0 to 100, full scale.
  [[nodiscard]] json percent() const {
    auto all = json::array();
    for (const int peak : loudest_) all.push_back(peak * 100 / 32'768);
    return all;
  }

 private:
  void take(const CMSampleBuffer& samples, const AVAssetTrack& track) {
    CMSampleTimingInfo timing;
    std::size_t needed = 0;
    CMSampleBufferGetSampleTimingInfoArray(samples, 1, &timing, &needed);
    const auto bytes = CMSampleBufferGetDataBuffer(samples);
    const auto channels = static_cast<std::size_t>(std::max(track.channelCount(), 1));
    const auto* values = reinterpret_cast<const std::int16_t*>(bytes->dataPointer());
    const std::size_t count = bytes->dataLength() / sizeof *values;
    const double start = timing.presentationTimeStamp.seconds();
    for (std::size_t i = 0; i < count; ++i) {
      const double at = start + static_cast<double>(i / channels) / track.sampleRate();
      const double part = at / seconds_ * static_cast<double>(loudest_.size());
      if (!(part >= 0) || part >= static_cast<double>(loudest_.size())) continue;
      int& loudest = loudest_[static_cast<std::size_t>(part)];
      loudest = std::max(loudest, std::abs(static_cast<int>(values[i])));
    }
  }

  std::vector<int> loudest_;
  double seconds_;
};

/// What a page about a clip shows beside its pictures: not for people.
class LookCommand final : public Command {
 public:
  std::string name() const override { return "look"; }
  bool isPrivate() const override { return true; }
  std::string purpose() const override { return "Tell of one clip, as JSON, what a page about it shows"; }
  std::string notes() const override { return ""; }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser.add_flag("--times", tellsTimes_, "When each picture comes on screen");
    parser.add_option("--peaks", peaks_, "How loud each of N equal parts is")->type_name("N");
  }

  Needs needs() const override { return {{file_}}; }

  Outcome run(const Program& program) override {
    const auto edit = Edit::open(file_, Edit::Extent::movie, program.options.inputs);
    if (!edit) return failure(failureOf(edit.error(), program.options.limits));
    json told;
    if (tellsTimes_) {
      const auto times = pictureTimes(*edit);
      if (!times) return failure(failureOf(times.error(), program.options.limits));
      told["times"] = json::array();
      for (const CMTime& time : *times) told["times"].push_back({time.value, time.timescale});
    } else if (peaks_) {
      if (*peaks_ < 1 || *peaks_ > mostPeaks) return wrongUse("--peaks takes a number from 1 to 20000");
      Peaks peaks(static_cast<std::size_t>(*peaks_), edit->duration().seconds());
      const auto asset = AVAsset::make(URL(file_), program.options.inputs);
      const auto sounds = asset->tracks(AVMediaType::audio);
      if (sounds.empty()) return failed(edit->name() + " has no sound");
      if (const Outcome read = peaks.read(asset, sounds.front()); !read) return read;
      told["peaks"] = peaks.percent();
    } else {
      told = json::parse(describe(file_, program.options.inputs));
      told["seconds"] = edit->duration().seconds();
      told["size"] = {edit->size().width, edit->size().height};
    }
    program.reporter.keepEventsOff();
    program.reporter.text(told.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
    return {};
  }

 private:
  std::string file_;
  bool tellsTimes_ = false;
  std::optional<int> peaks_;
};

const RegisteredCommand<LookCommand> registration;

}  // namespace
}  // namespace clipworks::app
