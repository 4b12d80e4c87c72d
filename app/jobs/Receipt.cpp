#include <app/jobs/Receipt.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <mutex>
#include <utility>

#include <clipworks/engine/FileHandle.h>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using nlohmann::ordered_json;

// More is none of ours.
constexpr std::uintmax_t mostReceiptBytes = 1 << 20;

/// A file as the system knows it, whatever its name.
struct Identity {
  dev_t device = 0;
  ino_t number = 0;
  std::int64_t time = 0;  // of its last change of content, in nanoseconds since 1970
  friend bool operator==(const Identity&, const Identity&) = default;
};

Identity identityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
}

std::optional<Identity> identityOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return identityOf(status);
}

/// Nothing where the file cannot be read.
std::optional<Digest> digestOfFile(const fs::path& path, bool withSHA256, const std::stop_token& stop) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  const engine::FileHandle file(descriptor);
  const auto digest = digestOf(file.descriptor(), withSHA256, stop);
  return digest ? std::optional(*digest) : std::nullopt;
}

/// Null where there is none.
json readReceipt(const fs::path& path) {
  std::error_code missing;
  if (const auto size = fs::file_size(path, missing); missing || size > mostReceiptBytes) return {};
  std::ifstream file(path, std::ios::binary);
  return json::parse(std::istreambuf_iterator<char>(file), {}, nullptr, false);
}

/// A list in an object of unknown making; empty where it is none.
json listIn(const json& object, const char* key) {
  return object.is_object() && object.contains(key) && object[key].is_array() ? object[key] : json::array();
}

ordered_json told(const char* key, const std::string& name, const Digest& digest) {
  ordered_json object{{key, name}, {"bytes", digest.bytes}, {"xxh3", digest.xxh3}};
  if (!digest.sha256.empty()) object["sha256"] = digest.sha256;
  return object;
}

auto meanwhile(std::string sentence) {
  return tl::make_unexpected(Failure{ExitCode::tryAgain, std::move(sentence), ErrorCode::busy});
}

const char* kindOf(const PlannedTrack& track) {
  if (track.kind == PlannedTrack::Kind::data) return "data";
  return track.kind == PlannedTrack::Kind::pictures ? "pictures" : "sound";
}

}  // namespace

struct JobOutputs {
  struct Output {
    fs::path path;
    Digest digest;
    Identity identity;
  };

  std::mutex mutex;
  std::vector<Output> made;  // guarded by mutex
};

namespace {

class WatchedFile final : public engine::NewFile {
 public:
  WatchedFile(std::unique_ptr<NewFile> file, bool withSHA256, std::shared_ptr<JobOutputs> outputs)
      : file_(std::move(file)), withSHA256_(withSHA256), outputs_(std::move(outputs)) {}

  [[nodiscard]] const engine::FileHandle& handle() const override { return file_->handle(); }
  [[nodiscard]] tl::expected<fs::path, int> commit(engine::ExistingName existing) override {
    const int descriptor = handle().descriptor();
    const auto digest = digestOf(descriptor, withSHA256_, {});
    struct stat status {};
    if (!digest) return tl::make_unexpected(digest.error());
    if (::fstat(descriptor, &status) != 0) return tl::make_unexpected(errno);
    auto name = file_->commit(existing);
    if (!name) return name;
    const std::lock_guard lock(outputs_->mutex);
    outputs_->made.push_back({*name, *digest, identityOf(status)});
    return name;
  }

 private:
  std::unique_ptr<NewFile> file_;
  bool withSHA256_;
  std::shared_ptr<JobOutputs> outputs_;
};

class WatchedFiles final : public engine::NewFiles {
 public:
  WatchedFiles(std::shared_ptr<NewFiles> files, bool withSHA256, std::shared_ptr<JobOutputs> outputs)
      : files_(std::move(files)), withSHA256_(withSHA256), outputs_(std::move(outputs)) {}

  [[nodiscard]] tl::expected<std::unique_ptr<engine::NewFile>, int> create(const fs::path& path) override {
    auto file = files_->create(path);
    if (!file) return file;
    return std::make_unique<WatchedFile>(std::move(*file), withSHA256_, outputs_);
  }
  void remove(const fs::path& path) override {
    files_->remove(path);
    const std::lock_guard lock(outputs_->mutex);
    std::erase_if(outputs_->made, [&path](const auto& output) { return output.path == path; });
  }

 private:
  std::shared_ptr<NewFiles> files_;
  bool withSHA256_;
  std::shared_ptr<JobOutputs> outputs_;
};

}  // namespace

ordered_json factsOf(const MovieReport& report) {
  ordered_json facts{{"encoders", ordered_json::array()}};
  ordered_json tracks = ordered_json::array();
  for (const auto& track : report.tracks) {
    if (!track.encoder.empty()) facts["encoders"].push_back(track.encoder);
    tracks.push_back({{"kind", kindOf(track)}, {"copied", track.isCopied}});
    if (track.kind == PlannedTrack::Kind::pictures)
      tracks.back().update({{"pictures", track.pictures}, {"encodedPictures", track.encodedPictures}});
  }
  facts["report"] = {{"length", report.length.seconds()}, {"tracks", tracks}, {"verified", report.isVerified}};
  for (const auto& media : report.damaged) {
    facts["report"]["damagedPictures"].push_back({{"file", media.fileName}, {"pictures", media.pictures}});
  }
  return facts;
}

