# The IDL states QueryArray's bound as `[range(0, N)]` (widl cannot read a C++ header); the
# runtimes and clients take it from platform/control_protocol.h. Configuring stops when the
# two differ, and re-runs whenever either file changes.
function(zaltor_check_array_bound header idl)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header} ${idl})
  file(READ ${header} _header_text)
  file(READ ${idl} _idl_text)
  string(REGEX MATCH "kMaxArrayCount = ([0-9]+);" _header_match "${_header_text}")
  set(_header_bound "${CMAKE_MATCH_1}")
  string(REGEX MATCH "range\\(0, ([0-9]+)\\)\\][ \t\r\n]*long count" _idl_match "${_idl_text}")
  set(_idl_bound "${CMAKE_MATCH_1}")
  if(_header_bound STREQUAL "" OR _idl_bound STREQUAL "")
    message(FATAL_ERROR "QueryArray's bound not found in ${header} or ${idl}")
  endif()
  if(NOT _header_bound STREQUAL _idl_bound)
    message(FATAL_ERROR "QueryArray's bound differs: ${_header_bound} in ${header}, "
                        "${_idl_bound} in ${idl}")
  endif()
endfunction()
