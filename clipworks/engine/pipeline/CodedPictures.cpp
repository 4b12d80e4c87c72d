#include <clipworks/engine/pipeline/CodedPictures.h>

#include <algorithm>
#include <exception>
#include <utility>

#include <clipworks/engine/input/CodedPictureReader.h>
#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/pictures/ToneMapper.h>
#include <clipworks/engine/pipeline/DecodeTimes.h>
#include <clipworks/engine/pipeline/LayerPictures.h>

namespace clipworks::engine {
namespace {

// Decoded pictures are large (a 4K one has 12 MB), coded ones small; both only have to bridge uneven work.
constexpr std::size_t rawPicturesUnderWay = 2;
constexpr std::size_t finishedPicturesUnderWay = 2;
constexpr std::size_t codedPicturesUnderWay = 32;

Error asError(const std::exception& thrown) {
  if (dynamic_cast<const std::bad_alloc*>(&thrown) != nullptr) return {ErrorKind::outOfMemory, "out of memory", 0};
  return {ErrorKind::internal, thrown.what(), 0};
}

/// The tracks that a run's pictures come from, each with its pictures; none for black.
std::vector<RunLayer> layersOf(const PictureRun& run) {
  if (!run.layers.empty()) return run.layers;
  if (run.file == nullptr) return {};
  RunLayer only{run.file, run.stream, {}, {}, 1};
  for (const auto& shown : run.pictures) only.pictures.push_back(shown.picture);
  return {only};
}

/// What the first pictures say of mastering and light level where they stay of high dynamic range, by their track's
/// description or by themselves. What is said of dynamic metadata does not hold for pictures that are encoded anew.
Expected<HDRMetadata> lightFactsOf(const PictureJob& job) {
  HDRMetadata facts;
  const auto transfer = static_cast<AVColorTransferCharacteristic>(job.encoder.colour.transfer);
  if (job.encoder.codec != VideoCodec::hevc || !isHighDynamicRange(transfer)) return facts;
  for (const PictureRun& run : job.runs) {
    const auto layers = layersOf(run);
    if (layers.empty()) continue;
    const RunLayer& layer = layers.front();
    auto reader = PictureReader::open(layer.file, layer.stream, job.encoder.threads);
    if (!reader) return tl::make_unexpected(reader.error());
    auto picture = reader->picture(layer.pictures.front());
    if (!picture) return tl::make_unexpected(picture.error());
    for (const auto& [kind, said] : masteringKinds) {
      const AVFrameSideData* side = av_frame_get_side_data(picture->get(), said);
      if (side != nullptr) facts[kind].assign(side->data, side->data + side->size);
    }
    break;
  }
  return facts;
}

}  // namespace

std::vector<RunSample> samplesInDecodingOrder(const PictureRun& run, const PictureTable& table) {
  std::vector<RunSample> samples;
  std::uint32_t shown = 0;
  for (const auto& picture : run.written()) samples.push_back({table.sampleOfPicture(picture.picture), shown++});
  std::sort(samples.begin(), samples.end(), [](const RunSample& a, const RunSample& b) { return a.sample < b.sample; });
  return samples;
}

CodedPictures::CodedPictures(const PictureJob& job)
    : job_(job), raw_(rawPicturesUnderWay), finished_(finishedPicturesUnderWay), coded_(codedPicturesUnderWay) {
  threads_.reserve(3);
  runStarts_.assign(job.runs.size(), 0);
  std::vector<bool> seen(job.runs.size(), false);
  for (const auto& placement : job.placements) {
    if (!seen[placement.run]) runStarts_[placement.run] = placement.start;
    seen[placement.run] = true;
  }
}

CodedPictures::~CodedPictures() { abandon(); }

void CodedPictures::abandon() {
  abandoned_.request_stop();
  raw_.abandon();
  finished_.abandon();
  coded_.abandon();
}

Expected<void> CodedPictures::open() {
  if (job_.copiesAny()) {
    if (auto opened = openCopies(); !opened) return opened;
  }
  if (!job_.copiesAll()) {
    if (auto opened = openEncoder(); !opened) return opened;
    for (const auto stage : {&CodedPictures::decodeRuns, &CodedPictures::finishPictures}) {
      if (auto started = start(stage); !started) return started;
    }
  }
  return start(&CodedPictures::codePictures);
}

Expected<void> CodedPictures::openCopies() {
  const PictureRun* first = nullptr;
  for (const auto& run : job_.runs) {
    if (!run.copy) continue;
    if (first == nullptr) first = &run;
    auto table = run.file->pictureTable(run.stream);
    if (!table) return tl::make_unexpected(table.error());
    std::vector<std::uint32_t> ranks;
    for (const auto& sample : samplesInDecodingOrder(run, **table)) ranks.push_back(sample.shown);
    reorderDepth_ = std::max(reorderDepth_, engine::reorderDepth(ranks));
  }
  format_ = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_copy(format_.get(), &first->file->parameters(first->stream)) < 0) throw std::bad_alloc();
  completeTags(*format_);
  hdrMetadata_ = first->file->hdrMetadata(first->stream);
  return {};
}

