# SPDX-License-Identifier: BSD-3-Clause
# Runs before anything is packaged. Without these tools CPack would make packages that depend on
# nothing, and say so only in passing.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
foreach(tool IN ITEMS dpkg-shlibdeps file)
  find_program(path ${tool} NO_CACHE)
  if(NOT path)
    message(FATAL_ERROR "Packaging needs ${tool}: install dpkg-dev and file")
  endif()
  unset(path)
endforeach()
