#include <app/serve/PageJob.h>

#include <map>
#include <set>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include <app/PieceArgument.h>
#include <app/jobs/Job.h>

namespace clipworks::app {
namespace {

using nlohmann::json;

constexpr std::size_t mostSteps = 100;
constexpr std::size_t mostValues = 200;  // of an option that comes often

/// The options that each step may have. All others hold for the whole program, and are not for a page to choose.
const std::set<std::string>* optionsOf(const std::string& step) {
  static const auto& steps =
      *new std::map<std::string, std::set<std::string>>{{"trim", {"from", "to", "keep"}},
                                                        {"speed", {"from", "to", "ratio"}},
                                                        {"crop", {"rect"}},
                                                        {"rotate", {"by", "lossless"}},
                                                        {"loop", {"count"}},
                                                        {"join", {"in"}},
                                                        {"reverse", {}},
                                                        {"compress", {"preset", "max-size", "bitrate"}},
                                                        {"narrate", {"piece", "base-volume"}},
                                                        {"frame", {"at", "format"}}};
  const auto found = steps.find(step);
  return found == steps.end() ? nullptr : &found->second;
}

auto noJob(const std::string& why) { return wrongUse("this is no job for a page: " + why); }

/// A file that a page named may have gone meanwhile.
auto noFile(const std::string& what) {
  return failure(Failure{ExitCode::wrongUse, "there is no such " + what, ErrorCode::notFound});
}

Outcome findClip(json& name, PageJob& job, const PageJob::FindFile& find) {
  auto file = find(name.get<std::string>());
  if (!file) return noFile("clip");
  name = file->native();
  job.files.push_back(std::move(*file));
  return {};
}

/// "NAME@S:VOLUME" with the file's path in place of its name.
Outcome findPiece(json& piece, const PageJob::FindFile& find) {
  const auto text = piece.get<std::string>();
  const auto parsed = PieceArgument::parse(text);
  const auto file = parsed ? find(parsed->audio.native()) : std::nullopt;
  if (!file) return noFile("piece of narration");
  piece = file->native() + text.substr(text.rfind('@'));
  return {};
}

Outcome checkStep(json& step, PageJob& job, const PageJob::FindFile& find) {
  const auto name = step.at("step").get<std::string>();
  const auto* known = optionsOf(name);
  if (known == nullptr) return noJob("there is no step " + name);
  for (const auto& [option, value] : step.items()) {
    if (option == "step") continue;
    if (!known->contains(option)) return noJob(name + " has no option " + option);
    if (!value.is_array()) value = json::array({value});
    if (value.size() > mostValues) return noJob("too many values of " + option);
    for (auto& one : value) {
      if (one.is_string() && one.get<std::string>().find('\0') != std::string::npos) return noJob("it holds a zero");
      Outcome found;
      if (option == "piece") found = findPiece(one, find);
      if (option == "in") found = findClip(one, job, find);
      if (!found) return found;
    }
  }
  return {};
}

Result<PageJob, Failure> checked(json object, const PageJob::FindFile& find) {
  for (const auto& [key, value] : object.items()) {
    const bool isCodec = key == "codec" && (value == "h264" || value == "hevc" || value == "auto");
    if (key != "in" && key != "steps" && key != "out" && !isCodec) return noJob("it has no " + key);
  }
  PageJob job{{}, object.at("out").get<std::string>(), ".mp4", {}};
  json& clips = object.at("in");
  if (!clips.is_array()) clips = json::array({clips});
  json& steps = object.at("steps");
  if (!steps.is_array() || steps.empty() || steps.size() > mostSteps) return noJob("it needs steps");
  const bool joinsFirst = steps.front().at("step") == "join";
  if (clips.size() > (joinsFirst ? mostValues : 1) || (joinsFirst && steps.front().contains("in")))
    return noJob("a join takes several clips, as \"in\" of the job where it comes first");
  for (auto& clip : clips) {
    if (const Outcome found = findClip(clip, job, find); !found) return failure(found.error());
  }
  for (auto& step : steps) {
    if (const Outcome known = checkStep(step, job, find); !known) return failure(known.error());
  }
  const json& last = steps.back();
  if (last.at("step") == "frame") {
    const json format = last.value("format", json::array({"jpg"})).at(0);
    if (format != "jpg" && format != "png" && format != "heic") return noJob("there is no such format");
    job.ending = "." + format.get<std::string>();
  }
  object["out"] = "out";  // said later, by who knows the directory
  const auto plain = Job::parse(object.dump());
  if (!plain) return failure(plain.error());
  for (const auto& command : plain->commands) {
    if (!job.words.empty()) job.words.emplace_back("then");
    job.words.insert(job.words.end(), command.begin(), command.end());
  }
  return job;
}

}  // namespace

Result<PageJob, Failure> PageJob::parse(json object, const FindFile& find) {
  try {
    return checked(std::move(object), find);
  } catch (const json::exception&) {
    return noJob("it lacks something, or has it in another form");
  }
}

}  // namespace clipworks::app
