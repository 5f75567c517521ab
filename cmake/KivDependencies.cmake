# Every third-party library comes from a Debian package installed by
# scripts/setup; nothing is vendored.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(CURL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(GIF REQUIRED)
find_package(PNG REQUIRED)
find_package(JPEG REQUIRED)
find_package(Fontconfig REQUIRED)
pkg_check_modules(SODIUM REQUIRED IMPORTED_TARGET libsodium)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(SIMDJSON REQUIRED IMPORTED_TARGET simdjson)
pkg_check_modules(WEBP REQUIRED IMPORTED_TARGET libwebp libwebpdemux)

# The C tests and the C host example lend the SDK a GLib main loop.
pkg_check_modules(GLIB QUIET IMPORTED_TARGET glib-2.0)

# Optional: the GTK 4 toolkit library and the windows of `kivfll demo --window`
# and `kivfll preview` (scripts/setup installs them).
# The sanitizer presets leave it out: GTK's own caches read as leaks and its
# threads as races, and nothing there is ours to fix.
option(KIV_WITH_GTK "Build the GTK toolkit when GTK 4 and libportal are installed" ON)
set(KIV_GTK_FOUND OFF)
if(KIV_WITH_GTK)
  pkg_check_modules(GTK4 QUIET IMPORTED_TARGET gtk4>=4.8)
  pkg_check_modules(LIBPORTAL QUIET IMPORTED_TARGET libportal libportal-gtk4)
  pkg_check_modules(GSTREAMER QUIET IMPORTED_TARGET gstreamer-1.0 gstreamer-app-1.0 gstreamer-video-1.0)
  if(GTK4_FOUND AND LIBPORTAL_FOUND AND GSTREAMER_FOUND)
    set(KIV_GTK_FOUND ON)
  else()
    message(STATUS "GTK 4, libportal or GStreamer not found: the GTK toolkit, demo --window and preview are left out")
  endif()
endif()

find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(kiv_asio INTERFACE)
target_include_directories(kiv_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(kiv_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)

if(KIV_BUILD_TESTS OR KIV_BUILD_APPS)
  pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
endif()
if(KIV_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(KIV_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
if(KIV_BUILD_APPS)
  find_package(CLI11 QUIET)
endif()
