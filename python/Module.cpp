// The extension clipworks._clipworks: the library's core for Python. The package clipworks is what to use.

#include <pybind11/functional.h>
#include <pybind11/operators.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include <clipworks/edit/Describe.h>
#include <clipworks/edit/MakeMovie.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/edit/TakePicture.h>
#include <clipworks/edit/TypedPlace.h>
#include <clipworks/foundation/VideoCompressorPreset.h>
#include <clipworks/media/asset/AVAsset.h>

namespace clipworks::python {
namespace {

namespace py = pybind11;

/// What the core reports as a failure, on its way to Python.
struct Failed : std::exception {
  explicit Failed(Error of) : error(std::move(of)) {}
  const char* what() const noexcept override { return error.sentence.c_str(); }
  Error error;
};

template <class T>
T valueOf(Result<T, Error> result) {
  if (!result) throw Failed(result.error());
  return std::move(*result);
}

/// The work that is under way: the interpreter must not end before it has.
class Running {
 public:
  static Running& shared() {
    static auto& instance = *new Running;  // never destroyed: threads may outlive the module
    return instance;
  }
  void begin(std::stop_source& stop) {
    const std::lock_guard lock(mutex_);
    if (hasEnded_) throw Failed({ErrorCode::cancelled, "the interpreter is ending"});
    stops_.insert(&stop);
  }
  void end(std::stop_source& stop) {
    const std::lock_guard lock(mutex_);
    stops_.erase(&stop);
    changed_.notify_all();
  }
  /// Stops everything and waits for it; without the interpreter's lock.
  void endAll() {
    std::unique_lock lock(mutex_);
    hasEnded_ = true;
    for (auto* stop : stops_) stop->request_stop();
    changed_.wait(lock, [this] { return stops_.empty(); });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool hasEnded_ = false;              // guarded by mutex_
  std::set<std::stop_source*> stops_;  // guarded by mutex_
};

/// Work on a thread of its own, without the interpreter's lock. The calling thread calls back with its progress, rising
/// and from 0 to 1, and lets Python look at its signals; what either raises stops the work and comes out.
class Work {
 public:
  explicit Work(py::object onProgress) : onProgress_(std::move(onProgress)) {}

  [[nodiscard]] std::stop_token token() const { return stop_.get_token(); }
  void tell(double share) {
    const std::lock_guard lock(mutex_);
    share_ = share;
  }

  /// `task` may throw nothing but `Failed`; `discard` takes its results back where it ended well in spite of a stop.
  void run(const std::function<void()>& task, const std::function<void()>& discard) {
    callBack(0);
    const Registered registered(stop_);
    std::thread thread([&] {
      std::exception_ptr thrown;
      try {
        task();
      } catch (...) {
        thrown = std::current_exception();
      }
      const std::lock_guard lock(mutex_);
      thrown_ = thrown;
      isOver_ = true;
      over_.notify_all();
    });
    {
      const py::gil_scoped_release released;
      while (!wait()) {
        const py::gil_scoped_acquire acquired;
        look();
      }
      thread.join();
    }
    if (raised_ && !thrown_) discard();
    if (raised_) std::rethrow_exception(raised_);
    if (thrown_) std::rethrow_exception(thrown_);
    callBack(1);
  }

 private:
  struct Registered {
    explicit Registered(std::stop_source& of) : stop(of) { Running::shared().begin(stop); }
    ~Registered() { Running::shared().end(stop); }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;
    std::stop_source& stop;
  };
  static constexpr std::chrono::milliseconds lookInterval{50};

  bool wait() {
    std::unique_lock lock(mutex_);
    return over_.wait_for(lock, lookInterval, [this] { return isOver_; });
  }

  void look() {
    if (raised_) return;
    double share = 0;
    {
      const std::lock_guard lock(mutex_);
      share = share_;
    }
    try {
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      if (share < 1) callBack(share);
    } catch (const py::error_already_set&) {
      raised_ = std::current_exception();
      stop_.request_stop();
    }
  }

  void callBack(double share) {
    if (onProgress_.is_none() || share <= told_) return;
    told_ = share;
    onProgress_(share);
  }

  const py::object onProgress_;
  double told_ = -1;
  std::exception_ptr raised_;
  std::stop_source stop_;
  std::mutex mutex_;
  std::condition_variable over_;
  double share_ = 0;           // guarded by mutex_
  bool isOver_ = false;        // guarded by mutex_
  std::exception_ptr thrown_;  // guarded by mutex_
};

/// Names of files need not be UTF-8; what is not becomes a replacement character.
py::str decoded(const std::string& text) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "replace"));
}

void remove(const std::vector<std::filesystem::path>& files) {
  std::error_code ignored;
  for (const auto& file : files) std::filesystem::remove(file, ignored);
}

/// Paths of new files, and warnings.
struct Made {
  std::vector<std::filesystem::path> paths;
  std::vector<DamagedMedia> damaged;

