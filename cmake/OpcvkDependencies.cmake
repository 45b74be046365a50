# Every third-party dependency is found here, once, so that the layers name imported targets only.
find_package(Boost 1.74 REQUIRED COMPONENTS regex date_time system)
find_package(PkgConfig REQUIRED)
find_package(ICU 72 REQUIRED COMPONENTS uc i18n data)
find_package(Threads REQUIRED)
find_package(XercesC 3.2 REQUIRED)
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip>=1.7)
pkg_check_modules(LIBDEFLATE REQUIRED IMPORTED_TARGET libdeflate)
find_package(ZLIB REQUIRED)
