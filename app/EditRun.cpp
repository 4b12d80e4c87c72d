#include <app/EditRun.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <app/Limits.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/edit/Plan.h>
#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;

// So that a clip without a length counts for something.
constexpr double leastSeconds = 0.1;

Outcome checkDirectory(const fs::path& directory, const std::string& role) {
  std::error_code unknown;
  const std::string which = "the " + role + " directory " + directory.string();
  if (!fs::exists(directory, unknown)) return failed(which + " does not exist");
  if (!fs::is_directory(directory, unknown)) return failed(which + " is not a directory");
  return {};
}

/// One movie of the run.
struct Item {
  fs::path file;
  Result<Edit, Failure> edit;
  std::vector<fs::path> made{};

  [[nodiscard]] std::string name() const { return file.filename().string(); }
  [[nodiscard]] double seconds() const { return edit ? std::max(edit->duration().seconds(), leastSeconds) : 0; }
};

class EditRun {
 public:
  EditRun(const std::vector<StepCommand*>& steps, const Program& program)
      : steps_(steps),
        program_(program),
        options_(program.options),
        reporter_(program.reporter),
        interruption_(program.interruption),
        receipt_(program.receipt),
        files_(receipt_ != nullptr ? receipt_->watched(program.files) : program.files) {}

  Outcome run() {
    for (auto* step : steps_) {
      if (const Outcome checked = step->check(); !checked) return checked;
    }
    if (receipt_ != nullptr) {
      const auto outputs = receipt_->doneBefore(interruption_.token());
      if (!outputs.empty()) return tellDone(outputs);
    }
    for (const auto& file : steps_.front()->files()) items_.push_back({file, edited(file)});
    if (options_.output && items_.size() > 1) return wrongUse("--output names one file, and there are several clips");
    if (items_.size() == 1 && !items_.front().edit) return failure(items_.front().edit.error());
    if (options_.planOnly) return tellPlans();
    if (const Outcome checked = checkPlaces(); !checked) return checked;
    return makeAll();
  }

 private:
  Result<Edit, Failure> edited(const fs::path& file) const {
    auto edit = steps_.front()->open(file, options_.inputs);
    for (const auto* step : steps_) {
      if (!edit) break;
      edit = step->apply(*edit);
    }
    if (edit) return *edit;
    return failure(failureOf(edit.error(), options_.limits));
  }

  [[nodiscard]] PlanOptions planOptions() const {
    return {options_.codec, !options_.stripMetadata, !options_.clean, options_.draft, options_.threads};
  }

  Outcome tellDone(const std::vector<fs::path>& outputs) {
    for (const auto& path : outputs) reporter_.output(path);
    reporter_.receipt(receipt_->path(), true);
    reporter_.note(outputs.front().filename().string() + " was made before");
    reporter_.done();
    return {};
  }

  Outcome tellPlans() {
    reporter_.keepEventsOff();
    std::vector<std::string> objects;
    for (const auto& item : items_) {
      if (!item.edit) return failure(item.edit.error());
      const auto pictures = steps_.back()->pictures(*item.edit);
      if (!pictures) return failure(failureOf(pictures.error(), options_.limits));
      const auto planned = plan(*item.edit, planOptions());
      if (!planned) return failure(failureOf(planned.error(), options_.limits));
      if (*pictures) {
        const auto& wanted = **pictures;
        const auto count = wanted.columns > 0
                               ? static_cast<std::size_t>(wanted.columns) * static_cast<std::size_t>(wanted.rows)
                               : wanted.times.size();
        const std::int64_t memory = planned->memoryForPictures(count);
        objects.push_back(nlohmann::ordered_json{{"stills", count}, {"memory", memory}}.dump());
        if (!options_.json)
          reporter_.text(
              fmt::format("{} pictures, at most {} of memory\n", count, shownSize(static_cast<double>(memory))));
      } else if (options_.json) {
        objects.push_back(planned->json());
      } else {
        reporter_.text(planned->text());
      }
    }
    if (options_.json) reporter_.text(fmt::format("{{\"plans\":[{}]}}\n", fmt::join(objects, ",")));
    return {};
  }

