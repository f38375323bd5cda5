# SPDX-License-Identifier: MIT
# libtidewell as an installed library: the shared object with its SONAME (or a
# static archive with BUILD_SHARED_LIBS=OFF), the public headers under
# include/tidewell, the CMake package tidewell::tidewell and tidewell.pc.
#
# Only the library's own namespaces are exported (cmake/tidewell.map): the
# standard library's and Boost's template instances stay inside, so a user's
# different instances of them cannot be mixed up with ours.

set_target_properties(tidewell_core PROPERTIES
  OUTPUT_NAME tidewell
  EXPORT_NAME tidewell
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
add_library(tidewell::tidewell ALIAS tidewell_core)
target_include_directories(tidewell_core PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
if(BUILD_SHARED_LIBS AND NOT APPLE)
  set(map "${CMAKE_CURRENT_LIST_DIR}/tidewell.map")
  target_link_options(tidewell_core PRIVATE "LINKER:--version-script=${map}")
  set_property(TARGET tidewell_core APPEND PROPERTY LINK_DEPENDS "${map}")
  # Calls inside the library need not go through the PLT: nobody interposes
  # on these functions.
  target_compile_options(tidewell_core PRIVATE -fno-semantic-interposition)
endif()

# The public headers. In the source tree they include each other by folder
# ("email/headers.h"); installed, the same lines read "tidewell/email/headers.h"
# so that users need nothing but the include folder on their path and no
# folder named email/, text/ or date/ is put where it could shadow another
# library's headers.
set(TIDEWELL_HEADER_FOLDERS error text charset email header date importer)
set(installed_headers)
foreach(dir IN LISTS TIDEWELL_HEADER_FOLDERS)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/${dir}/*.h")
  foreach(header IN LISTS headers)
    set(out "${PROJECT_BINARY_DIR}/include/tidewell/${header}")
    add_custom_command(OUTPUT "${out}"
      COMMAND ${CMAKE_COMMAND} -DINPUT=${PROJECT_SOURCE_DIR}/${header} -DOUTPUT=${out}
              "-DFOLDERS=${TIDEWELL_HEADER_FOLDERS}" -P ${CMAKE_CURRENT_LIST_DIR}/install_header.cmake
      DEPENDS "${PROJECT_SOURCE_DIR}/${header}" ${CMAKE_CURRENT_LIST_DIR}/install_header.cmake
      COMMENT "Public header ${header}" VERBATIM)
    list(APPEND installed_headers "${out}")
  endforeach()
endforeach()
add_custom_target(tidewell_public_headers ALL DEPENDS ${installed_headers})
install(DIRECTORY "${PROJECT_BINARY_DIR}/include/tidewell" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development)

install(TARGETS tidewell_core EXPORT tidewellTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

# The CMake package. SameMajorVersion, also while the version is 0.x: the
# major version is the SONAME's (libtidewell.so.0), so any release that breaks
# users raises it, and 0.2 may be offered to users of 0.1.
include(CMakePackageConfigHelpers)
set(TIDEWELL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tidewell)
install(EXPORT tidewellTargets NAMESPACE tidewell:: DESTINATION ${TIDEWELL_CMAKE_DIR} COMPONENT development)
set(TIDEWELL_SHARED ${BUILD_SHARED_LIBS})
configure_package_config_file(cmake/tidewellConfig.cmake.in tidewellConfig.cmake
  INSTALL_DESTINATION ${TIDEWELL_CMAKE_DIR})
write_basic_package_version_file(tidewellConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tidewellConfig.cmake ${PROJECT_BINARY_DIR}/tidewellConfigVersion.cmake
        DESTINATION ${TIDEWELL_CMAKE_DIR} COMPONENT development)

# tidewell.pc, written at install time so that its paths are those of the
# prefix actually installed to (cmake --install --prefix).
if(BUILD_SHARED_LIBS)
  set(TIDEWELL_PC_REQUIRES_PRIVATE "")
else()
  set(TIDEWELL_PC_REQUIRES_PRIVATE "Requires.private: ${TIDEWELL_PRIVATE_PKG_CONFIG}")
endif()
set(TIDEWELL_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(TIDEWELL_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(TIDEWELL_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(cmake/tidewell.pc.in tidewell.pc.in @ONLY)
install(CODE "
  configure_file(\"${PROJECT_BINARY_DIR}/tidewell.pc.in\" \"${PROJECT_BINARY_DIR}/pc/tidewell.pc\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/pc/tidewell.pc\"
       DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")
  " COMPONENT development)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
