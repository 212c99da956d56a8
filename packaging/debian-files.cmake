# Run by cpack on the files to be packed, one folder for each package: what Debian wants there besides, folders as if the
# umask were 022, and the time of the sources (SOURCE_DATE_EPOCH), so that the same sources make the same packages.
set(here ${CMAKE_CURRENT_LIST_DIR})
set(epoch $ENV{SOURCE_DATE_EPOCH})
if(NOT epoch)
  message(FATAL_ERROR "SOURCE_DATE_EPOCH is not set: say what time the packages are to have")
endif()

file(READ ${here}/../LICENCE.md licence)
string(REGEX REPLACE "^# Licence\n+" "" licence "${licence}")
string(REGEX REPLACE "\n+$" "" licence "${licence}")
string(REPLACE "\n" "\n " licence "${licence}")
string(TIMESTAMP year %Y UTC)  # of SOURCE_DATE_EPOCH
execute_process(COMMAND ${here}/debian-changelog ${CPACK_PACKAGE_VERSION} ${epoch} "${CPACK_PACKAGE_CONTACT}"
                INPUT_FILE ${here}/../CHANGELOG.md OUTPUT_VARIABLE changelog COMMAND_ERROR_IS_FATAL ANY)

file(GLOB packages LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(folder ${packages})
  get_filename_component(group ${folder} NAME)
  string(TOUPPER ${group} group)
  set(name ${CPACK_DEBIAN_${group}_PACKAGE_NAME})
  file(WRITE ${folder}/usr/share/doc/${name}/changelog "${changelog}")
  file(WRITE ${folder}/usr/share/doc/${name}/copyright
       "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\nUpstream-Name: tarvolin\n\n"
       "Files: *\nCopyright: ${year} the owners of tarvolin\nLicense: none-given\n ${licence}\n")
  file(MAKE_DIRECTORY ${folder}/usr/share/lintian/overrides)
  configure_file(${here}/lintian-overrides ${folder}/usr/share/lintian/overrides/${name} COPYONLY)
endforeach()

file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man?/*
     ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog)
foreach(page ${pages})
  execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type f ! -path "*/bin/*" ! -path "*/sbin/*" -exec chmod 644 {} +
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference --date=@${epoch} {} +
                COMMAND_ERROR_IS_FATAL ANY)
