# What `cmake --install` gives C++ consumers besides the library and the headers that their own
# directories install: the umbrella header, the bundled UBL 2.0 schemas, a CMake package
# (TivaloCOMConfig.cmake, imported target TivaloCOM::TivaloCOM) and pkg-config's tivalo.pc.
# Expects TIVALO_INSTALL_SCHEMA_DIR, the schemas' place relative to the prefix.
include(CMakePackageConfigHelpers)
set(TIVALO_INSTALL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/TivaloCOM)
set(TIVALO_PACKAGE_DIR ${CMAKE_BINARY_DIR}/package)

# A consumer compiles the interfaces and the runtime's headers as C++17.
target_compile_features(TivaloCOM PUBLIC cxx_std_17)

# The parsers are the library's own business: no installed header includes them, so consumers
# of the installed package neither find nor link them. Inside this build, tests and benchmarks
# that compare against the parsers still get them through the library.
get_target_property(tivalo_links TivaloCOM INTERFACE_LINK_LIBRARIES)
set(tivalo_interface_links)
foreach(link ${tivalo_links})
  if(link MATCHES "^(XercesC|LibXml2|LibXslt)::")
    set(link "$<BUILD_INTERFACE:${link}>")
  endif()
  list(APPEND tivalo_interface_links "${link}")
endforeach()
set_property(TARGET TivaloCOM PROPERTY INTERFACE_LINK_LIBRARIES "${tivalo_interface_links}")

configure_file(${CMAKE_CURRENT_LIST_DIR}/tivalo.h.in ${TIVALO_GEN_DIR}/tivalo/tivalo.h @ONLY)
install(FILES ${TIVALO_GEN_DIR}/tivalo/tivalo.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tivalo)

# Every installed header lives under include/tivalo/ and includes the others as "tivalo/...";
# in the source tree they include each other from the project root ("platform/...").
install(CODE "set(tivalo_installed_headers
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}/tivalo\")")
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/RootInstalledIncludes.cmake)

install(DIRECTORY ${CMAKE_SOURCE_DIR}/schemas/ubl-2.0 ${CMAKE_SOURCE_DIR}/schemas/ubl-2.1
        DESTINATION ${CMAKE_INSTALL_DATADIR}/tivalo/schemas)

install(EXPORT TivaloCOMTargets NAMESPACE TivaloCOM:: DESTINATION ${TIVALO_INSTALL_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TivaloCOMConfig.cmake.in
  ${TIVALO_PACKAGE_DIR}/TivaloCOMConfig.cmake
  INSTALL_DESTINATION ${TIVALO_INSTALL_CMAKE_DIR}
  PATH_VARS TIVALO_INSTALL_SCHEMA_DIR)
write_basic_package_version_file(${TIVALO_PACKAGE_DIR}/TivaloCOMConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${TIVALO_PACKAGE_DIR}/TivaloCOMConfig.cmake
              ${TIVALO_PACKAGE_DIR}/TivaloCOMConfigVersion.cmake
        DESTINATION ${TIVALO_INSTALL_CMAKE_DIR})

# The .pc file finds the prefix from its own place, so an installed tree can be moved.
file(RELATIVE_PATH TIVALO_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TIVALO_PC_TO_PREFIX "${TIVALO_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/tivalo.pc.in ${TIVALO_PACKAGE_DIR}/tivalo.pc @ONLY)
install(FILES ${TIVALO_PACKAGE_DIR}/tivalo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