  Outcome checkPlaces() const {
    if (const Outcome found = checkDirectory(options_.outputs, "outputs"); !found) return found;
    if (options_.temp) {
      if (const Outcome found = checkDirectory(*options_.temp, "temp"); !found) return found;
    }
    std::error_code unknown;
    if (!options_.output || options_.replacesFile || !fs::exists(*options_.output, unknown)) return {};
    if (receipt_ != nullptr && receipt_->mayComeSoon())
      return failure(Failure{ExitCode::tryAgain, options_.output->string() + " was made by another run just now",
                             ErrorCode::busy});
    return wrongUse(options_.output->string() + " is there already; --force replaces it");
  }

  /// Where the movie of `item` goes.
  [[nodiscard]] fs::path placeOf(const Item& item) const {
    if (options_.output) return *options_.output;
    std::string ending = ".mp4";
    std::optional<std::string> name;
    for (const auto* step : steps_) {
      if (!step->extension().empty()) ending = step->extension();
      if (const auto given = step->givenName()) name = given;
    }
    const std::string done = steps_.size() > 1 ? "edited" : steps_.front()->participle();
    return (options_.outputs / (name.value_or(item.file.stem().string() + "-" + done) + ending)).lexically_normal();
  }

  [[nodiscard]] ExistingFile existing() const {
    if (options_.output) return options_.replacesFile ? ExistingFile::replaced : ExistingFile::refused;
    const bool isNamed =
        std::any_of(steps_.begin(), steps_.end(), [](const auto* step) { return step->givenName().has_value(); });
    return isNamed ? ExistingFile::replaced : ExistingFile::numbered;
  }

  Outcome makeAll() {
    double whole = 0;
    for (const auto& item : items_) whole += item.seconds();
    double done = 0;
    interruption_.defer();
    for (auto& item : items_) {
      if (!item.edit) {
        fail(item, item.edit.error());
        continue;
      }
      const double from = done / whole;
      done += item.seconds();
      const Outcome made = make(item, from, done / whole);
      if (made) continue;
      if (items_.size() == 1 || made.error().code == ExitCode::interrupted) {
        // An interrupted run leaves nothing.
        for (const auto& other : items_) {
          for (const auto& path : other.made) files_->remove(path);
        }
        return made;
      }
      fail(item, made.error());
    }
    for (const auto& item : items_) {
      for (const auto& path : item.made) reporter_.output(path);
    }
    if (!failedNames_.empty()) {
      return failure(Failure{worst_,
                             fmt::format("{} of {} files could not be {}: {}", failedNames_.size(), items_.size(),
                                         steps_.front()->participle(), fmt::join(failedNames_, ", ")),
                             {}});
    }
    if (receipt_ != nullptr) {
      if (const Outcome left = receipt_->leave(*program_.files, facts_); !left) return left;
      reporter_.receipt(receipt_->path(), false);
    }
    reporter_.done();
    return {};
  }

  Outcome make(Item& item, double from, double to) {
    const auto pictures = steps_.back()->pictures(*item.edit);
    if (!pictures) return failure(failureOf(pictures.error(), options_.limits));
    return *pictures ? take(item, **pictures) : makeOne(item, from, to);
  }

