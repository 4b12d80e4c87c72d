#include <app/serve/ClipPage.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <app/PieceArgument.h>
#include <app/serve/Page.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::uint64_t mostMessageBytes = 262'144;
constexpr std::uint64_t mostRecordingBytes = 67'108'864;
constexpr std::uint64_t mostClipBytes = 68'719'476'736;
constexpr int mostRecordings = 200;

HttpAnswer answered(const json& object) {
  return {200, "application/json", object.dump(-1, ' ', false, json::error_handler_t::replace)};
}

/// `code` names what the page has words of its own for; the others are for who writes pages.
HttpAnswer refused(int status, const std::string& sentence, std::string_view code = "") {
  json object{{"error", sentence}};
  if (!code.empty()) object["code"] = code;
  HttpAnswer answer = answered(object);
  answer.status = status;
  return answer;
}

/// A job that is none, for one that names what is no longer there.
HttpAnswer refused(const Failure& failure) {
  return refused(422, failure.sentence, failure.cause == ErrorCode::notFound ? "sourceGone" : "");
}

/// What became of it is an answer, too.
HttpAnswer didFail(const std::string& sentence) { return refused(200, sentence); }

HttpAnswer notThere() { return refused(404, "there is no such thing here", "gone"); }

HttpAnswer tooLarge() { return refused(413, "too large", "tooLarge"); }

HttpAnswer nothingTold() { return refused(200, "nothing can be told of it", "nothingTold"); }

HttpAnswer notWritten(int error) {
  return refused(507, std::generic_category().message(error), error == ENOSPC ? "noSpace" : "");
}

std::string typeOf(const fs::path& file) {
  static const auto& types = *new std::map<std::string, std::string>{
      {".mp4", "video/mp4"},   {".m4v", "video/mp4"},        {".mov", "video/quicktime"}, {".qt", "video/quicktime"},
      {".webm", "video/webm"}, {".mkv", "video/x-matroska"}, {".3gp", "video/3gpp"},      {".jpg", "image/jpeg"},
      {".png", "image/png"},   {".heic", "image/heic"},      {".m4a", "audio/mp4"}};
  std::string ending = file.extension().native();
  for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const auto found = types.find(ending);
  return found == types.end() ? "application/octet-stream" : found->second;
}

HttpAnswer fileAnswer(const fs::path& path) {
  auto file = openedFile(path);
  if (!file) return notThere();
  HttpAnswer answer{200, typeOf(path)};
  answer.file = std::move(file);
  // The address has the time of the last change in it.
  answer.headers.emplace_back("Cache-Control", "private, max-age=3600");
  return answer;
}

std::string nameOf(JobLane::State state) {
  constexpr std::array names{"waiting", "running", "done", "failed", "cancelled"};
  return names.at(static_cast<std::size_t>(state));
}

bool isWhole(const std::string& text) {
  return !text.empty() && text.size() < 10 && text.find_first_not_of("0123456789") == std::string::npos;
}

bool isSeconds(const std::string& text) {
  return !text.empty() && text.size() < 30 && text.find_first_not_of("0123456789.") == std::string::npos;
}

std::string versionOf(const std::vector<fs::path>& files) {
  std::error_code ignored;
  std::string version;
  for (const auto& file : files)
    version += fmt::format("{} {} ", fs::file_size(file, ignored),
                           fs::last_write_time(file, ignored).time_since_epoch().count());
  return version;
}

