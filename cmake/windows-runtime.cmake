# Windows finds a program's DLLs beside it: every executable and DLL of the build goes to one bin folder,
# and the DLLs of the compiler's run-time and of the third-party libraries are copied there, so the test
# programs, the package test and the tools start from the build tree as they do from an installation.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
# DLLs carry their Windows names (korutilities.dll, btrace.dll), not the "lib" prefix of mingw-w64.
set(CMAKE_SHARED_LIBRARY_PREFIX "")

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # libstdc++, libgcc and winpthread of the compiler that built us.
  foreach(_kor_rt libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${_kor_rt}
                    OUTPUT_VARIABLE _kor_path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(IS_ABSOLUTE "${_kor_path}" AND EXISTS "${_kor_path}")
      file(COPY "${_kor_path}" DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    endif()
  endforeach()
endif()
# The DLLs in the prefixes where the dependencies were found (Xerces-C, zlib, ...).
foreach(_kor_root IN LISTS CMAKE_FIND_ROOT_PATH CMAKE_PREFIX_PATH)
  file(GLOB _kor_dlls "${_kor_root}/bin/*.dll" "${_kor_root}/lib/zlib*.dll")
  if(_kor_dlls)
    file(COPY ${_kor_dlls} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  endif()
endforeach()