  Outcome makeOne(Item& item, double from, double to) {
    MovieOptions options;
    options.plan = planOptions();
    options.verification = options_.verification;
    options.existing = existing();
    options.isStrict = options_.strict;
    options.threads = options_.threads;
    options.files = files_;
    options.mostBytes = options_.limits.file.value_or(0);
    options.stop = interruption_.token();
    options.onProgress = [&](const Progress& progress) { reporter_.progress(from + progress.share * (to - from)); };
    const auto made = makeMovie(*item.edit, placeOf(item), options);
    if (!made) return failure(failureOfFile(made.error()));
    item.made = {made->path};
    facts_ = factsOf(*made);
    for (const auto& remark : made->remarks) reporter_.note(remark);
    for (const auto& track : made->tracks) {
      if (!track.remark.empty()) reporter_.log(track.remark);
    }
    for (const auto& media : made->damaged) reporter_.damaged(media);
    if (steps_.back()->tellsSizes()) tellSizes(item, made->bytes);
    return {};
  }

  Outcome take(Item& item, const StepCommand::Pictures& wanted) {
    PictureOptions options;
    options.format = wanted.format;
    options.keepsMetadata = !options_.stripMetadata;
    options.existing = existing();
    options.isStrict = options_.strict;
    options.threads = options_.threads;
    options.files = files_;
    options.stop = interruption_.token();
    options.onProgress = [this](double share) { reporter_.progress(share); };
    reporter_.progress(0);
    const fs::path place = placeOf(item);
    if (wanted.columns > 0) return deliver(item, takeSheet(*item.edit, wanted.columns, wanted.rows, place, options));
    std::vector<WantedPicture> pictures;
    const auto digits = std::to_string(wanted.times.size()).size();
    for (std::size_t i = 0; i < wanted.times.size(); ++i) {
      fs::path path = place;
      if (wanted.times.size() > 1) {
        path.replace_filename(
            fmt::format("{}-{:0{}}{}", place.stem().string(), i + 1, digits, place.extension().string()));
      }
      pictures.push_back({wanted.times[i], path});
    }
    return deliver(item, takePictures(*item.edit, pictures, options));
  }

  Outcome deliver(Item& item, Result<PictureReport, Error> taken) {
    if (!taken) return failure(failureOfFile(taken.error()));
    item.made = std::move(taken->paths);
    for (const auto& media : taken->damaged) reporter_.damaged(media);
    return {};
  }

  [[nodiscard]] Failure failureOfFile(const Error& error) const {
    std::error_code unknown;
    const bool isName = error.code == ErrorCode::badArgument || error.code == ErrorCode::notWritable;
    if (isName && receipt_ != nullptr && receipt_->wasFree() && fs::exists(*options_.output, unknown))
      return {ExitCode::tryAgain, options_.output->string() + " was made by another run meanwhile", ErrorCode::busy};
    return failureOf(error, options_.limits);
  }

  void tellSizes(const Item& item, std::int64_t bytes) const {
    std::error_code error;
    const auto before = fs::file_size(item.file, error);
    reporter_.note(fmt::format("{}: {}, now {}: {}", item.name(),
                               error ? "an unknown size" : shownSize(static_cast<double>(before)),
                               shownSize(static_cast<double>(bytes)), item.made.front().filename().string()));
  }

  void fail(const Item& item, const Failure& why) {
    if (failedNames_.empty()) worst_ = why.code == ExitCode::wrongUse ? ExitCode::failed : why.code;
    if (worst_ != why.code) worst_ = ExitCode::failed;
    failedNames_.push_back(item.name());
    reporter_.inputFailed(item.file, why.sentence);
  }

  const std::vector<StepCommand*>& steps_;
  const Program& program_;
  const Options& options_;
  Reporter& reporter_;
  Interruption& interruption_;
  Receipt* const receipt_;
  const std::shared_ptr<engine::NewFiles> files_;
  nlohmann::ordered_json facts_ = nlohmann::ordered_json::object();  // of the receipt
  std::vector<Item> items_;
  std::vector<std::string> failedNames_;
  ExitCode worst_ = ExitCode::failed;  // of these: theirs, where they agree
};

}  // namespace

Outcome runEdit(const std::vector<StepCommand*>& steps, const Program& program) {
  return EditRun(steps, program).run();
}

}  // namespace clipworks::app