Receipt::Receipt(const Job& job, std::vector<fs::path> inputs)
    : job_(job),
      path_(job.output.native() + ending),
      directory_(job.output.parent_path()),
      wasFree_(!identityOf(job.output)),
      older_(readReceipt(path_)),
      outputs_(std::make_shared<JobOutputs>()) {
  for (auto& input : inputs) inputs_.push_back({std::move(input), std::nullopt, 0});
  const std::string beginning = job.output.stem().native();
  for (const json& output : listIn(older_, "out")) {
    const fs::path name = output.is_object() ? output.value("name", "") : "";
    // Beside this one, and nothing else: whoever wrote it, it must not lead to other files.
    if (name.has_parent_path() || !name.native().starts_with(beginning)) older_ = {};
    olderOutputs_.push_back(directory_ / name);
  }
}

Receipt::~Receipt() = default;

bool Receipt::mayComeSoon() const {
  constexpr std::time_t soon = 5;  // seconds
  struct stat status {};
  return ::stat(job_.output.c_str(), &status) == 0 && std::time(nullptr) - status.st_ctim.tv_sec <= soon;
}

bool Receipt::matches(const json& told, const std::optional<Digest>& found) const {
  if (!found || !told.is_object()) return false;
  const bool isSame = told.value("bytes", std::int64_t(-1)) == found->bytes && told.value("xxh3", "") == found->xxh3;
  return isSame && (!job_.wantsSHA256 || told.value("sha256", "") == found->sha256);
}

std::vector<fs::path> Receipt::doneBefore(const std::stop_token& stop) {
  for (auto& input : inputs_) {
    const auto identity = identityOf(input.path);
    input.time = identity ? identity->time : 0;
    input.digest = digestOfFile(input.path, job_.wantsSHA256, stop);
  }
  if (!older_.is_object()) return {};
  try {
    const json read = listIn(older_, "in");
    const json made = listIn(older_, "out");
    if (older_.value("job", json()).dump() != job_.text || read.size() != inputs_.size() || made.empty()) return {};
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
      if (!matches(read[i], inputs_[i].digest)) return {};
    }
    for (std::size_t i = 0; i < made.size(); ++i) {
      if (!matches(made[i], digestOfFile(olderOutputs_[i], job_.wantsSHA256, stop))) return {};
    }
  } catch (const json::exception&) {
    return {};  // another type than we write
  }
  return olderOutputs_;
}

std::shared_ptr<engine::NewFiles> Receipt::watched(std::shared_ptr<engine::NewFiles> files) {
  return std::make_shared<WatchedFiles>(std::move(files), job_.wantsSHA256, outputs_);
}

Outcome Receipt::leave(engine::NewFiles& files, const ordered_json& facts) const {
  const Outcome written = write(files, facts);
  if (written) return written;
  const std::lock_guard lock(outputs_->mutex);
  for (const auto& output : outputs_->made) {
    if (identityOf(output.path) == output.identity) files.remove(output.path);
  }
  return written;
}

Outcome Receipt::write(engine::NewFiles& files, const ordered_json& facts) const {
  ordered_json receipt{{"clipworks", CLIPWORKS_VERSION}, {"job", ordered_json::parse(job_.text)}};
  for (const auto& input : inputs_) {
    const auto identity = identityOf(input.path);
    if (!input.digest || !identity || identity->time != input.time)
      return meanwhile(input.path.filename().string() + " was changed while it was read");
    receipt["in"].push_back(told("path", input.path.string(), *input.digest));
  }
  {
    const std::lock_guard lock(outputs_->mutex);
    for (const auto& output : outputs_->made) {
      if (identityOf(output.path) != output.identity)
        return meanwhile(output.path.filename().string() + " was replaced by another run");
      receipt["out"].push_back(told("name", output.path.filename().string(), output.digest));
    }
  }
  receipt.update(facts);
  std::tm utc{};
  ::gmtime_r(&started_, &utc);
  char text[sizeof "2026-11-26T12:00:00Z"];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  receipt["started"] = text;
  receipt["seconds"] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  const std::string bytes = receipt.dump(1, ' ', false, json::error_handler_t::replace) + '\n';

  const auto file = files.create(path_);
  int code = file ? 0 : file.error();
  for (std::size_t written = 0; code == 0 && written < bytes.size();) {
    const ssize_t count = ::pwrite((*file)->handle().descriptor(), bytes.data() + written, bytes.size() - written,
                                   static_cast<off_t>(written));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) code = errno;
    written += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
  if (code == 0) {
    const auto named = (*file)->commit(engine::ExistingName::replaced);
    if (!named) code = named.error();
  }
  if (code == 0) return {};
  const bool isFull = code == ENOSPC || code == EDQUOT;
  return failure(Failure{isFull ? ExitCode::tryAgain : ExitCode::failed,
                         path_.string() + " cannot be written: " + std::strerror(code),
                         isFull ? ErrorCode::noSpace : ErrorCode::notWritable});
}

}  // namespace clipworks::app
