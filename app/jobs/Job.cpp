#include <app/jobs/Job.h>

#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

namespace clipworks::app {
namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

// More would be a mistake: a film, or what a device never stops to give.
constexpr std::size_t mostBytes = 1 << 20;

auto noJob(const std::string& why) { return wrongUse("this is no job: " + why); }

/// The word of an option for one value; empty for none.
Result<std::string, Failure> word(const std::string& key, const json& value) {
  const std::string name = "--" + key;
  if (value.is_boolean()) return value.get<bool>() ? name : std::string();
  if (value.is_string()) return name + "=" + value.get<std::string>();
  constexpr double mostExact = 9e15;
  if (value.is_number_float() && std::trunc(value.get<double>()) == value.get<double>() &&
      std::abs(value.get<double>()) < mostExact)
    return name + "=" + std::to_string(value.get<std::int64_t>());
  if (value.is_number()) return name + "=" + value.dump();
  return noJob("\"" + key + "\" takes a text, a number, true, false, or a list of texts or numbers");
}

Result<void, Failure> addWords(Words& words, const std::string& key, const json& value) {
  if (key.empty() || key.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") != std::string::npos)
    return noJob("\"" + key + "\" is not known");
  for (const json& one : value.is_array() ? value : json::array({value})) {
    auto added = word(key, one);
    if (!added) return failure(added.error());
    if (!added->empty()) words.push_back(std::move(*added));
  }
  return {};
}

/// A path or a list of them, behind the options.
Result<void, Failure> addFiles(Words& words, const json& value) {
  const json files = value.is_array() ? value : json::array({value});
  if (files.empty()) return noJob("\"in\" names no file");
  words.emplace_back("--");
  for (const json& file : files) {
    if (!file.is_string() || file.get<std::string>().empty()) return noJob("\"in\" takes a path or a list of paths");
    words.push_back(file.get<std::string>());
  }
  return {};
}

Result<Words, Failure> wordsOf(const json& step, const json* files) {
  if (!step.is_object() || !step.contains("step") || !step["step"].is_string())
    return noJob("each of \"steps\" needs its command as \"step\"");
  Words words{step["step"].get<std::string>()};
  if (words.front().empty() || words.front().front() == '-') return noJob("a step is a command's name");
  for (const auto& [key, value] : step.items()) {
    if (key == "step" || key == "in") continue;
    if (auto added = addWords(words, key, value); !added) return failure(added.error());
  }
  if (files == nullptr && step.contains("in")) files = &step["in"];
  if (files != nullptr) {
    if (auto added = addFiles(words, *files); !added) return failure(added.error());
  }
  return words;
}

Result<Job, Failure> jobOf(json object) {
  if (!object.is_object()) return noJob("it is not a JSON object");
  Job job;
  if (object.contains("id")) job.id = object["id"].is_string() ? object["id"].get<std::string>() : object["id"].dump();
  object.erase("id");
  for (const char* key : {"in", "steps", "out"}) {
    if (!object.contains(key)) return noJob("it has no \"" + std::string(key) + "\"");
  }
  if (!object["out"].is_string() || object["out"].get<std::string>().empty()) return noJob("\"out\" takes a path");
  if (!object["steps"].is_array() || object["steps"].empty()) return noJob("\"steps\" takes a list of steps");
  job.output = object["out"].get<std::string>();
  job.text = object.dump(-1, ' ', false, json::error_handler_t::replace);
  Words options;
  for (const auto& [key, value] : object.items()) {
    if (key == "in" || key == "steps" || key == "out") continue;
    if (auto added = addWords(options, key, value); !added) return failure(added.error());
  }
  for (const auto& step : object["steps"]) {
    auto words = wordsOf(step, job.commands.empty() ? &object["in"] : nullptr);
    if (!words) return failure(words.error());
    if (job.commands.empty()) words->insert(words->begin(), options.begin(), options.end());
    job.commands.push_back(std::move(*words));
  }
  return job;
}

}  // namespace

Result<Job, Failure> Job::parse(std::string_view text) {
  try {
    return jobOf(json::parse(text));
  } catch (const json::exception& broken) {
    const std::string sentence = broken.what();
    return noJob(sentence.substr(std::min(sentence.size(), sentence.find(' ') + 1)));
  }
}

Result<Job, Failure> Job::read(const std::string& place) {
  if (place.starts_with('{')) return parse(place);
  std::ifstream file;
  if (place != "-") {
    file.open(place, std::ios::binary);
    if (!file) return failed(place + " cannot be read");
  }
  std::istream& stream = place == "-" ? std::cin : file;
  std::string text;
  for (std::istreambuf_iterator<char> next(stream); next != std::istreambuf_iterator<char>(); ++next) {
    text += *next;
    if (text.size() > mostBytes) return noJob("it has more than a mebibyte");
  }
  return parse(text);
}

}  // namespace clipworks::app
