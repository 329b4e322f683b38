# What is installed: the libraries, their headers, mdomain, the BCC map compiler, pkg-config and
# CMake package files, manual pages.
include(CMakePackageConfigHelpers)

install(CODE "set(SOURCE_DIR \"${CMAKE_SOURCE_DIR}\")
set(INCLUDE_DIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}\")")
install(SCRIPT cmake/install-headers.cmake)

# Each finds the libraries beside it, wherever all of them are installed.
set_target_properties(mailserver-domain mailserver-platform PROPERTIES INSTALL_RPATH "$ORIGIN")
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
# Made at installation, which may go below another prefix than the one that was configured.
install(CODE "set(VERSION ${PROJECT_VERSION})
set(LIBDIR ${CMAKE_INSTALL_LIBDIR})
set(INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
file(READ \"${CMAKE_SOURCE_DIR}/cmake/mailserver-domain.pc.in\" text)
string(CONFIGURE \"\${text}\" text @ONLY)
set(to \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(WRITE \${to}/mailserver-domain.pc \"\${text}\")
message(STATUS \"Installing: \${to}/mailserver-domain.pc\")")

foreach(tool mdomain korv_bcc_map mdomain-web)
  if(TARGET ${tool})
    set(destination ${CMAKE_INSTALL_BINDIR})
    if(tool STREQUAL "mdomain-web")
      set(destination ${CMAKE_INSTALL_SBINDIR})
    endif()
    if(tool STREQUAL "korv_bcc_map")
      set(destination ${CMAKE_INSTALL_LIBEXECDIR}/mailserver-domain)
    endif()
    file(RELATIVE_PATH libraries /${destination} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(${tool} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
    install(TARGETS ${tool} DESTINATION ${destination})
  endif()
endforeach()
install(FILES docs/export.schema.json DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${CMAKE_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        FILES_MATCHING PATTERN "*.1")
install(FILES docs/man/host.ini.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
if(TARGET mdomain-web)
  install(FILES docs/man/mdomain-web.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES docs/man/web.ini.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
endif()
install(FILES docs/man/libmailserver-domain.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
install(FILES packaging/completion/mdomain.bash RENAME mdomain
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES packaging/completion/_mdomain
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES packaging/completion/mdomain.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
# Where Debian's Python looks below /usr; elsewhere PYTHONPATH names it.
install(FILES bindings/python/mailserver_domain.py DESTINATION lib/python3/dist-packages)
