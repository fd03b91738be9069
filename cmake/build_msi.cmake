# Builds one Windows Installer package (cmake -P): stages the files beside a copy of the
# .wxs (wixl looks the File sources up in its working directory), runs wixl, then fills in
# with msibuild what wixl's element set cannot say but the MSI tables can:
#   - a Condition on each "Environment" line's component, so that only the ZALTOR_*
#     properties given to msiexec become lines (as -install records only the set ones), and
#     on the component that writes back a registered configuration version;
#   - those properties and the registered version in SecureCustomProperties, so that they
#     reach the elevated part of a managed installation;
#   - the maker's folder for the CreateFolder and RemoveFolder elements.
#
# -D WIXL=... MSIBUILD=... WXS=... STAGE=... OUTPUT=... VERSION=x.y.z
#    SERVICE=... CTL=... CONF=... (the files of the package)
#    CONFIG_VERSION=... (empty: no ver.txt)
foreach(_var WIXL MSIBUILD WXS STAGE OUTPUT VERSION SERVICE CTL CONF)
  if(NOT DEFINED ${_var})
    message(FATAL_ERROR "build_msi.cmake needs -D ${_var}=...")
  endif()
endforeach()

file(REMOVE_RECURSE ${STAGE})
file(MAKE_DIRECTORY ${STAGE})
file(COPY ${SERVICE} ${CTL} ${CONF} ${WXS} DESTINATION ${STAGE})
if(NOT "${CONFIG_VERSION}" STREQUAL "")
  # The service registers the first word of ver.txt at its first start.
  file(WRITE ${STAGE}/ver.txt "${CONFIG_VERSION}\n")
endif()
get_filename_component(_wxs_name ${WXS} NAME)
file(REMOVE ${OUTPUT})
execute_process(
  COMMAND ${WIXL} --arch x64 -D ProductVersion=${VERSION} -D ConfigVersion=${CONFIG_VERSION}
          -o ${OUTPUT} ${_wxs_name}
  WORKING_DIRECTORY ${STAGE}
  RESULT_VARIABLE _rc
  ERROR_VARIABLE _err)
if(NOT _rc EQUAL 0 OR NOT EXISTS ${OUTPUT})
  message(FATAL_ERROR "wixl failed (${_rc}): ${_err}")
endif()

set(_queries "")
foreach(_pair "EnvironmentPlatform=ZALTOR_PLATFORM" "EnvironmentScenario=ZALTOR_SIM_SCENARIO"
              "EnvironmentEndpoint=ZALTOR_RPC_ENDPOINT"
              "KeptConfigVersion=ZALTOR_REGISTERED_CONFIG_VERSION")
  string(REPLACE "=" ";" _pair "${_pair}")
  list(GET _pair 0 _component)
  list(GET _pair 1 _property)
  list(APPEND _queries -q
       "UPDATE `Component` SET `Condition` = '${_property}' WHERE `Component` = '${_component}'")
endforeach()
# wixl files CreateFolder and RemoveFolder under their component's directory, whatever
# Directory says: the maker's folder is added here.
list(APPEND _queries -q
     "UPDATE `RemoveFile` SET `DirProperty` = 'ZaltorFolder' WHERE `FileKey` = 'RemoveZaltorFolder'"
     -q "INSERT INTO `CreateFolder` (`Directory_`, `Component_`) VALUES ('ZaltorFolder', 'VersionKey')")
execute_process(COMMAND ${MSIBUILD} ${OUTPUT} ${_queries} RESULT_VARIABLE _rc ERROR_VARIABLE _err)
if(_rc EQUAL 0)
  # Quoted as one argument: the value's ";" is no list separator here.
  execute_process(
    COMMAND ${MSIBUILD} ${OUTPUT} -q
            "UPDATE `Property` SET `Value` = 'WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED;ZALTOR_PLATFORM;ZALTOR_SIM_SCENARIO;ZALTOR_RPC_ENDPOINT;ZALTOR_REGISTERED_CONFIG_VERSION' WHERE `Property` = 'SecureCustomProperties'"
    RESULT_VARIABLE _rc ERROR_VARIABLE _err)
endif()
if(NOT _rc EQUAL 0)
  file(REMOVE ${OUTPUT})
  message(FATAL_ERROR "msibuild failed (${_rc}): ${_err}")
endif()
