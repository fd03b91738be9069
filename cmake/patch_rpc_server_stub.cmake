# Marks the control context non-serialised in the server stub that widl generated.
#
# Calls on one context may run at the same time. MIDL writes that as the context handle
# flag NDR_CONTEXT_HANDLE_NO_SERIALIZE (0x04) in every FC_BIND_CONTEXT description of an
# in-going context; widl parses the ACF attribute context_handle_noserialize but never
# emits the flag, so it is set here. Fails the build when the stub does not have the shape
# this expects, rather than leaving the contexts serialised unnoticed.
#
# Usage: cmake -DSTUB=<path of the generated _s.c> -P patch_rpc_server_stub.cmake
if(NOT STUB)
  message(FATAL_ERROR "STUB not given")
endif()
file(READ "${STUB}" text)
set(before "${text}")
# In-going contexts: 0x41 (in, cannot be null) and 0xe0 (in and out, via pointer), each
# written with or without widl's comment that spells the flags out.
string(REGEX REPLACE "(0x30,\t/\\* FC_BIND_CONTEXT \\*/\n[ ]+)0x41,\t/\\* Context flags: can't be null, in, \\*/"
       "\\10x45,\t/* Context flags: can't be null, no serialize, in, */" text "${text}")
string(REGEX REPLACE "(0x30,\t/\\* FC_BIND_CONTEXT \\*/\n[ ]+)0xe0,\t/\\* Context flags: out, in, via ptr, \\*/"
       "\\10xe4,\t/* Context flags: no serialize, out, in, via ptr, */" text "${text}")
string(REGEX REPLACE "(0x30,\t/\\* FC_BIND_CONTEXT \\*/\n[ ]+)0x41,\n" "\\10x45,\n" text "${text}")
string(REGEX REPLACE "(0x30,\t/\\* FC_BIND_CONTEXT \\*/\n[ ]+)0xe0,\n" "\\10xe4,\n" text "${text}")
if(text STREQUAL before)
  message(FATAL_ERROR "${STUB}: no in-going context handle description found to mark")
endif()
string(REGEX MATCH "0x30,\t/\\* FC_BIND_CONTEXT \\*/\n[ ]+0x(41|e0)," left "${text}")
if(left)
  message(FATAL_ERROR "${STUB}: an in-going context handle description was left serialised")
endif()
file(WRITE "${STUB}" "${text}")
