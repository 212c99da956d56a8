# Which version and commit the programs are of: the version is that of project(), the commit that of the tree which is
# built. It is looked for in every build, since a commit changes without CMake being asked; what has not changed is not
# written again.
#
#   tarvolin_version        library with base/version.h, for programs that say it
#   add_version_note(NAME)  puts it into the executable NAME for readelf -n and strings
if(NOT CMAKE_SCRIPT_MODE_FILE)
  set(TARVOLIN_COMMIT "" CACHE STRING "Commit that is built, where neither git nor an archive of the sources tells it")
  set(made ${CMAKE_BINARY_DIR}/version)
  set(arguments -DVERSION=${PROJECT_VERSION} -DCOMMIT=${TARVOLIN_COMMIT} -DMADE=${made} -P ${CMAKE_CURRENT_LIST_FILE})
  execute_process(COMMAND ${CMAKE_COMMAND} ${arguments} COMMAND_ERROR_IS_FATAL ANY)
  add_custom_target(version-files COMMAND ${CMAKE_COMMAND} ${arguments} VERBATIM
                    BYPRODUCTS ${made}/version.cpp ${made}/version_note.cpp)

  add_library(tarvolin_version STATIC ${made}/version.cpp)
  target_link_libraries(tarvolin_version PUBLIC tarvolin_flags)
  add_dependencies(tarvolin_version version-files)

  # An object, not a library: nothing refers to the note.
  add_library(tarvolin_version_note OBJECT ${made}/version_note.cpp)
  target_link_libraries(tarvolin_version_note PRIVATE tarvolin_flags)
  add_dependencies(tarvolin_version_note version-files)
  function(add_version_note name)
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:tarvolin_version_note>)
  endfunction()
  return()
endif()

# The script: fills the templates in. The first of these is the commit: what the user says, git, an archive of the sources.
get_filename_component(top ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
if(NOT COMMIT AND EXISTS ${top}/.git)
  # No tag is looked at: "-dirty" follows when a file differs from the commit.
  execute_process(COMMAND git -C ${top} describe --always --dirty --abbrev=12 --exclude=*
                  OUTPUT_VARIABLE COMMIT ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
elseif(NOT COMMIT)
  file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/commit COMMIT LIMIT_COUNT 1)
  string(SUBSTRING "${COMMIT}" 0 12 COMMIT)
endif()
if(NOT COMMIT MATCHES "^[0-9A-Za-z.-]+$")
  set(COMMIT unknown)
endif()
foreach(file version version_note)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${file}.cpp.in ${MADE}/${file}.cpp @ONLY)
endforeach()
