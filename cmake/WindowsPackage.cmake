# The Windows package: XMLRPCServer-<version>-win64.zip, laid out as the
# program expects (bin/ beside etc/, xml/, rng/), with README-windows.txt.
# bin/ holds the server, the client proxy simulator and vxdatatool (which
# shows and rebuilds the data files of etc/).
#   cmake --build build-windows --target package-zip
set(XMLRPCS_ZIP_NAME XMLRPCServer-${PROJECT_VERSION}-win64)
set(XMLRPCS_ZIP ${PROJECT_BINARY_DIR}/${XMLRPCS_ZIP_NAME}.zip)
set(stage ${PROJECT_BINARY_DIR}/package/${XMLRPCS_ZIP_NAME})
find_program(XMLRPCS_STRIP ${XMLRPCS_MINGW_HOST}-strip REQUIRED)

add_custom_command(OUTPUT ${XMLRPCS_ZIP}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${stage}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${stage}/bin
  # Stripped copies: the symbols stay in the build tree's executables.
  COMMAND ${XMLRPCS_STRIP} -o ${stage}/bin/XMLRPCServer.exe $<TARGET_FILE:XMLRPCServer>
  COMMAND ${XMLRPCS_STRIP} -o ${stage}/bin/ClientProxySim.exe $<TARGET_FILE:ClientProxySim>
  COMMAND ${XMLRPCS_STRIP} -o ${stage}/bin/vxdatatool.exe $<TARGET_FILE:vxdatatool>
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${XMLRPCS_DATA_OUTPUT_DIRECTORY}/etc ${stage}/etc
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${XMLRPCS_DATA_OUTPUT_DIRECTORY}/xml ${stage}/xml
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${XMLRPCS_DATA_OUTPUT_DIRECTORY}/rng ${stage}/rng
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/contrib/windows/README-windows.txt
          ${stage}/README-windows.txt
  COMMAND ${CMAKE_COMMAND} -E rm -f ${XMLRPCS_ZIP}
  COMMAND ${CMAKE_COMMAND} -E chdir ${PROJECT_BINARY_DIR}/package
          ${CMAKE_COMMAND} -E tar cf ${XMLRPCS_ZIP} --format=zip ${XMLRPCS_ZIP_NAME}
  DEPENDS XMLRPCServer ClientProxySim vxdatatool data_files
          ${PROJECT_SOURCE_DIR}/contrib/windows/README-windows.txt
  COMMENT "Packing ${XMLRPCS_ZIP_NAME}.zip" VERBATIM)
add_custom_target(package-zip DEPENDS ${XMLRPCS_ZIP})
