# Runs korutil crc32 on the golden files in DATA (through EMULATOR when cross-built) and compares its
# output, line ends aside, with DATA/korutil-crc32.txt.
set(files widetext.utf16le encrypted.bin document-utf8.xml document-utf16.xml)
execute_process(COMMAND ${EMULATOR} ${KORUTIL} crc32 ${files} WORKING_DIRECTORY ${DATA}
                OUTPUT_VARIABLE output RESULT_VARIABLE status)
string(REPLACE "\r" "" output "${output}")
file(READ ${DATA}/korutil-crc32.txt expected)
if(NOT status EQUAL 0 OR NOT output STREQUAL expected)
  message(FATAL_ERROR "korutil crc32 exited with ${status} and printed\n${output}\nexpected\n${expected}")
endif()
