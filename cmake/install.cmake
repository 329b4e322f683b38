# What is installed: the libraries, their headers, mdomain, the BCC map compiler, pkg-config and
# CMake package files, the manual.
include(CMakePackageConfigHelpers)

install(CODE "set(SOURCE_DIR \"${CMAKE_SOURCE_DIR}\")
set(INCLUDE_DIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}\")")
install(SCRIPT cmake/install-headers.cmake)

install(TARGETS mailserver-domain mailserver-platform EXPORT mailserver-domain)
install(EXPORT mailserver-domain NAMESPACE mailserver-domain::
  FILE mailserver-domain-targets.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mailserver-domain)
configure_file(cmake/mailserver-domain-config.cmake.in
  ${CMAKE_BINARY_DIR}/mailserver-domain-config.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/mailserver-domain-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/mailserver-domain-config.cmake
  ${CMAKE_BINARY_DIR}/mailserver-domain-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/mailserver-domain)
configure_file(cmake/mailserver-domain.pc.in ${CMAKE_BINARY_DIR}/mailserver-domain.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/mailserver-domain.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(tool mdomain korv_bcc_map)
  if(TARGET ${tool})
    set(destination ${CMAKE_INSTALL_BINDIR})
    if(tool STREQUAL "korv_bcc_map")
      set(destination ${CMAKE_INSTALL_LIBEXECDIR}/mailserver-domain)
    endif()
    install(TARGETS ${tool} DESTINATION ${destination})
  endif()
endforeach()
install(FILES docs/export.schema.json DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES docs/mdomain.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES packaging/completion/mdomain.bash RENAME mdomain
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES packaging/completion/_mdomain
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES packaging/completion/mdomain.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
# Where Debian's Python looks below /usr; elsewhere PYTHONPATH names it.
install(FILES bindings/python/mailserver_domain.py DESTINATION lib/python3/dist-packages)
