# Run at installation with SOURCE_DIR and INCLUDE_DIR set: copies the headers of public-headers.txt
# to INCLUDE_DIR/mailserver-domain.
#
# In the tree headers include each other as "lib-domain/..." and "platform/include/...". Programs
# include <mailserver-domain/...>, so installed headers name each other that way, too.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/public-headers.txt headers)
foreach(header ${headers})
  file(READ ${SOURCE_DIR}/${header} text)
  string(REPLACE "#include \"lib-domain/" "#include \"mailserver-domain/" text "${text}")
  string(REPLACE "#include \"platform/include/" "#include \"mailserver-domain/platform/"
    text "${text}")
  string(REGEX REPLACE "^lib-domain/" "" target ${header})
  string(REPLACE "session/mdomain" "mdomain" target ${target})
  string(REPLACE "platform/include/" "platform/" target ${target})
  file(WRITE $ENV{DESTDIR}${INCLUDE_DIR}/mailserver-domain/${target} "${text}")
endforeach()
message(STATUS "Installing: $ENV{DESTDIR}${INCLUDE_DIR}/mailserver-domain")
