#pragma once

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// Has the codecs build the tables that all of their instances share, which they otherwise do when the first of a kind
/// is opened: for a process of which copies are made, so that not each of them does. Reads no file and leaves no
/// thread. Takes some milliseconds. Any thread.
CLIPWORKS_API void buildCodecTables();

}  // namespace clipworks
