# Run by cpack on the files to be packed: folders as if the umask were 022, and manual pages as Debian wants them.
execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -type d -exec chmod 755 {} + COMMAND_ERROR_IS_FATAL ANY)
file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man?/*)
foreach(page ${pages})
  execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
