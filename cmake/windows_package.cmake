# The Windows deliverable: build-windows/<name>.zip with the service, antennactl, the sample
# Conf.bin and the install notes, in one folder. The executables are linked statically
# (libgcc, libstdc++, winpthread), so no MinGW runtime DLL goes with them.
set(ZALTOR_WINDOWS_PACKAGE_DIR_NAME ZaltorMultiAntenna-${PROJECT_VERSION}-win64)
set(ZALTOR_WINDOWS_PACKAGE ${CMAKE_BINARY_DIR}/${ZALTOR_WINDOWS_PACKAGE_DIR_NAME}.zip)
set(_zaltor_stage_root ${CMAKE_BINARY_DIR}/package)
set(_zaltor_stage ${_zaltor_stage_root}/${ZALTOR_WINDOWS_PACKAGE_DIR_NAME})
set(_zaltor_install_text ${CMAKE_SOURCE_DIR}/docs/windows-install.txt)
add_custom_command(OUTPUT ${ZALTOR_WINDOWS_PACKAGE}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${_zaltor_stage}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${_zaltor_stage}
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:ZaltorMultiAntennaSvc> $<TARGET_FILE:antennactl>
          ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Conf.bin ${_zaltor_install_text} ${_zaltor_stage}
  COMMAND ${CMAKE_COMMAND} -E rm -f ${ZALTOR_WINDOWS_PACKAGE}
  COMMAND ${CMAKE_COMMAND} -E chdir ${_zaltor_stage_root}
          ${CMAKE_COMMAND} -E tar cf ${ZALTOR_WINDOWS_PACKAGE} --format=zip
          ${ZALTOR_WINDOWS_PACKAGE_DIR_NAME}
  DEPENDS ZaltorMultiAntennaSvc antennactl zaltor_sample_config
          ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Conf.bin ${_zaltor_install_text}
  COMMENT "Packing ${ZALTOR_WINDOWS_PACKAGE_DIR_NAME}.zip"
  VERBATIM)
add_custom_target(zaltor_windows_package ALL DEPENDS ${ZALTOR_WINDOWS_PACKAGE})

# The Windows Installer package: build-windows/ZaltorMultiAntenna-<version>-x64.msi, made by
# wixl (package wixl) and msibuild (package msitools) from installer/ZaltorMultiAntenna.wxs.
set(ZALTOR_CONFIG_VERSION "" CACHE STRING
    "Configuration version shipped as ver.txt in the installer package (empty: none)")
if(ZALTOR_CONFIG_VERSION MATCHES "[ \t\r\n]")
  # The service registers only the first word of ver.txt.
  message(FATAL_ERROR "ZALTOR_CONFIG_VERSION must be one word")
endif()
find_program(ZALTOR_WIXL wixl REQUIRED)
find_program(ZALTOR_MSIBUILD msibuild REQUIRED)
set(_zaltor_wxs ${CMAKE_SOURCE_DIR}/installer/ZaltorMultiAntenna.wxs)

# zaltor_windows_msi(OUTPUT VERSION STAGE CONFIG_VERSION): one package of the given version,
# with a ver.txt of the configuration version unless that is empty.
function(zaltor_windows_msi output version stage config_version)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DWIXL=${ZALTOR_WIXL} -DMSIBUILD=${ZALTOR_MSIBUILD}
            -DWXS=${_zaltor_wxs} -DSTAGE=${stage} -DOUTPUT=${output} -DVERSION=${version}
            -DSERVICE=$<TARGET_FILE:ZaltorMultiAntennaSvc> -DCTL=$<TARGET_FILE:antennactl>
            -DCONF=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Conf.bin
            -DCONFIG_VERSION=${config_version}
            -P ${CMAKE_SOURCE_DIR}/cmake/build_msi.cmake
    DEPENDS ZaltorMultiAntennaSvc antennactl zaltor_sample_config
            ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/Conf.bin ${_zaltor_wxs}
            ${CMAKE_SOURCE_DIR}/cmake/build_msi.cmake
    COMMENT "Building the installer package ${output}"
    VERBATIM)
endfunction()

set(ZALTOR_WINDOWS_MSI ${CMAKE_BINARY_DIR}/ZaltorMultiAntenna-${PROJECT_VERSION}-x64.msi)
zaltor_windows_msi(${ZALTOR_WINDOWS_MSI} ${PROJECT_VERSION} ${CMAKE_BINARY_DIR}/msi-stage
                   "${ZALTOR_CONFIG_VERSION}")
add_custom_target(zaltor_windows_msi ALL DEPENDS ${ZALTOR_WINDOWS_MSI})

if(ZALTOR_BUILD_TESTS)
  # The same files under the next patch version, with a configuration version of its own:
  # the installer test upgrades to it.
  math(EXPR _zaltor_next_patch "${PROJECT_VERSION_PATCH} + 1")
  set(ZALTOR_WINDOWS_UPGRADE_VERSION
      ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${_zaltor_next_patch})
  set(ZALTOR_WINDOWS_UPGRADE_MSI
      ${CMAKE_BINARY_DIR}/tests/upgrade/ZaltorMultiAntenna-${ZALTOR_WINDOWS_UPGRADE_VERSION}-x64.msi)
  set(ZALTOR_WINDOWS_UPGRADE_CONFIG_VERSION upgrade-test-${ZALTOR_WINDOWS_UPGRADE_VERSION})
  zaltor_windows_msi(${ZALTOR_WINDOWS_UPGRADE_MSI} ${ZALTOR_WINDOWS_UPGRADE_VERSION}
                     ${CMAKE_BINARY_DIR}/tests/upgrade/msi-stage
                     ${ZALTOR_WINDOWS_UPGRADE_CONFIG_VERSION})
  # And the version after it, without a configuration version: an upgrade to it keeps the
  # one that the service registered.
  math(EXPR _zaltor_next_patch "${PROJECT_VERSION_PATCH} + 2")
  set(ZALTOR_WINDOWS_UPGRADE2_VERSION
      ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${_zaltor_next_patch})
  set(ZALTOR_WINDOWS_UPGRADE2_MSI
      ${CMAKE_BINARY_DIR}/tests/upgrade/ZaltorMultiAntenna-${ZALTOR_WINDOWS_UPGRADE2_VERSION}-x64.msi)
  zaltor_windows_msi(${ZALTOR_WINDOWS_UPGRADE2_MSI} ${ZALTOR_WINDOWS_UPGRADE2_VERSION}
                     ${CMAKE_BINARY_DIR}/tests/upgrade/msi-stage2 "")
  add_custom_target(zaltor_windows_upgrade_msi ALL
    DEPENDS ${ZALTOR_WINDOWS_UPGRADE_MSI} ${ZALTOR_WINDOWS_UPGRADE2_MSI})
endif()
