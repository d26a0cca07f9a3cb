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
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
    set(scope PUBLIC)
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# zm_folder_tests(folder [SERIAL] DEPS ...): one GoogleTest executable of every .cpp in
# tests/<folder>. SERIAL tests run alone: they play media in real time.
function(zm_folder_tests folder)
  cmake_parse_arguments(ARG "SERIAL" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${folder}/*.cpp)
  if(NOT sources)
    return()
  endif()
  set(name ${folder}_tests)
  add_executable(${name} ${sources})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} zm_test_support GTest::gmock)
  set(serial OFF)
  if(ARG_SERIAL)
    set(serial ON)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES LABELS ${folder} TIMEOUT 300 RUN_SERIAL ${serial})
endfunction()
