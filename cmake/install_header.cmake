# SPDX-License-Identifier: MIT
# Writes one public header as it is installed: its includes of the library's
# own folders ("email/headers.h") become includes under tidewell/
# ("tidewell/email/headers.h"). Any other quoted include would not be found
# by users, so it stops the build.
# Called as: cmake -DINPUT=... -DOUTPUT=... -DFOLDERS="email;text;..." -P install_header.cmake
file(READ "${INPUT}" text)
list(JOIN FOLDERS "|" alternatives)
string(REGEX REPLACE "(#[ \t]*include[ \t]*\")((${alternatives})/)" "\\1tidewell/\\2" text "${text}")
string(REGEX MATCHALL "#[ \t]*include[ \t]*\"[^\"]*\"" quoted "${text}")
foreach(line IN LISTS quoted)
  if(NOT line MATCHES "\"tidewell/")
    message(FATAL_ERROR "${INPUT}: ${line} names no folder of the library; users could not include it")
  endif()
endforeach()
file(WRITE "${OUTPUT}" "${text}")
