# Every dependency is a Debian package installed by `./zm deps`.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(CURL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)

# cpp-httplib: Debian ships the header with a prebuilt shared library.
find_path(HTTPLIB_INCLUDE_DIR httplib.h REQUIRED)
find_library(HTTPLIB_LIBRARY cpp-httplib REQUIRED)
add_library(zm_httplib INTERFACE)
target_include_directories(zm_httplib SYSTEM INTERFACE ${HTTPLIB_INCLUDE_DIR})
target_link_libraries(zm_httplib INTERFACE ${HTTPLIB_LIBRARY} Threads::Threads)
target_compile_definitions(zm_httplib INTERFACE CPPHTTPLIB_USE_POLL)

if(ZM_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZM_BENCH AND NOT ZM_SANITIZE)
  find_package(benchmark REQUIRED)
endif()
