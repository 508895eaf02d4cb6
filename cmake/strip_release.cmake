# Run by CPack on the files of the release: moves the debug information out of the programs, leaves
# in each the name of the file that holds it, and writes the list of checksums.
set(files ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
file(REMOVE_RECURSE ${CPACK_TALLOW_DEBUG_DIR})
file(MAKE_DIRECTORY ${CPACK_TALLOW_DEBUG_DIR})

file(GLOB programs ${files}/bin/*.exe ${files}/bin/*.dll)
foreach(program ${programs})
  get_filename_component(name ${program} NAME)
  set(debug ${CPACK_TALLOW_DEBUG_DIR}/${name}.debug)
  foreach(step "--only-keep-debug;${program};${debug}" "--strip-all;${program}"
               "--add-gnu-debuglink=${debug};${program}")
    execute_process(COMMAND ${CPACK_TALLOW_OBJCOPY} ${step} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endforeach()

file(GLOB_RECURSE paths RELATIVE ${files} ${files}/*)
list(SORT paths)
set(sums "")
foreach(path ${paths})
  file(SHA256 ${files}/${path} sum)
  string(APPEND sums "${sum}  ${path}\n")
endforeach()
file(WRITE ${files}/SHA256SUMS "${sums}")