// Copies the runs that come next, up to one that is encoded.
Expected<void> CodedPictures::copyRuns() {
  while (passedRun_ < job_.runs.size() && job_.runs[passedRun_].copy) {
    if (auto copied = copyRun(static_cast<std::uint32_t>(passedRun_++)); !copied) return copied;
  }
  return {};
}

Expected<void> CodedPictures::copyRun(std::uint32_t number) {
  const PictureRun& run = job_.runs[number];
  const auto& parameters = run.file->parameters(run.stream);
  auto reader = CodedPictureReader::open(run.file, run.stream);
  if (!reader) return tl::make_unexpected(reader.error());
  const auto written = run.written();
  // Where a decoder starts by itself, it needs no word.
  const bool followsOthers = std::any_of(job_.placements.begin() + 1, job_.placements.end(),
                                         [number](const RunPlacement& placement) { return placement.run == number; });
  bool isFirst = true;
  for (const auto& sample : samplesInDecodingOrder(run, reader->table())) {
    auto packet = reader->read(sample.sample);
    if (!packet) return tl::make_unexpected(packet.error());
    if (std::exchange(isFirst, false) && followsOthers) startAnew(**packet, parameters);
    if (!coded_.push({std::move(*packet), written[sample.shown].time})) {
      return failed(ErrorKind::cancelled, "cancelled");
    }
  }
  return {};
}

Expected<void> CodedPictures::openEncoder() {
  auto facts = lightFactsOf(job_);
  if (!facts) return tl::make_unexpected(facts.error());
  hdrMetadata_ = std::move(*facts);
  VideoEncoderSettings settings = job_.encoder;
  settings.hdrMetadata = hdrMetadata_;
  if (format_ != nullptr) {
    auto description = SharedDescription::of(*format_);
    if (!description) return tl::make_unexpected(description.error());
    description_.emplace(std::move(*description));
    settings.amongCopies = {description_->parameterSetNumber(), description_->profile(), reorderDepth_};
  }
  auto encoder = VideoEncoder::open(settings);
  if (!encoder) return tl::make_unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  CodecParameters format = encoder_->format();
  if (description_) {
    auto both = description_->with(*format);
    if (!both) return tl::make_unexpected(both.error());
    format = std::move(*both);
  }
  format_ = std::move(format);
  reorderDepth_ = std::max(reorderDepth_, encoder_->reorderDepth());
  return {};
}

Expected<void> CodedPictures::start(void (CodedPictures::*stage)()) {
  auto thread = Thread::start([this, stage] { (this->*stage)(); });
  if (!thread) return tl::make_unexpected(thread.error());
  threads_.push_back(std::move(*thread));
  return {};
}

void CodedPictures::decodeRuns() {
  try {
    for (std::size_t i = 0; i < job_.runs.size(); ++i) {
      if (job_.runs[i].copy) continue;
      if (auto decoded = decodeRun(i); !decoded) return raw_.fail(decoded.error());
    }
    raw_.finish();
  } catch (const std::exception& thrown) {
    raw_.fail(asError(thrown));
  }
}

