#include <clipworks/engine/pictures/FilterLibrary.h>

#include <dlfcn.h>

namespace clipworks::engine {
namespace {

// The version that the headers are of.
constexpr const char* fileName = "libavfilter.so." AV_STRINGIFY(LIBAVFILTER_VERSION_MAJOR);

template <typename Function>
bool find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  return function != nullptr;
}

FilterLibrary loaded() {
  FilterLibrary functions;
  void* const library = ::dlopen(fileName, RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) return functions;
  const bool isWhole = find(library, "avfilter_get_by_name", functions.filterByName) &&
                       find(library, "avfilter_graph_alloc", functions.allocateGraph) &&
                       find(library, "avfilter_graph_free", functions.freeGraph) &&
                       find(library, "avfilter_graph_create_filter", functions.createFilter) &&
                       find(library, "avfilter_link", functions.link) &&
                       find(library, "avfilter_graph_config", functions.configureGraph) &&
                       find(library, "av_buffersrc_add_frame", functions.addFrame) &&
                       find(library, "av_buffersink_get_frame", functions.getFrame);
  return isWhole ? functions : FilterLibrary{};
}

}  // namespace

Expected<const FilterLibrary*> FilterLibrary::load() {
  static const FilterLibrary functions = loaded();
  if (functions.getFrame != nullptr) return &functions;
  return failed(ErrorKind::unsupported, std::string("interlaced pictures cannot be made whole without ") + fileName);
}

}  // namespace clipworks::engine
