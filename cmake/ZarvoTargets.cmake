# One static library per source folder, so that a folder builds and tests on its own.
# zm_folder_library(NAME folder DEPS ...): sources are every .cpp in src/zarvo/<folder>.
function(zm_folder_library name folder)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/zarvo/${folder}/*.cpp)
  if(sources)
    add_library(${name} STATIC ${sources})
    # Compiled hidden: the shared library exports only what is marked ZARVO_EXPORT.
    set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
    zm_unity(${name})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
    set(scope PUBLIC)
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# zm_unity(target): with ZM_UNITY, the target's sources compile in batches of a dozen, so the
# standard and GLib headers that every source includes are parsed once per batch.
function(zm_unity target)
  if(ZM_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 12)
  endif()
endfunction()

# zm_test_code(target): test code compiles without optimisation and with line tables only: the
# code under test is the libraries', built as the SDK ships, and most of a test's compile time
# was the optimiser's work on assertions and fixtures. Under UBSan, test code also leaves out the
# null and alignment checks on every access through a pointer, a third of its compile time: the
# libraries keep them, and AddressSanitizer still stops a test that dereferences null.
function(zm_test_code target)
  target_compile_options(${target} PRIVATE -O0 -g1)
  if(ZM_SANITIZE MATCHES "undefined")
    target_compile_options(${target} PRIVATE -fno-sanitize=alignment,null)
  endif()
endfunction()

# zm_test_precompiled_headers(target): the test executables share one precompiled header of
# GoogleTest and the standard headers that nearly every test includes; the first one makes it.
function(zm_test_precompiled_headers target)
  get_property(first GLOBAL PROPERTY ZM_TEST_PCH_TARGET)
  if(first)
    target_precompile_headers(${target} REUSE_FROM ${first})
  else()
    set_property(GLOBAL PROPERTY ZM_TEST_PCH_TARGET ${target})
    target_precompile_headers(${target} PRIVATE
      <gtest/gtest.h> <gmock/gmock.h> <algorithm> <atomic> <chrono> <condition_variable>
      <cstdint> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <set>
      <string> <string_view> <thread> <unordered_map> <variant> <vector>)
  endif()
endfunction()

# zm_folder_tests(folder DEPS ...): one GoogleTest executable of every .cpp in tests/<folder>,
# compiled in batches like the libraries. Each test runs as a process of its own, beside others:
# those that play media in real time spend most of their time waiting on it. COST is about how
# many seconds a test of the folder takes; ctest starts the costliest first, so that the short
# ones fill the processors at the end instead of one long test running there alone (without
# it, a fresh build tree has no measured costs and starts tests in folder order).
function(zm_folder_tests folder)
  cmake_parse_arguments(ARG "" "COST" "DEPS" ${ARGN})
  if(NOT ARG_COST)
    set(ARG_COST 0)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${folder}/*.cpp)
  if(NOT sources)
    return()
  endif()
  set(name ${folder}_tests)
  add_executable(${name} ${sources})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} zm_test_support GTest::gmock)
  zm_test_code(${name})
  zm_test_precompiled_headers(${name})
  zm_unity(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES LABELS ${folder} TIMEOUT 300 COST ${ARG_COST})
endfunction()
