# The configuration key material as a generated header, and the sample configuration
# encrypted into bin/Conf.bin beside the service.
string(TOLOWER "${ZALTOR_CONFIG_KEY}" _zaltor_key)
if(NOT _zaltor_key MATCHES "^[0-9a-f]+$")
  message(FATAL_ERROR "ZALTOR_CONFIG_KEY must be 64 hexadecimal digits")
endif()
string(LENGTH "${_zaltor_key}" _zaltor_key_len)
if(NOT _zaltor_key_len EQUAL 64)
  message(FATAL_ERROR "ZALTOR_CONFIG_KEY must be 64 hexadecimal digits")
endif()
set(_zaltor_key_bytes "")
foreach(_i RANGE 0 62 2)
  string(SUBSTRING "${_zaltor_key}" ${_i} 2 _byte)
  string(APPEND _zaltor_key_bytes "0x${_byte}, ")
endforeach()
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/generated/zaltor_config_key.h
  CONTENT "#pragma once\n// Generated from ZALTOR_CONFIG_KEY; do not edit.\n#define ZALTOR_CONFIG_KEY_BYTES ${_zaltor_key_bytes}\n")

string(SUBSTRING "${_zaltor_key}" 0 32 ZALTOR_CONFIG_AES_KEY)
string(SUBSTRING "${_zaltor_key}" 32 32 ZALTOR_CONFIG_AES_IV)
find_program(ZALTOR_OPENSSL_CLI openssl REQUIRED)
set(_zaltor_sample ${CMAKE_SOURCE_DIR}/samples/Conf.ini)
set(_zaltor_sample_bin ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Conf.bin)
add_custom_command(OUTPUT ${_zaltor_sample_bin}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}
  COMMAND ${ZALTOR_OPENSSL_CLI} enc -aes-128-cbc -K ${ZALTOR_CONFIG_AES_KEY}
          -iv ${ZALTOR_CONFIG_AES_IV} -in ${_zaltor_sample} -out ${_zaltor_sample_bin}
  DEPENDS ${_zaltor_sample}
  COMMENT "Encrypting samples/Conf.ini into bin/Conf.bin"
  VERBATIM)
add_custom_target(zaltor_sample_config ALL DEPENDS ${_zaltor_sample_bin})
