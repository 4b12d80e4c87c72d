# Writes OUTPUT, a source with the bytes of all files of FOLDER: what app/serve/Page.h declares.
file(GLOB files ${FOLDER}/*)
set(arrays "")
set(entries "")
set(number 0)
foreach(file ${files})
  get_filename_component(name ${file} NAME)
  get_filename_component(ending ${file} LAST_EXT)
  if(ending STREQUAL ".html")
    set(type "text/html")
  elseif(ending STREQUAL ".css")
    set(type "text/css")
  elseif(ending STREQUAL ".js")
    set(type "text/javascript")
  elseif(ending STREQUAL ".svg")
    set(type "image/svg+xml")
  else()
    message(FATAL_ERROR "${name}: of what type is it?")
  endif()
  if(name STREQUAL "index.html")
    set(name "")
  endif()
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND arrays "constexpr char file${number}[] = {${bytes}};\n")
  string(APPEND entries
         "    if (name == \"${name}\") return PageFile{\"${type}; charset=utf-8\", {file${number}, sizeof file${number}}};\n")
  math(EXPR number "${number} + 1")
endforeach()
file(
  WRITE ${OUTPUT}
  "#include <app/serve/Page.h>

namespace clipworks::app {
namespace {

${arrays}
}  // namespace

std::optional<PageFile> pageFile(std::string_view name) {
${entries}    return std::nullopt;
}

}  // namespace clipworks::app
")
