# The SDK as an application installs and links it: one shared library, whose SONAME carries the
# major version, and a static variant, both made of the folder libraries' objects; the public
# headers, a pkg-config file and a CMake package; the tools. Only the public types are exported
# from the shared library (ZARVO_EXPORT); GStreamer, GLib, curl and SQLite stay private to it.
include(CMakePackageConfigHelpers)

set(zm_sdk_parts zarvo_platform zarvo_media_model zarvo_media_loopback zarvo_media_gst
    zarvo_media_download zarvo_hls zarvo_player zarvo_source zarvo_fairplay zarvo_tracking
    zarvo_offline)
set(zm_sdk_objects)
foreach(part IN LISTS zm_sdk_parts)
  list(APPEND zm_sdk_objects $<TARGET_OBJECTS:${part}>)
endforeach()
set(zm_sdk_dependencies CURL::libcurl SQLite::SQLite3 PkgConfig::GLIB PkgConfig::GIO
    PkgConfig::UUID PkgConfig::X11 PkgConfig::GST PkgConfig::GSTVIDEO PkgConfig::LIBAV
    Threads::Threads)
# What a static link needs besides the archive, as the pkg-config file says it.
set(zm_static_libs "-lgstvideo-1.0 -lgstbase-1.0 -lgstreamer-1.0 -lavcodec -lavutil -lgio-2.0 -lgobject-2.0 -lglib-2.0 -lcurl -lsqlite3 -luuid -lX11 -lpthread")

add_library(zarvomediaplayer SHARED ${zm_sdk_objects})
target_link_libraries(zarvomediaplayer PRIVATE ${zm_sdk_dependencies})
target_link_options(zarvomediaplayer PRIVATE -Wl,--no-undefined)
set_target_properties(zarvomediaplayer PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME ZarvoMediaPlayer)

add_library(zarvomediaplayer_static STATIC ${zm_sdk_objects})
target_link_libraries(zarvomediaplayer_static INTERFACE ${zm_sdk_dependencies})
set_target_properties(zarvomediaplayer_static PROPERTIES
  OUTPUT_NAME zarvomediaplayer EXPORT_NAME ZarvoMediaPlayerStatic)

foreach(target zarvomediaplayer zarvomediaplayer_static)
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${target} INTERFACE cxx_std_20)
endforeach()

# The public headers: the API types of the SDK's folders and every header they include, found
# by following their #include lines (an installed header compiles on its own; a test checks it).
function(zm_public_headers out)
  set(pending)
  foreach(folder player source offline tracking fairplay)
    file(GLOB roots RELATIVE ${PROJECT_SOURCE_DIR}/src
         ${PROJECT_SOURCE_DIR}/src/zarvo/${folder}/ZM*.h ${PROJECT_SOURCE_DIR}/src/zarvo/${folder}/FP*.h)
    list(APPEND pending ${roots})
  endforeach()
  # With them, what a host sets before it starts: its home folder and its identity.
  list(APPEND pending zarvo/fairplay/FairPlayAssetLoaderDelegate.h zarvo/platform/AppDirectories.h
       zarvo/platform/Bundle.h)
  set(found)
  while(pending)
    list(POP_FRONT pending header)
    if(header IN_LIST found OR NOT EXISTS ${PROJECT_SOURCE_DIR}/src/${header})
      continue()
    endif()
    list(APPEND found ${header})
    file(STRINGS ${PROJECT_SOURCE_DIR}/src/${header} lines REGEX "^#include \"zarvo/")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
      list(APPEND pending ${included})
    endforeach()
  endwhile()
  list(SORT found)
  set(${out} ${found} PARENT_SCOPE)
endfunction()
zm_public_headers(ZM_PUBLIC_HEADERS)
set(ZM_PUBLIC_HEADERS ${ZM_PUBLIC_HEADERS} PARENT_SCOPE)
foreach(header IN LISTS ZM_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/src/${header}
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT dev)
endforeach()

install(TARGETS zarvomediaplayer EXPORT ZarvoMediaPlayerTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(TARGETS zarvomediaplayer_static EXPORT ZarvoMediaPlayerStaticTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
set(zm_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZarvoMediaPlayer)
install(EXPORT ZarvoMediaPlayerTargets NAMESPACE ZarvoMediaPlayer:: DESTINATION ${zm_cmake_dir}
        COMPONENT dev)
install(EXPORT ZarvoMediaPlayerStaticTargets NAMESPACE ZarvoMediaPlayer::
        DESTINATION ${zm_cmake_dir} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/package/ZarvoMediaPlayerConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/ZarvoMediaPlayerConfig.cmake INSTALL_DESTINATION ${zm_cmake_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/ZarvoMediaPlayerConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package/ZarvoMediaPlayerConfig.cmake
              ${CMAKE_BINARY_DIR}/package/ZarvoMediaPlayerConfigVersion.cmake
        DESTINATION ${zm_cmake_dir} COMPONENT dev)

# pkg-config finds the prefix from where the file lies, so an unpacked tree works as well.
file(RELATIVE_PATH zm_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/package/zarvomediaplayer.pc.in
               ${CMAKE_BINARY_DIR}/package/zarvomediaplayer.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/package/zarvomediaplayer.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
