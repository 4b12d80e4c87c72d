#include <app/jobs/JobSchema.h>

#include <algorithm>

#include <nlohmann/json.hpp>

namespace clipworks::app {
namespace {

using nlohmann::ordered_json;

/// "preset" of "--preset"; empty for options of one letter alone.
std::string keyOf(const OptionSyntax& option) {
  const auto found = std::find_if(option.names.begin(), option.names.end(),
                                  [](const std::string& name) { return name.starts_with("--"); });
  return found == option.names.end() ? "" : found->substr(2);
}

ordered_json valueOf(const OptionSyntax& option) {
  ordered_json one;
  if (option.value.empty()) {
    one["type"] = "boolean";
  } else if (!option.choices.empty()) {
    one["enum"] = option.choices;
  } else {
    one["type"] = {"string", "number"};
  }
  ordered_json value = one;
  if (option.isRepeated) value = {{"anyOf", {one, {{"type", "array"}, {"items", one}}}}};
  value["description"] = option.description;
  return value;
}

ordered_json files() {
  return {{"anyOf", {{{"type", "string"}}, {{"type", "array"}, {"items", {{"type", "string"}}}, {"minItems", 1}}}}};
}

void addOptions(ordered_json& schema, const std::vector<OptionSyntax>& options) {
  for (const auto& option : options) {
    const std::string key = keyOf(option);
    if (key.empty() || key == "help") continue;
    schema["properties"][key] = valueOf(option);
    if (option.isNeeded) schema["required"].push_back(key);
  }
}

ordered_json stepOf(const CommandSyntax& command) {
  ordered_json step{{"type", "object"}, {"description", command.purpose}, {"required", {"step"}}};
  step["properties"]["step"] = {{"const", command.name}};
  const bool takesFiles = std::any_of(command.arguments.begin(), command.arguments.end(),
                                      [](const OptionSyntax& argument) { return argument.isRepeated; });
  if (takesFiles) step["properties"]["in"] = files();
  addOptions(step, command.options);
  step["additionalProperties"] = false;
  return step;
}

}  // namespace

std::string jobSchema(const CommandSyntax& syntax) {
  ordered_json schema{{"$schema", "https://json-schema.org/draft/2020-12/schema"},
                      {"title", "A job of Clipworks " CLIPWORKS_VERSION},
                      {"type", "object"},
                      {"required", {"in", "steps", "out"}}};
  schema["properties"]["in"] = files();
  schema["properties"]["in"]["description"] = "The clip, or those that the first step takes";
  ordered_json steps = ordered_json::array();
  for (const auto& command : syntax.commands) steps.push_back(stepOf(command));
  schema["properties"]["steps"] = {{"type", "array"}, {"minItems", 1}, {"items", {{"oneOf", steps}}}};
  schema["properties"]["out"] = {{"type", "string"}, {"description", "The new file; its receipt lies beside it"}};
  schema["properties"]["id"] = {{"description", "The queue's own name for the job; no part of it"}};
  addOptions(schema, syntax.options);
  schema["additionalProperties"] = false;
  return schema.dump(1) + '\n';
}

}  // namespace clipworks::app
