# Cross build for 64-bit Windows with mingw-w64 (POSIX threads variant), tests run under Wine.
# The third-party libraries come from the cache that cmake/windows-deps.sh fills: every prefix in
# ${XDG_CACHE_HOME:-$HOME/.cache}/korutilities/windows-gcc<version>/ is searched, as is the compiler's own
# sysroot (zlib from libz-mingw-w64-dev).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KOR_MINGW_HOST x86_64-w64-mingw32)

find_program(CMAKE_C_COMPILER ${KOR_MINGW_HOST}-gcc-posix REQUIRED)
find_program(CMAKE_CXX_COMPILER ${KOR_MINGW_HOST}-g++-posix REQUIRED)
find_program(CMAKE_RC_COMPILER ${KOR_MINGW_HOST}-windres REQUIRED)

execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpversion OUTPUT_VARIABLE _kor_gcc_version
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(DEFINED ENV{XDG_CACHE_HOME} AND NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(_kor_cache "$ENV{XDG_CACHE_HOME}")
else()
  set(_kor_cache "$ENV{HOME}/.cache")
endif()
set(KOR_WINDOWS_DEPS "${_kor_cache}/korutilities/windows-gcc${_kor_gcc_version}"
    CACHE PATH "Prefixes of the Windows builds of the third-party libraries")
file(GLOB _kor_entries LIST_DIRECTORIES true "${KOR_WINDOWS_DEPS}/*")
set(_kor_prefixes "")
foreach(_kor_entry IN LISTS _kor_entries)
  if(IS_DIRECTORY "${_kor_entry}")
    list(APPEND _kor_prefixes "${_kor_entry}")
  endif()
endforeach()
set(CMAKE_FIND_ROOT_PATH /usr/${KOR_MINGW_HOST} ${_kor_prefixes})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs and the package test run through Wine; build.sh gives it a private prefix.
find_program(KOR_WINE NAMES wine wine64)
if(KOR_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KOR_WINE})
endif()
