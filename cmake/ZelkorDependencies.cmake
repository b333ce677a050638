# The libraries that this project stands on, as Debian 12 packages them (.ci/packages lists the packages).

find_package(Threads REQUIRED)
find_package(Boost REQUIRED COMPONENTS program_options)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(LibXml2 REQUIRED)
find_package(OpenSSL REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET libsystemd)
# The backend for boards over IPMI is built where its library is there.
pkg_check_modules(FreeIPMI IMPORTED_TARGET libfreeipmi)
# The dynamic part holds the type `any`.
pkg_check_modules(OmniORB REQUIRED IMPORTED_TARGET omniORB4 omniDynamic4)
find_program(OMNIIDL omniidl REQUIRED)

if(ZELKOR_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZELKOR_BENCH)
  find_package(benchmark REQUIRED)
endif()
