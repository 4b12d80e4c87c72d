#include <app/batch/JobList.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <system_error>

#include <xxhash.h>

#include <app/ClipNames.h>
#include <nlohmann/json.hpp>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

bool isEmpty(const std::string& line) { return line.find_first_not_of(" \t\r") == std::string::npos; }

Result<std::vector<fs::path>, Failure> clipsIn(const fs::path& directory) {
  std::error_code code;
  std::vector<fs::path> clips;
  for (fs::directory_iterator entry(directory, code), end; !code && entry != end; entry.increment(code)) {
    if (isClipName(entry->path()) && entry->is_regular_file(code)) clips.push_back(entry->path());
  }
  if (code) return failed(directory.string() + " cannot be read: " + code.message());
  if (clips.empty()) return failed("there is no clip in " + directory.string());
  std::sort(clips.begin(), clips.end());
  return clips;
}

}  // namespace

Result<JobList, Failure> JobList::open(const std::string& place) {
  JobList list;
  if (place == "-") {
    list.isStandardInput_ = true;
    return list;
  }
  list.file_.open(place, std::ios::binary);
  if (!list.file_) return failed(place + " cannot be read");
  list.count_ = 0;
  for (std::string line; std::getline(list.file_, line);) *list.count_ += isEmpty(line) ? 0 : 1;
  list.file_.clear();
  list.file_.seekg(0);
  return list;
}

Result<JobList, Failure> JobList::compressing(const fs::path& directory, const fs::path& outputs,
                                              const std::string& options) {
  const auto clips = clipsIn(directory);
  if (!clips) return failure(clips.error());
  std::map<std::string, int> sameNames;
  for (const auto& clip : *clips) ++sameNames[clip.stem().native()];
  JobList list;
  for (const auto& clip : *clips) {
    std::string name = clip.stem().native();
    if (sameNames[name] > 1) name += "-" + clip.extension().native().substr(1);  // clip.mov beside clip.mp4
    ordered_json step = ordered_json::parse(options);
    step["step"] = "compress";
    const ordered_json job{
        {"in", clip.native()}, {"steps", {step}}, {"out", (outputs / (name + "-compressed.mp4")).native()}};
    list.lines_.push_back(job.dump());
  }
  list.count_ = static_cast<std::int64_t>(list.lines_.size());
  return list;
}

std::optional<ListedJob> JobList::next() {
  if (!lines_.empty()) {
    if (line_ == *count_) return std::nullopt;
    std::string text = lines_[static_cast<std::size_t>(line_)];
    return ListedJob{++line_, std::move(text)};
  }
  std::istream& stream = isStandardInput_ ? std::cin : file_;
  for (std::string text; std::getline(stream, text);) {
    ++line_;
    if (!isEmpty(text)) return ListedJob{line_, std::move(text)};
  }
  return std::nullopt;
}

bool OutputNames::take(const fs::path& output) {
  std::error_code code;
  const fs::path whole = fs::absolute(output, code).lexically_normal();
  return taken_.insert(XXH3_64bits(whole.native().data(), whole.native().size())).second;
}

}  // namespace clipworks::app