  [[nodiscard]] py::tuple forPython() const {
    py::list warnings;
    for (const auto& media : damaged) warnings.append(decoded(media.sentence() + "; what could be decoded is shown"));
    return py::make_tuple(paths, warnings);
  }
};

py::tuple makeMovieOf(const Edit& edit, const std::filesystem::path& path, ExistingFile existing, CodecChoice codec,
                      bool keepsMetadata, bool isClean, std::optional<bool> verifies, bool isStrict, int threads,
                      py::object onProgress) {
  Work work(std::move(onProgress));
  MovieOptions options;
  if (verifies) options.verification = *verifies ? Verification::always : Verification::never;
  options.plan = {codec, keepsMetadata, !isClean};
  options.existing = existing;
  options.isStrict = isStrict;
  options.threads = threads;
  options.stop = work.token();
  options.onProgress = [&work](const Progress& progress) { work.tell(progress.share); };
  Made made;
  work.run(
      [&] {
        auto report = valueOf(makeMovie(edit, path, options));
        made = {{std::move(report.path)}, std::move(report.damaged)};
      },
      [&] {
        if (existing != ExistingFile::replaced) remove(made.paths);
      });
  return made.forPython();
}

/// A time as it was given: seconds, or the number of a picture.
CMTime timeOf(const Edit& edit, const std::variant<double, std::string>& at) {
  if (const auto* seconds = std::get_if<double>(&at)) return exactSeconds(*seconds);
  const auto& text = std::get<std::string>(at);
  const auto place = typedPlace(text);
  if (!place) throw Failed({ErrorCode::badArgument, "at takes seconds, HH:MM:SS.mmm or #N, not \"" + text + "\""});
  return valueOf(timeOfPlace(edit, *place));
}

py::tuple takePicturesOf(
    const Edit& edit, const std::vector<std::pair<std::variant<double, std::string>, std::filesystem::path>>& pictures,
    StillFormat format, ExistingFile existing, bool keepsMetadata, bool isStrict, int threads, py::object onProgress) {
  Work work(std::move(onProgress));
  PictureOptions options;
  options.format = format;
  options.existing = existing;
  options.keepsMetadata = keepsMetadata;
  options.isStrict = isStrict;
  options.threads = threads;
  options.stop = work.token();
  options.onProgress = [&work](double share) { work.tell(share); };
  Made made;
  work.run(
      [&] {
        std::vector<WantedPicture> wanted;
        for (const auto& [at, path] : pictures) wanted.push_back({timeOf(edit, at), path});
        auto report = valueOf(takePictures(edit, wanted, options));
        made = {std::move(report.paths), std::move(report.damaged)};
      },
      [&] {
        if (existing != ExistingFile::replaced) remove(made.paths);
      });
  return made.forPython();
}

std::string describeReadable(const std::filesystem::path& file, const InputLimits& limits) {
  // Says the same, with its code.
  if (!AVAsset::make(URL(file), limits)->loadError().empty())
    (void)valueOf(Edit::open(file, Edit::Extent::movie, limits));
  return describe(file, limits);
}

py::dict presets() {
  py::dict all;
  const auto add = [&all](const char* name, const VideoCompressorPreset& preset) {
    all[name] = py::make_tuple(preset.height(), preset.bitRate());
  };
  add("144p", Quality144p());
  add("360p", Quality360p());
  add("480p", Quality480p());
  add("540p", Quality540p());
  add("720p", QualityHD());
  add("1080p", QualityFullHD());
  return all;
}

CMTimeRange rangeOf(double start, double end) { return CMTimeRange::fromTo(exactSeconds(start), exactSeconds(end)); }

}  // namespace
}  // namespace clipworks::python

