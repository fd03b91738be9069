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
