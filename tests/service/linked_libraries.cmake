# The service's memory footprint rests on what it links: OpenSSL's AES code and the C++
# runtime are linked into the program, so that the running service keeps only the pages it
# uses of them. This fails when the program needs libcrypto or libstdc++ as shared libraries
# again (a find_package or link option that lost its static choice).
# Usage: cmake -DPROGRAM=path -P linked_libraries.cmake
execute_process(COMMAND readelf --dynamic ${PROGRAM} OUTPUT_VARIABLE dynamic RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "readelf could not read ${PROGRAM}")
endif()
string(REGEX MATCHALL "Shared library: \\[[^]]+\\]" needed "${dynamic}")
message(STATUS "${PROGRAM} needs: ${needed}")
if(NOT needed)
  message(FATAL_ERROR "no shared libraries listed: not a dynamically linked program?")
endif()
foreach(library IN LISTS needed)
  if(library MATCHES "libcrypto|libssl|libstdc\\+\\+|libgcc_s")
    message(FATAL_ERROR "${PROGRAM} needs ${library} as a shared library")
  endif()
endforeach()