PYBIND11_MODULE(_clipworks, module) {
  namespace py = pybind11;
  using namespace clipworks;
  using python::Failed;
  using python::valueOf;
  // Opening and planning read files: without the interpreter's lock.
  using Unlocked = py::call_guard<py::gil_scoped_release>;

  module.doc() = "The core of clipworks; the package clipworks is what to use.";
  module.attr("version") = CLIPWORKS_VERSION;
  module.attr("presets") = python::presets();  // height in pixels and kilobits a second, by name

  static py::handle failed = py::exception<Failed>(module, "Failed").release();
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Failed& why) {
      PyErr_SetObject(failed.ptr(),
                      py::make_tuple(std::string(name(why.error.code)), python::decoded(why.error.sentence)).ptr());
    }
  });

  py::enum_<ExistingFile>(module, "ExistingFile")
      .value("refused", ExistingFile::refused)
      .value("replaced", ExistingFile::replaced)
      .value("numbered", ExistingFile::numbered);
  py::enum_<CodecChoice>(module, "Codec")
      .value("auto", CodecChoice::automatic)
      .value("h264", CodecChoice::h264)
      .value("hevc", CodecChoice::hevc);
  py::enum_<StillFormat>(module, "StillFormat")
      .value("jpg", StillFormat::jpg)
      .value("png", StillFormat::png)
      .value("heic", StillFormat::heic);
  py::enum_<Turn>(module, "Turn").value("right", Turn::right).value("half", Turn::half).value("left", Turn::left);

  py::class_<InputLimits>(module, "InputLimits")
      .def(py::init([](std::optional<std::int64_t> mostPixels, std::optional<double> mostSeconds, bool takesAnyCodec) {
        const InputLimits usual;
        return InputLimits{mostPixels.value_or(usual.mostPixels), mostSeconds.value_or(usual.mostSeconds),
                           takesAnyCodec};
      }));
  py::class_<Edit>(module, "Edit")
      .def_static(
          "open",
          [](const std::filesystem::path& file, bool wholeTracks, const InputLimits& limits) {
            return valueOf(Edit::open(file, wholeTracks ? Edit::Extent::tracks : Edit::Extent::movie, limits));
          },
          Unlocked())
      .def_static(
          "from_json", [](const std::string& text) { return valueOf(Edit::fromJson(text)); }, Unlocked())
      .def("json", &Edit::json, Unlocked())
      .def(py::self == py::self)
      .def_property_readonly("duration", [](const Edit& edit) { return edit.duration().seconds(); })
      .def_property_readonly("size", [](const Edit& edit) { return std::pair(edit.size().width, edit.size().height); })
      .def_property_readonly("name", [](const Edit& edit) { return python::decoded(edit.name()); })
      .def_property_readonly("has_pictures", &Edit::hasPictures)
      .def_property_readonly("has_sound", &Edit::hasSound)
      .def(
          "loop", [](const Edit& edit, std::int64_t count) { return valueOf(looped(edit, count)); }, Unlocked())
      .def(
          "speed",
          [](const Edit& edit, double start, double end, double ratio) {
            return valueOf(retimed(edit, python::rangeOf(start, end), ratio));
          },
          Unlocked())
      .def(
          "reverse", [](const Edit& edit) { return valueOf(reversed(edit)); }, Unlocked())
      .def(
          "turn", [](const Edit& edit, Turn by) { return valueOf(turned(edit, by)); }, Unlocked())
      .def(
          "turn_by_header", [](const Edit& edit, Turn by) { return valueOf(turnedByHeader(edit, by)); }, Unlocked())
      .def(
          "crop",
          [](const Edit& edit, const std::array<double, 4>& rect) {
            return valueOf(cropped(edit, CGRect(rect[0], rect[1], rect[2], rect[3])));
          },
          Unlocked())
      .def(
          "narrate",
          [](const Edit& edit, const std::vector<std::tuple<std::filesystem::path, double, double>>& pieces,
             double baseVolume) {
            std::vector<NarratedPiece> narrated;
            for (const auto& [file, at, volume] : pieces) narrated.push_back({file, exactSeconds(at), volume});
            return valueOf(clipworks::narrated(edit, narrated, baseVolume));
          },
          Unlocked())
      .def(
          "compress",
          [](const Edit& edit, int height, std::int64_t kilobits) {
            return valueOf(compressed(edit, height, kilobits * 1000));
          },
          Unlocked())
      .def(
          "compress_to",
          [](const Edit& edit, std::int64_t bytes, int height) { return valueOf(compressedTo(edit, bytes, height)); },
          Unlocked())
      .def(
          "keep",
          [](const Edit& edit, const std::vector<std::pair<double, double>>& parts) {
            std::vector<CMTimeRange> ranges;
            for (const auto& [start, end] : parts) ranges.push_back(python::rangeOf(start, end));
            return valueOf(trimmed(edit, ranges));
          },
          Unlocked())
      .def(
          "join",
          [](const Edit& edit, std::vector<Edit> others, const std::optional<std::pair<double, double>>& size,
             bool fills) {
            others.insert(others.begin(), edit);
            JoinLook look{std::nullopt, fills};
            if (size) look.size = CGSize(size->first, size->second);
            return valueOf(joined(others, look));
          },
          Unlocked())
      .def("pictures_only", [](const Edit& edit) { return valueOf(picturesOnly(edit)); })
      .def("sound_only", [](const Edit& edit) { return valueOf(soundOnly(edit)); })
      .def("small", &madeSmall)
      .def("keeping_coded_pictures", &keepingCodedPictures)
      .def(
          "picture_times",
          [](const Edit& edit) {
            std::vector<double> times;
            for (const auto& time : valueOf(pictureTimes(edit))) times.push_back(time.seconds());
            return times;
          },
          Unlocked())
      .def(
          "plan",
          [](const Edit& edit, CodecChoice codec, bool isClean) {
            return valueOf(plan(edit, {codec, true, !isClean})).json();
          },
          Unlocked());

  module.def("make_movie", &python::makeMovieOf);
  module.def("take_pictures", &python::takePicturesOf);
  py::module_::import("atexit").attr("register")(
      py::cpp_function([] { python::Running::shared().endAll(); }, Unlocked()));
  module.def("describe", &python::describeReadable, Unlocked());
}
