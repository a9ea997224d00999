# What `cmake --install` lays out under its prefix (default /opt/corvane),
# the shape the program expects: bin/ beside etc/, xml/, rng/ (those come
# from data/), plus the systemd unit, the manual page and the documentation.
# The Debian package (cmake/Package.cmake) installs the same tree, but puts
# the unit and the manual page where systemd and man look for them.

install(TARGETS XMLRPCServer ClientProxySim vxdatatool RUNTIME DESTINATION bin)

install(FILES README.md DESTINATION share/doc/xmlrpcserver)
install(DIRECTORY docs/ DESTINATION share/doc/xmlrpcserver/docs FILES_MATCHING PATTERN "*.md")
if(EXISTS ${PROJECT_SOURCE_DIR}/examples)
  install(DIRECTORY examples/ DESTINATION share/doc/xmlrpcserver/examples
          FILES_MATCHING PATTERN "*.py" PATTERN "README.md")
endif()

if(NOT UNIX)
  return()
endif()

# The account the unit runs the service as (made by the package's scripts).
set(XMLRPCS_SERVICE_USER xmlrpcserver CACHE STRING "User the systemd unit runs XMLRPCServer as")

# The unit names the installed program, so it is written at install time,
# when the final prefix is known (`cmake --install --prefix` may change it).
# With XMLRPCS_PACKAGE_LAYOUT set in the environment (the package build)
# the unit and the manual page go to /lib/systemd/system and /usr/share/man.
install(CODE "
  set(XMLRPCS_INSTALL_BINDIR \"\${CMAKE_INSTALL_PREFIX}/bin\")
  set(XMLRPCS_SERVICE_USER \"${XMLRPCS_SERVICE_USER}\")
  configure_file(\"${PROJECT_SOURCE_DIR}/contrib/xmlrpcserver.service.in\"
                 \"${PROJECT_BINARY_DIR}/install/xmlrpcserver.service\" @ONLY)
  if(\"\$ENV{XMLRPCS_PACKAGE_LAYOUT}\")
    set(unit_dir /lib/systemd/system)
    set(man_dir /usr/share/man/man8)
  else()
    set(unit_dir \"\${CMAKE_INSTALL_PREFIX}/lib/systemd/system\")
    set(man_dir \"\${CMAKE_INSTALL_PREFIX}/share/man/man8\")
  endif()
  file(INSTALL \"${PROJECT_BINARY_DIR}/install/xmlrpcserver.service\" DESTINATION \"\${unit_dir}\")
  file(INSTALL \"${PROJECT_SOURCE_DIR}/man/XMLRPCServer.8\" DESTINATION \"\${man_dir}\")
")
