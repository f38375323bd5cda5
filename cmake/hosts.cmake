# SPDX-License-Identifier: MIT
# Optional hosts. Each host has a cache option AUTO, ON or OFF:
#   tidewell_host_option(TIDEWELL_TRACKER "the Tracker 3 extract module")
# and its folder, added only when the option is not OFF, checks its own
# dependencies first and, when one is missing, calls
#   tidewell_host_unavailable(TIDEWELL_TRACKER "tracker-sparql-3.0 not found")
#   return()
# which stops configuring when the host was asked for (ON) and otherwise says
# once that it is skipped. Tests of a host are registered only when its
# targets exist.
#
# A new host: one tidewell_host_option line and one guarded add_subdirectory
# in the top CMakeLists.txt, the check above in its folder, its tests under
# if(TARGET ...); for Debian, a stanza in debian/control, a
# debian/<package>.install, its option ON in debian/rules and the package in
# the list of scripts/check-packages.

function(tidewell_host_option name description)
  set(${name} AUTO CACHE STRING "Build ${description}: AUTO (when its dependencies are found), ON or OFF")
  set_property(CACHE ${name} PROPERTY STRINGS AUTO ON OFF)
  string(TOUPPER "${${name}}" value)
  if(NOT value MATCHES "^(AUTO|ON|OFF)$")
    message(FATAL_ERROR "${name} is '${${name}}': use AUTO, ON or OFF")
  endif()
  set(${name} ${value} PARENT_SCOPE)
  set_property(GLOBAL PROPERTY ${name}_DESCRIPTION "${description}")
  if(value STREQUAL "OFF")
    message(STATUS "Not building ${description} (${name}=OFF)")
  endif()
endfunction()

function(tidewell_host_unavailable name reason)
  get_property(description GLOBAL PROPERTY ${name}_DESCRIPTION)
  if(${name} STREQUAL "ON")
    message(FATAL_ERROR "${name}=ON, but ${reason}: cannot build ${description}")
  endif()
  message(STATUS "Not building ${description}: ${reason} (${name}=AUTO; OFF silences this)")
endfunction()

# tidewell_install_rpath(target folder): a program or module installed into
# folder (relative to the prefix) finds a shared libtidewell in the prefix's
# library folder, unless that folder is one the loader searches anyway.
function(tidewell_install_rpath target folder)
  if(NOT BUILD_SHARED_LIBS OR APPLE)
    return()
  endif()
  if("${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST CMAKE_C_IMPLICIT_LINK_DIRECTORIES
     OR "${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES)
    return()
  endif()
  if(NOT IS_ABSOLUTE "${folder}")
    set(folder "${CMAKE_INSTALL_PREFIX}/${folder}")
  endif()
  file(RELATIVE_PATH up "${folder}" "${CMAKE_INSTALL_FULL_LIBDIR}")
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${up}")
endfunction()
