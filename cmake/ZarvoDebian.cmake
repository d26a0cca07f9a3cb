# `./zm package`: Debian packages of the SDK made with CPack, one per install component:
# the runtime library, its development files, and the tools. Their library dependencies come
# from dpkg-shlibdeps; the GStreamer plugins the engine loads at run time are named here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zarvomediaplayer)
set(CPACK_PACKAGE_VENDOR "ZarvoMediaPlayer")
set(CPACK_PACKAGE_CONTACT "ZarvoMediaPlayer maintainers <sdk@zarvo.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "HLS video-player SDK for Linux applications")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)

set(zm_abi ${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzarvomediaplayer${zm_abi})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-libav, gstreamer1.0-x")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "HLS video-player SDK: playback, protected streams, offline downloads, viewing analytics")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzarvomediaplayer-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libzarvomediaplayer${zm_abi} (= ${PROJECT_VERSION}), libglib2.0-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "Headers, pkg-config file and CMake package of the ZarvoMediaPlayer SDK")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zarvomediaplayer-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-libav, gstreamer1.0-x, ffmpeg")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "zmplay, the command-line player of the ZarvoMediaPlayer SDK, and zm-origin, its sample origin")

include(CPack)
