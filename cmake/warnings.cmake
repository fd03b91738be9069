# Warnings are errors everywhere in the project's own code.
add_library(zaltor_options INTERFACE)
target_compile_options(zaltor_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Wformat=2 -Wno-format-nonliteral)
if(ZALTOR_SANITIZE)
  target_compile_options(zaltor_options INTERFACE -fsanitize=${ZALTOR_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(zaltor_options INTERFACE -fsanitize=${ZALTOR_SANITIZE})
  if(ZALTOR_SANITIZE MATCHES "undefined")
    # The dynamic-type check reads the object's memory through a pipe, which cannot be made
    # while every descriptor is taken: the control interface's tests that use them all up
    # would see every virtual call reported. AddressSanitizer still catches a call on an
    # object that has gone.
    target_compile_options(zaltor_options INTERFACE -fno-sanitize=vptr)
  endif()
endif()
# Debug information of the project's own code. CI sets line tables only (-g1): enough for
# sanitizer stack traces, and the builds compile and link faster. Empty: as the build type says.
set(ZALTOR_DEBUG_INFO "" CACHE STRING "Debug information option for the project's code, e.g. -g1")
if(ZALTOR_DEBUG_INFO)
  target_compile_options(zaltor_options INTERFACE ${ZALTOR_DEBUG_INFO})
endif()
if(CMAKE_CROSSCOMPILING AND WIN32)
  target_compile_definitions(zaltor_options INTERFACE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX
    _WIN32_WINNT=0x0A00 __USE_MINGW_ANSI_STDIO=1)
  target_link_options(zaltor_options INTERFACE -static)
endif()

# zaltor_library(NAME DIR [DEPS ...]): one static library from every .cpp directly in DIR.
function(zaltor_library name dir)
  file(GLOB sources CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(NOT sources)
    set(sources ${CMAKE_SOURCE_DIR}/src/empty.cpp)
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src ${CMAKE_BINARY_DIR}/generated)
  target_link_libraries(${name} PUBLIC zaltor_options ${ARGN})
  zaltor_native_unity(${name})
endfunction()

# Each test program compiles as one unity file (CMake's UNITY_BUILD): its files share the
# heavy GoogleTest, GoogleMock and JSON headers and the template code instantiated from them,
# which a build otherwise parses and optimises again for every file; a whole build of the
# test programs takes about half the CPU time (measured: 328 s file by file, 217 s in batches
# of 8, 178 s one per program). So a test file's names at namespace scope (its anonymous
# namespace too) must differ from those of the other files of its program. OFF compiles file
# by file: quicker rebuilds while editing one file.
option(ZALTOR_UNITY_BUILD
  "Compile the test programs (and, natively, the libraries and tools) as unity batches" ON)
set(ZALTOR_UNITY_BATCH_SIZE 0 CACHE STRING
  "Files per unity batch (0: the whole program or library)")
# zaltor_unity(NAME): a test program as unity batches.
function(zaltor_unity name)
  set_target_properties(${name} PROPERTIES UNITY_BUILD ${ZALTOR_UNITY_BUILD}
    UNITY_BUILD_BATCH_SIZE ${ZALTOR_UNITY_BATCH_SIZE})
  if(ZALTOR_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 at -O3 (the Windows build) inlines std::string's copies deeply enough in the
    # engine's test program to report an impossible overlap in libstdc++'s char_traits.h
    # (a known false positive of -Wrestrict).
    target_compile_options(${name} PRIVATE -Wno-restrict)
  endif()
endfunction()

# The native builds compile each library and tool as one unity file as well: their files
# share the standard library's headers, which each file otherwise parses again (measured:
# 100 s of CPU file by file, 51 s as unity files, for a default build's libraries and tools),
# so their files' names at namespace scope must differ within a library just as a test
# program's do. The Windows build compiles them file by file: its backend's files and the
# generated stubs define the same helpers, and so every portable file still compiles on its
# own in one build.
function(zaltor_native_unity name)
  if(NOT ZALTOR_TARGET_WINDOWS)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ${ZALTOR_UNITY_BUILD}
      UNITY_BUILD_BATCH_SIZE ${ZALTOR_UNITY_BATCH_SIZE})
  endif()
endfunction()

# zaltor_test(NAME DIR DEPS... [MORE_DIRS DIR...]): one GoogleTest executable from every .cpp
# in DIR and in the MORE_DIRS (such as the backend's tests of that subsystem, which share its
# fakes and so join its executable rather than start one more process under Wine).
function(zaltor_test name dir)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "MORE_DIRS")
  set(sources "")
  foreach(_dir ${dir} ${arg_MORE_DIRS})
    file(GLOB _dir_sources CONFIGURE_DEPENDS ${_dir}/*.cpp)
    list(APPEND sources ${_dir_sources})
  endforeach()
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  zaltor_unity(${name})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR}/src)
  # zaltor_test_support carries main(), which sets ZALTOR_TEST_SOURCE_DIR and
  # ZALTOR_TEST_BIN_DIR for the tests.
  target_link_libraries(${name} PRIVATE ${arg_UNPARSED_ARGUMENTS} zaltor_test_support GTest::gtest
    GTest::gmock zaltor_options)
  set_property(GLOBAL APPEND PROPERTY ZALTOR_TEST_TARGETS ${name})
  if(CMAKE_CROSSCOMPILING AND NOT ZALTOR_TEST_EACH_IN_OWN_PROCESS)
    # Under Wine every process start costs a few tenths of a second (seconds while the Wine
    # server starts), so the executable's tests run in two processes (GoogleTest's shards,
    # one per core) instead of one process each. A caller whose tests need a process each
    # sets ZALTOR_TEST_EACH_IN_OWN_PROCESS before the call.
    foreach(shard RANGE 1)
      add_test(NAME ${name}.shard${shard} COMMAND ${name})
      set_tests_properties(${name}.shard${shard} PROPERTIES LABELS ${name}
        ENVIRONMENT "GTEST_TOTAL_SHARDS=2;GTEST_SHARD_INDEX=${shard}")
    endforeach()
  else()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
      PROPERTIES LABELS ${name})
  endif()
endfunction()
