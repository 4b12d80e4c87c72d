#include <app/Licenses.h>

namespace clipworks::app {

std::string licenses() {
  return R"(Clipworks' own code is under the MIT License.
Copyright (c) 2026 The Clipworks authors

A build against Debian's FFmpeg uses its GPL parts and the encoders x264 and
x265, and Rubber Band is under the GPL, so the program and the library built that way are distributed under the
GNU General Public License, version 2 or later.

Libraries that the program runs on:
  FFmpeg               LGPL 2.1 or later; as Debian builds it, GPL 2 or later
  x264, x265           GPL 2 or later (through FFmpeg)
  Rubber Band          GPL 2 or later
  PulseAudio's client  LGPL 2.1 or later
  ALSA's library       LGPL 2.1 or later
  zimg                 WTFPL 2
  libyuv               BSD 3-Clause
  libjpeg-turbo        IJG, BSD 3-Clause and zlib
  libpng               PNG Reference Library License, version 2
  libheif              LGPL 3 or later
  libexif              LGPL 2.1 or later
  Little CMS           MIT
  {fmt}                MIT, with an exception for object code
  libseccomp           LGPL 2.1
  cpp-httplib          MIT
  OpenSSL              Apache 2.0 (through cpp-httplib)
  Brotli               MIT (through cpp-httplib)
  xxHash               BSD 2-Clause
  Nettle               LGPL 3 or later, or GPL 2 or later
Header libraries that are compiled into it:
  CLI11                BSD 3-Clause
  JSON for Modern C++  MIT
  tl::expected         CC0 1.0
Their full texts are in /usr/share/doc/PACKAGE/copyright on Debian.)";
}

}  // namespace clipworks::app
