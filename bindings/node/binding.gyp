# SPDX-License-Identifier: MIT
# The one build definition of the addon, for npm install (node-gyp) and for
# the tree's CMake build alike. The library is found with pkg-config: the
# installed libtidewell-dev, or the build tree's own tidewell.pc, which the
# CMake build puts first on PKG_CONFIG_PATH. The run path names the
# library's folder, so the addon loads without LD_LIBRARY_PATH wherever the
# library is.
{
  "targets": [
    {
      "target_name": "tidewell",
      "sources": ["src/addon.cc"],
      "include_dirs": ["<!(node -p \"require('node-addon-api').include_dir\")"],
      "cflags_cc": ["-std=c++20", "-fexceptions", "-Wall", "-Wextra", "<!@(pkg-config --cflags tidewell)"],
      "cflags_cc!": ["-fno-exceptions", "-fno-rtti", "-std=gnu++17", "-std=gnu++1y"],
      "cflags!": ["-fno-exceptions"],
      # SWALLOW_UNTHROWABLE: an error raised while a worker thread is being
      # terminated cannot be thrown into JavaScript; without it the second
      # throw would end the whole process.
      "defines": ["NAPI_VERSION=8", "NAPI_CPP_EXCEPTIONS", "NODE_ADDON_API_DISABLE_DEPRECATED",
                  "NODE_API_SWALLOW_UNTHROWABLE_EXCEPTIONS"],
      "libraries": [
        "<!@(pkg-config --libs tidewell)",
        "-Wl,-rpath,<!(pkg-config --variable=libdir tidewell)"
      ]
    }
  ]
}
