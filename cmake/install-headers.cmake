# Run at installation with SOURCE_DIR and INCLUDE_DIR set: copies the headers to
# INCLUDE_DIR/mailserver-domain.
#
# In the tree headers include each other as "lib-domain/..." and "platform/include/...". Programs
# include <mailserver-domain/...>, so installed headers name each other that way, too.
file(GLOB headers RELATIVE ${SOURCE_DIR}
  ${SOURCE_DIR}/lib-domain/base/*.h ${SOURCE_DIR}/lib-domain/record/*.h
  ${SOURCE_DIR}/lib-domain/db/*.h ${SOURCE_DIR}/lib-domain/control/*.h
  ${SOURCE_DIR}/lib-domain/api/*.h ${SOURCE_DIR}/lib-domain/utils/*.h
  ${SOURCE_DIR}/lib-domain/accounts/*.h ${SOURCE_DIR}/lib-domain/sync/*.h
  ${SOURCE_DIR}/platform/include/*.h)
# The way to SQL is no one else's business.
list(REMOVE_ITEM headers platform/include/sqlite.h)
foreach(header ${headers})
  file(READ ${SOURCE_DIR}/${header} text)
  string(REPLACE "#include \"lib-domain/" "#include \"mailserver-domain/" text "${text}")
  string(REPLACE "#include \"platform/include/" "#include \"mailserver-domain/platform/"
    text "${text}")
  string(REGEX REPLACE "^lib-domain/|^platform/include/" "" target ${header})
  if(header MATCHES "^platform/")
    set(target platform/${target})
  endif()
  file(WRITE $ENV{DESTDIR}${INCLUDE_DIR}/mailserver-domain/${target} "${text}")
endforeach()
message(STATUS "Installing: $ENV{DESTDIR}${INCLUDE_DIR}/mailserver-domain")
