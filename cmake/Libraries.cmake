# The libraries that rooms stand on, each as one target. scripts/bootstrap installs the packages.

find_package(Threads REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(GTest REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Qt6 6.4 REQUIRED COMPONENTS Gui Qml Quick DBus Test)

pkg_check_modules(ffmpeg REQUIRED IMPORTED_TARGET libavformat libavcodec libswresample libavutil)
pkg_check_modules(swresample REQUIRED IMPORTED_TARGET libswresample libavutil)
pkg_check_modules(xcb REQUIRED IMPORTED_TARGET xcb xcb-shm xcb-damage xcb-randr xcb-xfixes xcb-res)
pkg_check_modules(pulse REQUIRED IMPORTED_TARGET libpulse)
pkg_check_modules(curl REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(httplib REQUIRED IMPORTED_TARGET cpp-httplib)
pkg_check_modules(crypto REQUIRED IMPORTED_TARGET libcrypto)

add_library(quillbeam_ffmpeg ALIAS PkgConfig::ffmpeg)
add_library(quillbeam_swresample ALIAS PkgConfig::swresample)
add_library(quillbeam_xcb ALIAS PkgConfig::xcb)
add_library(quillbeam_pulse ALIAS PkgConfig::pulse)
add_library(quillbeam_curl ALIAS PkgConfig::curl)
add_library(quillbeam_httplib ALIAS PkgConfig::httplib)
add_library(quillbeam_crypto ALIAS PkgConfig::crypto)

find_path(YUV_INCLUDE libyuv.h REQUIRED)
find_library(YUV_LIBRARY yuv REQUIRED)
add_library(quillbeam_yuv UNKNOWN IMPORTED)
set_target_properties(quillbeam_yuv PROPERTIES IMPORTED_LOCATION ${YUV_LIBRARY}
                      INTERFACE_INCLUDE_DIRECTORIES ${YUV_INCLUDE})
