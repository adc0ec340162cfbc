# Every third-party library the project uses, found once here.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(Qt6 REQUIRED COMPONENTS Core Gui Widgets Network)
find_package(Qt6 QUIET COMPONENTS Multimedia)

pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
  libavformat libavcodec libswscale libswresample libavfilter libavdevice libavutil)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET
  xcb xcb-shm xcb-xfixes xcb-xinput xcb-randr xcb-composite xcb-xtest)
pkg_check_modules(XKB REQUIRED IMPORTED_TARGET xkbcommon xkbcommon-x11)
pkg_check_modules(XCURSOR REQUIRED IMPORTED_TARGET xcursor x11)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse libpulse-simple)
pkg_check_modules(TESSERACT REQUIRED IMPORTED_TARGET tesseract lept)
pkg_check_modules(LIBARCHIVE REQUIRED IMPORTED_TARGET libarchive)
find_package(OpenCV REQUIRED COMPONENTS core imgproc imgcodecs dnn)

if(HALVANE_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(HALVANE_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