/// Writes the body to an open file.
bool writeBody(const HttpBody& body, int descriptor) {
  return body([descriptor](std::string_view piece) {
    while (!piece.empty()) {
      const ssize_t count = ::write(descriptor, piece.data(), piece.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return false;
      piece.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  });
}

std::string recordingEnding(const std::string& type) {
  for (const auto* kind : {"webm", "mp4", "ogg"}) {
    const std::string plain = std::string("audio/") + kind;
    if (type == plain || type.starts_with(plain + ";")) return std::string(".") + kind;
  }
  return "";
}

}  // namespace

ClipPage::ClipPage(ClipFolder folder, fs::path temp, int port, const WorkerOptions& worker)
    : folder_(std::move(folder)),
      temp_(std::move(temp)),
      gate_(port),
      asked_(worker),
      lookers_{Worker(worker), Worker(worker)},
      listener_(worker),
      movies_(worker),
      previews_(worker) {}

std::optional<HttpAnswer> ClipPage::refusal(const HttpRequest& request) {
  if (auto judged = gate_.judge(request)) return judged;
  if (request.method != "POST") return std::nullopt;
  const std::string type = request.header("Content-Type");
  if (request.path == "/api/upload") {
    if (type != "application/octet-stream") return refused(415, "a clip comes as bytes");
    if (request.bodyBytes > mostClipBytes) return tooLarge();
  } else if (request.path == "/api/recording") {
    if (recordingEnding(type).empty()) return refused(415, "a recording is sound");
    if (request.bodyBytes > mostRecordingBytes) return tooLarge();
  } else {
    if (type != "application/json") return refused(415, "JSON only");
    if (request.bodyBytes > mostMessageBytes) return tooLarge();
  }
  return std::nullopt;
}

HttpAnswer ClipPage::answer(const HttpRequest& request, const HttpBody& body) {
  static const auto& answers = *new std::map<std::string, Answer>{
      {"/api/clips", &ClipPage::clips},       {"/api/facts", &ClipPage::facts}, {"/api/times", &ClipPage::times},
      {"/api/peaks", &ClipPage::peaks},       {"/api/job", &ClipPage::job},     {"/media/clip", &ClipPage::clip},
      {"/media/picture", &ClipPage::picture}, {"/media/made", &ClipPage::made}};
  static const auto& changes = *new std::map<std::string, Change>{
      {"/api/plan", &ClipPage::planJob}, {"/api/start", &ClipPage::startJob}, {"/api/cancel", &ClipPage::cancelJob}};
  if (request.method == "POST") {
    if (request.path == "/api/upload") return takeFile(request, body, false);
    if (request.path == "/api/recording") return takeFile(request, body, true);
    const auto change = changes.find(request.path);
    if (change == changes.end()) return notThere();
    std::string text;
    if (!body([&text](std::string_view piece) { return text.append(piece).size() <= mostMessageBytes; }))
      return refused(400, "the message is not whole");
    const json message = json::parse(text, nullptr, false);
    return message.is_object() ? (this->*change->second)(message) : refused(400, "this is no JSON");
  }
  if (const auto found = answers.find(request.path); found != answers.end()) return (this->*found->second)(request);
  const auto file = pageFile(std::string_view(request.path).substr(1));
  if (!file) return notThere();
  return {200, std::string(file->type), std::string(file->bytes), {{"Cache-Control", "no-cache"}}};
}

HttpAnswer ClipPage::clips(const HttpRequest&) {
  auto list = json::array();
  for (const auto& entry : folder_.list())
    list.push_back({{"name", entry.name}, {"bytes", entry.bytes}, {"changed", entry.changed}});
  return answered({{"folder", folder_.path().native()}, {"clips", list}});
}

/// What a worker tells of a clip, an object of JSON.
HttpAnswer ClipPage::told(Worker& worker, const std::string& name, const std::vector<std::string>& words) {
  const auto file = source(name);
  if (!file) return notThere();
  std::vector<std::string> all{"look", file->native()};
  all.insert(all.end(), words.begin(), words.end());
  const auto told = worker.run(all, {}, stop_.get_token());
  if (!told) return didFail(told.error().sentence);
  // What a decoder that was taken over prints goes no further than this, unless it is JSON.
  const json object = json::parse(told->text, nullptr, false);
  if (!object.is_object()) return nothingTold();
  HttpAnswer answer = answered(object);
  answer.headers.emplace_back("Cache-Control", "private, max-age=3600");
  return answer;
}

HttpAnswer ClipPage::facts(const HttpRequest& request) { return told(asked_, request.parameter("name"), {}); }

HttpAnswer ClipPage::times(const HttpRequest& request) { return told(asked_, request.parameter("name"), {"--times"}); }

HttpAnswer ClipPage::peaks(const HttpRequest& request) {
  const std::string count = request.parameter("count");
  if (!isWhole(count)) return refused(400, "count is a number");
  return told(listener_, request.parameter("name"), {"--peaks", count});
}

/// The picture at a time, small, as large as a page shows it, or as it is. Kept by the browser, not here.
HttpAnswer ClipPage::picture(const HttpRequest& request) {
  const std::string job = request.parameter("job");
  const auto file = job.empty() ? source(request.parameter("name")) : result(job);
  const std::string at = request.parameter("at");
  if (!file || !isSeconds(at)) return notThere();
  const fs::path place = temp_ / fmt::format("picture-{}.jpg", ++files_);
  std::vector<std::string> words{"frame", file->native()};
  const std::string size = request.parameter("size");
  const std::string preset = size == "large" ? "720p" : "144p";
  if (size != "full") words = {"compress", file->native(), "--preset", preset, "then", "frame"};
  words.insert(words.end(), {"--at", at, "-o", place.native()});
  const auto made = looker().run(words, {}, stop_.get_token());
  if (!made) return refused(422, made.error().sentence);
  std::ifstream stream(place, std::ios::binary);
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  std::error_code ignored;
  fs::remove(place, ignored);
  return {200, "image/jpeg", bytes.str(), {{"Cache-Control", "private, max-age=3600"}}};
}

HttpAnswer ClipPage::clip(const HttpRequest& request) {
  const auto file = source(request.parameter("name"));
  return file ? fileAnswer(*file) : notThere();
}

/// A file of the directory, or a recording.
std::optional<fs::path> ClipPage::source(const std::string& name) const {
  if (auto found = folder_.find(name)) return found;
  if (!name.starts_with("recording-") || name.find('/') != std::string::npos) return std::nullopt;
  std::error_code error;
  const fs::path recording = temp_ / name;
  return fs::is_regular_file(fs::symlink_status(recording, error)) ? std::optional(recording) : std::nullopt;
}

std::optional<JobLane::Job> ClipPage::jobNumbered(const std::string& number) const {
  if (!isWhole(number)) return std::nullopt;
  auto job = movies_.find(std::stoull(number));
  return job ? job : previews_.find(std::stoull(number));
}

/// What a job made.
std::optional<fs::path> ClipPage::result(const std::string& number) const {
  const auto job = jobNumbered(number);
  if (!job || job->state != JobLane::State::done) return std::nullopt;
  return job->recipe.empty() ? folder_.find(job->path.filename().native()) : job->path;
}

HttpAnswer ClipPage::made(const HttpRequest& request) {
  const auto file = result(request.parameter("job"));
  return file ? fileAnswer(*file) : notThere();
}

HttpAnswer ClipPage::job(const HttpRequest& request) {
  const auto job = jobNumbered(request.parameter("job"));
  if (!job) return notThere();
  json object{{"state", nameOf(job->state)}, {"share", job->share}, {"seconds", job->seconds}};
  if (job->secondsLeft >= 0 && job->state == JobLane::State::running) object["left"] = job->secondsLeft;
  if (job->state == JobLane::State::failed) {
    object["error"] = job->error.empty() ? "nothing was made" : job->error;
    if (job->error.empty()) object["code"] = "nothingMade";
  }
  if (job->state == JobLane::State::done) {
    std::error_code error;
    const auto bytes = fs::file_size(job->path, error);
    object["name"] = job->path.filename().native();
    if (!error) object["bytes"] = bytes;
  }
  return answered(object);
}

/// What a person would type.
std::vector<std::string> ClipPage::command(const PageJob& job) const {
  std::vector<std::string> words{"clipworks", "-o", (folder_.path() / (job.out + job.ending)).native()};
  words.insert(words.end(), job.words.begin(), job.words.end());
  return words;
}

HttpAnswer ClipPage::planJob(const json& message) {
  const auto job = PageJob::parse(message, [this](const auto& name) { return source(name); });
  if (!job) return refused(job.error());
  std::string line;
  for (const auto& word : command(*job)) line += (line.empty() ? "" : " ") + shellWord(word);
  json object{{"command", line}};
  if (job->ending == ".mp4") {
    std::vector<std::string> words = job->words;
    words.insert(words.begin(), "--plan");
    const auto told = asked_.run(words, {}, stop_.get_token());
    if (!told) return didFail(told.error().sentence);
    const json plans = json::parse(told->text, nullptr, false);
    if (!plans.is_object() || !plans.contains("plans")) return nothingTold();
    object["plan"] = plans.at("plans").at(0);
  }
  return answered(object);
}

HttpAnswer ClipPage::startJob(const json& message) {
  const bool isTemporary = message.value("temporary", false);
  const bool isDraft = isTemporary && message.value("draft", false);
  json plain = message;
  plain.erase("temporary");
  plain.erase("draft");
  const auto job = PageJob::parse(plain, [this](const auto& name) { return source(name); });
  if (!job) return refused(job.error());
  const auto place =
      isTemporary ? temp_ / fmt::format("made-{}{}", ++files_, job->ending) : folder_.placeFor(job->out + job->ending);
  if (!place) return refused(422, "the new file needs a name without \"/\"", "newName");
  std::vector<std::string> words{"-o", place->native()};
  if (isDraft) words.emplace_back("--draft");
  words.insert(words.end(), job->words.begin(), job->words.end());
  // Looked at again, what was made of the same clip serves again.
  const auto number = isTemporary ? previews_.add(std::move(words), versionOf(job->files) + message.dump())
                                  : movies_.add(std::move(words), "");
  if (!number) return refused(503, number.error().sentence, "busy");
  return answered({{"job", std::to_string(*number)}});
}

HttpAnswer ClipPage::cancelJob(const json& message) {
  const json number = message.value("job", json());
  if (!number.is_string() || !isWhole(number.get<std::string>())) return notThere();
  const std::uint64_t wanted = std::stoull(number.get<std::string>());
  return movies_.cancel(wanted) || previews_.cancel(wanted) ? answered(json::object()) : notThere();
}

/// A clip that was dragged in, or a recording. It gets its name once it is whole.
HttpAnswer ClipPage::takeFile(const HttpRequest& request, const HttpBody& body, bool isRecording) {
  std::optional<fs::path> place;
  if (isRecording) {
    const int number = ++files_;
    if (number > mostRecordings * 1'000) return refused(507, "too many recordings", "manyRecordings");
    place = temp_ / fmt::format("recording-{}{}", number, recordingEnding(request.header("Content-Type")));
  } else if (ClipFolder::isClipName(request.parameter("name"))) {
    place = folder_.placeFor(request.parameter("name"));
  }
  if (!place) return refused(422, "this is no name of a clip", "clipName");
  const auto files = newFilesOfThisProcess();
  const auto file = files->create(*place);
  if (!file) return notWritten(file.error());
  if (!writeBody(body, (*file)->handle().descriptor())) return refused(400, "the file is not whole", "notWhole");
  const auto named = (*file)->commit(engine::ExistingName::numbered);
  if (!named) return notWritten(named.error());
  return answered({{"name", named->filename().native()}});
}

}  // namespace clipworks::app
