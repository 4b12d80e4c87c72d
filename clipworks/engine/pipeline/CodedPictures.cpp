#include <clipworks/engine/pipeline/CodedPictures.h>

#include <algorithm>
#include <exception>

#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/input/SampleReader.h>
#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pipeline/DecodeTimes.h>

namespace clipworks::engine {
namespace {

// Decoded pictures are large (a 4K one has 12 MB), coded ones small; both only have to bridge uneven work.
constexpr std::size_t rawPicturesUnderWay = 4;
constexpr std::size_t codedPicturesUnderWay = 32;

Error asError(const std::exception& thrown) {
  if (dynamic_cast<const std::bad_alloc*>(&thrown) != nullptr) return {ErrorKind::outOfMemory, "out of memory", 0};
  return {ErrorKind::internal, thrown.what(), 0};
}

}  // namespace

std::vector<RunSample> samplesInDecodingOrder(const PictureRun& run, const SampleTable& table) {
  std::vector<RunSample> samples;
  samples.reserve(run.pictures.size());
  for (std::uint32_t shown = 0; shown < run.pictures.size(); ++shown) {
    samples.push_back({table.sampleOfPicture(run.pictures[shown].picture), shown});
  }
  std::sort(samples.begin(), samples.end(), [](const RunSample& a, const RunSample& b) { return a.sample < b.sample; });
  return samples;
}

CodedPictures::CodedPictures(const PictureJob& job)
    : job_(job), raw_(rawPicturesUnderWay), coded_(codedPicturesUnderWay) {
  runStarts_.assign(job.runs.size(), 0);
  std::vector<bool> seen(job.runs.size(), false);
  for (const auto& placement : job.placements) {
    if (!seen[placement.run]) runStarts_[placement.run] = placement.start;
    seen[placement.run] = true;
  }
}

CodedPictures::~CodedPictures() { abandon(); }

void CodedPictures::abandon() {
  raw_.abandon();
  coded_.abandon();
}

Expected<void> CodedPictures::open() { return job_.copy ? openCopy() : openEncoder(); }

Expected<void> CodedPictures::openCopy() {
  for (const auto& run : job_.runs) {
    auto table = run.file->sampleTable(run.stream);
    if (!table) return tl::make_unexpected(table.error());
    std::vector<std::uint32_t> ranks;
    for (const auto& sample : samplesInDecodingOrder(run, **table)) ranks.push_back(sample.shown);
    reorderDepth_ = std::max(reorderDepth_, engine::reorderDepth(ranks));
  }
  format_ = owned<CodecParameters>(avcodec_parameters_alloc());
  const auto& first = job_.runs.front();
  if (avcodec_parameters_copy(format_.get(), &first.file->parameters(first.stream)) < 0) throw std::bad_alloc();
  coding_ = std::jthread([this] { copyRuns(); });
  return {};
}

void CodedPictures::copyRuns() {
  try {
    for (const auto& run : job_.runs) {
      if (auto copied = copyRun(run); !copied) return coded_.fail(copied.error());
    }
    coded_.finish();
  } catch (const std::exception& thrown) {
    coded_.fail(asError(thrown));
  }
}

Expected<void> CodedPictures::copyRun(const PictureRun& run) {
  auto reader = SampleReader::open(run.file, run.stream);
  if (!reader) return tl::make_unexpected(reader.error());
  for (const auto& sample : samplesInDecodingOrder(run, reader->table())) {
    auto packet = reader->read(sample.sample);
    if (!packet) return tl::make_unexpected(packet.error());
    if (!coded_.push({std::move(*packet), run.pictures[sample.shown].time})) {
      return failed(ErrorKind::cancelled, "cancelled");
    }
  }
  return {};
}

Expected<void> CodedPictures::openEncoder() {
  auto encoder = VideoEncoder::open(job_.encoder);
  if (!encoder) return tl::make_unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  format_ = encoder_->format();
  reorderDepth_ = encoder_->reorderDepth();
  decoding_ = std::jthread([this] { decodeRuns(); });
  coding_ = std::jthread([this] { encodePictures(); });
  return {};
}

void CodedPictures::decodeRuns() {
  try {
    for (std::size_t i = 0; i < job_.runs.size(); ++i) {
      if (auto decoded = decodeRun(job_.runs[i], runStarts_[i]); !decoded) return raw_.fail(decoded.error());
    }
    raw_.finish();
  } catch (const std::exception& thrown) {
    raw_.fail(asError(thrown));
  }
}

Expected<void> CodedPictures::decodeRun(const PictureRun& run, std::int64_t start) {
  const auto& settings = job_.encoder;
  if (run.file == nullptr) {
    auto black = blackFrame(settings.width, settings.height, encoder_->pixelFormat(), settings.colour.fullRange);
    if (!black) return tl::make_unexpected(black.error());
    if (!raw_.push({std::move(*black), start, true, false})) return failed(ErrorKind::cancelled, "cancelled");
    return {};
  }
  auto reader = PictureReader::open(run.file, run.stream);
  if (!reader) return tl::make_unexpected(reader.error());
  const bool interlaced = !run.file->stream(run.stream).progressive;
  bool startsRun = true;
  for (const auto& shown : run.pictures) {
    auto frame = reader->picture(shown.picture);
    if (!frame) return tl::make_unexpected(frame.error());
    if (!raw_.push({std::move(*frame), start + shown.time, startsRun, interlaced})) {
      return failed(ErrorKind::cancelled, "cancelled");
    }
    startsRun = false;
  }
  replaced_ += reader->replacedPictures();
  return {};
}

void CodedPictures::encodePictures() {
  try {
    if (auto encoded = encodeAll(); !encoded) {
      raw_.abandon();
      return coded_.fail(encoded.error());
    }
    coded_.finish();
  } catch (const std::exception& thrown) {
    raw_.abandon();
    coded_.fail(asError(thrown));
  }
}

Expected<void> CodedPictures::encodeAll() {
  converter_.emplace(job_.encoder.width, job_.encoder.height, encoder_->pixelFormat(), job_.fit);
  for (;;) {
    auto raw = raw_.pop();
    if (!raw) return tl::make_unexpected(raw.error());
    if (!*raw) break;
    if ((*raw)->startsRun) {
      if (auto ended = endInterlacedRun(); !ended) return ended;
    }
    auto done = (*raw)->interlaced ? makeWhole(std::move(**raw)) : encode(**raw);
    if (!done) return done;
  }
  if (auto ended = endInterlacedRun(); !ended) return ended;
  if (auto finished = encoder_->finish(); !finished) return finished;
  if (auto passed = passOn(); !passed) return passed;
  if (passedRun_ != job_.runs.size()) return failed(ErrorKind::internal, "the encoder lost pictures");
  return {};
}

Expected<void> CodedPictures::makeWhole(RawPicture raw) {
  if (!deinterlacer_) {
    auto opened = Deinterlacer::open(*raw.frame);
    if (!opened) return tl::make_unexpected(opened.error());
    deinterlacer_.emplace(std::move(*opened));
  }
  if (auto pushed = deinterlacer_->push(raw.frame); !pushed) return pushed;
  raw.frame.reset();
  interlaced_.push_back(std::move(raw));
  return encodeWhole();
}

Expected<void> CodedPictures::endInterlacedRun() {
  if (!deinterlacer_) return {};
  if (auto finished = deinterlacer_->finish(); !finished) return finished;
  if (auto encoded = encodeWhole(); !encoded) return encoded;
  deinterlacer_.reset();
  if (!interlaced_.empty()) return failed(ErrorKind::internal, "deinterlacing lost pictures");
  return {};
}

Expected<void> CodedPictures::encodeWhole() {
  for (;;) {
    auto whole = deinterlacer_->pull();
    if (!whole) return tl::make_unexpected(whole.error());
    if (!*whole) return {};
    if (interlaced_.empty()) return failed(ErrorKind::internal, "deinterlacing made pictures up");
    RawPicture picture = std::move(interlaced_.front());
    interlaced_.pop_front();
    picture.frame = std::move(**whole);
    if (auto encoded = encode(picture); !encoded) return encoded;
  }
}

Expected<void> CodedPictures::encode(const RawPicture& raw) {
  auto picture = converter_->convert(raw.frame);
  if (!picture) return tl::make_unexpected(picture.error());
  if (auto pushed = encoder_->push(*picture, raw.time, raw.startsRun); !pushed) return pushed;
  return passOn();
}

// Hands on what the encoder has ready. It gives one sample for each picture, run after run, since every run starts anew.
Expected<void> CodedPictures::passOn() {
  for (;;) {
    auto packet = encoder_->pull();
    if (!packet) return tl::make_unexpected(packet.error());
    if (!*packet) return {};
    if (passedRun_ == job_.runs.size()) return failed(ErrorKind::internal, "the encoder gave more pictures than it got");
    const std::int64_t time = (**packet)->pts - runStarts_[passedRun_];
    if (!coded_.push({std::move(**packet), time})) return failed(ErrorKind::cancelled, "cancelled");
    if (++passedOfRun_ == job_.runs[passedRun_].pictures.size()) {
      ++passedRun_;
      passedOfRun_ = 0;
    }
  }
}

}  // namespace clipworks::engine
