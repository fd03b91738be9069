# Runs the Windows service in console mode on the machine's own backends (ZALTOR_PLATFORM
# left unset: native is the Windows default) in an empty directory. The build machine has no
# firmware control device, so the worker must stop at its first step and the run end with
# the worker start-up failure.
#
# cmake -DEMULATOR=... -DSERVICE=.../ZaltorMultiAntennaSvc.exe -DWORK_DIR=... -P this file
foreach(var SERVICE WORK_DIR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "native_console_run: ${var} is not set")
  endif()
endforeach()
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
unset(ENV{ZALTOR_PLATFORM})
unset(ENV{ZALTOR_SIM_SCENARIO})
execute_process(
  COMMAND ${EMULATOR} "${SERVICE}" -console
  WORKING_DIRECTORY "${WORK_DIR}"
  RESULT_VARIABLE code
  OUTPUT_VARIABLE out
  ERROR_VARIABLE err
  TIMEOUT 60)
message(STATUS "exit code: ${code}\nstdout:\n${out}\nstderr:\n${err}")
if(NOT code EQUAL 110)
  message(FATAL_ERROR "expected exit code 110 (worker start-up failed), got ${code}")
endif()
string(FIND "${out}" "InitializeZLTACPIDevice Failed!" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the console output lacks \"InitializeZLTACPIDevice Failed!\"")
endif()
# Level 1 (critical) in the console echo, and the run body's result as the console reports it.
foreach(line "1: InitializeZLTACPIDevice Failed!" "RpcServerConnect returned: 0x6e")
  string(FIND "${out}" "${line}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "the console output lacks \"${line}\"")
  endif()
endforeach()
# Nothing of the simulated notebook ran.
string(FIND "${out}" "ExecQuery OK!" at)
if(NOT at EQUAL -1)
  message(FATAL_ERROR "the run went past the control device")
endif()
file(REMOVE_RECURSE "${WORK_DIR}")
