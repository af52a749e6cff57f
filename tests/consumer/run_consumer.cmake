# cmake -P script: install, configure the consumer with the installed prefix, build it and run it.
# In a cross build the consumer uses the same toolchain and runs through the emulator (Wine), which finds
# the package's DLLs in its bin folder and the compiler's and dependencies' DLLs in RUNTIME_DIR.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
set(cross_args "")
set(run ${WORK_DIR}/build/korconsumer)
if(TOOLCHAIN)
  # A toolchain confines package searches to its own roots; name the package folder directly.
  file(GLOB_RECURSE config ${WORK_DIR}/prefix/korutilitiesConfig.cmake)
  get_filename_component(config_dir "${config}" DIRECTORY)
  set(cross_args -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -Dkorutilities_DIR=${config_dir})
endif()
if(EMULATOR)
  set(run ${CMAKE_COMMAND} -E env "WINEPATH=${WORK_DIR}/prefix/bin;${RUNTIME_DIR}" ${EMULATOR}
          ${WORK_DIR}/build/korconsumer.exe)
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G Ninja
                        -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix ${cross_args} RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configure of the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "build of the consumer failed: ${rc}")
endif()
execute_process(COMMAND ${run} RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer failed: ${rc} ${out}")
endif()
message(STATUS "consumer printed ${out}")
