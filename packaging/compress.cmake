# Run by cpack on the files to be packed: manual pages as Debian wants them.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*/share/man/*)
foreach(page ${pages})
  execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