Expected<void> CodedPictures::decodeRun(std::size_t number) {
  const PictureRun& run = job_.runs[number];
  const auto layers = layersOf(run);
  const auto falling = static_cast<std::size_t>(std::count_if(layers.begin(), layers.end(), LayerPictures::fall));
  std::vector<LayerPictures> tracks;
  for (const RunLayer& layer : layers) {
    auto opened =
        LayerPictures::open(layer, damaged_, backwardsBytes / std::max<std::size_t>(falling, 1), job_.encoder.threads);
    if (!opened) return tl::make_unexpected(opened.error());
    tracks.push_back(std::move(*opened));
  }
  for (std::size_t i = 0; i < run.pictures.size(); ++i) {
    RawPicture raw{{}, number, runStarts_[number] + run.pictures[i].time, i == 0};
    for (auto& track : tracks) {
      auto frame = track.next(abandoned_.get_token());
      if (!frame) return tl::make_unexpected(frame.error());
      raw.frames.push_back(std::move(*frame));
    }
    if (!raw_.push(std::move(raw))) return failed(ErrorKind::cancelled, "cancelled");
  }
  for (const auto& track : tracks) replaced_ += track.replacedPictures();
  return {};
}

void CodedPictures::finishPictures() {
  try {
    if (auto finished = finishAll(); !finished) {
      raw_.abandon();
      return finished_.fail(finished.error());
    }
    finished_.finish();
  } catch (const std::exception& thrown) {
    raw_.abandon();
    finished_.fail(asError(thrown));
  }
}

Expected<void> CodedPictures::finishAll() {
  PictureFinish finish(job_, encoder_->pixelFormat());
  for (;;) {
    auto raw = raw_.pop();
    if (!raw) return tl::make_unexpected(raw.error());
    if (!*raw) return {};
    auto picture = finish.finish(job_.runs[(*raw)->run], (*raw)->frames);
    if (!picture) return tl::make_unexpected(picture.error());
    if (!finished_.push({std::move(*picture), (*raw)->time, (*raw)->startsRun})) {
      return failed(ErrorKind::cancelled, "cancelled");
    }
  }
}

void CodedPictures::codePictures() {
  try {
    if (auto coded = codeAll(); !coded) {
      raw_.abandon();
      finished_.abandon();
      return coded_.fail(coded.error());
    }
    coded_.finish();
  } catch (const std::exception& thrown) {
    raw_.abandon();
    finished_.abandon();
    coded_.fail(asError(thrown));
  }
}

Expected<void> CodedPictures::codeAll() {
  if (auto copied = copyRuns(); !copied || !encoder_) return copied;
  for (;;) {
    auto picture = finished_.pop();
    if (!picture) return tl::make_unexpected(picture.error());
    if (!*picture) break;
    if (auto pushed = encoder_->push((*picture)->frame, (*picture)->time, (*picture)->startsRun); !pushed)
      return pushed;
    if (auto passed = passOn(); !passed) return passed;
  }
  if (auto finished = encoder_->finish(); !finished) return finished;
  if (auto passed = passOn(); !passed) return passed;
  if (passedRun_ != job_.runs.size()) return failed(ErrorKind::internal, "the encoder lost pictures");
  return {};
}

// Hands on what the encoder has ready, and copies what comes behind. The encoder gives one sample for each picture, run
// after run, since every run starts anew.
Expected<void> CodedPictures::passOn() {
  for (;;) {
    auto packet = encoder_->pull();
    if (!packet) return tl::make_unexpected(packet.error());
    if (!*packet) return {};
    if (passedRun_ == job_.runs.size())
      return failed(ErrorKind::internal, "the encoder gave more pictures than it got");
    const std::int64_t time = (**packet)->pts - runStarts_[passedRun_];
    if (description_) {
      auto converted = description_->asCopied(***packet);
      if (!converted) return tl::make_unexpected(converted.error());
      *packet = std::move(*converted);
    }
    if (!coded_.push({std::move(**packet), time})) return failed(ErrorKind::cancelled, "cancelled");
    if (++passedOfRun_ == job_.runs[passedRun_].pictures.size()) {
      ++passedRun_;
      passedOfRun_ = 0;
      if (auto copied = copyRuns(); !copied) return copied;
    }
  }
}

}  // namespace clipworks::engine
