# mdomain_add_fuzz_target(TARGET SOURCE [DRIVER]) : a program of one fuzz target. It links the
# library's objects, or those of the platform where it reads with a parser that is hidden there.
set(PLATFORM_FUZZERS account_files_fuzz)
set(sql_dump_fuzz_SOURCES sql_dump.cpp sql_lexer.cpp)  # of mdomain, beside the library's

function(mdomain_add_fuzz_target target source)
  get_filename_component(name ${source} NAME_WE)
  add_executable(${target} ${source} ${ARGN})
  foreach(more ${${name}_SOURCES})
    target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/tools/mdomain/${more})
  endforeach()
  if(name IN_LIST PLATFORM_FUZZERS)
    target_link_libraries(${target} PRIVATE mailserver-platform-objects)
  else()
    target_link_libraries(${target} PRIVATE mailserver-domain-objects)
  endif()
endfunction()
