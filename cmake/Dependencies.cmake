# Every dependency is a Debian package installed by `./zm deps`.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(CURL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-2.0)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(GST REQUIRED IMPORTED_TARGET gstreamer-1.0)
pkg_check_modules(GSTVIDEO REQUIRED IMPORTED_TARGET gstreamer-video-1.0)
pkg_check_modules(X11 REQUIRED IMPORTED_TARGET x11)
pkg_check_modules(LIBAV REQUIRED IMPORTED_TARGET libavcodec libavutil)

# cpp-httplib: Debian ships the header with a prebuilt shared library. The library is built
# with TLS, zlib and brotli support, which changes the layout of its classes: every user must
# see the same definitions, so they come from its pkg-config flags.
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)
add_library(zm_httplib INTERFACE)
target_link_libraries(zm_httplib INTERFACE PkgConfig::HTTPLIB Threads::Threads)

if(ZM_TESTS)
  find_package(GTest REQUIRED)
endif()
# PCRE2 is the reference engine the tag-pattern tests and fuzzers compare the parser with.
if(ZM_TESTS OR ZM_FUZZ)
  pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
endif()
if(ZM_BENCH AND NOT ZM_SANITIZE)
  find_package(benchmark REQUIRED)
endif()
